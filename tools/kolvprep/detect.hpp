// Looking at a text file: a sample of its lines, then its layout, the lines
// before the data, a header line, and what each column holds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "fields.hpp"
#include "source.hpp"

namespace kolvprep {

// How much is read when the whole file is not: the start, and blocks spread
// through the rest.
struct SampleSize {
  size_t whole_limit = size_t{4} << 20;  // files up to this size are read whole
  size_t start = size_t{1} << 20;
  size_t block = size_t{256} << 10;
  size_t blocks = 12;
};

// The longest line taken for a table row.
inline constexpr size_t kMaxLine = size_t{1} << 20;

struct SampleLine {
  std::string_view text;  // without its line end (and without a final CR)
  uint64_t number = 0;    // 1-based line number; 0 in a block of the sample
};

struct Sample {
  Sample() = default;
  Sample(const Sample&) = delete;  // the lines point into its own chunks
  Sample& operator=(const Sample&) = delete;
  std::deque<std::string> chunks;  // what was read (BOM removed); never moved once read
  std::vector<SampleLine> lines;
  size_t start_lines = 0;  // lines[0, start_lines) are the file's first lines, in order
  bool whole_file = false;
  uint64_t file_size = 0;
  bool bom = false;
  size_t crlf_lines = 0;
  size_t lf_lines = 0;
  bool cr_records = false;  // records end with a CR alone (read as line feeds)
  Compression compression = Compression::kNone;
  bool final_newline = true;
};

// Builds a sample from bytes already in memory (the whole file, or its start
// when `whole` is false). Returns false with a one-line reason when the
// bytes cannot be a table: empty, a byte-order mark alone, NUL bytes, a line
// longer than kMaxLine.
bool sample_from_bytes(std::string bytes, bool whole, uint64_t file_size, Sample& sample,
                       std::string& error);

// Reads the sample of the file at `path` (all of it with `full`).
bool read_sample(const std::string& path, bool full, const SampleSize& size, Sample& sample,
                 std::string& error);

enum class ColumnType { kNumeric, kCharacter, kDate, kTime, kDateTime };

struct Column {
  std::string name;    // the variable name written in the command file
  std::string header;  // the header field it came from, if any
  ColumnType type = ColumnType::kNumeric;
  FixedColumn fixed;  // fixed layout only
  size_t numbers = 0, texts = 0, missing = 0, dates = 0, times = 0, datetimes = 0;
  size_t widest = 0;  // longest value kept as text
  std::string widest_text;
  uint64_t widest_line = 0;
  std::string first_text;  // first value that is text
  // The shape of the text values ("AA" for two capitals) when they all
  // have one; a missing token of that shape ("NA") is then a value.
  std::string shape;
  bool one_shape = true;
  bool keep_tokens = false;
  uint64_t first_text_line = 0;
  bool text_with_separators = false;  // a blank, tab or comma inside a value
  std::string separator_example;
  uint64_t separator_line = 0;
  bool integers = true;
  double min = 0, max = 0;
  std::vector<std::string> missing_tokens;  // distinct missing tokens seen
  std::string code;                         // a number that looks like a missing-value code
  size_t code_count = 0;
  double code_value = 0;
  double other_min = 0, other_max = 0;  // the numbers other than the code
  size_t others = 0;
  // Codes with leading zeros ("00501"): how many, and their one width (0
  // when they differ).
  size_t zero_codes = 0;
  size_t zero_width = 0;
  size_t number_width = 0;     // the one width of numbers written in digits only (0: none)
  bool other_numbers = false;  // a number not written in digits only, or of another width
  // Dates such as 01/02/2000 that may be day/month or month/day.
  size_t ambiguous_dates = 0;
  bool ambiguous_times = false;       // such dates with a time after them
  int max_first = 0, max_second = 0;  // the largest first and second numbers
  DateOrder date_order = DateOrder::kNone;
  std::string ambiguous_example;
  // Distinct values of a text column, and of their first 8 bytes as kolv
  // keeps them (counted up to kMaxDistinct).
  size_t distinct = 0, distinct_cut = 0;
  bool given_type = false;  // --text-columns or --numeric-columns

