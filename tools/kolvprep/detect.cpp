#include "detect.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <set>

#include "source.hpp"

namespace kolvprep {

namespace {

std::string number_text(uint64_t n) {
  return std::to_string(n);
}

// Adds the lines of `text` to the sample; `numbered` lines continue the
// file's own line count.
bool add_lines(Sample& sample, std::string_view text, bool numbered, std::string& error) {
  uint64_t number = sample.start_lines;
  size_t at = 0;
  while (at < text.size()) {
    const void* nl = std::memchr(text.data() + at, '\n', text.size() - at);
    const size_t end =
        nl ? static_cast<size_t>(static_cast<const char*>(nl) - text.data()) : text.size();
    std::string_view line = text.substr(at, end - at);
    ++number;
    if (line.size() > kMaxLine) {
      error = numbered
                  ? "line " + number_text(number) + " is longer than 1 MiB: not a table of values"
                  : "a line longer than 1 MiB: not a table of values";
      return false;
    }
    if (nl != nullptr) {
      if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
        ++sample.crlf_lines;
      } else {
        ++sample.lf_lines;
      }
    } else if (!line.empty() && line.back() == '\r') {
      line.remove_suffix(1);
    }
    sample.lines.push_back({line, numbered ? number : 0});
    if (numbered) sample.start_lines = sample.lines.size();
    at = end + 1;
  }
  return true;
}

bool all_blank_text(std::string_view s) {
  for (char c : s) {
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n') return false;
  }
  return true;
}

}  // namespace

bool sample_from_bytes(std::string bytes, bool whole, uint64_t file_size, Sample& sample,
                       std::string& error) {
  sample.whole_file = whole;
  sample.file_size = file_size;
  if (bytes.empty()) {
    error = "the file is empty";
    return false;
  }
  if (bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) {
    sample.bom = true;
    bytes.erase(0, 3);
  }
  if (const void* nul = std::memchr(bytes.data(), '\0', bytes.size())) {
    const size_t at = static_cast<size_t>(static_cast<const char*>(nul) - bytes.data());
    error = "a NUL byte at offset " + number_text(at + (sample.bom ? 3 : 0)) + ": not a text file";
    return false;
  }
  if (all_blank_text(bytes) && (whole || bytes.size() < kMaxLine)) {
    error = sample.bom ? "the file holds nothing but a byte-order mark"
                       : "the file holds nothing but blanks and line ends";
    if (sample.bom && !bytes.empty()) error += " and blanks";
    return false;
  }
  // Records that end with a CR alone: read as if they ended with a line feed.
  if (bytes.find('\n') == std::string::npos && bytes.find('\r') != std::string::npos) {
    sample.cr_records = true;
    std::replace(bytes.begin(), bytes.end(), '\r', '\n');
  }
  sample.final_newline = !bytes.empty() && bytes.back() == '\n';
  if (!whole) {
    const size_t last = bytes.rfind('\n');
    if (last == std::string::npos) {
      error = "line 1 is longer than 1 MiB: not a table of values";
      return false;
    }
    bytes.resize(last + 1);
  }
  sample.chunks.push_back(std::move(bytes));
  return add_lines(sample, sample.chunks.back(), true, error);
}

bool read_sample(const std::string& path, bool full, const SampleSize& size, Sample& sample,
                 std::string& error) {
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    error = "a directory, not a text file";
    return false;
  }
  std::unique_ptr<Source> source = open_source(path, error);
  if (!source) return false;
  sample.compression = source->compression();
  if (source->seekable()) {
    // A plain file: its start, and blocks spread through the rest.
    const uint64_t file_size = source->size();
    const bool whole = full || file_size <= size.whole_limit;
    std::string bytes(whole ? static_cast<size_t>(file_size) : size.start, '\0');
    size_t got = 0;
    if (!source->read_at(0, bytes.data(), bytes.size(), got, error)) return false;
    bytes.resize(got);
    if (!sample_from_bytes(std::move(bytes), whole, file_size, sample, error)) return false;
    for (size_t k = 0; !whole && k < size.blocks; ++k) {
      const uint64_t offset = size.start + (file_size - size.start) * k / size.blocks;
      std::string block(size.block, '\0');
      if (!source->read_at(offset, block.data(), block.size(), got, error)) return false;
      block.resize(got);
      if (const void* nul = std::memchr(block.data(), '\0', block.size())) {
        error = "a NUL byte at offset " +
                number_text(offset +
                            static_cast<uint64_t>(static_cast<const char*>(nul) - block.data())) +
                ": not a text file";
        return false;
      }
      if (sample.cr_records) std::replace(block.begin(), block.end(), '\r', '\n');
      const size_t first = block.find('\n');
      const size_t last = block.rfind('\n');
      if (first == std::string::npos || first == last) continue;
      block = block.substr(first + 1, last - first);
      sample.chunks.push_back(std::move(block));
      if (!add_lines(sample, sample.chunks.back(), false, error)) return false;
    }
    return true;
  }
  // A stream or compressed text is read in order: all of it with --full,
  // else its start.
  std::string bytes;
  const size_t limit = full ? std::string::npos : size.whole_limit;
  std::vector<char> buffer(size_t{1} << 16);
  bool whole = false;
  for (;;) {
    size_t got = 0;
    const size_t want = std::min(buffer.size(), limit == std::string::npos
                                                    ? buffer.size()
                                                    : limit + 1 - std::min(limit, bytes.size()));
    if (want == 0) break;
    if (!source->read(buffer.data(), want, got, error)) return false;
    if (got == 0) {
      whole = true;
      break;
    }
    bytes.append(buffer.data(), got);
    if (limit != std::string::npos && bytes.size() > limit) break;
  }
  const uint64_t total = bytes.size();
  if (!whole) bytes.resize(limit);
  return sample_from_bytes(std::move(bytes), whole, total, sample, error);
}

bool looks_like_missing_code(std::string_view v) {
  size_t nines = 0;
  bool negative = false;
  bool leading = true;
  for (char c : v) {
    if (c == '-') {
      negative = true;
    } else if (c == '+' || c == '.') {
      continue;
    } else if (c == '0' && leading) {
      continue;
    } else if (c == '9') {
      ++nines;
      leading = false;
    } else {
      return false;
    }
  }
  return nines >= 4 || (negative && nines >= 2);
}

