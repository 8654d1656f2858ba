#include "rewrite.hpp"

#include <charconv>
#include <cstring>

namespace kolvprep {

namespace {

constexpr size_t kOutBlock = size_t{1} << 20;
constexpr uint64_t kWarnLines = 10;

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
  if (key == "--date")
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
  if (o.types.size() > o.columns) {
    error = "a --date, --time or --datetime column beyond --columns";
    return false;
  }
  o.types.resize(o.columns, ColumnType::kNumeric);
  return true;
}

std::vector<std::string> text_options_for(const Detection& d) {
  std::vector<std::string> out;
  out.push_back(std::string("--layout=") + layout_word(d.layout));
  if (d.skip != 0) out.push_back("--skip=" + std::to_string(d.skip));
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
  std::vector<size_t> dates, times, datetimes;
  for (size_t j = 0; j < d.columns.size(); ++j) {
    if (d.columns[j].type == ColumnType::kDate) dates.push_back(j + 1);
    if (d.columns[j].type == ColumnType::kTime) times.push_back(j + 1);
    if (d.columns[j].type == ColumnType::kDateTime) datetimes.push_back(j + 1);
  }
  if (!dates.empty()) out.push_back("--date=" + list_text(dates));
  if (!times.empty()) out.push_back("--time=" + list_text(times));
  if (!datetimes.empty()) out.push_back("--datetime=" + list_text(datetimes));
  return out;
}

Rewriter::Rewriter(TextOptions options, std::function<bool(const char*, size_t)> sink,
                   std::function<void(const std::string&)> warn)
    : options_(std::move(options)),
      splitter_(options_.layout, options_.fixed),
      sink_(std::move(sink)),
      warn_(std::move(warn)) {
  out_.reserve(kOutBlock + kMaxLine + 64);
}

bool Rewriter::flush() {
  if (!out_.empty() && !failed_) failed_ = !sink_(out_.data(), out_.size());
  out_.clear();
  return !failed_;
}

bool Rewriter::put(const char* data, size_t size) {
  out_.append(data, size);
  return out_.size() < kOutBlock || flush();
}

bool Rewriter::feed(const char* data, size_t size) {
  size_t at = 0;
  while (at < size && !failed_) {
    const void* nl = std::memchr(data + at, '\n', size - at);
    const size_t end = nl ? static_cast<size_t>(static_cast<const char*>(nl) - data) : size;
    if (raw_) {
      // The rest of an over-long line, passed on as it is.
      put(data + at, end - at);
      if (nl != nullptr) {
        raw_ = false;
        put("\n", 1);
      }
    } else if (nl == nullptr) {
      carry_.append(data + at, end - at);
      if (carry_.size() > kMaxLine) {
        ++line_number_;
        ++passed_on_;
        ++records_;
        if (passed_on_ <= kWarnLines)
          warn_("line " + std::to_string(line_number_) +
                " is longer than 1 MiB: passed on as it is");
        put(carry_.data(), carry_.size());
        carry_.clear();
        carry_.shrink_to_fit();
        raw_ = true;
      }
    } else if (carry_.size() + (end - at) > kMaxLine) {
      // A whole line too long to be a record: passed on as it is.
      ++line_number_;
      ++passed_on_;
      ++records_;
      if (passed_on_ <= kWarnLines)
        warn_("line " + std::to_string(line_number_) + " is longer than 1 MiB: passed on as it is");
      put(carry_.data(), carry_.size());
      put(data + at, end - at);
      put("\n", 1);
      carry_.clear();
    } else if (!carry_.empty()) {
      carry_.append(data + at, end - at);
      line(carry_);
      carry_.clear();
    } else {
      line(std::string_view(data + at, end - at));
    }
    at = nl ? end + 1 : size;
    if (out_.size() >= kOutBlock) flush();
  }
  return !failed_;
}

bool Rewriter::finish() {
  if (raw_) {
    put("\n", 1);
  } else if (!carry_.empty()) {
    line(carry_);
    carry_.clear();
  }
  if (passed_on_ > kWarnLines) {
    warn_(std::to_string(passed_on_) +
          " lines in all did not fit the layout and were passed on as they are");
  }
  if (replaced_ > 3) {
    warn_(std::to_string(replaced_) + " values in all had blanks, tabs or commas written as \"_\"");
  }
  return flush();
}

void Rewriter::line(std::string_view text) {
  ++line_number_;
  if (first_line_) {
    first_line_ = false;
    if (text.size() >= 3 && text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.remove_prefix(3);
  }
  if (line_number_ <= options_.skip) return;
  if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
  const std::string_view t = trim(text);
  if (t.empty() || (options_.comment != 0 && t[0] == options_.comment)) return;
  ++records_;
  const bool ok = splitter_.split(text, fields_);
  if (!ok || fields_.size() != options_.columns) {
    if (++passed_on_ <= kWarnLines) {
      warn_("line " + std::to_string(line_number_) + ": " +
            (ok ? std::to_string(fields_.size()) + " fields where " +
                      std::to_string(options_.columns) + " are expected"
                : std::string("a quote is not closed")) +
            "; passed on as it is");
    }
    put(text.data(), text.size());
    put("\n", 1);
    return;
  }
  for (size_t j = 0; j < fields_.size(); ++j) {
    if (j != 0) out_.push_back(',');
    value(fields_[j], options_.types[j]);
  }
  out_.push_back('\n');
}

void Rewriter::value(std::string_view v, ColumnType type) {
  if (v.size() <= 4 && is_missing_token(v)) return;
  if (type != ColumnType::kNumeric && type != ColumnType::kCharacter) {
    const size_t before = out_.size();
    const bool iso = type == ColumnType::kDate   ? iso_date(v, &out_)
                     : type == ColumnType::kTime ? iso_time(v, &out_)
                                                 : iso_datetime(v, &out_);
    if (iso) return;
    out_.resize(before);
  }
  const size_t before = out_.size();
  out_.append(v);
  bool replaced = false;
  for (size_t i = before; i < out_.size(); ++i) {
    const char c = out_[i];
    if (c == ' ' || c == ',' || c == '\t' || c == '\r') {
      out_[i] = '_';
      replaced = true;
    }
  }
  if (replaced && ++replaced_ <= 3) {
    warn_("line " + std::to_string(line_number_) + ": blanks, tabs or commas inside \"" +
          std::string(v.substr(0, 40)) + "\" written as \"_\"");
  }
}

}  // namespace kolvprep
