#include "fields.hpp"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "base/numparse.hpp"

namespace kolvprep {

const char* layout_word(Layout layout) {
  switch (layout) {
    case Layout::kComma:
      return "comma";
    case Layout::kTab:
      return "tab";
    case Layout::kSemicolon:
      return "semicolon";
    case Layout::kPipe:
      return "pipe";
    case Layout::kBlank:
      return "blank";
    case Layout::kFixed:
      return "fixed";
    case Layout::kOther:
      return "other";
  }
  return "comma";
}

bool layout_from_word(std::string_view word, Layout& layout) {
  for (Layout l : {Layout::kComma, Layout::kTab, Layout::kSemicolon, Layout::kPipe, Layout::kBlank,
                   Layout::kFixed, Layout::kOther}) {
    if (word == layout_word(l)) {
      layout = l;
      return true;
    }
  }
  return false;
}

char layout_delimiter(Layout layout) {
  switch (layout) {
    case Layout::kComma:
      return ',';
    case Layout::kTab:
      return '\t';
    case Layout::kSemicolon:
      return ';';
    case Layout::kPipe:
      return '|';
    default:
      return 0;
  }
}

std::string_view trim(std::string_view s) {
  size_t b = 0;
  size_t e = s.size();
  while (b < e && is_blank(s[b])) ++b;
  while (e > b && is_blank(s[e - 1])) --e;
  return s.substr(b, e - b);
}

bool QuoteTracker::open_after(std::string_view text) {
  const char q = quoting_.quote;
  for (const char c : text) {
    const bool ends_field = delimiter_ != 0 ? c == delimiter_ : (c == ' ' || c == '\t');
    switch (state_) {
      case kFieldStart:
        if (ends_field) {
          // Runs of blanks end one field only.
          if (delimiter_ != 0) ++field_;
          break;
        }
        if (c == q && q != 0) {
          state_ = kQuoted;
          open_field_ = field_;
        } else if (c != ' ' && c != '\t') {
          state_ = kUnquoted;
        }
        break;
      case kUnquoted:
      case kAfterClose:
        if (ends_field) {
          state_ = kFieldStart;
          ++field_;
        }
        break;
      case kQuoted:
        if (quoting_.backslash && c == '\\')
          state_ = kEscape;
        else if (c == q)
          state_ = quoting_.backslash ? kAfterClose : kQuoteSeen;
        break;
      case kEscape:
        state_ = kQuoted;
        break;
      case kQuoteSeen:
        state_ = c == q ? kQuoted : ends_field ? kFieldStart : kAfterClose;
        field_ += ends_field;
        break;
    }
  }
  return state_ == kQuoted || state_ == kEscape;
}

Splitter::Splitter(Layout layout, std::vector<FixedColumn> fixed, Quoting quoting, char delimiter)
    : layout_(layout),
      delimiter_(layout == Layout::kOther ? delimiter : layout_delimiter(layout)),
      quoting_(quoting),
      fixed_(std::move(fixed)) {}

bool Splitter::split(std::string_view line, std::vector<std::string_view>& fields) {
  fields.clear();
  saw_quote_ = false;
  scratch_.clear();
  // Unquoted text is never longer than the line: views into the scratch
  // space stay valid while it grows.
  scratch_.reserve(line.size() + 1);
  switch (layout_) {
    case Layout::kBlank:
      return split_blank(line, fields);
    case Layout::kFixed:
      split_fixed(line, fields);
      return true;
    default:
      return split_delimited(line, fields);
  }
}

// Reads the quoted field whose opening quote is at line[i]: its text, with
// escaped quotes made single, goes into the scratch space and out as a
// trimmed view; i moves past the closing quote. False at an open quote.
bool Splitter::read_quoted(std::string_view line, size_t& i, std::string_view& value) {
  saw_quote_ = true;
  ++i;
  const size_t n = line.size();
  const size_t s0 = scratch_.size();
  const char q = quoting_.quote;
  for (;;) {
    if (i >= n) return false;
    const char c = line[i++];
    if (quoting_.backslash && c == '\\' && i < n) {
      scratch_.push_back(line[i++]);
      continue;
    }
    if (c == q) {
      if (!quoting_.backslash && i < n && line[i] == q) {
        scratch_.push_back(q);
        ++i;
        continue;
      }
      break;
    }
    scratch_.push_back(c);
  }
  value = trim(std::string_view(scratch_.data() + s0, scratch_.size() - s0));
  return true;
}

bool Splitter::split_delimited(std::string_view line, std::vector<std::string_view>& fields) {
  const size_t n = line.size();
  size_t i = 0;
  for (;;) {
    const size_t start = i;
    while (i < n && line[i] != delimiter_ && is_blank(line[i])) ++i;
    if (i < n && line[i] == quoting_.quote && quoting_.quote != 0) {
      std::string_view value;
      if (!read_quoted(line, i, value)) return false;
      while (i < n && line[i] != delimiter_ && is_blank(line[i])) ++i;
      fields.push_back(value);
      if (i >= n) return true;
      if (line[i] != delimiter_) return false;
      ++i;
      continue;
    }
    const void* hit = n > i ? std::memchr(line.data() + i, delimiter_, n - i) : nullptr;
    if (hit == nullptr) {
      fields.push_back(trim(line.substr(start)));
      return true;
    }
    const size_t end = static_cast<size_t>(static_cast<const char*>(hit) - line.data());
    fields.push_back(trim(line.substr(start, end - start)));
    i = end + 1;
  }
}

bool Splitter::split_blank(std::string_view line, std::vector<std::string_view>& fields) {
  const size_t n = line.size();
  size_t i = 0;
  for (;;) {
    while (i < n && is_blank(line[i])) ++i;
    if (i >= n) return true;
    if (line[i] == quoting_.quote && quoting_.quote != 0) {
      std::string_view value;
      if (!read_quoted(line, i, value)) return false;
      if (i < n && !is_blank(line[i])) return false;
      fields.push_back(value);
      continue;
    }
    const size_t start = i;
    while (i < n && !is_blank(line[i])) ++i;
    fields.push_back(line.substr(start, i - start));
  }
}

void Splitter::split_fixed(std::string_view line, std::vector<std::string_view>& fields) {
  for (const FixedColumn& c : fixed_) {
    if (c.start >= line.size()) {
      fields.push_back(std::string_view());
    } else {
      fields.push_back(trim(line.substr(c.start, c.width)));
    }
  }
}

namespace {

bool equal_nocase(std::string_view a, const char* b) {
  const size_t n = std::strlen(b);
  if (a.size() != n) return false;
  for (size_t i = 0; i < n; ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) != b[i]) return false;
  }
  return true;
}

