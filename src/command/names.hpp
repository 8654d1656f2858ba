// Variable names and name ranges (name[n], name[a:b], name[a-b]), shared by
// INVAR, OUTVAR and packed record descriptions.
#pragma once

#include <cstring>

#include "base/fatal.hpp"
#include "base/state.hpp"
#include "base/text.hpp"
#include "command/messages.hpp"
#include "command/statement.hpp"

namespace kolv {

// The report of a malformed name list, quoting the text from the fault on.

// Most names one range may generate; a larger range is refused as too many.
inline constexpr long kMaxRangeCount = 1L << 22;

struct NameRange {
  long first = 0;
  long last = 0;
  int width = 0;  // zero padding of the generated numbers; 0 for none
};

// Parses a range with the cursor p on its "["; on success leaves p after the
// "]" and returns nullptr, otherwise returns where the syntax error is
// reported from.
const char* parse_range(const char*& p, NameRange& range, int vpad);

// Reads a name of at most 32 letters, digits and "_" at p into run.vars.vname
// (cleared first); returns its length. A 33rd name character is left at p.
int read_name(Run& run, const char*& p);

// Folds vname by type unless names keep their case: numeric names upper case,
// character names lower case.
void fold_name(Run& run, bool numeric);

// The i-th generated name of a range: the stem (vname) cut to 32 - width
// characters, followed by i zero-padded to width.
void range_name(const char* stem, int width, long i, char* out);

// The name list of INVAR and OUTVAR, from p to the statement's end: names and
// ranges separated by blanks, line feeds and commas. With type_switches, "#"
// and "$" switch the type of later names and each name is folded by it (INVAR);
// otherwise they are syntax errors (OUTVAR). add(count) adds the name in vname:
// count is 0 for a single name, else the size of the range it belongs to. A
// range larger than any table may hold ends the run with too_many.
template <class Add>
void scan_name_list(Run& run, const char*& p, bool type_switches, const char* too_many, Add add) {
  Variables& v = run.vars;
  for (;;) {
    p = skip_separators(p);
    if (type_switches && (*p == '#' || *p == '$')) {
      v.numeric_data = *p == '#';
      ++p;
      continue;
    }
    if (*p == '\0') return;
    if (!is_name_char(*p)) getout(kSyntaxError, p);
    read_name(run, p);
    if (is_name_char(*p)) getout(kSyntaxError, p);  // a 33rd name character
    if (type_switches) fold_name(run, v.numeric_data != 0);
    if (*p != '[') {
      add(0L);
      continue;
    }
    NameRange range;
    if (const char* at = parse_range(p, range, run.set.vpad)) getout(kSyntaxError, at);
    long count = range.last - range.first + 1;
    if (count > kMaxRangeCount) getout("%s", too_many);
    char stem[kNameSize + 1];
    std::memcpy(stem, v.vname, sizeof stem);
    for (long i = range.first; i <= range.last; ++i) {
      range_name(stem, range.width, i, v.vname);
      add(count);
    }
  }
}

}  // namespace kolv
