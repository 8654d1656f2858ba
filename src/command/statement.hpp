// The statement reader of the command file and the keyword helpers that the
// statement parsers share.
#pragma once

#include <cstddef>

#include "base/state.hpp"

namespace kolv {

// Largest statement text, in bytes from the start of the buffer.
inline constexpr int kStatementLimit = 131072;

// Reads the next statement of run.files.fcf into run.rb.inbuff. Returns 1 when
// a statement ended by ";" is there, 0 at end of file (the partial text, if
// any, is left terminated and is not a statement).
int getstat(Run& run);

// Case-insensitive compare of at most n characters; 0 when they match.
int strnicmp(const char* s1, const char* s2, size_t n);

// Reads a word of letters, digits and "_" at sptr into buf (size bytes,
// cleared first); returns its length, 0 when none starts there or it fills buf.
int getword(char*& sptr, char* buf, int size);

// 1 when s holds nothing but blanks.
int spaces(const char* s);

// Where a statement's argument begins: offset bytes after its start, or the
// statement's end when the statement is shorter than that.
char* argument_at(char* statement, size_t offset);

// Skips blanks, line feeds and, when with_commas, commas.
inline char* skip_separators(char* p, bool with_commas = true) {
  while (*p == ' ' || *p == '\n' || (with_commas && *p == ',')) ++p;
  return p;
}

// Letters, digits and "_" make names.
bool is_name_char(char c);

}  // namespace kolv
