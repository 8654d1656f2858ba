// Fields of one text line and what each value is, as kolv will read it.
//
// A line is split by its layout (a delimiter with double-quote quoting, runs
// of blanks, or fixed columns); every field is trimmed of blanks and, when it
// was quoted, unquoted. A value is then classed: missing, a number (what
// kolv's own number conversion takes whole), an ISO date, time or date and
// time, or text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kolvprep {

enum class Layout { kComma, kTab, kSemicolon, kPipe, kBlank, kFixed };

// The option word of a layout ("comma", "tab", ...) and its reverse.
const char* layout_word(Layout layout);
bool layout_from_word(std::string_view word, Layout& layout);
// The delimiter byte of a delimited layout, 0 for blank and fixed.
char layout_delimiter(Layout layout);

// One fixed column: the bytes [start, start + width) of a line, 0-based.
struct FixedColumn {
  size_t start = 0;
  size_t width = 0;
};

// Splits lines of one layout. The fields it returns point into the line or
// into its own scratch space, and stay valid until the next call.
class Splitter {
 public:
  Splitter(Layout layout, std::vector<FixedColumn> fixed = {});

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
  std::vector<FixedColumn> fixed_;
  std::string scratch_;
  bool saw_quote_ = false;
};

// Blank and tab are trimmed around every field; a carriage return too.
inline bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}
std::string_view trim(std::string_view s);

enum class ValueKind { kMissing, kNumber, kDate, kTime, kDateTime, kText };

// Classes one trimmed, unquoted value. `number` gets the value of a number
// (also of a date or time, as the rewrite writes it: yyyymmdd, hhmmss,
// yyyymmddhhmmss).
ValueKind classify(std::string_view value, double* number = nullptr);

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

}  // namespace kolvprep
