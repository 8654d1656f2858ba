#include "command/names.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "command/statement.hpp"

namespace kolv {

namespace {

// Reads decimal digits, keeping the first ten: far above any count a range
// may have.
long read_range_number(const char*& p, int& digits) {
  long value = 0;
  digits = 0;
  while (is_digit(*p)) {
    if (value < 1000000000L) value = value * 10 + (*p - '0');
    ++digits;
    ++p;
  }
  return value;
}

}  // namespace

const char* parse_range(const char*& p, NameRange& range, int vpad) {
  ++p;  // the "["
  p = skip_blanks(p);
  if (!is_digit(*p)) return p;
  const char* number = p;
  int digits = 0;
  range.width = 0;
  bool padded = *p == '0';
  range.first = read_range_number(p, digits);
  if (padded) range.width = digits;
  p = skip_blanks(p);
  if (*p == ']') {
    ++p;
    if (range.first < 1) return number;
    range.last = range.first;
    range.first = 1;
  } else if (*p == ':' || *p == '-') {
    p = skip_blanks(p + 1);
    if (!is_digit(*p)) return p;
    int last_digits = 0;
    range.last = read_range_number(p, last_digits);
    p = skip_blanks(p);
    if (*p != ']') return p;
    ++p;
    if (range.first > range.last) return number;
    if (!padded) range.width = last_digits * vpad;
    return nullptr;
  } else {
    return p;
  }
  if (!padded) {
    int last_digits = std::snprintf(nullptr, 0, "%ld", range.last);
    range.width = last_digits * vpad;
  }
  return nullptr;
}

int read_name(Run& run, const char*& p) {
  char* vname = run.vars.vname;
  std::memset(vname, 0, sizeof run.vars.vname);
  int n = 0;
  while (n < kNameSize && is_name_char(*p)) vname[n++] = *p++;
  return n;
}

void fold_name(Run& run, bool numeric) {
  if (run.set.keepcase) return;
  for (char* c = run.vars.vname; *c; ++c) {
    unsigned char u = static_cast<unsigned char>(*c);
    *c = static_cast<char>(numeric ? std::toupper(u) : std::tolower(u));
  }
}

void range_name(const char* stem, int width, long i, char* out) {
  int keep = kNameSize - width;
  if (keep < 0) keep = 0;
  char buffer[96];
  std::snprintf(buffer, sizeof buffer, "%.*s%0*ld", keep, stem, width, i);
  std::memset(out, 0, kNameSize + 1);
  std::memcpy(out, buffer, std::min<size_t>(std::strlen(buffer), kNameSize));
}

}  // namespace kolv
