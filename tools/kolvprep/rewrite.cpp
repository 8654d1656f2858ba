#include "rewrite.hpp"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>

namespace kolvprep {

namespace {

constexpr size_t kOutBlock = size_t{1} << 20;
constexpr uint64_t kWarnLines = 3;

bool read_count(std::string_view text, uint64_t& value) {
  if (text.empty()) return false;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  return ec == std::errc() && end == text.data() + text.size();
}

// A list of 1-based column numbers: "3,5".
bool read_list(std::string_view text, std::vector<size_t>& out) {
  while (!text.empty()) {
    const size_t comma = text.find(',');
    uint64_t v = 0;
    if (!read_count(text.substr(0, comma), v) || v == 0 || v > 1000000) return false;
    out.push_back(static_cast<size_t>(v));
    if (comma == std::string_view::npos) break;
    text.remove_prefix(comma + 1);
  }
  return !out.empty();
}

std::string list_text(const std::vector<size_t>& v) {
  std::string s;
  for (size_t x : v) s += std::string(s.empty() ? "" : ",") + std::to_string(x);
  return s;
}

const char* comment_word(char c) {
  return c == '#' ? "hash" : "percent";
}

}  // namespace

bool parse_text_option(std::string_view arg, TextOptions& o, std::string& error) {
  const size_t eq = arg.find('=');
  const std::string_view key = arg.substr(0, eq);
  const std::string_view value = eq == std::string_view::npos ? "" : arg.substr(eq + 1);
  error = "cannot read the option " + std::string(arg);
  uint64_t n = 0;
  if (key == "--layout") return layout_from_word(value, o.layout);
  if (key == "--delimiter") {
    // The byte as a number, so that no shell quoting is needed.
    if (!read_count(value, n) || n == 0 || n > 255 || n == '\n' || n == '\r') return false;
    o.delimiter = static_cast<char>(n);
    o.layout = Layout::kOther;
    return true;
  }
  if (key == "--quote") {
    if (value == "double")
      o.quoting.quote = '"';
    else if (value == "single")
      o.quoting.quote = '\'';
    else if (value == "none")
      o.quoting.quote = 0;
    else
      return false;
    return true;
  }
  if (key == "--escape") {
    if (value != "backslash" && value != "double") return false;
    o.quoting.backslash = value == "backslash";
    return true;
  }
  if (key == "--record-end") {
    if (value != "cr" && value != "lf") return false;
    o.cr_records = value == "cr";
    return true;
  }
  if (key == "--decimal") {
    if (value != "comma" && value != "point") return false;
    o.decimal_comma = value == "comma";
    return true;
  }
  if (key == "--rejects") {
    if (value.empty()) return false;
    o.rejects = std::string(value);
    return true;
  }
  if (key == "--misfits") {
    if (value != "pad" && value != "reject") return false;
    o.pad = value == "pad";
    return true;
  }
  if (key == "--missing") {
    std::string_view text = value;
    while (!text.empty()) {
      const size_t comma = text.find(',');
      o.missing.emplace_back(trim(text.substr(0, comma)));
      if (comma == std::string_view::npos) break;
      text.remove_prefix(comma + 1);
    }
    return true;
  }
  if (key == "--end") {
    if (!read_count(value, o.end) || o.end == 0) return false;
    return true;
  }
  if (key == "--skip") {
    if (!read_count(value, o.skip)) return false;
    return true;
  }
  if (key == "--columns") {
    if (!read_count(value, n) || n == 0 || n > 1000000) return false;
    o.columns = static_cast<size_t>(n);
    return true;
  }
  if (key == "--comment") {
    if (value == "hash")
      o.comment = '#';
    else if (value == "percent")
      o.comment = '%';
    else
      return false;
    return true;
  }
  if (key == "--fixed") {
    std::string_view text = value;
    o.fixed.clear();
    while (!text.empty()) {
      const size_t comma = text.find(',');
      const std::string_view item = text.substr(0, comma);
      const size_t dash = item.find('-');
      uint64_t a = 0, b = 0;
      if (dash == std::string_view::npos || !read_count(item.substr(0, dash), a) ||
          !read_count(item.substr(dash + 1), b) || a == 0 || b < a || b > kMaxLine)
        return false;
      o.fixed.push_back({static_cast<size_t>(a - 1), static_cast<size_t>(b - a + 1)});
      if (comma == std::string_view::npos) break;
      text.remove_prefix(comma + 1);
    }
    return !o.fixed.empty();
  }
  ColumnType type;
  if (key == "--day-first" || key == "--month-first") {
    std::vector<size_t> list;
    if (!read_list(value, list)) return false;
    for (size_t c : list) {
      if (o.orders.size() < c) o.orders.resize(c, DateOrder::kNone);
      o.orders[c - 1] = key == "--day-first" ? DateOrder::kDayFirst : DateOrder::kMonthFirst;
    }
    return true;
  }
  if (key == "--keep") {
    std::vector<size_t> list;
    if (!read_list(value, list)) return false;
    for (size_t c : list) {
      if (o.keep.size() < c) o.keep.resize(c, false);
      o.keep[c - 1] = true;
    }
    return true;
  }
  if (key == "--char")
    type = ColumnType::kCharacter;
  else if (key == "--date")
    type = ColumnType::kDate;
  else if (key == "--time")
    type = ColumnType::kTime;
  else if (key == "--datetime")
    type = ColumnType::kDateTime;
  else {
    error = "unknown option " + std::string(arg);
    return false;
  }
  std::vector<size_t> list;
  if (!read_list(value, list)) return false;
  for (size_t c : list) {
    if (o.types.size() < c) o.types.resize(c, ColumnType::kNumeric);
    o.types[c - 1] = type;
  }
  return true;
}

bool finish_text_options(TextOptions& o, std::string& error) {
  if (o.layout == Layout::kFixed) {
    if (o.fixed.empty()) {
      error = "--layout=fixed needs --fixed=COLUMNS";
      return false;
    }
    if (o.columns == 0) o.columns = o.fixed.size();
    if (o.columns != o.fixed.size()) {
      error = "--columns disagrees with the columns of --fixed";
      return false;
    }
  }
  if (o.columns == 0) {
    error = "--columns=N is needed";
    return false;
  }
  if (o.layout == Layout::kOther && o.delimiter == 0) {
    error = "--layout=other needs --delimiter=BYTE";
    return false;
  }
  if (o.quoting.quote != 0 &&
      (o.quoting.quote == o.delimiter || o.quoting.quote == layout_delimiter(o.layout))) {
    error = "the quote and the delimiter are one byte";
    return false;
  }
  if (o.types.size() > o.columns) {
    error = "a --char, --date, --time or --datetime column beyond --columns";
    return false;
  }
  if (o.keep.size() > o.columns || o.orders.size() > o.columns) {
    error = "a --keep, --day-first or --month-first column beyond --columns";
    return false;
  }
  o.orders.resize(o.columns, DateOrder::kNone);
  o.types.resize(o.columns, ColumnType::kNumeric);
  o.keep.resize(o.columns, false);
  return true;
}

std::vector<std::string> text_options_for(const Detection& d) {
  std::vector<std::string> out;
  out.push_back(std::string("--layout=") + layout_word(d.layout));
  if (d.layout == Layout::kOther)
    out.push_back("--delimiter=" + std::to_string(static_cast<unsigned char>(d.delimiter)));
  if (d.quoting.quote != '"')
    out.push_back(std::string("--quote=") + (d.quoting.quote == 0 ? "none" : "single"));
  if (d.quoting.backslash) out.push_back("--escape=backslash");
  if (d.cr_records) out.push_back("--record-end=cr");
  if (d.decimal_comma) out.push_back("--decimal=comma");
  if (d.pad) out.push_back("--misfits=pad");
  if (!d.missing.empty()) {
    std::string m = "--missing=";
    for (size_t i = 0; i < d.missing.size(); ++i) m += (i ? "," : "") + d.missing[i];
    out.push_back(m);
  }
  if (d.skip != 0) out.push_back("--skip=" + std::to_string(d.skip));
  if (d.table_end != 0) out.push_back("--end=" + std::to_string(d.table_end));
  if (d.comment != 0) out.push_back(std::string("--comment=") + comment_word(d.comment));
  out.push_back("--columns=" + std::to_string(d.columns.size()));
  if (d.layout == Layout::kFixed) {
    std::string s = "--fixed=";
    for (size_t j = 0; j < d.columns.size(); ++j) {
      const FixedColumn& f = d.columns[j].fixed;
      s += std::string(j ? "," : "") + std::to_string(f.start + 1) + "-" +
           std::to_string(f.start + f.width);
    }
    out.push_back(s);
  }
  std::vector<size_t> chars, dates, times, datetimes;
  for (size_t j = 0; j < d.columns.size(); ++j) {
    if (d.columns[j].type == ColumnType::kCharacter) chars.push_back(j + 1);
    if (d.columns[j].type == ColumnType::kDate) dates.push_back(j + 1);
    if (d.columns[j].type == ColumnType::kTime) times.push_back(j + 1);
    if (d.columns[j].type == ColumnType::kDateTime) datetimes.push_back(j + 1);
  }
  if (!chars.empty()) out.push_back("--char=" + list_text(chars));
  std::vector<size_t> keep;
  for (size_t j = 0; j < d.columns.size(); ++j)
    if (d.columns[j].keep_tokens) keep.push_back(j + 1);
  if (!keep.empty()) out.push_back("--keep=" + list_text(keep));
  std::vector<size_t> day_first, month_first;
  for (size_t j = 0; j < d.columns.size(); ++j) {
    if (d.columns[j].date_order == DateOrder::kDayFirst) day_first.push_back(j + 1);
    if (d.columns[j].date_order == DateOrder::kMonthFirst) month_first.push_back(j + 1);
  }
  if (!day_first.empty()) out.push_back("--day-first=" + list_text(day_first));
  if (!month_first.empty()) out.push_back("--month-first=" + list_text(month_first));
  if (!dates.empty()) out.push_back("--date=" + list_text(dates));
  if (!times.empty()) out.push_back("--time=" + list_text(times));
  if (!datetimes.empty()) out.push_back("--datetime=" + list_text(datetimes));
  return out;
}

namespace {

constexpr size_t kOutRoom = kOutBlock + 2 * kMaxLine + 64;

// Bytes that may not stay inside a value: they would end kolv's field.
struct SeparatorTable {
  bool is[256] = {};
  constexpr SeparatorTable() {
    is[static_cast<unsigned char>(' ')] = true;
    is[static_cast<unsigned char>('\t')] = true;
    is[static_cast<unsigned char>(',')] = true;
    is[static_cast<unsigned char>('\r')] = true;
    is[static_cast<unsigned char>('\n')] = true;
  }
};
constexpr SeparatorTable kSeparator;

// A missing-value token in the output bytes [field, end): most values are
// ruled out by their first byte.
inline bool may_be_missing(const char* field, const char* end) {
  if (field == end) return true;
  const char c = *field;
  if (c != '.' && c != '?' && (c | 0x20) != 'n') return false;
  return is_missing_token(std::string_view(field, static_cast<size_t>(end - field)));
}

// A value kolv takes as a number: the common one (digits, a sign, a
// point) without the full conversion.
inline bool number_value(std::string_view v) {
  const char* p = v.data() + (!v.empty() && v[0] == '-');
  const char* const end = v.data() + v.size();
  bool point = false, digit = false;
  for (; p < end; ++p) {
    if (*p >= '0' && *p <= '9') {
      digit = true;
    } else if (*p == '.' && !point) {
      point = true;
    } else {
      break;
    }
  }
  return (p == end && digit) || is_kolv_number(v);
}

// A value of a numeric column in the output bytes [field, end) that kolv
// takes as a number (or the empty missing value).
inline bool plain_number(const char* field, const char* end, ColumnType type) {
  if (type != ColumnType::kNumeric || field == end) return true;
  return number_value(std::string_view(field, static_cast<size_t>(end - field)));
}

// The top bit of each byte of w that is zero.
constexpr uint64_t kOnes = 0x0101010101010101ULL;
inline uint64_t zero_bytes(uint64_t w) {
  return (w - kOnes) & ~w & (kOnes << 7);
}

}  // namespace

// A flag in the top bit of each of the eight bytes that the one-pass copy
// must look at (those of byte_class_); above the lowest flag, flags may be
// false.
uint64_t Rewriter::special_bytes(uint64_t w) const {
  return zero_bytes(w ^ (kOnes * '"')) | zero_bytes(w ^ (kOnes * ' ')) |
         zero_bytes(w ^ (kOnes * '\t')) | zero_bytes(w ^ (kOnes * '\r')) |
         zero_bytes(w ^ (kOnes * ',')) | zero_bytes(w ^ delimiter_word_);
}

Rewriter::Rewriter(TextOptions options, std::function<bool(const char*, size_t)> sink,
                   std::function<void(const std::string&)> warn,
                   std::function<bool(const char*, size_t)> rejects)
    : options_(std::move(options)),
      splitter_(options_.layout, options_.fixed, options_.quoting, options_.delimiter),
      sink_(std::move(sink)),
      warn_(std::move(warn)),
      rejects_(std::move(rejects)),
      tracker_(options_.layout == Layout::kOther ? options_.delimiter
                                                 : layout_delimiter(options_.layout),
               options_.quoting),
      out_(new char[kOutRoom]) {
  record_end_ = options_.cr_records ? '\r' : '\n';
  const char d =
      options_.layout == Layout::kOther ? options_.delimiter : layout_delimiter(options_.layout);
  delimiter_ = d;
  // The one-pass copy: 1 for the delimiter, 2 for bytes it leaves to the
  // full way (quotes, blanks, separators that must become "_").
  for (char c : {'"', ' ', '\t', '\r', ','}) byte_class_[static_cast<unsigned char>(c)] = 2;
  if (d != 0) byte_class_[static_cast<unsigned char>(d)] = 1;
  delimiter_word_ = kOnes * static_cast<unsigned char>(d != 0 ? d : ',');
  plain_ = d != 0 && options_.one_pass && options_.quoting.quote == '"' &&
           !options_.quoting.backslash && !options_.decimal_comma && !options_.pad &&
           options_.missing.empty();
  for (ColumnType t : options_.types)
    plain_ = plain_ && (t == ColumnType::kNumeric || t == ColumnType::kCharacter);
  for (bool k : options_.keep) plain_ = plain_ && !k;
}

bool Rewriter::flush() {
  if (used_ != 0 && !failed_) failed_ = !sink_(out_.get(), used_);
  used_ = 0;
  return !failed_;
}

bool Rewriter::put(const char* data, size_t size) {
  while (size > 0 && !failed_) {
    const size_t n = std::min(size, kOutRoom - used_);
    std::memcpy(out_.get() + used_, data, n);
    used_ += n;
    data += n;
    size -= n;
    if (used_ >= kOutBlock) flush();
  }
  return !failed_;
}

bool Rewriter::feed(const char* data, size_t size) {
  size_t at = 0;
  while (at < size && !failed_) {
    const void* nl = std::memchr(data + at, record_end_, size - at);
    const size_t end = nl ? static_cast<size_t>(static_cast<const char*>(nl) - data) : size;
    if (raw_) {
      // The rest of an over-long line, set aside as it is.
      reject_bytes(data + at, end - at);
      if (nl != nullptr) {
        raw_ = false;
        rejects_&& rejects_("\n", 1);
      }
    } else if (carry_.size() + (end - at) > kMaxLine) {
      // A line too long to be a record: set aside without being held.
      ++line_number_;
      release_held();
      ++rejected_;
      if (rejected_ <= kWarnLines)
        warn_("line " + std::to_string(line_number_) + " is longer than 1 MiB: set aside");
      if (rejects_) {
        const std::string head = std::to_string(line_number_) + "\t";
        rejects_(head.data(), head.size());
      }
      reject_bytes(carry_.data(), carry_.size());
      reject_bytes(data + at, end - at);
      carry_.clear();
      carry_.shrink_to_fit();
      if (nl == nullptr)
        raw_ = true;
      else if (rejects_)
        rejects_("\n", 1);
    } else if (nl == nullptr) {
      carry_.append(data + at, end - at);
    } else if (!carry_.empty()) {
      carry_.append(data + at, end - at);
      line(carry_);
      carry_.clear();
    } else {
      line(std::string_view(data + at, end - at));
    }
    at = nl ? end + 1 : size;
    if (used_ >= kOutBlock) flush();
  }
  return !failed_;
}

bool Rewriter::finish() {
  if (raw_) {
    if (rejects_) rejects_("\n", 1);
    raw_ = false;
  } else if (!carry_.empty()) {
    line(carry_);
    carry_.clear();
  }
  // A quote still open at the end of the text: its first line is out of
  // place, and the lines after it are records of their own.
  while (!held_.empty()) release_held();
  if (padded_ > kWarnLines)
    warn_(std::to_string(padded_) + " records in all did not fit the table and were padded");
  // One line for all the values whose blanks were replaced, with the first.
  if (replaced_ != 0)
    warn_(std::to_string(replaced_) + (replaced_ == 1 ? " value" : " values") +
          " with blanks, tabs or commas written as \"_\" (first: " + first_replaced_ + ")");
  if (left_out_ != 0)
    warn_(std::to_string(left_out_) + " lines from line " + std::to_string(options_.end) +
          " on (notes or another table) left out");
  if (joined_ != 0)
    warn_(std::to_string(joined_) + (joined_ == 1 ? " record holds" : " records hold") +
          " line ends inside quoted values; each written as \"_\"");
  return flush();
}

void Rewriter::line(std::string_view text) {
  ++line_number_;
  if (first_line_) {
    first_line_ = false;
    if (text.size() >= 3 && text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.remove_prefix(3);
  }
  if (line_number_ <= options_.skip) return;
  if (options_.end != 0 && line_number_ >= options_.end) {
    ++left_out_;
    return;
  }
  take_line(line_number_, text);
}

void Rewriter::take_line(uint64_t number, std::string_view text) {
  if (held_.empty()) {
    const std::string_view t = trim(text);
    if (t.empty() || (options_.comment != 0 && t[0] == options_.comment)) return;
    tracker_.reset();
    // Only a line with a quote in it can leave one open.
    const bool open = options_.quoting.quote != 0 && options_.layout != Layout::kFixed &&
                      std::memchr(text.data(), options_.quoting.quote, text.size()) != nullptr &&
                      tracker_.open_after(text);
    // A quote left open before the last field, where the line with its
    // quotes taken for text holds just the table's fields, is a stray
    // quote, not a value going on.
    const bool stray = open && delimiter_ != 0 && tracker_.open_field() + 1 < options_.columns &&
                       static_cast<size_t>(std::count(text.begin(), text.end(), delimiter_)) + 1 ==
                           options_.columns;
    if (!open || stray) {
      if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
      record(number, text, text);
      return;
    }
    held_.push_back({number, std::string(text)});
    held_bytes_ = text.size();
    return;
  }
  held_.push_back({number, std::string(text)});
  held_bytes_ += text.size() + 1;
  tracker_.open_after("\n");
  if (!tracker_.open_after(text)) {
    // The record is whole: its lines joined by line feeds (CRs dropped).
    // The record is whole: its lines joined by line feeds (CRs dropped),
    // and as it was written, for the rejects file.
    joined_text_.clear();
    joined_raw_.clear();
    for (const HeldLine& h : held_) {
      std::string_view part = h.text;
      if (&h != &held_.front()) {
        joined_text_.push_back('\n');
        joined_raw_.push_back('\n');
      }
      if (&h == &held_.back() && !part.empty() && part.back() == '\r') part.remove_suffix(1);
      joined_raw_.append(part);
      if (!part.empty() && part.back() == '\r') part.remove_suffix(1);
      joined_text_.append(part);
    }
    // Joined, the lines must make a record of the table; else the quote
    // that opened them was out of place.
    if (!splitter_.split(joined_text_, fields_) ||
        (fields_.size() != options_.columns && !options_.pad)) {
      release_held();
      return;
    }
    const uint64_t first = held_.front().number;
    held_.clear();
    held_bytes_ = 0;
    const uint64_t was_records = records_;
    record(first, joined_text_, joined_raw_);
    if (records_ != was_records) ++joined_;
    return;
  }
  if (held_.size() > kMaxRecordLines || held_bytes_ > kMaxLine) release_held();
}

// The quote opened in the first held line never closes in time: that line
// is set aside and the lines after it are taken again from the start.
void Rewriter::release_held() {
  if (held_.empty()) return;
  std::vector<HeldLine> lines = std::move(held_);
  held_.clear();
  held_bytes_ = 0;
  std::string_view first = lines.front().text;
  if (!first.empty() && first.back() == '\r') first.remove_suffix(1);
  reject(lines.front().number, {first});
  if (rejected_ <= kWarnLines)
    warn_("line " + std::to_string(lines.front().number) +
          ": a quote that never closes; set aside");
  for (size_t i = 1; i < lines.size(); ++i) take_line(lines[i].number, lines[i].text);
}

bool Rewriter::reject_bytes(const char* data, size_t size) {
  if (!rejects_) return true;
  std::string out;
  out.reserve(size + 16);
  for (size_t i = 0; i < size; ++i) {
    const char c = data[i];
    if (c == '\\')
      out += "\\\\";
    else if (c == '\n')
      out += "\\n";
    else if (c == '\r')
      out += "\\r";
    else
      out.push_back(c);
  }
  return rejects_(out.data(), out.size());
}

void Rewriter::reject(uint64_t number, const std::vector<std::string_view>& parts) {
  ++rejected_;
  if (!rejects_) return;
  const std::string head = std::to_string(number) + "\t";
  rejects_(head.data(), head.size());
  for (std::string_view p : parts) reject_bytes(p.data(), p.size());
  rejects_("\n", 1);
}

// One record (its lines joined when it spans several): written when it
// fits the table, else set aside or, with pad, made to fit.
void Rewriter::record(uint64_t number, std::string_view text, std::string_view raw) {
  const bool joined = raw.data() != text.data();
  record_number_ = number;
  const size_t start = used_;
  const uint64_t replaced = replaced_;
  const uint64_t numeric_text = numeric_text_;
  bool ok = false;
  bool misfit = false;
  if (delimiter_ != 0 || options_.layout == Layout::kOther) {
    ok = plain_ && !joined && plain_line(text);
    if (!ok) {
      used_ = start;
      replaced_ = replaced;
      numeric_text_ = numeric_text;
      pending_.clear();
      ok = delimited_line(text, misfit);
    }
  } else {
    ok = splitter_.split(text, fields_);
    if (ok && fields_.size() != options_.columns) {
      if (options_.pad) {
        misfit = true;
        fields_.resize(options_.columns);
      } else {
        ok = false;
      }
    }
    for (size_t j = 0; ok && j < fields_.size(); ++j) {
      if (j != 0) out_[used_++] = ',';
      ok = value(fields_[j], j);
    }
  }
  if (!ok && options_.pad) {
    // Kept all the same: a quote out of place is read as text.
    used_ = start;
    replaced_ = replaced;
    pending_.clear();
    Splitter literal(options_.layout, options_.fixed, Quoting{0, false}, options_.delimiter);
    literal.split(text, fields_);
    fields_.resize(options_.columns);
    ok = true;
    misfit = true;
    for (size_t j = 0; j < fields_.size(); ++j) {
      if (j != 0) out_[used_++] = ',';
      value(fields_[j], j);
    }
  }
  if (ok) {
    out_[used_++] = '\n';
    ++records_;
    misfit = misfit || numeric_text_ != numeric_text;
    if (misfit && ++padded_ <= kWarnLines)
      warn_("line " + std::to_string(number) + ": " +
            (numeric_text_ != numeric_text ? "text in a numeric column made missing"
                                           : "fields absent or extra") +
            "; padded");
    if (first_replaced_.empty()) first_replaced_ = pending_;
    pending_.clear();
    return;
  }
  pending_.clear();
  used_ = start;
  replaced_ = replaced;
  const bool text_in_number = numeric_text_ != numeric_text;
  numeric_text_ = numeric_text;
  reject(number, {raw});
  if (rejected_ <= kWarnLines) {
    std::string why;
    if (text_in_number) {
      why = "text in a numeric column";
    } else if (splitter_.split(text, fields_)) {
      why = std::to_string(fields_.size()) + (fields_.size() == 1 ? " field" : " fields") +
            " where " + std::to_string(options_.columns) + " are expected";
    } else {
      why = "a quote out of place";
    }
    warn_("line " + std::to_string(number) + ": " + why + "; set aside");
  }
}
// The common line in one pass: every byte is copied as it is, a quoted
// field is unquoted on the way (its blanks, tabs and commas written as "_"),
// and a missing-value token (which begins with ".", "?" or "n") is taken
// out. A blank outside quotes, a quote inside a field or text after a
// closing quote makes it return false: that line takes the full way.
bool Rewriter::plain_line(std::string_view text) {
  const char* p = text.data();
  const char* const e = p + text.size();
  char* const first = out_.get() + used_;
  char* o = first;
  char* field = o;
  size_t k = 1;
  while (p < e) {
    // Eight ordinary bytes at a time: none of them a delimiter, quote,
    // blank, tab, CR or comma.
    while (e - p >= 8) {
      uint64_t w;
      std::memcpy(&w, p, 8);
      std::memcpy(o, &w, 8);  // the output has room; only the bytes kept count
      const uint64_t special = special_bytes(w);
      if (special == 0) {
        o += 8;
        p += 8;
        continue;
      }
      // The lowest flag is exact: the bytes before it are ordinary.
      const int n = std::countr_zero(special) >> 3;
      o += n;
      p += n;
      break;
    }
    if (p >= e) break;
    const unsigned char c = static_cast<unsigned char>(*p);
    const uint8_t cls = byte_class_[c];
    if (cls == 0) {
      *o++ = static_cast<char>(c);
      ++p;
      continue;
    }
    if (cls == 1) {
      if (may_be_missing(field, o)) o = field;
      if (k >= options_.columns || !plain_number(field, o, options_.types[k - 1])) return false;
      *o++ = ',';
      field = o;
      ++k;
      ++p;
      continue;
    }
    if (c != '"' || o != field) return false;
    // A quoted field: to the closing quote; a doubled quote is one quote.
    ++p;
    const char* const content = p;
    bool doubled = false;
    bool replaced = false;
    bool last_separator = false;
    for (;;) {
      if (p >= e) return false;
      const char q = *p++;
      if (q == '"') {
        if (p < e && *p == '"') {
          *o++ = '"';
          ++p;
          last_separator = false;
          doubled = true;
          continue;
        }
        break;
      }
      last_separator = kSeparator.is[static_cast<unsigned char>(q)];
      // Blanks at either end are trimmed on the full way.
      if (last_separator && o == field) return false;
      *o++ = last_separator ? '_' : q;
      replaced |= last_separator;
    }
    if (last_separator) return false;
    if (p < e && byte_class_[static_cast<unsigned char>(*p)] != 1) return false;
    if (replaced) {
      // The warning quotes the value as read; with a doubled quote in it,
      // the full way unquotes it first.
      if (doubled) return false;
      note_replaced(std::string_view(content, static_cast<size_t>(p - 1 - content)));
    }
  }
  if (may_be_missing(field, o)) o = field;
  if (k != options_.columns || !plain_number(field, o, options_.types[k - 1])) return false;
  used_ += static_cast<size_t>(o - first);
  return true;
}

// One record of a delimited layout, written straight into the output: the
// same fields as Splitter gives, without gathering them first. Returns
// false when the record does not fit (the caller undoes what was written);
// with pad, a record of too few or too many fields is made to fit and
// `misfit` set.
bool Rewriter::delimited_line(std::string_view text, bool& misfit) {
  const char d = delimiter_;
  const char quote = options_.quoting.quote;
  const bool backslash = options_.quoting.backslash;
  const char* p = text.data();
  const char* const e = p + text.size();
  size_t k = 0;
  for (;;) {
    while (p < e && *p != d && is_blank(*p)) ++p;
    if (k == options_.columns) {
      // More fields than columns, even empty ones: which field is the extra
      // one cannot be known (an empty last field may be the record's own
      // missing value, pushed out by one put in before it).
      if (!options_.pad) return false;
      misfit = true;
      return true;
    }
    if (k != 0) out_[used_++] = ',';
    if (p < e && *p == quote && quote != 0) {
      ++p;
      scratch_.clear();
      for (;;) {
        if (p >= e) return false;
        const char c = *p++;
        if (backslash && c == '\\' && p < e) {
          scratch_.push_back(*p++);
          continue;
        }
        if (c == quote) {
          if (!backslash && p < e && *p == quote) {
            scratch_.push_back(quote);
            ++p;
            continue;
          }
          break;
        }
        scratch_.push_back(c);
      }
      while (p < e && *p != d && is_blank(*p)) ++p;
      if (p < e && *p != d) return false;
      if (!value(trim(scratch_), k)) return false;
    } else {
      const void* q = p < e ? std::memchr(p, d, static_cast<size_t>(e - p)) : nullptr;
      const char* end = q ? static_cast<const char*>(q) : e;
      const char* vend = end;
      while (vend > p && is_blank(vend[-1])) --vend;
      if (!value(std::string_view(p, static_cast<size_t>(vend - p)), k)) return false;
      p = end;
    }
    ++k;
    if (p >= e) break;
    ++p;
  }
  if (k == options_.columns) return true;
  if (!options_.pad) return false;
  misfit = true;
  for (; k < options_.columns; ++k) out_[used_++] = ',';
  return true;
}
void Rewriter::note_replaced(std::string_view v) {
  // The first is named at the end, once its line is known to be kept.
  ++replaced_;
  if (first_replaced_.empty() && pending_.empty())
    pending_ = "line " + std::to_string(record_number_) + ", " + shown_value(v, 40);
}

// Writes one value; false for text in a numeric column (with pad, it is
// written as missing).
bool Rewriter::value(std::string_view v, size_t column) {
  const ColumnType type = options_.types[column];
  if (v.size() <= 4 && is_missing_token(v) && (v.empty() || !options_.keep[column])) return true;
  for (const std::string& m : options_.missing)
    if (v == m) return true;
  if (type != ColumnType::kNumeric && type != ColumnType::kCharacter) {
    std::string digits;
    const DateOrder order = options_.orders[column];
    const bool iso = order != DateOrder::kNone
                         ? ordered_date(v, order, type == ColumnType::kDateTime, &digits)
                     : type == ColumnType::kDate ? any_date(v, &digits)
                     : type == ColumnType::kTime ? iso_time(v, &digits)
                                                 : any_datetime(v, &digits);
    if (iso) {
      std::memcpy(out_.get() + used_, digits.data(), digits.size());
      used_ += digits.size();
      return true;
    }
    // Anything else in a column of dates is text where a number is due.
    if (!is_missing_token(v)) {
      ++numeric_text_;
      return options_.pad;
    }
    return true;
  }
  std::string number;
  if (type == ColumnType::kNumeric && options_.decimal_comma) {
    // 1.234,5: points group the thousands, the comma is the decimal mark.
    for (char c : v) {
      if (c == '.') continue;
      number.push_back(c == ',' ? '.' : c);
    }
    v = number;
  }
  if (type == ColumnType::kNumeric && !number_value(v) && !is_missing_token(v)) {
    ++numeric_text_;
    return options_.pad;
  }
  char* o = out_.get() + used_;
  bool replaced = false;
  for (const char c : v) {
    const bool sep = kSeparator.is[static_cast<unsigned char>(c)];
    *o++ = sep ? '_' : c;
    replaced |= sep;
  }
  used_ += v.size();
  if (replaced) note_replaced(v);
  return true;
}

}  // namespace kolvprep