std::string make_name(std::string_view wanted, size_t index, std::vector<std::string>& taken) {
  std::string name;
  for (char c : wanted) {
    const unsigned char u = static_cast<unsigned char>(c);
    if (std::isalnum(u) && u < 128) {
      name.push_back(c);
    } else if (!name.empty() && name.back() != '_') {
      name.push_back('_');
    }
  }
  while (!name.empty() && name.back() == '_') name.pop_back();
  if (name.empty()) name = "V" + std::to_string(index);
  if (std::isdigit(static_cast<unsigned char>(name[0]))) name.insert(0, "V");
  if (name.size() > 32) name.resize(32);
  auto folded = [](std::string s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
  };
  if (folded(name) == "RECORD" || folded(name) == "DELIMIT") name += "_";
  std::string base = name;
  for (int n = 2;; ++n) {
    const std::string f = folded(name);
    bool clash = false;
    for (const std::string& t : taken) clash = clash || folded(t) == f;
    if (!clash) break;
    std::string suffix = "_";
    suffix += std::to_string(n);
    name = base.substr(0, 32 - suffix.size()) + suffix;
  }
  taken.push_back(name);
  return name;
}

namespace {

bool is_comment_line(std::string_view line, char* which) {
  const std::string_view t = trim(line);
  if (t.empty() || (t[0] != '#' && t[0] != '%')) return false;
  *which = t[0];
  return true;
}

// How steady and how typed the table of one dialect is: the share of
// records with the most frequent field count, and the share of their cells
// that read as a number, date, time, missing token or plain text (no quote
// or other delimiter left in it).
struct Score {
  size_t columns = 0;  // the most frequent field count
  double share = 0;    // records with that count
  double typed = 0;    // cells of those records that read as values
  double value() const { return share * (0.5 + 0.5 * typed); }
};

// A line that reads as a note under a table: it begins with a mark such as
// "*" or "(", its first word ends in a colon ("Source:", "Note:"), or it
// ends with a full stop.
bool note_like(std::string_view line) {
  const std::string_view t = trim(line);
  if (t.empty()) return false;
  const unsigned char c = static_cast<unsigned char>(t[0]);
  if (c == '*' || c == '(' || c == '[' || c == '#' || c >= 0x80) return true;
  const size_t word = t.find_first_of(" \t");
  const std::string_view first = t.substr(0, word);
  if (first.size() >= 2 && first.back() == ':') return true;
  return t.back() == '.' && t.find(' ') != std::string_view::npos;
}

bool plain_cell(std::string_view v) {
  if (classify(v) != ValueKind::kText) return true;
  // A quote left in, or another delimiter: the cell was cut wrong.
  return v.find_first_of("\"';|\t") == std::string_view::npos;
}

Score score_layout(Layout layout, const std::vector<std::string_view>& lines, Quoting quoting = {},
                   char delimiter = 0) {
  Splitter splitter(layout, {}, quoting, delimiter);
  std::map<size_t, size_t> counts;
  std::vector<std::string_view> fields;
  std::vector<size_t> sizes(lines.size(), 0);  // 0: a broken quote
  for (size_t i = 0; i < lines.size(); ++i) {
    if (!splitter.split(lines[i], fields)) continue;
    sizes[i] = fields.size();
    ++counts[fields.size()];
  }
  Score s;
  size_t best = 0;
  for (const auto& [n, c] : counts) {
    if (c > best) {
      best = c;
      s.columns = n;
    }
  }
  // Counted from the first record of the table's shape: lines before it
  // are a preamble, set apart later.
  size_t first = 0;
  while (first < sizes.size() && sizes[first] != s.columns) ++first;
  s.share = lines.size() == first
                ? 0
                : static_cast<double>(best) / static_cast<double>(lines.size() - first);
  size_t cells = 0, typed = 0;
  for (size_t i = 0; i < lines.size() && i < 2000; ++i) {
    if (!splitter.split(lines[i], fields) || fields.size() != s.columns) continue;
    for (std::string_view f : fields) {
      ++cells;
      typed += plain_cell(f);
    }
  }
  s.typed = cells == 0 ? 0 : static_cast<double>(typed) / static_cast<double>(cells);
  return s;
}

// True when most lines of the delimited layout hold a field made of several
// blank-separated numbers: the delimiter then only sets off one column of a
// blank-aligned table.
bool fields_hold_number_runs(Layout layout, const std::vector<std::string_view>& lines) {
  Splitter splitter(layout);
  Splitter blanks(Layout::kBlank);
  std::vector<std::string_view> fields;
  std::vector<std::string_view> words;
  size_t with_runs = 0;
  for (std::string_view line : lines) {
    if (!splitter.split(line, fields)) continue;
    bool run = false;
    for (std::string_view f : fields) {
      std::string copy(f);
      if (!blanks.split(copy, words) || words.size() < 2) continue;
      bool numbers = true;
      for (std::string_view w : words) numbers = numbers && is_kolv_number(w);
      run = run || numbers;
    }
    with_runs += run;
  }
  return with_runs * 2 > lines.size();
}

// Column classes of a fixed layout, per byte position.
constexpr unsigned kBlankByte = 1, kNumberByte = 2, kOtherByte = 4, kSignByte = 8, kTokenByte = 16;

bool all_numbers(const std::vector<std::string_view>& lines, FixedColumn c) {
  for (std::string_view line : lines) {
    if (c.start >= line.size()) continue;
    const std::string_view v = trim(line.substr(c.start, c.width));
    // Numbers, dates, times and missing tokens are each one value.
    if (!v.empty() && classify(v) == ValueKind::kText) return false;
  }
  return true;
}

std::vector<FixedColumn> find_fixed_columns(const std::vector<std::string_view>& lines) {
  size_t width = 0;
  for (std::string_view l : lines) width = std::max(width, l.size());
  std::vector<unsigned> cls(width, 0);
  std::vector<bool> token;
  for (std::string_view l : lines) {
    // A missing-value token ("NaN", "NA") stands for a value of any kind:
    // its bytes are neither blank nor text.
    token.assign(l.size(), false);
    for (size_t p = 0; p < l.size();) {
      if (l[p] == ' ') {
        ++p;
        continue;
      }
      size_t q = p;
      while (q < l.size() && l[q] != ' ') ++q;
      if (is_missing_token(l.substr(p, q - p)))
        for (size_t i = p; i < q; ++i) token[i] = true;
      p = q;
    }
    for (size_t p = 0; p < width; ++p) {
      const char c = p < l.size() ? l[p] : ' ';
      if (p < l.size() && token[p]) {
        cls[p] |= kTokenByte;
      } else if (c == ' ') {
        cls[p] |= kBlankByte;
      } else if (c == '+' || c == '-') {
        cls[p] |= kNumberByte | kSignByte;
      } else if ((c >= '0' && c <= '9') || c == '.' || c == 'e' || c == 'E') {
        cls[p] |= kNumberByte;
      } else {
        cls[p] |= kOtherByte;
      }
    }
  }
  // Runs of positions that are never blank-only, cut where text columns
  // meet number columns.
  std::vector<FixedColumn> runs;
  size_t p = 0;
  while (p < width) {
    if (cls[p] == kBlankByte) {
      ++p;
      continue;
    }
    const bool text = (cls[p] & kOtherByte) != 0;
    size_t q = p + 1;
    while (q < width && cls[q] != kBlankByte && ((cls[q] & kOtherByte) != 0) == text) ++q;
    runs.push_back({p, q - p});
    p = q;
  }
  // A number run that does not read as one number is cut before each
  // column of signs alone (a sign then starts the next number).
  std::vector<FixedColumn> out;
  for (FixedColumn r : runs) {
    if ((cls[r.start] & kOtherByte) != 0 || all_numbers(lines, r)) {
      out.push_back(r);
      continue;
    }
    size_t from = r.start;
    for (size_t q = r.start + 1; q < r.start + r.width; ++q) {
      if ((cls[q] & (kSignByte | kOtherByte)) == kSignByte &&
          (cls[q] & ~(kSignByte | kNumberByte | kBlankByte)) == 0) {
        // every byte there is a sign or a blank?
        bool signs_only = true;
        for (std::string_view l : lines) {
          const char c = q < l.size() ? l[q] : ' ';
          signs_only = signs_only && (c == '+' || c == '-' || c == ' ');
        }
        if (signs_only) {
          out.push_back({from, q - from});
          from = q;
        }
      }
    }
    out.push_back({from, r.start + r.width - from});
  }
  return out;
}

// Capital letters as "A", small ones as "a", digits as "9", the rest as
// they are.
std::string shape_of(std::string_view v) {
  std::string s(v.substr(0, 16));
  for (char& c : s) {
    if (c >= 'A' && c <= 'Z')
      c = 'A';
    else if (c >= 'a' && c <= 'z')
      c = 'a';
    else if (c >= '0' && c <= '9')
      c = '9';
  }
  return s;
}

void update_column(Column& col, std::string_view v, uint64_t line) {
  double number = 0;
  switch (classify(v, &number)) {
    case ValueKind::kMissing: {
      ++col.missing;
      const std::string token(v);
      if (std::find(col.missing_tokens.begin(), col.missing_tokens.end(), token) ==
              col.missing_tokens.end() &&
          col.missing_tokens.size() < 8)
        col.missing_tokens.push_back(token);
      return;
    }
    case ValueKind::kNumber:
      if (col.numbers == 0 || number < col.min) col.min = number;
      if (col.numbers == 0 || number > col.max) col.max = number;
      ++col.numbers;
      // A whole number may lie far beyond any integer type ("1e64", or 30
      // digits written out): test it as a double, never by a cast.
      if (!std::isfinite(number) || std::trunc(number) != number ||
          v.find_first_of(".eE") != std::string_view::npos)
        col.integers = false;
      if (looks_like_missing_code(v) && (col.code.empty() || col.code == v)) {
        if (col.code.empty()) {
          col.code = std::string(v);
          col.code_value = number;
        }
        ++col.code_count;
      } else {
        if (col.others == 0 || number < col.other_min) col.other_min = number;
        if (col.others == 0 || number > col.other_max) col.other_max = number;
        ++col.others;
      }
      if (v.find_first_not_of("0123456789") == std::string_view::npos) {
        if (col.number_width == 0 && !col.other_numbers) col.number_width = v.size();
        if (col.number_width != v.size()) col.other_numbers = true;
      } else {
        col.other_numbers = true;
      }
      // A code with leading zeros: "0" then digits only.
      if (v.size() >= 2 && v[0] == '0' &&
          v.find_first_not_of("0123456789") == std::string_view::npos) {
        if (col.zero_codes++ == 0) col.zero_width = v.size();
        if (col.zero_width != v.size()) col.zero_width = 0;
      }
      break;
    case ValueKind::kDate:
      ++col.dates;
      break;
    case ValueKind::kTime:
      ++col.times;
      break;
    case ValueKind::kDateTime:
      ++col.datetimes;
      break;
    case ValueKind::kText:
      if (col.one_shape) {
        const std::string shape = shape_of(v);
        if (col.texts == 0) col.shape = shape;
        col.one_shape = col.shape == shape;
      }
      if (ambiguous_date(v)) {
        int a = 0, b = 0;
        ambiguous_date(v, &a, &b);
        col.max_first = std::max(col.max_first, a);
        col.max_second = std::max(col.max_second, b);
        if (v.find(' ') != std::string_view::npos) col.ambiguous_times = true;
        if (col.ambiguous_dates++ == 0) col.ambiguous_example = std::string(v.substr(0, 20));
      }
      if (col.texts++ == 0) {
        col.first_text = std::string(v.substr(0, 40));
        col.first_text_line = line;
      }
      break;
  }
  if (v.size() > col.widest) {
    col.widest = v.size();
    col.widest_text = std::string(v.substr(0, 40));
    col.widest_line = line;
  }
  if (!col.text_with_separators && v.find_first_of(" \t,\r\n") != std::string_view::npos) {
    col.text_with_separators = true;
    col.separator_example = std::string(v.substr(0, 40));
    col.separator_line = line;
  }
}

void settle_type(Column& col) {
  const size_t kinds = size_t{col.numbers > 0} + size_t{col.dates > 0} + size_t{col.times > 0} +
                       size_t{col.datetimes > 0};
  if (col.texts > 0 && col.texts == col.ambiguous_dates && kinds == 0 &&
      (col.max_first > 12) != (col.max_second > 12)) {
    // dd/mm/yyyy or mm/dd/yyyy with a value that shows which is the day.
    col.date_order = col.max_first > 12 ? DateOrder::kDayFirst : DateOrder::kMonthFirst;
    col.type = col.ambiguous_times ? ColumnType::kDateTime : ColumnType::kDate;
  } else if (col.texts > 0 || kinds > 1) {
    col.type = ColumnType::kCharacter;
  } else if (col.zero_codes > 0 && !col.other_numbers && col.number_width >= 3 &&
             col.number_width <= 8) {
    // Codes of one width with leading zeros ("00501"): kept as written.
    // Two digits ("01") are months, days or hours, and numbers; codes
    // wider than the 8 bytes kolv keeps of a text stay whole as numbers.
    col.type = ColumnType::kCharacter;
  } else if (col.dates > 0) {
    col.type = ColumnType::kDate;
  } else if (col.times > 0) {
    col.type = ColumnType::kTime;
  } else if (col.datetimes > 0) {
    col.type = ColumnType::kDateTime;
  } else {
    col.type = ColumnType::kNumeric;
  }
  if (col.type == ColumnType::kCharacter && col.first_text.empty()) {
    col.first_text = col.widest_text;
    col.first_text_line = col.widest_line;
  }
}

std::string where(uint64_t line) {
  return line != 0 ? "line " + number_text(line) : "a line in the sample";
}

}  // namespace

