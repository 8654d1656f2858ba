// Reports of bad input in delimited conversions: where the conversion
// stopped, with a dump of the bytes found there.
#pragma once

#include <cstdint>

#include "base/state.hpp"

namespace kolv {

enum SourceErrorKind : int32_t {
  kMissingDelimiter = 1,
  kLastRowIncomplete = 2,
  kBadData = 3,
  kUnexpectedDelimiter = 4,
};

// Prints the report of the given kind for position (a pointer into the read
// buffer) and line; returns kind. An unknown kind ends the run.
int32_t sourcerr(Run& run, int32_t kind, const char* position, int32_t line);

// The "Hex:" and "ASCII:" lines for up to 16 bytes from position, stopping
// before a zero byte; with_closing_quote false leaves the ASCII line open.
void dump_bytes(FILE* out, const char* position, size_t limit, bool with_closing_quote);

}  // namespace kolv