  // A number like a missing-value code that lies far outside the column's
  // other values (more than twice their spread beyond them).
  bool far_code() const {
    if (code.empty() || type != ColumnType::kNumeric || others < 2) return false;
    const double spread = other_max - other_min;
    return code_value < other_min - 2 * spread - 1 || code_value > other_max + 2 * spread + 1;
  }
};

// Choices given on the command line instead of guessed.
struct Overrides {
  bool layout_given = false;
  Layout layout = Layout::kComma;
  char delimiter = 0;  // Layout::kOther's byte
  bool quote_given = false;
  char quote = '"';  // 0: no quoting
  int header = -1;   // header rows; -1: guessed
  long skip = -1;    // lines before the table; -1: guessed
  std::vector<FixedColumn> cuts;
  std::vector<std::string> text_columns;     // numbers or header names
  std::vector<std::string> numeric_columns;  // numbers or header names
  std::vector<std::string> missing;
  bool pad = false;
};

// How many distinct values of a text column are counted.
inline constexpr size_t kMaxDistinct = 100000;

struct Detection {
  Layout layout = Layout::kComma;
  char delimiter = 0;  // Layout::kOther's byte
  Quoting quoting;
  bool cr_records = false;
  bool decimal_comma = false;
  bool pad = false;
  Compression compression = Compression::kNone;
  std::vector<std::string> missing;  // tokens given with --missing
  size_t header_rows = 0;            // lines the names come from
  // What was given rather than guessed, for the report.
  bool layout_given = false, quote_given = false, header_given = false, skip_given = false,
       cuts_given = false;
  // Weak evidence, each one line naming the option that settles it.
  std::vector<std::string> doubts;
  uint64_t joined_records = 0;             // records of the sample that span lines
  uint64_t table_end = 0;                  // the line where another table begins (0: none)
  uint64_t rest_lines = 0;                 // lines from there on, when the whole file was read
  uint64_t foreign_rows = 0;               // rows of text amid numbers (a heading, a note)
  std::vector<std::string> column_errors;  // --text-columns names not found
  size_t skip = 0;   // lines dropped before the data, counted from the file's start
  char comment = 0;  // lines beginning with it are comments (0: none)
  bool header = false;
  uint64_t header_line = 0;
  bool names_from_comment = false;
  std::vector<Column> columns;
  bool quotes = false;
  bool whole_file = false;
  bool crlf = false;
  bool bom = false;
  uint64_t data_lines = 0;     // data lines in the sample
  uint64_t blank_lines = 0;    // blank lines among or after the data
  uint64_t comment_lines = 0;  // comment lines among or after the data
  bool final_newline = true;
  bool mixed_line_ends = false;
  // Lines of the sample that do not fit the layout (count, and the first few).
  uint64_t misfits = 0;
  std::vector<std::string> misfit_notes;
  // Fixed layout: every data line has this length (0 when they differ).
  size_t record_length = 0;
  bool tabs_in_data = false;
  bool commas_in_blank_values = false;
  std::vector<std::string> name_notes;  // header names that had to change
};

// Finds the layout, header and columns of the sample, taking what is given
// in `given` as settled. Returns false with a one-line reason (naming the
// option that settles it) when no table can be found.
bool detect(const Sample& sample, const Overrides& given, Detection& detection, std::string& error);
inline bool detect(const Sample& sample, Detection& detection, std::string& error) {
  return detect(sample, Overrides{}, detection, error);
}

// The name rules of the command language: letters, digits and "_", at most
// 32 characters, starting with a letter or "_" (so that the packed record
// description takes it too), distinct without regard to case, and never the
// words RECORD or DELIMIT. `wanted` is the header text; `index` the column's
// 1-based number for a generated name.
std::string make_name(std::string_view wanted, size_t index, std::vector<std::string>& taken);

// Numbers that look like missing-value codes: every digit a 9 (at least
// four, or two in a negative number), such as -999, 9999.9 or -9.99; 999
// alone is too often a real value (a pressure, a count).
bool looks_like_missing_code(std::string_view value);

}  // namespace kolvprep