namespace {

// One record of the sample: a line, or lines joined where a quoted value
// holds line ends.
struct Record {
  std::string_view text;
  uint64_t number = 0;  // its first line's number; 0 in a block of the sample
  size_t line = 0;      // index of its first line in the sample
  bool joined = false;
};

// The records of the sample from line `from` on under one quoting: blank
// and comment lines between records are left out.
std::vector<Record> assemble(const Sample& sample, size_t from, char comment, Layout layout,
                             char delimiter, Quoting quoting, std::deque<std::string>& store) {
  std::vector<Record> out;
  const char d = layout == Layout::kOther ? delimiter : layout_delimiter(layout);
  QuoteTracker tracker(d, quoting);
  const bool quotes = quoting.quote != 0 && layout != Layout::kFixed;
  for (size_t i = from; i < sample.lines.size(); ++i) {
    const SampleLine& line = sample.lines[i];
    const std::string_view t = trim(line.text);
    if (t.empty() || (comment != 0 && t[0] == comment)) continue;
    tracker.reset();
    if (!quotes || !tracker.open_after(line.text)) {
      out.push_back({line.text, line.number, i, false});
      continue;
    }
    // Lines joined while the quote stays open (a bounded number of them,
    // in the same part of the sample).
    std::string joined(line.text);
    size_t k = i + 1;
    bool closed = false;
    for (; k < sample.lines.size() && k - i <= 200; ++k) {
      if ((sample.lines[k].number == 0) != (line.number == 0)) break;
      joined.push_back('\n');
      joined.append(sample.lines[k].text);
      tracker.open_after("\n");
      if (!tracker.open_after(sample.lines[k].text)) {
        closed = true;
        break;
      }
    }
    if (!closed) {
      out.push_back({line.text, line.number, i, false});
      continue;
    }
    store.push_back(std::move(joined));
    out.push_back({store.back(), line.number, i, true});
    i = k;
  }
  return out;
}

// A column named by its 1-based number or its header text.
bool column_index(const std::string& item, const std::vector<Column>& columns, size_t& index) {
  if (!item.empty() && item.find_first_not_of("0123456789") == std::string::npos) {
    const unsigned long v = std::stoul(item.substr(0, 9));
    if (v == 0 || v > columns.size()) return false;
    index = v - 1;
    return true;
  }
  for (size_t j = 0; j < columns.size(); ++j) {
    if (columns[j].header == item || columns[j].name == item) {
      index = j;
      return true;
    }
  }
  return false;
}

// A value written with a decimal comma (1.234,5 or 3,14) as kolv reads it.
bool decimal_comma_number(std::string_view v, std::string& out) {
  out.clear();
  bool comma = false;
  for (char c : v) {
    if (c == ',') {
      if (comma) return false;
      comma = true;
      out.push_back('.');
    } else if (c == '.') {
      if (comma) return false;
    } else {
      out.push_back(c);
    }
  }
  return comma && is_kolv_number(out);
}

}  // namespace

