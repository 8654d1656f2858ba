// kolvdump: reads a data set back as text: its header, its variables and its
// rows. The program's main is a thin call of `run`; everything else is here so
// that the unit tests can drive it in-process.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace kolvdump {

struct Options {
  bool csv = false;          // names line and comma-separated rows only
  bool header_only = false;  // no rows (the row count is still checked)
};

// Exit statuses.
inline constexpr int kExitOk = 0;
inline constexpr int kExitRowMismatch = 1;  // rows or bytes disagree with the header
inline constexpr int kExitNotDataSet = 2;   // also wrong arguments and unreadable files

// The missing-value tests of the three element widths.
bool double_is_missing(uint64_t bits);
bool float_is_missing(uint32_t bits);
bool int16_is_missing(uint16_t bits);

// Text of one element of `size` bytes (2, 4 or 8) in file byte order. A
// character element (8 bytes only) reads as its text up to the first zero
// byte; missing values read as ".".
std::string format_element(const uint8_t* element, uint32_t size, bool character);

// Bytes up to the first zero byte (at most `max`), with bytes outside
// printable ASCII and the backslash written as \xHH.
std::string escape_text(const uint8_t* bytes, size_t max);

// Dumps the data set read from `in` (positioned at its start), naming it
// `name` in messages. Returns one of the exit statuses above.
int dump(FILE* in, const std::string& name, const Options& options, FILE* out, FILE* err);

// The whole program: arguments (argv[0] is the program name), opening the
// file, dumping it. Returns the exit status.
int run(int argc, const char* const* argv, FILE* out, FILE* err);

}  // namespace kolvdump
