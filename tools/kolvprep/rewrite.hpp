// The rewrite of `kolvprep --text`: the file's text in the form the written
// command file reads, one record a line, fields separated by commas. Lines
// before the data, blank lines and comment lines are dropped; quotes are
// removed; a record whose quoted value holds line ends is joined into one
// line; missing-value tokens become empty fields; dates and times become
// numbers; a blank, tab, comma or line end inside a value becomes "_".
//
// A record that does not fit the table (a field too many or too few, a
// quote out of place, text in a numeric column) never reaches kolv: it is
// set aside, written to the rejects sink as "LINE<TAB>TEXT" (the line
// number of its first line; inner line ends as \n, a CR as \r, a backslash
// as \\). The one repair made without asking is certain: empty fields
// after the last column are dropped. With `pad`, misfits are kept instead:
// absent fields and text in numeric columns become missing, extra fields
// are dropped. Memory stays bounded: a line longer than kMaxLine is set
// aside byte for byte without being held, and a record is held across at
// most kMaxRecordLines lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "detect.hpp"
#include "fields.hpp"

namespace kolvprep {

// The most lines one record may span; a quote left open longer is out of
// place, and the record's first line is set aside.
inline constexpr size_t kMaxRecordLines = 200;

struct TextOptions {
  Layout layout = Layout::kComma;
  char delimiter = 0;  // Layout::kOther's byte
  Quoting quoting;
  bool cr_records = false;           // records end with a CR alone
  bool decimal_comma = false;        // numbers written 1.234,5
  bool pad = false;                  // keep misfits (absent fields missing)
  std::string rejects;               // the file of set-aside records (--text's own business)
  std::vector<std::string> missing;  // missing-value tokens beside the usual ones
  uint64_t skip = 0;                 // lines dropped at the start
  uint64_t end = 0;                  // lines from this one on are dropped (another table; 0: none)
  char comment = 0;                  // lines beginning with it are dropped
  size_t columns = 0;
  std::vector<FixedColumn> fixed;
  std::vector<ColumnType> types;  // per column; numeric when not given
  std::vector<bool> keep;         // per column: missing tokens other than empty are values
  std::vector<DateOrder> orders;  // per column: the order of its dd/mm dates
  // Delimited lines without dates are copied in one pass when they can be;
  // off, every line takes the full way (the tests compare the two).
  bool one_pass = true;
};

// Reads one option of --text into `options` ("--layout=comma", "--skip=1",
// ...). Returns false with a one-line reason for an option it does not know
// or a value it cannot read. `finish_text_options` checks the whole set.
bool parse_text_option(std::string_view arg, TextOptions& options, std::string& error);
bool finish_text_options(TextOptions& options, std::string& error);

// The options that give a detection's dialect, as `kolvprep --text` takes
// them.
std::vector<std::string> text_options_for(const Detection& d);

class Rewriter {
 public:
  // `sink` takes output bytes and returns false when they cannot be written
  // (the rewrite then stops); `warn` takes one warning line; `rejects`
  // takes the bytes of set-aside records (none: they are only counted).
  Rewriter(TextOptions options, std::function<bool(const char*, size_t)> sink,
           std::function<void(const std::string&)> warn,
           std::function<bool(const char*, size_t)> rejects = nullptr);

  // Feeds input bytes; returns false once the sink has refused bytes.
  bool feed(const char* data, size_t size);
  // Ends the input: the last line, the summary warnings, the last output.
  bool finish();

  uint64_t lines() const { return line_number_; }
  uint64_t records() const { return records_; }  // records written
  uint64_t rejected() const { return rejected_; }
  uint64_t padded() const { return padded_; }
  uint64_t joined() const { return joined_; }  // records that spanned lines

 private:
  struct HeldLine {
    uint64_t number;
    std::string text;  // without its line end
  };
  void line(std::string_view text);
  void take_line(uint64_t number, std::string_view text);
  void release_held();
  // `raw` is the record as written (the same view as `text` for one line).
  void record(uint64_t number, std::string_view text, std::string_view raw);
  void reject(uint64_t number, const std::vector<std::string_view>& parts);
  bool reject_bytes(const char* data, size_t size);
  bool delimited_line(std::string_view text, bool& misfit);
  bool plain_line(std::string_view text);
  uint64_t special_bytes(uint64_t w) const;
  bool value(std::string_view v, size_t column);
  void note_replaced(std::string_view v);
  bool flush();
  bool put(const char* data, size_t size);

  TextOptions options_;
  Splitter splitter_;
  std::function<bool(const char*, size_t)> sink_;
  std::function<void(const std::string&)> warn_;
  std::function<bool(const char*, size_t)> rejects_;
  QuoteTracker tracker_;
  std::vector<HeldLine> held_;  // the lines of a record still open
  size_t held_bytes_ = 0;
  char record_end_ = '\n';
  char delimiter_ = ',';
  std::vector<std::string_view> fields_;
  std::string joined_text_;
  std::string joined_raw_;
  std::string carry_;  // the start of a line that continues in the next input
  // Output gathered for one write: room for a block and two over-long lines
  // (a time hh:mm grows by two digits, so a line at most doubles).
  std::unique_ptr<char[]> out_;
  size_t used_ = 0;
  std::string scratch_;         // one unquoted value
  std::string pending_;         // the first value with blanks written as "_", in the line in hand
  std::string first_replaced_;  // where that first happened in a record kept
  uint8_t byte_class_[256] = {};
  bool plain_ = false;
  uint64_t delimiter_word_ = 0;
  bool raw_ = false;  // inside an over-long line, passed on as it is
  bool failed_ = false;
  uint64_t line_number_ = 0;
  uint64_t records_ = 0;
  uint64_t rejected_ = 0;
  uint64_t padded_ = 0;
  uint64_t joined_ = 0;
  uint64_t left_out_ = 0;
  uint64_t record_number_ = 0;  // the first line of the record in hand
  uint64_t numeric_text_ = 0;   // misfits for text in a numeric column
  uint64_t replaced_ = 0;
  bool first_line_ = true;
};

}  // namespace kolvprep