bool detect(const Sample& sample, const Overrides& given, Detection& d, std::string& error) {
  d.whole_file = sample.whole_file;
  d.bom = sample.bom;
  d.crlf = sample.crlf_lines > sample.lf_lines;
  d.final_newline = sample.final_newline;
  d.mixed_line_ends = sample.crlf_lines != 0 && sample.lf_lines != 0;
  d.cr_records = sample.cr_records;
  d.compression = sample.compression;
  d.pad = given.pad;
  d.missing = given.missing;

  // Content lines: neither blank nor comments. A comment character counts
  // when comment lines come before the first content line. With --skip,
  // the lines before the table are dropped as given.
  size_t from = 0;
  if (given.skip >= 0) {
    d.skip_given = true;
    while (from < sample.start_lines && sample.lines[from].number <= uint64_t(given.skip)) ++from;
  }
  char first_comment = 0;
  size_t first_content = sample.lines.size();
  for (size_t i = from; i < sample.lines.size(); ++i) {
    const std::string_view t = trim(sample.lines[i].text);
    char which = 0;
    if (t.empty()) continue;
    if (is_comment_line(t, &which)) {
      if (first_comment == 0) first_comment = which;
      continue;
    }
    first_content = i;
    break;
  }
  d.comment = first_comment;
  if (first_content == sample.lines.size()) {
    error = "no lines of data: only blank or comment lines";
    return false;
  }

  // The quoting: given, or the quote that wraps whole fields, its escape
  // (doubled or after a backslash) chosen with the delimiter by the score
  // of the table each reading gives.
  std::deque<std::string> store;
  auto lines_of = [&](Quoting q, Layout layout, char delimiter) {
    std::vector<Record> r = assemble(sample, first_content, d.comment, layout, delimiter, q, store);
    return r;
  };
  std::vector<Quoting> quotings;
  if (given.quote_given) {
    d.quote_given = true;
    quotings.push_back({given.quote, false});
  } else {
    // The quote is the one that wraps whole fields most often (the double
    // quote when neither does); its escape is scored below.
    size_t wrapped[2] = {0, 0};
    const char quotes[2] = {'"', '\''};
    for (size_t i = first_content; i < sample.lines.size() && i < first_content + 2000; ++i) {
      const std::string_view line = sample.lines[i].text;
      for (int q = 0; q < 2; ++q) {
        for (size_t at = line.find(quotes[q]); at != std::string_view::npos;
             at = line.find(quotes[q], at + 1)) {
          // A quote at a field's start whose partner ends a field.
          // Blanks may stand between a quote and its delimiter.
          size_t before = at;
          while (before > 0 && line[before - 1] == ' ') --before;
          const bool starts = before == 0 || std::strchr(",;|\t", line[before - 1]) != nullptr;
          if (!starts) continue;
          // Its partner: the next quote that is not doubled.
          size_t close = line.find(quotes[q], at + 1);
          while (close != std::string_view::npos && close + 1 < line.size() &&
                 line[close + 1] == quotes[q])
            close = line.find(quotes[q], close + 2);
          if (close == std::string_view::npos) break;
          size_t after = close + 1;
          while (after < line.size() && line[after] == ' ') ++after;
          const bool ends = after == line.size() || std::strchr(",;|\t\r", line[after]) != nullptr;
          wrapped[q] += ends;
          at = close;
        }
      }
    }
    const char q = wrapped[1] > wrapped[0] ? '\'' : '"';
    quotings = {{q, false}, {q, true}};
  }
  const Layout delimited[] = {Layout::kComma, Layout::kTab, Layout::kSemicolon, Layout::kPipe};
  struct Candidate {
    Quoting quoting;
    Layout layout;
    Score score;
  };
  std::vector<Candidate> candidates;
  for (Quoting q : quotings) {
    if (given.layout_given && given.layout != Layout::kBlank && given.layout != Layout::kFixed) {
      std::vector<Record> r = lines_of(q, given.layout, given.delimiter);
      std::vector<std::string_view> texts;
      for (const Record& x : r) texts.push_back(x.text);
      candidates.push_back(
          {q, given.layout, score_layout(given.layout, texts, q, given.delimiter)});
      continue;
    }
    for (Layout l : delimited) {
      std::vector<Record> r = lines_of(q, l, 0);
      std::vector<std::string_view> texts;
      for (const Record& x : r) texts.push_back(x.text);
      candidates.push_back({q, l, score_layout(l, texts, q)});
    }
  }
  // The best delimited reading; its rivals are said when they score alike.
  const Candidate* best_candidate = nullptr;
  const Candidate* rival = nullptr;
  for (const Candidate& c : candidates) {
    if (c.score.columns < 2 && !given.layout_given) continue;
    if (best_candidate == nullptr || c.score.value() > best_candidate->score.value() + 1e-9) {
      rival = best_candidate;
      best_candidate = &c;
    } else if (rival == nullptr || c.score.value() > rival->score.value()) {
      rival = &c;
    }
  }
  Quoting quoting = best_candidate != nullptr ? best_candidate->quoting : quotings.front();
  if (given.layout_given) {
    d.layout_given = true;
    d.layout = given.layout;
    d.delimiter = given.delimiter;
  }
  d.quoting = quoting;
  std::vector<Record> records;
  std::vector<std::string_view> texts;

  Score best;
  bool have_delimited = false;
  // Runs of blanks give a steady table of two columns or more.
  auto steady_blanks = [&]() {
    std::vector<Record> r = lines_of(quoting, Layout::kBlank, 0);
    std::vector<std::string_view> t;
    for (size_t i = r.size() > 2 ? 1 : 0; i < r.size(); ++i) t.push_back(r[i].text);
    const Score b = score_layout(Layout::kBlank, t, quoting);
    return b.columns >= 2 && b.share >= 0.9;
  };
  if (given.layout_given && given.layout != Layout::kBlank && given.layout != Layout::kFixed) {
    have_delimited = true;
    best = best_candidate->score;
  } else if (!given.layout_given && best_candidate != nullptr &&
             (best_candidate->score.share >= 0.9 ||
              (best_candidate->score.share >= 0.5 && !steady_blanks()))) {
    d.layout = best_candidate->layout;
    best = best_candidate->score;
    have_delimited = true;
    if (rival != nullptr && rival->score.columns >= 2 && rival->score.share >= 0.9 &&
        rival->score.value() > best.value() - 0.02 &&
        (rival->layout != d.layout || rival->quoting.quote != quoting.quote)) {
      // Quoting is in doubt only where the sample holds both kinds of quote.
      bool both_quotes = false;
      for (const std::string& c : sample.chunks)
        both_quotes =
            both_quotes || (c.find('"') != std::string::npos && c.find('\'') != std::string::npos);
      if (rival->layout != d.layout)
        d.doubts.push_back(std::string(layout_word(rival->layout)) + " reads the file as well as " +
                           layout_word(d.layout) + "; --delimiter settles it");
      else if (both_quotes && rival->quoting.backslash == quoting.backslash)
        d.doubts.push_back("both kinds of quote read the file alike; --quote settles it");
    }
  }
  records = lines_of(quoting, have_delimited ? d.layout : Layout::kBlank, d.delimiter);
  for (const Record& r : records) texts.push_back(r.text);
  if (have_delimited && !given.layout_given) {
    // A delimiter that only sets off one column of a blank-aligned table.
    const Score blank = score_layout(Layout::kBlank, texts, quoting);
    if (blank.share >= best.share && blank.columns > best.columns &&
        fields_hold_number_runs(d.layout, texts)) {
      have_delimited = false;
      d.doubts.clear();
      records = lines_of(quoting, Layout::kBlank, 0);
      texts.clear();
      for (const Record& r : records) texts.push_back(r.text);
    }
  }
  if (texts.empty()) {
    error = "no lines of data: only blank or comment lines";
    return false;
  }
  if (texts.size() < 2 && given.header < 0) {
    // One line: a header alone (names, no data) gives an empty data set.
    bool names = texts.size() == 1;
    Splitter s(have_delimited ? d.layout : Layout::kBlank, {}, quoting, d.delimiter);
    std::vector<std::string_view> f;
    names = names && s.split(texts[0], f) && f.size() >= 1;
    std::set<std::string> distinct;
    for (std::string_view x : f) {
      names = names && classify(x) == ValueKind::kText;
      distinct.insert(std::string(x));
    }
    if (!names || distinct.size() != f.size() || records[0].number == 0) {
      error =
          "only one line of data: too little to tell a header from data (give --header 1 or "
          "--no-header)";
      return false;
    }
  }

  std::vector<FixedColumn> fixed = given.cuts;
  if (!given.cuts.empty()) {
    d.layout = Layout::kFixed;
    d.cuts_given = true;
    d.layout_given = true;
  } else if (!have_delimited && !(given.layout_given && given.layout == Layout::kBlank)) {
    // Fixed columns when the blank-split count varies, or when every line
    // has one length and the columns that line up are more than the values
    // between blanks (a number glued to a code). A first line that may be
    // a header is left out of the comparison.
    std::vector<std::string_view> body(texts.begin() + (texts.size() > 2 ? 1 : 0), texts.end());
    const Score blank = score_layout(Layout::kBlank, body, quoting);
    bool one_length = true;
    for (std::string_view t : body) one_length = one_length && t.size() == body[0].size();
    size_t shortest = body[0].size(), longest = 0;
    for (std::string_view t : body) {
      shortest = std::min(shortest, t.size());
      longest = std::max(longest, t.size());
    }
    // A first line of names that splits at blanks into as many fields as
    // every line below it, with a name over a column of numbers, is the
    // header of a blank-aligned table: its names say where the columns are,
    // whatever the characters inside a value do.
    bool names_agree = false;
    if (texts.size() > 2 && blank.share >= 1.0) {
      Splitter words(Layout::kBlank, {}, quoting, 0);
      std::vector<std::string_view> f;
      std::vector<std::string> names;
      if (words.split(texts[0], f) && f.size() == blank.columns) names.assign(f.begin(), f.end());
      std::vector<size_t> numbers(names.size(), 0);
      for (std::string_view t : body) {
        if (!words.split(t, f) || f.size() != names.size()) continue;
        for (size_t j = 0; j < f.size(); ++j) numbers[j] += classify(f[j]) == ValueKind::kNumber;
      }
      for (size_t j = 0; j < names.size(); ++j)
        names_agree = names_agree || (classify(names[j]) == ValueKind::kText &&
                                      10 * numbers[j] >= 9 * body.size());
    }
    if ((blank.share < 1.0 || one_length) && 2 * shortest >= longest && !names_agree)
      fixed = find_fixed_columns(body);
    if (fixed.size() >= 2 &&
        (blank.share < 1.0 ? fixed.size() >= blank.columns : fixed.size() > blank.columns)) {
      d.layout = Layout::kFixed;
      std::string cuts;
      for (const FixedColumn& f : fixed)
        cuts += (cuts.empty() ? "" : ",") + number_text(f.start + 1) + "-" +
                number_text(f.start + f.width);
      if (cuts.size() > 40) cuts = cuts.substr(0, 40) + "...";
      d.doubts.push_back("fixed columns guessed as " + cuts + "; --cuts settles them");
    } else if (blank.share >= 0.9) {
      d.layout = Layout::kBlank;
      best = score_layout(Layout::kBlank, texts, quoting);
      best.columns = blank.columns;
    } else {
      error = "no steady layout: the lines hold different numbers of fields (give --delimiter)";
      return false;
    }
  } else if (!have_delimited) {
    d.layout = Layout::kBlank;
    best = score_layout(Layout::kBlank, texts, quoting);
  }
  if (d.layout == Layout::kFixed) {
    d.quoting.quote = 0;
    for (FixedColumn& f : fixed) f.width = std::min(f.width, kMaxLine);
  }
  const size_t n = d.layout == Layout::kFixed ? fixed.size() : best.columns;
  if (n == 0) {
    error = "no columns found (give --delimiter)";
    return false;
  }

  // The data start at the first record of a run of records with the
  // table's field count (or, in fixed columns, at the first record).
  Splitter splitter(d.layout, fixed, d.quoting, d.delimiter);
  std::vector<std::string_view> fields;
  auto fits = [&](size_t k) { return splitter.split(texts[k], fields) && fields.size() == n; };
  size_t start = 0;
  if (d.layout != Layout::kFixed && !d.skip_given) {
    // The first run of three records that fit, else of two, else one.
    for (size_t run = 3; run > 0; --run) {
      for (start = 0; start < texts.size(); ++start) {
        size_t k = start;
        while (k < texts.size() && k < start + run && fits(k)) ++k;
        if (k == start + run) break;
      }
      if (start < texts.size()) break;
    }
    if (start >= texts.size() || records[start].number == 0) {
      error = "no steady layout at the start of the file (give --skip or --delimiter)";
      return false;
    }
  }

  // A second table: after a blank line, a row of names over columns of
  // numbers, or two rows of another shape. The table ends before it; the
  // rest is set apart.
  for (size_t k = start + 2; k < texts.size() && records[k].number != 0; ++k) {
    bool blank_before = false;
    for (size_t i = records[k - 1].line + 1; i < records[k].line; ++i)
      blank_before = blank_before || trim(sample.lines[i].text).empty();
    if (!blank_before) continue;
    bool boundary = false;
    if (!fits(k)) {
      // Lines to the end of the file that do not fit are notes under the
      // table; two of another shape begin another table.
      bool rest_unfit = sample.whole_file;
      for (size_t r = k + 1; rest_unfit && r < texts.size(); ++r) rest_unfit = !fits(r);
      boundary = rest_unfit || (k + 1 < texts.size() && !fits(k + 1));
    } else {
      std::vector<std::string> row(fields.begin(), fields.end());
      std::vector<size_t> values(n, 0), words(n, 0);
      for (size_t r = start + 1; r < k; ++r) {
        if (!fits(r)) continue;
        for (size_t j = 0; j < n; ++j) {
          const ValueKind kind = classify(fields[j]);
          values[j] += kind != ValueKind::kText && kind != ValueKind::kMissing;
          words[j] += kind == ValueKind::kText;
        }
      }
      bool names = true, over_values = false;
      for (size_t j = 0; j < n; ++j) {
        const ValueKind kind = classify(row[j]);
        names = names && (kind == ValueKind::kText || kind == ValueKind::kMissing);
        over_values = over_values || (kind == ValueKind::kText && values[j] > 0 && words[j] == 0);
      }
      boundary = names && over_values;
    }
    if (boundary) {
      d.table_end = records[k].number;
      d.rest_lines = sample.whole_file ? sample.start_lines - (records[k].number - 1) : 0;
      texts.resize(k);
      records.resize(k);
      break;
    }
  }

  // Notes right under the table, with no blank line before them: at the end
  // of the file, a few records of fewer fields than the table that read as
  // notes. The table ends before them; the rest is set apart, as after a
  // blank line.
  if (sample.whole_file && d.table_end == 0) {
    size_t k = texts.size();
    while (k > start + 2 && texts.size() - k < 5 && records[k - 1].number != 0 &&
           note_like(texts[k - 1]) && !fits(k - 1) && fields.size() < n)
      --k;
    if (k < texts.size()) {
      d.table_end = records[k].number;
      d.rest_lines = sample.start_lines - (records[k].number - 1);
      texts.resize(k);
      records.resize(k);
    }
  }

  // Decimal commas: a layout other than commas whose numbers-to-be hold
  // one comma each ("3,14", "1.234,5").
  std::string converted;
  if (d.layout != Layout::kComma) {
    // Per column: values with a decimal comma, and other values holding a
    // comma (text such as "Reno, NV").
    std::vector<size_t> with_comma(n, 0), other(n, 0);
    for (size_t k = start + 1; k < texts.size() && k < start + 2000; ++k) {
      if (!fits(k)) continue;
      for (size_t j = 0; j < n; ++j) {
        if (fields[j].find(',') == std::string_view::npos) continue;
        if (decimal_comma_number(fields[j], converted))
          ++with_comma[j];
        else
          ++other[j];
      }
    }
    for (size_t j = 0; j < n; ++j)
      d.decimal_comma = d.decimal_comma || (with_comma[j] > 0 && with_comma[j] >= other[j] * 4);
  }
  auto cell = [&](std::string_view v) -> std::string_view {
    if (d.decimal_comma && v.find(',') != std::string_view::npos &&
        decimal_comma_number(v, converted))
      return converted;
    for (const std::string& m : d.missing)
      if (v == m) return std::string_view();
    return v;
  };

  // Columns, typed from the records after the candidate header rows. A row
  // of text where most columns hold numbers (a heading of a second table, a
  // footnote) is set apart, not typed.
  d.columns.assign(n, Column{});
  if (d.layout == Layout::kFixed) {
    for (size_t j = 0; j < n; ++j) d.columns[j].fixed = fixed[j];
  }
  size_t record_length = std::string_view::npos;
  auto type_from = [&](size_t first) {
    for (Column& c : d.columns) {
      const FixedColumn keep = c.fixed;
      c = Column{};
      c.fixed = keep;
    }
    d.data_lines = d.misfits = d.foreign_rows = d.joined_records = 0;
    d.misfit_notes.clear();
    d.quotes = d.tabs_in_data = d.commas_in_blank_values = false;
    record_length = std::string_view::npos;
    // Which columns hold mostly numbers (or dates), for telling rows of text apart.
    std::vector<size_t> valued(n, 0), text(n, 0);
    for (size_t k = first; k < texts.size() && k < first + 2000; ++k) {
      if (!fits(k)) continue;
      for (size_t j = 0; j < n; ++j) {
        const ValueKind kind = classify(cell(fields[j]));
        valued[j] += kind != ValueKind::kText && kind != ValueKind::kMissing;
        text[j] += kind == ValueKind::kText;
      }
    }
    size_t number_columns = 0;
    for (size_t j = 0; j < n; ++j) number_columns += valued[j] > 4 * text[j] && valued[j] >= 2;
    for (size_t k = first; k < texts.size(); ++k) {
      const Record& rec = records[k];
      const bool ok = splitter.split(rec.text, fields);
      if (!ok || fields.size() != n) {
        if (++d.misfits <= 5) {
          d.misfit_notes.push_back(where(rec.number) + ": " +
                                   (ok ? number_text(fields.size()) +
                                             (fields.size() == 1 ? " field" : " fields") +
                                             " where " + number_text(n) + " are expected"
                                       : std::string("a quote out of place")));
        }
        continue;
      }
      if (number_columns >= 2) {
        size_t texts_in_numbers = 0;
        for (size_t j = 0; j < n; ++j)
          texts_in_numbers += valued[j] > 4 * text[j] && valued[j] >= 2 &&
                              classify(cell(fields[j])) == ValueKind::kText;
        if (2 * texts_in_numbers >= number_columns) {
          ++d.foreign_rows;
          if (++d.misfits <= 5)
            d.misfit_notes.push_back(where(rec.number) +
                                     ": text where numbers are expected (a heading or a note)");
          continue;
        }
      }
      ++d.data_lines;
      d.joined_records += rec.joined;
      d.quotes = d.quotes || splitter.saw_quote();
      if (rec.text.find('\t') != std::string_view::npos) d.tabs_in_data = true;
      if (record_length == std::string_view::npos) record_length = rec.text.size();
      if (record_length != rec.text.size()) record_length = 0;
      for (size_t j = 0; j < n; ++j) {
        update_column(d.columns[j], cell(fields[j]), rec.number);
        if (d.layout == Layout::kBlank && fields[j].find(',') != std::string_view::npos)
          d.commas_in_blank_values = true;
      }
    }
    for (Column& c : d.columns) settle_type(c);
  };

  // Header rows: given, or found by comparing a row with the kinds of the
  // rows after it (never typed with them): a text field where its column
  // holds numbers, dates or times; or, when every column is text, names
  // that never occur again in their columns.
  // Which fields of a record were written in quotes.
  Splitter raw_splitter(d.layout, fixed, Quoting{0, false}, d.delimiter);
  auto quoted_fields = [&](size_t row) {
    std::vector<bool> quoted(n, false);
    const char q = d.quoting.quote;
    if (q == 0 || !raw_splitter.split(texts[row], fields) || fields.size() != n) return quoted;
    for (size_t j = 0; j < n; ++j)
      quoted[j] = fields[j].size() >= 2 && fields[j].front() == q && fields[j].back() == q;
    return quoted;
  };
  auto header_like = [&](size_t row) {
    if (row + 1 >= texts.size() || !fits(row)) return false;
    std::vector<std::string> head;
    for (std::string_view f : fields) head.emplace_back(cell(f));
    if (row > start) {
      // A further header row holds no numbers, dates or times.
      for (const std::string& h : head) {
        const ValueKind k = classify(h);
        if (k != ValueKind::kText && k != ValueKind::kMissing) return false;
      }
    }
    type_from(row + 1);
    if (d.data_lines == 0) return false;
    // Names in quotes over columns of unquoted numbers ("1960","1961").
    {
      const std::vector<bool> head_quoted = quoted_fields(row);
      bool names_quoted = false, values_quoted = false;
      for (size_t j = 0; j < n; ++j) {
        if (d.columns[j].type == ColumnType::kNumeric && d.columns[j].numbers > 0) {
          if (!head_quoted[j]) {
            names_quoted = false;
            break;
          }
          names_quoted = true;
        }
      }
      for (size_t k = row + 1; names_quoted && k < texts.size() && k < row + 50; ++k) {
        const std::vector<bool> q = quoted_fields(k);
        for (size_t j = 0; j < n; ++j)
          values_quoted = values_quoted || (q[j] && d.columns[j].type == ColumnType::kNumeric);
      }
      if (names_quoted && !values_quoted) return true;
    }
    bool text_over_values = false;
    bool all_text = true;
    for (size_t j = 0; j < n; ++j) {
      const ValueKind k = classify(head[j]);
      const bool values =
          d.columns[j].type != ColumnType::kCharacter &&
          d.columns[j].numbers + d.columns[j].dates + d.columns[j].times + d.columns[j].datetimes >
              0;
      text_over_values = text_over_values || (values && k == ValueKind::kText);
      all_text = all_text && (k == ValueKind::kText || (k == ValueKind::kMissing && j == 0));
    }
    if (text_over_values) return true;
    if (!all_text) return false;
    std::vector<std::set<std::string>> seen(n);
    for (size_t k = row + 1; k < texts.size() && k < row + 1000; ++k) {
      if (!fits(k)) continue;
      for (size_t j = 0; j < n; ++j) seen[j].insert(std::string(fields[j]));
    }
    std::set<std::string> distinct(head.begin(), head.end());
    if (distinct.size() != n) return false;
    for (size_t j = 0; j < n; ++j)
      if (seen[j].count(head[j]) != 0) return false;
    return true;
  };
  size_t header_rows = 0;
  if (given.header >= 0) {
    d.header_given = true;
    header_rows = static_cast<size_t>(given.header);
    if (start + header_rows > texts.size()) {
      error = "fewer lines than the header rows given";
      return false;
    }
  } else if (texts.size() == 1) {
    header_rows = 1;  // names alone, checked above
  } else {
    while (header_rows < 3 && header_like(start + header_rows)) ++header_rows;
    if (header_rows == 0 && texts.size() - start > 3 && fits(start) && header_like(start + 1)) {
      // Names under a first header row that reads as numbers (years over
      // "pop" and "gdp"): both rows are the header.
      header_rows = 2;
      while (header_rows < 3 && header_like(start + header_rows)) ++header_rows;
    }
    if (header_rows == 0 && texts.size() - start == 2 && fits(start)) {
      // Two lines: a header when the first is all text and the second is not.
      std::vector<std::string> head(fields.begin(), fields.end());
      bool all_text = true;
      for (const std::string& h : head) all_text = all_text && classify(h) == ValueKind::kText;
      if (all_text && fits(start + 1)) {
        bool values = false;
        for (std::string_view f : fields) values = values || classify(f) != ValueKind::kText;
        if (values) header_rows = 1;
      }
    }
  }
  const size_t first_data = start + header_rows;
  type_from(first_data);
  if (header_rows > 0) {
    d.header = true;
    d.header_rows = header_rows;
    d.header_line = records[start].number;
    for (size_t r = 0; r < header_rows; ++r) {
      const bool ok = splitter.split(texts[start + r], fields);
      for (size_t j = 0; ok && j < n && j < fields.size(); ++j) {
        std::string& h = d.columns[j].header;
        if (!fields[j].empty() && !h.empty()) h += " ";
        h += std::string(fields[j]);
      }
    }
    if (given.header < 0 && d.data_lines > 0 && d.data_lines < 3)
      d.doubts.push_back("line " + number_text(d.header_line) +
                         " was taken for names on little evidence; --header or --no-header "
                         "settles it");
  }
  if (first_data < texts.size() && d.data_lines == 0 && header_rows == 0) {
    error = "no lines of data after the header (give --header)";
    return false;
  }
  // The lines dropped before the data: those before the first data record
  // (or, with names alone, all of them).
  d.skip = first_data < records.size()
               ? static_cast<size_t>(records[first_data].number - 1)
               : (sample.whole_file ? static_cast<size_t>(sample.start_lines)
                                    : static_cast<size_t>(records.back().number));
  d.record_length = record_length == std::string_view::npos ? 0 : record_length;
  if (first_data < records.size()) {
    for (size_t i = records[first_data].line; i < sample.lines.size(); ++i) {
      const std::string_view t = trim(sample.lines[i].text);
      if (t.empty()) ++d.blank_lines;
      if (!t.empty() && d.comment != 0 && t[0] == d.comment) ++d.comment_lines;
    }
  }

  // Columns given a type on the command line.
  for (const auto& [items, type] : {std::pair{&given.text_columns, ColumnType::kCharacter},
                                    std::pair{&given.numeric_columns, ColumnType::kNumeric}}) {
    for (const std::string& item : *items) {
      size_t j = 0;
      if (!column_index(item, d.columns, j)) {
        error = "no column " + item + " (columns are 1 to " + number_text(n) +
                (d.header ? " or header names)" : ")");
        return false;
      }
      d.columns[j].type = type;
      d.columns[j].given_type = true;
    }
  }

  // A text column of one shape whose missing tokens have that shape too
  // (codes "QS", "NA", "TY"): the tokens are codes, kept as text.
  for (Column& c : d.columns) {
    if (c.type != ColumnType::kCharacter || !c.one_shape || c.texts < 3 || c.numbers != 0) continue;
    bool tokens = false;
    for (const std::string& t : c.missing_tokens) {
      if (t.empty()) continue;
      tokens = shape_of(t) == c.shape;
      if (!tokens) break;
    }
    c.keep_tokens = tokens;
  }

  // Distinct text values, and how many stay distinct in the 8 bytes kolv
  // keeps (blanks, tabs and commas written as "_" first).
  {
    std::vector<std::set<std::string>> whole(n), cut(n);
    for (size_t k = first_data; k < texts.size(); ++k) {
      if (!fits(k)) continue;
      for (size_t j = 0; j < n; ++j) {
        if (d.columns[j].type != ColumnType::kCharacter || whole[j].size() >= kMaxDistinct)
          continue;
        const std::string_view v = cell(fields[j]);
        if (is_missing_token(v)) continue;
        std::string kept(v.substr(0, 8));
        for (char& c : kept)
          if (c == ' ' || c == '\t' || c == ',' || c == '\r' || c == '\n') c = '_';
        whole[j].insert(std::string(v));
        cut[j].insert(kept);
      }
    }
    for (size_t j = 0; j < n; ++j) {
      d.columns[j].distinct = whole[j].size();
      d.columns[j].distinct_cut = cut[j].size();
    }
  }

  // Without a header line, the last comment line before the data may hold
  // the column titles.
  if (!d.header && d.layout != Layout::kFixed && first_data < records.size()) {
    for (size_t i = records[start].line; i-- > 0;) {
      std::string_view t = trim(sample.lines[i].text);
      if (t.empty()) continue;
      if (d.comment == 0 || t[0] != d.comment) break;
      t.remove_prefix(1);
      std::string titles(t);
      Splitter s(d.layout, {}, d.quoting, d.delimiter);
      if (s.split(titles, fields) && fields.size() == n) {
        bool names = true;
        for (std::string_view f : fields) names = names && classify(f) == ValueKind::kText;
        if (names) {
          d.names_from_comment = true;
          for (size_t j = 0; j < n; ++j) d.columns[j].header = std::string(fields[j]);
        }
      }
      break;
    }
  }

  // Names: the header's, made valid; generated where there is none. Numeric
  // names are stored in upper case, character names in lower case.
  std::vector<std::string> taken;
  for (size_t j = 0; j < n; ++j) {
    Column& c = d.columns[j];
    std::string name = make_name(c.header, j + 1, taken);
    for (char& ch : name) {
      const unsigned char u = static_cast<unsigned char>(ch);
      ch = static_cast<char>(c.type == ColumnType::kCharacter ? std::tolower(u) : std::toupper(u));
    }
    c.name = name;
    if (!c.header.empty()) {
      std::string folded_header = c.header;
      std::string folded_name = name;
      for (char& ch : folded_header)
        ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
      for (char& ch : folded_name)
        ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
      if (folded_header != folded_name) {
        std::string h = c.header.size() > 24 ? c.header.substr(0, 24) + "..." : c.header;
        for (char& ch : h)
          if (ch == '\n' || ch == '\r' || ch == '\t') ch = ' ';
        d.name_notes.push_back("\"" + h + "\" as " + name);
      }
    }
  }
  return true;
}

}  // namespace kolvprep
