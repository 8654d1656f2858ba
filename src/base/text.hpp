// Character classes and cursor helpers shared by every reader of command
// text: the statement parsers, and the companion programs that write
// statements of their own.
#pragma once

#include <cctype>

namespace kolv {

inline bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// Letters, digits and "_" make names.
inline bool is_name_char(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// Skips blanks and line feeds.
inline const char* skip_blanks(const char* p) {
  while (*p == ' ' || *p == '\n') ++p;
  return p;
}

// Skips blanks, line feeds and, when with_commas, commas.
inline const char* skip_separators(const char* p, bool with_commas = true) {
  while (*p == ' ' || *p == '\n' || (with_commas && *p == ',')) ++p;
  return p;
}

// Reads decimal digits at p, moving p past them, saturating at cap; digits
// gets their count (leading zeros included).
inline long read_number(const char*& p, long cap, int* digits = nullptr) {
  long value = 0;
  int count = 0;
  while (is_digit(*p)) {
    value = value * 10 + (*p - '0');
    if (value > cap) value = cap;
    ++count;
    ++p;
  }
  if (digits != nullptr) *digits = count;
  return value;
}

}  // namespace kolv
