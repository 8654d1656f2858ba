#include "command/invar.hpp"

#include <cctype>
#include <cstdio>

#include "base/fatal.hpp"
#include "base/text.hpp"
#include "command/messages.hpp"
#include "command/names.hpp"
#include "command/packed_record.hpp"
#include "command/statement.hpp"
#include "command/vartable.hpp"

namespace kolv {

namespace {

// Moves one character on, but never past the statement's end.
const char* step(const char* p) {
  return *p ? p + 1 : p;
}

}  // namespace

int scandel(Run& run, const char*& p) {
  InvarSettings& lay = run.lay;
  p = skip_blanks(p);
  lay.ndels = 0;
  lay.fmtflag |= 2;
  if (*p != '(') {
    lay.delimiter = ',';
    return 1;
  }
  p = skip_blanks(p + 1);
  if (*p == '\\') {
    ++p;
    switch (std::toupper(static_cast<unsigned char>(*p))) {
      case 'C':
        lay.delimiter = ',';
        break;
      case 'N':
        lay.delimiter = '\n';
        break;
      case 'R':
        lay.delimiter = ',';
        lay.fmtflag |= 4;
        break;
      case '\\':
        lay.delimiter = '\\';
        break;
      default:
        std::fputs(kInvalidDelimiter, run.io.out);
        p = step(p);
        return 0;
    }
    ++p;
  } else {
    lay.delimiter = *p;
    p = step(p);
  }
  p = skip_separators(p);
  if (*p == 'N' || *p == 'n') {
    lay.ndels = 1;
    p = skip_blanks(p + 1);
  }
  if (*p != ')') std::fprintf(run.io.out, kMissingParenthesis, p);
  p = step(p);
  return 1;
}

int scaninvar(Run& run, Statement st) {
  Variables& v = run.vars;
  const char* p = skip_blanks(argument_at(st, 6));

  if (starts_with_word(p, "RECORD")) {
    if (run.set.cplx == 2) getout(kPackedWithComplex);
    const char* q = skip_blanks(p + 6);
    if (*q == '=') q = skip_blanks(q + 1);
    if (is_digit(*q)) return scanformat(run, q);
  }
  if (starts_with_word(p, "DELIMIT")) {
    p += 7;
    run.set.scd = scandel(run, p);
  }

  v.numeric_data = 1;
  v.chardata = 0;
  run.lay.varformat = 1;
  reset_input_tables(run, kOutOfMemory5);

  scan_name_list(run, p, true, kTooManyInputVariables, [&](long count) {
    makeivar(run, count ? v.varin + count : static_cast<long>(v.varlimit) * 2);
  });
  return v.varin;
}

}  // namespace kolv
