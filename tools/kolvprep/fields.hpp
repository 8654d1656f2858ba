// Fields of one text line and what each value is, as kolv will read it.
//
// A line is split by its layout (a delimiter, runs of blanks, or fixed
// columns) and its quoting (a double or single quote, escaped inside a
// quoted value by doubling it or by a backslash, or no quoting at all);
// every field is trimmed of blanks and, when it was quoted, unquoted. A value is then classed:
// missing, a number (what kolv's own number conversion takes whole), an ISO date, time or date and
// time, or text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kolvprep {

// kOther: a delimiter byte other than the four named ones.
enum class Layout { kComma, kTab, kSemicolon, kPipe, kBlank, kFixed, kOther };

// The option word of a layout ("comma", "tab", ...) and its reverse.
const char* layout_word(Layout layout);
bool layout_from_word(std::string_view word, Layout& layout);
// The delimiter byte of a delimited layout, 0 for blank, fixed and other.
char layout_delimiter(Layout layout);

// How quoted values are written: the quote byte (0: no quoting) and whether
// a quote inside a quoted value is escaped by a backslash instead of being
// doubled.
struct Quoting {
  char quote = '"';
  bool backslash = false;
};

// Follows the quoting of a record across its lines: a record whose line
// ends inside a quoted value goes on in the next line. Only a quote at a
// field's start opens a quoted value; one inside unquoted text is text.
class QuoteTracker {
 public:
  QuoteTracker(char delimiter, Quoting quoting) : delimiter_(delimiter), quoting_(quoting) {}
  void reset() {
    state_ = kFieldStart;
    field_ = open_field_ = 0;
  }
  // Follows `text`; true when it ends inside a quoted value.
  bool open_after(std::string_view text);
  // The 0-based field whose quoted value was opened last.
  size_t open_field() const { return open_field_; }

 private:
  enum State { kFieldStart, kUnquoted, kQuoted, kEscape, kQuoteSeen, kAfterClose };
  char delimiter_;  // 0: runs of blanks
  Quoting quoting_;
  State state_ = kFieldStart;
  size_t field_ = 0;
  size_t open_field_ = 0;
};

// One fixed column: the bytes [start, start + width) of a line, 0-based.
struct FixedColumn {
  size_t start = 0;
  size_t width = 0;
};

// Splits lines of one layout. The fields it returns point into the line or
// into its own scratch space, and stay valid until the next call.
class Splitter {
 public:
  // `delimiter` is the byte of Layout::kOther (ignored for the others).
  Splitter(Layout layout, std::vector<FixedColumn> fixed = {}, Quoting quoting = {},
           char delimiter = 0);

  // Splits `line` (no line end) into trimmed, unquoted fields. Returns false
  // when the quoting is broken: an open quote at the line's end, or text
  // after a closing quote before the next delimiter.
  bool split(std::string_view line, std::vector<std::string_view>& fields);

  // True when the last split met a quoted field.
  bool saw_quote() const { return saw_quote_; }

  Layout layout() const { return layout_; }

 private:
  bool split_delimited(std::string_view line, std::vector<std::string_view>& fields);
  bool split_blank(std::string_view line, std::vector<std::string_view>& fields);
  void split_fixed(std::string_view line, std::vector<std::string_view>& fields);
  bool read_quoted(std::string_view line, size_t& i, std::string_view& value);

  Layout layout_;
  char delimiter_;
  Quoting quoting_;
  std::vector<FixedColumn> fixed_;
  std::string scratch_;
  bool saw_quote_ = false;
};

// Blank and tab are trimmed around every field; a carriage return and a
// line feed (inside a value that spans lines) too.
inline bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
std::string_view trim(std::string_view s);

enum class ValueKind { kMissing, kNumber, kDate, kTime, kDateTime, kText };

// Classes one trimmed, unquoted value. `number` gets the value of a number
// (also of a date or time, as the rewrite writes it: yyyymmdd, hhmmss,
// yyyymmddhhmmss).
ValueKind classify(std::string_view value, double* number = nullptr);

// A value as a message shows it: quoted, on one line (line ends, CRs and
// tabs written as \n, \r, \t), cut after `most` bytes with "...".
std::string shown_value(std::string_view v, size_t most = 24);

// The missing-value tokens: empty, NA, N/A, NaN, null (any case), "." and "?".
bool is_missing_token(std::string_view value);

// kolv's own number conversion takes the whole value: it does not begin with
// a letter or "_" (kolv stores such a field as text), and the conversion
// consumes every byte. Hexadecimal forms ("0x1A") are not counted as numbers.
bool is_kolv_number(std::string_view value, double* number = nullptr);

// An ISO date yyyy-mm-dd, a time hh:mm or hh:mm:ss (with an optional
// fraction of a second), or both joined by "T" or a blank (an optional "Z"
// after). Each writes its digits as kolv will read them in `out`.
bool iso_date(std::string_view value, std::string* out = nullptr);
bool iso_time(std::string_view value, std::string* out = nullptr);
bool iso_datetime(std::string_view value, std::string* out = nullptr);

// Dates whose reading is certain besides ISO ones: yyyy/mm/dd, dd.mm.yyyy
// and a month's name ("Jan 5 2000", "Jan 5, 2000", "5 Jan 2000"); with a
// time after a blank or "T" for any_datetime. A date of two numbers that
// may each be the day or the month (01/02/2000) is none of them.
bool any_date(std::string_view value, std::string* out = nullptr);
bool any_datetime(std::string_view value, std::string* out = nullptr);

// dd/mm/yyyy or mm/dd/yyyy (also with "-"), where the order cannot be told
// from the value alone; `first` and `second` get the two leading numbers.
bool ambiguous_date(std::string_view value, int* first = nullptr, int* second = nullptr);

// The order of a column's dd/mm/yyyy or mm/dd/yyyy dates, once a value of
// it shows which number is the day (a first number over 12: day first).
enum class DateOrder : char { kNone = 0, kDayFirst = 'd', kMonthFirst = 'm' };

// A date of that order, with an optional time after a blank, as the
// numbers yyyymmdd or yyyymmddhhmmss (`with_time`: the time is required).
bool ordered_date(std::string_view value, DateOrder order, bool with_time, std::string* out);

}  // namespace kolvprep
