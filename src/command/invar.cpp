#include "command/invar.hpp"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <new>

#include "command/format.hpp"
#include "command/names.hpp"
#include "command/statement.hpp"
#include "base/fatal.hpp"

namespace kolv {

namespace {

char* skip_blanks(char* p) {
  while (*p == ' ' || *p == '\n') ++p;
  return p;
}

// Moves one character on, but never past the statement's end.
char* step(char* p) { return *p ? p + 1 : p; }

}  // namespace

bool starts_with_word(const char* p, const char* word) {
  size_t n = std::strlen(word);
  return strnicmp(p, word, n) == 0 && !is_name_char(p[n]);
}

bool grow_input_tables(Run& run, long capacity) {
  Variables& v = run.vars;
  try {
    v.inames.resize(static_cast<size_t>(capacity) * kNameSize, '\0');
    v.itypes.resize((static_cast<size_t>(capacity) + 7) & ~size_t{7}, 0);
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {
    return false;
  }
  v.varlimit = static_cast<int>(capacity);
  return true;
}

void reset_input_tables(Run& run, const char* out_of_memory) {
  Variables& v = run.vars;
  v.inames.clear();
  v.itypes.clear();
  v.inames.shrink_to_fit();
  v.itypes.shrink_to_fit();
  v.varin = 0;
  v.iname_index_valid = false;
  if (!grow_input_tables(run, 1000)) getout("%s", out_of_memory);
}

void makeivar(Run& run, long capacity) {
  Variables& v = run.vars;
  if (v.varin >= v.varlimit) {
    if (capacity > kMaxRangeCount || !grow_input_tables(run, capacity))
      getout("KOLV - Too many input variables\n");
  }
  std::memcpy(&v.inames[static_cast<size_t>(v.varin) * kNameSize], v.vname, kNameSize);
  v.itypes[static_cast<size_t>(v.varin)] = static_cast<uint8_t>(v.numeric_data);
  v.iname_index_valid = false;
  // Once a character variable is declared the run needs 8-byte elements.
  if (!v.numeric_data) v.chardata = 1;
  ++v.varin;
}

namespace {

// A name as the case-insensitive compare sees it: at most 32 characters, up
// to its first zero byte, upper case.
std::string folded_key(const char* name) {
  std::string key;
  for (int i = 0; i < kNameSize && name[i] != '\0'; ++i)
    key.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(name[i]))));
  return key;
}

void build_name_index(Variables& v) {
  v.iname_index.clear();
  v.iname_index.reserve(static_cast<size_t>(v.varin));
  for (int i = 0; i < v.varin; ++i)
    v.iname_index.emplace(folded_key(&v.inames[static_cast<size_t>(i) * kNameSize]), i);
  v.iname_index_valid = true;
}

}  // namespace

int getvardex(Run& run, const char* name) {
  Variables& v = run.vars;
  int found = -1;
  if (v.varout >= 0 && v.varout < v.varin &&
      strnicmp(&v.inames[static_cast<size_t>(v.varout) * kNameSize], name, kNameSize) == 0) {
    found = v.varout;
  } else {
    // The first entry that matches, as a scan from 0 upward would find it.
    if (!v.iname_index_valid) build_name_index(v);
    auto it = v.iname_index.find(folded_key(name));
    if (it != v.iname_index.end()) found = it->second;
  }
  if (found >= 0 && v.itypes[static_cast<size_t>(found)] == 0) v.chardata = 1;
  return found;
}

int scandel(Run& run) {
  Layout& lay = run.lay;
  char* p = skip_blanks(run.rb.sptr);
  lay.ndels = 0;
  lay.fmtflag |= 2;
  if (*p != '(') {
    lay.delimiter = ',';
    run.rb.sptr = p;
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
        std::fputs("KOLV - Invalid delimiter\n", run.io.out);
        run.rb.sptr = step(p);
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
  if (*p != ')') std::fprintf(run.io.out, "KOLV WARNING: missing ' )' at: %s\n", p);
  run.rb.sptr = step(p);
  return 1;
}

int scaninvar(Run& run) {
  Variables& v = run.vars;
  char* p = skip_blanks(argument_at(run.rb.inbuff.get(), 6));

  if (starts_with_word(p, "RECORD")) {
    if (run.set.cplx == 2) getout("KOLV - Can't read packed ASCII (COMPLEX specified)\n");
    char* q = skip_blanks(p + 6);
    if (*q == '=') q = skip_blanks(q + 1);
    if (*q >= '0' && *q <= '9') {
      run.rb.sptr = q;
      return scanformat(run);
    }
  }
  if (starts_with_word(p, "DELIMIT")) {
    run.rb.sptr = p + 7;
    run.set.scd = scandel(run);
    p = run.rb.sptr;
  }

  v.numeric_data = 1;
  v.chardata = 0;
  run.lay.varformat = 1;
  reset_input_tables(run, "KOLV - Out of memory 5\n");

  scan_name_list(run, p, true, "KOLV - Too many input variables\n", [&](long count) {
    makeivar(run, count ? v.varin + count : static_cast<long>(v.varlimit) * 2);
  });
  run.rb.sptr = p;
  return v.varin;
}

}  // namespace kolv
