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
#include <set>

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
  const int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) {
    error = std::string("cannot open: ") + std::strerror(errno);
    return false;
  }
  struct stat st;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    error = S_ISDIR(st.st_mode) ? "a directory, not a text file" : "not a regular file";
    return false;
  }
  const uint64_t file_size = static_cast<uint64_t>(st.st_size);
  auto read_at = [&](uint64_t offset, size_t count, std::string& out) {
    out.resize(count);
    size_t got = 0;
    while (got < count) {
      const ssize_t n =
          ::pread(fd, out.data() + got, count - got, static_cast<off_t>(offset + got));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    out.resize(got);
  };
  const bool whole = full || file_size <= size.whole_limit;
  std::string bytes;
  read_at(0, whole ? static_cast<size_t>(file_size) : size.start, bytes);
  bool ok = sample_from_bytes(std::move(bytes), whole, file_size, sample, error);
  for (size_t k = 0; ok && !whole && k < size.blocks; ++k) {
    const uint64_t offset = size.start + (file_size - size.start) * k / size.blocks;
    std::string block;
    read_at(offset, size.block, block);
    if (const void* nul = std::memchr(block.data(), '\0', block.size())) {
      error = "a NUL byte at offset " +
              number_text(offset +
                          static_cast<uint64_t>(static_cast<const char*>(nul) - block.data())) +
              ": not a text file";
      ok = false;
      break;
    }
    const size_t first = block.find('\n');
    const size_t last = block.rfind('\n');
    if (first == std::string::npos || first == last) continue;
    block = block.substr(first + 1, last - first);
    sample.chunks.push_back(std::move(block));
    ok = add_lines(sample, sample.chunks.back(), false, error);
  }
  ::close(fd);
  return ok;
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

struct Score {
  size_t columns = 0;  // the most frequent field count
  double share = 0;    // lines with that count
};

Score score_layout(Layout layout, const std::vector<std::string_view>& lines) {
  Splitter splitter(layout);
  std::map<size_t, size_t> counts;
  std::vector<std::string_view> fields;
  for (std::string_view line : lines) {
    if (!splitter.split(line, fields)) continue;
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
  s.share = lines.empty() ? 0 : static_cast<double>(best) / static_cast<double>(lines.size());
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
constexpr unsigned kBlankByte = 1, kNumberByte = 2, kOtherByte = 4, kSignByte = 8;

bool all_numbers(const std::vector<std::string_view>& lines, FixedColumn c) {
  for (std::string_view line : lines) {
    if (c.start >= line.size()) continue;
    const std::string_view v = trim(line.substr(c.start, c.width));
    if (!v.empty() && !is_kolv_number(v)) return false;
  }
  return true;
}

std::vector<FixedColumn> find_fixed_columns(const std::vector<std::string_view>& lines) {
  size_t width = 0;
  for (std::string_view l : lines) width = std::max(width, l.size());
  std::vector<unsigned> cls(width, 0);
  for (std::string_view l : lines) {
    for (size_t p = 0; p < width; ++p) {
      const char c = p < l.size() ? l[p] : ' ';
      if (c == ' ') {
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
      if (looks_like_missing_code(v)) {
        if (col.code.empty()) col.code = std::string(v);
        if (col.code == v) ++col.code_count;
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
  if (!col.text_with_separators && v.find_first_of(" \t,") != std::string_view::npos) {
    col.text_with_separators = true;
    col.separator_example = std::string(v.substr(0, 40));
    col.separator_line = line;
  }
}

void settle_type(Column& col) {
  const size_t kinds = size_t{col.numbers > 0} + size_t{col.dates > 0} + size_t{col.times > 0} +
                       size_t{col.datetimes > 0};
  if (col.texts > 0 || kinds > 1) {
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

bool detect(const Sample& sample, Detection& d, std::string& error) {
  d.whole_file = sample.whole_file;
  d.bom = sample.bom;
  d.crlf = sample.crlf_lines > sample.lf_lines;
  d.final_newline = sample.final_newline;
  d.mixed_line_ends = sample.crlf_lines != 0 && sample.lf_lines != 0;

  // Content lines: neither blank nor comments. A comment character counts
  // when comment lines come before the first content line.
  std::vector<size_t> content;
  char first_comment = 0;
  bool content_seen = false;
  for (size_t i = 0; i < sample.lines.size(); ++i) {
    const std::string_view t = trim(sample.lines[i].text);
    char which = 0;
    if (t.empty()) continue;
    if (!content_seen && is_comment_line(t, &which)) {
      if (first_comment == 0) first_comment = which;
      continue;
    }
    if (content_seen && d.comment != 0 && t[0] == d.comment) continue;
    if (!content_seen) d.comment = first_comment;
    content_seen = true;
    content.push_back(i);
  }
  if (content.size() < 2) {
    error = content.empty() ? "no lines of data: only blank or comment lines"
                            : "only one line of data: too little to tell a header from data";
    return false;
  }
  std::vector<std::string_view> texts;
  for (size_t i : content) texts.push_back(sample.lines[i].text);

  // The layout: the delimiter whose field count is the steadiest, else runs
  // of blanks, else fixed columns.
  const Layout delimited[] = {Layout::kComma, Layout::kTab, Layout::kSemicolon, Layout::kPipe};
  Score best;
  bool have_delimited = false;
  for (Layout l : delimited) {
    const Score s = score_layout(l, texts);
    if (s.columns >= 2 && s.share >= 0.9 && s.share > best.share) {
      best = s;
      d.layout = l;
      have_delimited = true;
    }
  }
  const Score blank = score_layout(Layout::kBlank, texts);
  if (have_delimited && blank.share >= best.share && blank.columns > best.columns &&
      fields_hold_number_runs(d.layout, texts)) {
    have_delimited = false;
  }
  std::vector<FixedColumn> fixed;
  if (!have_delimited) {
    // Fixed columns when the blank-split count varies, or when every line
    // has one length and the columns that line up are more than the values
    // between blanks (a number glued to a code).
    bool one_length = true;
    for (std::string_view t : texts) one_length = one_length && t.size() == texts[0].size();
    // Lines of fixed columns may lose trailing blanks, but not half their
    // length.
    size_t shortest = texts[0].size(), longest = 0;
    for (std::string_view t : texts) {
      shortest = std::min(shortest, t.size());
      longest = std::max(longest, t.size());
    }
    if ((blank.share < 1.0 || one_length) && 2 * shortest >= longest)
      fixed = find_fixed_columns(texts);
    if (fixed.size() >= 2 &&
        (blank.share < 1.0 ? fixed.size() >= blank.columns : fixed.size() > blank.columns)) {
      d.layout = Layout::kFixed;
    } else if (blank.share >= 0.9) {
      d.layout = Layout::kBlank;
      best = blank;
    } else {
      error = "no steady layout: the lines hold different numbers of fields";
      return false;
    }
  }
  const size_t n = d.layout == Layout::kFixed ? fixed.size() : best.columns;

  // The data start at the first line of a run of lines with the table's
  // field count (or, in fixed columns, at the first content line).
  Splitter splitter(d.layout, fixed);
  std::vector<std::string_view> fields;
  auto fits = [&](size_t content_index) {
    return splitter.split(texts[content_index], fields) && fields.size() == n;
  };
  size_t start = 0;
  if (d.layout != Layout::kFixed) {
    while (start < content.size()) {
      size_t k = start;
      while (k < content.size() && k < start + 3 && fits(k)) ++k;
      if (k == std::min(content.size(), start + 3)) break;
      ++start;
    }
    if (start >= content.size() || sample.lines[content[start]].number == 0) {
      error = "no steady layout at the start of the file";
      return false;
    }
  }

  // Columns, typed from the lines after the candidate header line.
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
    d.data_lines = d.misfits = 0;
    d.misfit_notes.clear();
    d.quotes = d.tabs_in_data = d.commas_in_blank_values = false;
    record_length = std::string_view::npos;
    for (size_t k = first; k < content.size(); ++k) {
      const SampleLine& line = sample.lines[content[k]];
      const bool ok = splitter.split(line.text, fields);
      if (!ok || fields.size() != n) {
        if (++d.misfits <= 5) {
          d.misfit_notes.push_back(
              where(line.number) + ": " +
              (ok ? number_text(fields.size()) + " fields where " + number_text(n) + " are expected"
                  : std::string("a quote out of place")));
        }
        continue;
      }
      ++d.data_lines;
      d.quotes = d.quotes || splitter.saw_quote();
      if (line.text.find('\t') != std::string_view::npos) d.tabs_in_data = true;
      if (record_length == std::string_view::npos) record_length = line.text.size();
      if (record_length != line.text.size()) record_length = 0;
      for (size_t j = 0; j < n; ++j) {
        update_column(d.columns[j], fields[j], line.number);
        if (d.layout == Layout::kBlank && fields[j].find(',') != std::string_view::npos)
          d.commas_in_blank_values = true;
      }
    }
    for (Column& c : d.columns) settle_type(c);
  };

  type_from(start);
  if (d.layout != Layout::kFixed && start + 1 < content.size()) {
    // A header line: a field that is text where its column holds numbers,
    // dates or times; or, when every column is text, names that never
    // occur again in their columns.
    splitter.split(texts[start], fields);
    std::vector<std::string> head(fields.begin(), fields.end());
    bool header = false;
    bool all_text = true;
    for (size_t j = 0; j < n; ++j) {
      const ValueKind k = classify(head[j]);
      if (d.columns[j].type != ColumnType::kCharacter && k == ValueKind::kText) header = true;
      all_text = all_text && k == ValueKind::kText;
    }
    if (!header && all_text) {
      std::vector<std::set<std::string>> seen(n);
      for (size_t k = start + 1; k < content.size() && k < start + 1000; ++k) {
        if (!fits(k)) continue;
        for (size_t j = 0; j < n; ++j) seen[j].insert(std::string(fields[j]));
      }
      header = true;
      std::set<std::string> distinct(head.begin(), head.end());
      if (distinct.size() != n) header = false;
      for (size_t j = 0; j < n && header; ++j) header = seen[j].count(head[j]) == 0;
    }
    if (header) {
      d.header = true;
      d.header_line = sample.lines[content[start]].number;
      type_from(start + 1);
      for (size_t j = 0; j < n; ++j) d.columns[j].header = head[j];
    }
  }
  const size_t first_data = d.header ? start + 1 : start;
  if (first_data >= content.size() || d.data_lines == 0) {
    error = "no lines of data after the header";
    return false;
  }
  d.skip = static_cast<size_t>(sample.lines[content[first_data]].number - 1);
  d.record_length = record_length == std::string_view::npos ? 0 : record_length;
  for (size_t i = content[first_data]; i < sample.lines.size(); ++i) {
    const std::string_view t = trim(sample.lines[i].text);
    if (t.empty()) ++d.blank_lines;
    if (!t.empty() && d.comment != 0 && t[0] == d.comment) ++d.comment_lines;
  }

  // Without a header line, the last comment line before the data may hold
  // the column titles.
  if (!d.header && d.layout != Layout::kFixed) {
    for (size_t i = content[start]; i-- > 0;) {
      std::string_view t = trim(sample.lines[i].text);
      if (t.empty()) continue;
      if (d.comment == 0 || t[0] != d.comment) break;
      t.remove_prefix(1);
      std::string titles(t);
      Splitter s(d.layout);
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
        d.name_notes.push_back("\"" + c.header.substr(0, 40) + "\" is named " + name);
      }
    }
  }
  return true;
}

}  // namespace kolvprep