bool digits(std::string_view s, size_t at, size_t count, int* value) {
  if (at + count > s.size()) return false;
  int v = 0;
  for (size_t i = at; i < at + count; ++i) {
    const char c = s[i];
    if (c < '0' || c > '9') return false;
    v = v * 10 + (c - '0');
  }
  *value = v;
  return true;
}

}  // namespace

std::string shown_value(std::string_view v, size_t most) {
  std::string out;
  for (size_t i = 0; i < v.size(); ++i) {
    if (out.size() >= most) {
      out += "...";
      break;
    }
    const char c = v[i];
    if (c == '\n')
      out += "\\n";
    else if (c == '\r')
      out += "\\r";
    else if (c == '\t')
      out += "\\t";
    else
      out.push_back(c);
  }
  return "\"" + out + "\"";
}

bool is_missing_token(std::string_view v) {
  if (v.empty()) return true;
  // Every token begins with ".", "?" or "n": most values are out at once.
  const char c = v[0];
  if (c != '.' && c != '?' && (c | 0x20) != 'n') return false;
  if (v == "." || v == "?") return true;
  return equal_nocase(v, "na") || equal_nocase(v, "n/a") || equal_nocase(v, "nan") ||
         equal_nocase(v, "null");
}

bool is_kolv_number(std::string_view v, double* number) {
  if (v.empty()) return false;
  const unsigned char first = static_cast<unsigned char>(v[0]);
  if (std::isalpha(first) || first == '_') return false;
  char small[64];
  std::string large;
  const char* text;
  if (v.size() < sizeof small) {
    for (size_t i = 0; i < v.size(); ++i) {
      if (v[i] == 'x' || v[i] == 'X' || v[i] == '\0') return false;
      small[i] = v[i];
    }
    small[v.size()] = '\0';
    text = small;
  } else {
    if (v.find_first_of(std::string_view("xX\0", 3)) != std::string_view::npos) return false;
    large.assign(v);
    text = large.c_str();
  }
  double d = 0;
  const char* end = kolv::parse_double(text, &d);
  if (end != text + v.size()) return false;
  if (number != nullptr) *number = d;
  return true;
}

