// The statement reader of the command file and the keyword helpers that the
// statement parsers share.
#pragma once

#include <cstddef>
#include <string_view>

#include "base/state.hpp"
#include "base/text.hpp"

namespace kolv {

// Largest statement text, in bytes from the start of the buffer.
inline constexpr int kStatementLimit = kReadSize;
static_assert(kStatementLimit + 1 <= kInbuffSize, "a statement and its zero byte fit the buffer");

// One statement's text as getstat leaves it: without its ";", comments
// dropped, tabs expanded. A zero byte always follows the text, so a parser
// may walk it with a plain cursor and stop at the zero.
using Statement = std::string_view;

// Reads the next statement of run.files.fcf into run.rb.inbuff. Returns 1 when
// a statement ended by ";" is there, 0 at end of file (the partial text, if
// any, is left terminated and is not a statement).
int getstat(Run& run);

// The statement getstat read last.
Statement current_statement(const Run& run);

// Case-insensitive compare of at most n characters; 0 when they match.
int strnicmp(const char* s1, const char* s2, size_t n);

// Reads a word of letters, digits and "_" at sptr into buf (size bytes,
// cleared first); returns its length, 0 when none starts there or it fills buf.
int getword(const char*& sptr, char* buf, int size);

// 1 when s holds nothing but blanks.
int spaces(const char* s);

// Where a statement's argument begins: offset bytes after its start, or the
// statement's end when the statement is shorter than that.
const char* argument_at(Statement st, size_t offset);

// True when p begins with word (any case) not followed by a name character.
bool starts_with_word(const char* p, const char* word);

}  // namespace kolv
