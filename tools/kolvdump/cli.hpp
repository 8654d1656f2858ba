// kolvdump's command line: the options, the choice of columns and rows, and
// the run that reads a data set and renders it. main() is a call of run().
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "reader.hpp"

namespace kolvdump {

// Exit statuses.
inline constexpr int kExitOk = 0;
// The rows disagree with the header (they are shown all the same); with
// --check, anything wrong with the file.
inline constexpr int kExitRowMismatch = 1;
// Not a data set, unreadable, unwritable output, or wrong arguments.
inline constexpr int kExitNotDataSet = 2;

enum class Mode { kText, kCsv, kNpy, kCheck };

struct Options {
  Mode mode = Mode::kText;
  bool header_only = false;
  bool names = true;                   // --csv writes a line of names
  std::optional<std::string> na;       // --na TEXT
  std::optional<std::string> columns;  // --columns LIST, as given
  uint64_t first = 1;                  // --rows FIRST:LAST, from 1, inclusive
  uint64_t last = UINT64_MAX;
  uint64_t head = UINT64_MAX;  // --head N
  std::string npy;             // --npy FILE
  bool summary = false;        // --summary (as CSV with --csv)
  bool ascii = false;          // --ascii: the summary's histograms in ASCII
};

// The columns a --columns list names, in its order.
struct ColumnChoice {
  enum class Error { kNone, kEmptyItem, kNoSuchName, kNumberOutOfRange, kTwice };
  std::vector<uint32_t> columns;  // indexes into DataSet::columns
  Error error = Error::kNone;
  std::string item;  // the item that is wrong
};

// Items are variable names (compared without regard to ASCII case) or
// variable numbers from 1, separated by commas; an item of digits alone is
// a number. A complex variable gives its two columns.
ColumnChoice choose_columns(const DataSet& ds, std::string_view list);

// "FIRST:LAST" or "FIRST:" (to the last row); false when it is not one.
bool parse_row_range(std::string_view text, uint64_t& first, uint64_t& last);

// The file a name on the command line means: a name without an extension
// means NAME.dat when that file exists (kolv writes its data sets so).
std::string data_set_path(const std::string& name);

// Reads the data set from `in` (positioned at its start), named `name` in
// messages, and shows it as `options` ask. Returns an exit status.
int dump(FILE* in, const std::string& name, const Options& options, FILE* out, FILE* err);

// The whole program; argv[0] is the program's name.
int run(int argc, const char* const* argv, FILE* out, FILE* err);

}  // namespace kolvdump