bool iso_date(std::string_view v, std::string* out) {
  int y, m, d;
  if (v.size() != 10 || v[4] != '-' || v[7] != '-') return false;
  if (!digits(v, 0, 4, &y) || !digits(v, 5, 2, &m) || !digits(v, 8, 2, &d)) return false;
  if (m < 1 || m > 12 || d < 1 || d > 31) return false;
  if (out != nullptr) {
    out->append(v.substr(0, 4));
    out->append(v.substr(5, 2));
    out->append(v.substr(8, 2));
  }
  return true;
}

bool iso_time(std::string_view v, std::string* out) {
  int h, m, s = 0;
  if (v.size() < 5 || v[2] != ':' || !digits(v, 0, 2, &h) || !digits(v, 3, 2, &m)) return false;
  size_t end = 5;
  if (v.size() > 5) {
    if (v.size() < 8 || v[5] != ':' || !digits(v, 6, 2, &s)) return false;
    end = 8;
    if (v.size() > 8) {
      if (v[8] != '.' || v.size() == 9) return false;
      for (size_t i = 9; i < v.size(); ++i) {
        if (v[i] < '0' || v[i] > '9') return false;
      }
      end = v.size();
    }
  }
  if (h > 24 || m > 59 || s > 60) return false;
  if (out != nullptr) {
    out->append(v.substr(0, 2));
    out->append(v.substr(3, 2));
    if (end == 5) {
      out->append("00");
    } else {
      out->append(v.substr(6, 2));
      out->append(v.substr(8));
    }
  }
  return true;
}

bool iso_datetime(std::string_view v, std::string* out) {
  if (v.size() < 16 || (v[10] != 'T' && v[10] != ' ')) return false;
  std::string_view time = v.substr(11);
  if (!time.empty() && time.back() == 'Z') time.remove_suffix(1);
  std::string date_digits;
  std::string time_digits;
  if (!iso_date(v.substr(0, 10), &date_digits) || !iso_time(time, &time_digits)) return false;
  if (out != nullptr) {
    out->append(date_digits);
    out->append(time_digits);
  }
  return true;
}

namespace {

constexpr const char* kMonths[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                   "jul", "aug", "sep", "oct", "nov", "dec"};

// A month's name (its first three letters, or the whole name) → 1..12.
int month_of(std::string_view w) {
  if (w.size() < 3) return 0;
  for (int m = 0; m < 12; ++m) {
    bool same = true;
    for (size_t i = 0; i < 3; ++i)
      same = same && std::tolower(static_cast<unsigned char>(w[i])) == kMonths[m][i];
    if (same) {
      static constexpr const char* kFull[] = {"january",   "february", "march",    "april",
                                              "may",       "june",     "july",     "august",
                                              "september", "october",  "november", "december"};
      if (w.size() == 3 || (w.size() == 4 && w[3] == '.')) return m + 1;
      return equal_nocase(w, kFull[m]) ? m + 1 : 0;
    }
  }
  return 0;
}

// A number of 1..max digits.
bool small_number(std::string_view w, size_t max, int* value) {
  if (w.empty() || w.size() > max) return false;
  return digits(w, 0, w.size(), value);
}

bool put_date(int y, int m, int d, std::string* out) {
  if (y < 1000 || m < 1 || m > 12 || d < 1 || d > 31) return false;
  if (out != nullptr) {
    char b[16];
    std::snprintf(b, sizeof b, "%04d%02d%02d", y, m, d);
    out->append(b);
  }
  return true;
}

// The words of a named-month date: "Jan 5 2000", "Jan 5, 2000", "5 Jan 2000".
bool month_name_date(std::string_view v, std::string* out) {
  std::string_view w[3];
  size_t n = 0;
  size_t i = 0;
  while (i < v.size()) {
    while (i < v.size() && (v[i] == ' ' || v[i] == ',')) ++i;
    if (i >= v.size()) break;
    if (n == 3) return false;
    const size_t b = i;
    while (i < v.size() && v[i] != ' ' && v[i] != ',') ++i;
    w[n++] = v.substr(b, i - b);
  }
  if (n != 3) return false;
  int y, d, m = month_of(w[0]);
  if (m != 0)
    return small_number(w[1], 2, &d) && w[2].size() == 4 && small_number(w[2], 4, &y) &&
           put_date(y, m, d, out);
  m = month_of(w[1]);
  return m != 0 && small_number(w[0], 2, &d) && w[2].size() == 4 && small_number(w[2], 4, &y) &&
         put_date(y, m, d, out);
}

}  // namespace

