// Reports of bad input in delimited conversions: where the conversion
// stopped, with a dump of the bytes found there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "engine/loops.hpp"

namespace kolv {

enum SourceErrorKind : int32_t {
  kMissingDelimiter = 1,
  kLastRowIncomplete = 2,
  kBadData = 3,
  kUnexpectedDelimiter = 4,
};

// Prints the report of the given kind for position (a pointer into the read
// buffer) and line; returns kind. An unknown kind ends the run.
int32_t sourcerr(Engine& engine, int32_t kind, const char* position, int32_t line);

// The report of a packed record's field that holds no number: the record's
// number from 1, the field's byte offset in the file, and a dump of the
// field's text. The run then ends.
void report_packed_bad_data(Engine& engine, int64_t record_number, int64_t offset,
                            const char* text);

// The report of a partial record after the last whole one (extra bytes in
// all, the first `available` of them at bytes), unless it is only a line end.
void report_extra_bytes(Engine& engine, const char* bytes, size_t available, int64_t extra);

// The "Hex:" and "ASCII:" lines for up to 16 bytes from position, stopping
// before a zero byte; with_closing_quote false leaves the ASCII line open.
void dump_bytes(FILE* out, const char* position, size_t limit, bool with_closing_quote);

}  // namespace kolv
