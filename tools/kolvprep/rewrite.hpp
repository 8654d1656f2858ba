// The rewrite of `kolvprep --text`: the file's text in the form the written
// command file reads, one record a line, fields separated by commas. Lines
// before the data, blank lines and comment lines are dropped; quotes are
// removed; missing-value tokens become empty fields; ISO dates and times
// become numbers; a blank, tab or comma inside a value becomes "_". A line
// that does not fit the layout is passed on as it is, for kolv's own rules
// to report. Memory stays constant: a line longer than kMaxLine is passed on
// as it is, byte for byte, without being held.
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

struct TextOptions {
  Layout layout = Layout::kComma;
  uint64_t skip = 0;  // lines dropped at the start
  char comment = 0;   // lines beginning with it are dropped
  size_t columns = 0;
  std::vector<FixedColumn> fixed;
  std::vector<ColumnType> types;  // per column; numeric when not given
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
  // (the rewrite then stops); `warn` takes one warning line.
  Rewriter(TextOptions options, std::function<bool(const char*, size_t)> sink,
           std::function<void(const std::string&)> warn);

  // Feeds input bytes; returns false once the sink has refused bytes.
  bool feed(const char* data, size_t size);
  // Ends the input: the last line, the summary warnings, the last output.
  bool finish();

  uint64_t lines() const { return line_number_; }
  uint64_t records() const { return records_; }
  uint64_t passed_on() const { return passed_on_; }

 private:
  void line(std::string_view text);
  bool delimited_line(std::string_view text);
  bool plain_line(std::string_view text);
  uint64_t special_bytes(uint64_t w) const;
  void value(std::string_view v, ColumnType type);
  void note_replaced(std::string_view v);
  bool flush();
  bool put(const char* data, size_t size);

  TextOptions options_;
  Splitter splitter_;
  std::function<bool(const char*, size_t)> sink_;
  std::function<void(const std::string&)> warn_;
  std::vector<std::string_view> fields_;
  std::string carry_;  // the start of a line that continues in the next input
  // Output gathered for one write: room for a block and two over-long lines
  // (a time hh:mm grows by two digits, so a line at most doubles).
  std::unique_ptr<char[]> out_;
  size_t used_ = 0;
  std::string scratch_;  // one unquoted value
  std::string pending_;  // a warning about the line in hand
  uint8_t byte_class_[256] = {};
  bool plain_ = false;
  uint64_t delimiter_word_ = 0;
  bool raw_ = false;  // inside an over-long line, passed on as it is
  bool failed_ = false;
  uint64_t line_number_ = 0;
  uint64_t records_ = 0;
  uint64_t passed_on_ = 0;
  uint64_t replaced_ = 0;
  bool first_line_ = true;
};

}  // namespace kolvprep