bool any_date(std::string_view v, std::string* out) {
  if (iso_date(v, out)) return true;
  int y, m, d;
  if (v.size() == 10 && v[4] == '/' && v[7] == '/' && digits(v, 0, 4, &y) && digits(v, 5, 2, &m) &&
      digits(v, 8, 2, &d))
    return put_date(y, m, d, out);
  if (v.size() == 10 && v[2] == '.' && v[5] == '.' && digits(v, 0, 2, &d) && digits(v, 3, 2, &m) &&
      digits(v, 6, 4, &y))
    return put_date(y, m, d, out);
  if (v.size() >= 8 && v.size() <= 20 && std::isalpha(static_cast<unsigned char>(v[0])) != 0)
    return month_name_date(v, out);
  if (v.size() >= 8 && v.size() <= 20 && std::isdigit(static_cast<unsigned char>(v[0])) != 0 &&
      v.find(' ') != std::string_view::npos)
    return month_name_date(v, out);
  return false;
}

bool any_datetime(std::string_view v, std::string* out) {
  if (iso_datetime(v, out)) return true;
  // The time is the last word (after "T" or a blank).
  const size_t cut = v.find_last_of(" T");
  if (cut == std::string_view::npos || cut + 1 >= v.size()) return false;
  std::string_view time = v.substr(cut + 1);
  if (!time.empty() && time.back() == 'Z') time.remove_suffix(1);
  std::string date_digits, time_digits;
  if (!iso_time(time, &time_digits) || !any_date(trim(v.substr(0, cut)), &date_digits))
    return false;
  if (out != nullptr) {
    out->append(date_digits);
    out->append(time_digits);
  }
  return true;
}

bool ambiguous_date(std::string_view v, int* first, int* second) {
  // The date part only; a time may follow after a blank.
  const size_t blank = v.find(' ');
  if (blank != std::string_view::npos) {
    if (!iso_time(v.substr(blank + 1))) return false;
    v = v.substr(0, blank);
  }
  if (v.size() != 10 || v[2] != v[5] || (v[2] != '/' && v[2] != '-')) return false;
  int a, b, y;
  if (!digits(v, 0, 2, &a) || !digits(v, 3, 2, &b) || !digits(v, 6, 4, &y)) return false;
  if (a < 1 || b < 1 || a > 31 || b > 31 || (a > 12 && b > 12)) return false;
  if (first != nullptr) *first = a;
  if (second != nullptr) *second = b;
  return true;
}

bool ordered_date(std::string_view v, DateOrder order, bool with_time, std::string* out) {
  int a = 0, b = 0;
  if (order == DateOrder::kNone || !ambiguous_date(v, &a, &b)) return false;
  const size_t blank = v.find(' ');
  if (with_time != (blank != std::string_view::npos)) return false;
  int y = 0;
  digits(v, 6, 4, &y);
  std::string date;
  if (!put_date(y, order == DateOrder::kDayFirst ? b : a, order == DateOrder::kDayFirst ? a : b,
                &date))
    return false;
  if (with_time && !iso_time(v.substr(blank + 1), &date)) return false;
  if (out != nullptr) out->append(date);
  return true;
}

ValueKind classify(std::string_view v, double* number) {
  if (is_missing_token(v)) return ValueKind::kMissing;
  if (is_kolv_number(v, number)) return ValueKind::kNumber;
  if (v.size() < 5 || v.size() > 40) return ValueKind::kText;
  std::string digits_text;
  ValueKind kind;
  if (any_date(v, &digits_text)) {
    kind = ValueKind::kDate;
  } else if (iso_time(v, &digits_text)) {
    kind = ValueKind::kTime;
  } else if (any_datetime(v, &digits_text)) {
    kind = ValueKind::kDateTime;
  } else {
    return ValueKind::kText;
  }
  if (number != nullptr) is_kolv_number(digits_text, number);
  return kind;
}

}  // namespace kolvprep
