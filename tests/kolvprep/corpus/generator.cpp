#include "generator.hpp"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string_view>

namespace corpus {

namespace {

// splitmix64: small, fast, and the same on every platform.
class Rng {
 public:
  // The seed is mixed first, so that neighbouring seeds give unrelated
  // streams (not the same stream shifted by one draw).
  explicit Rng(uint64_t seed) : state_(seed) { state_ = next() ^ 0x632BE59BD9B4E019ULL; }
  uint64_t next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }
  // Uniform in [lo, hi].
  int range(int lo, int hi) {
    return lo + static_cast<int>(next() % static_cast<uint64_t>(hi - lo + 1));
  }
  size_t below(size_t n) { return static_cast<size_t>(next() % n); }
  bool chance(int percent) { return range(1, 100) <= percent; }
  template <typename T>
  const T& pick(const std::vector<T>& v) {
    return v[below(v.size())];
  }

 private:
  uint64_t state_;
};

const std::vector<std::string> kKinds = {
    "comma",         "semicolon",      "tab",           "pipe",           "blanks",
    "quote_double",  "quote_single",   "quote_none",    "escape_doubled", "escape_backslash",
    "eol_lf",        "eol_crlf",       "eol_cr",        "decimal_comma",  "no_header",
    "multi_header",  "preamble",       "footnotes",     "comments",       "two_tables",
    "embedded_eol",  "field_too_many", "field_too_few", "stray_quote",    "fixed_touching",
    "fixed_spaced",  "aligned_blanks", "bom",           "odd_names",      "year_names",
    "small",         "header_only",    "timestamps",    "other_dates",    "ambiguous_dates",
    "leading_zeros", "long_text",      "gzip",          "zstd",           "xz",
    "bzip2",
};

// What a column holds.
enum class Col {
  kInt,      // 0 to 50000
  kDec,      // two decimals, negative too
  kWord,     // a short word
  kPhrase,   // words with a blank or a comma (quoted where needed)
  kDate,     // yyyy-mm-dd
  kStamp,    // yyyy/mm/dd hh:mm:ss or yyyy-mm-ddThh:mm:ss
  kSlash,    // yyyy/mm/dd
  kDot,      // dd.mm.yyyy
  kMon,      // Mon d yyyy
  kTime,     // hh:mm:ss
  kAmbig,    // mm/dd/yyyy with day and month both at most 12
  kCode,     // five digits with leading zeros
  kLong,     // two words whose first 8 bytes are shared
  kLetters,  // upper-case letters of one width (fixed columns)
  kDigits,   // digits of one width, no leading zero (fixed columns)
};

struct Column {
  Col col;
  std::string name;
  int width = 0;    // kLetters, kDigits: the width
  int stamp = 0;    // kStamp: 0 slash form, 1 ISO form with T, 2 ISO form with a blank
  int missing = 0;  // percent of missing cells (numbers only)
};

// A value as written (before quoting) and as stored.
struct Value {
  std::string raw;
  Cell cell;
};

// How the table is written.
struct Dialect {
  char delim = ',';  // 0: runs of blanks
  char quote = '"';  // 0: no quoting
  bool backslash = false;
  std::string eol = "\n";
  bool quote_text = false;  // every text field quoted, not only where needed
  bool decimal_comma = false;
  bool final_eol = true;
};

const std::vector<std::string> kWords = {
    "alpha", "bravo", "Berlin", "Oslo",  "Lima",  "Quito", "maple",  "cedar", "north",
    "south", "red",   "green",  "Tokyo", "Accra", "Dakar", "oak",    "pine",  "birch",
    "lake",  "river", "Rome",   "Paris", "Kyiv",  "Hanoi", "willow", "aspen", "ridge"};
const std::vector<std::string> kPhrases = {"Lake Tahoe, CA", "Mono Lake", "New York",
                                           "Crater Lake",    "Reno, NV",  "Salt Flats",
                                           "big, old oak",   "Twin Peaks"};
const std::vector<std::string> kBlankPhrases = {"Mono Lake", "New York", "Crater Lake",
                                                "Salt Flats", "Twin Peaks"};
const std::vector<std::string> kQuoted = {"the \"Deep\" one", "a \"big\" lake", "O'Brien",
                                          "it's here"};
const std::vector<std::string> kLongs = {"American Bullfrog", "American Robin",   "American Crow",
                                         "Northern Cardinal", "Northern Flicker", "Northern Pike",
                                         "Eastern Bluebird",  "Eastern Phoebe"};
const std::vector<std::string> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
const std::vector<std::string> kMissingTokens = {"", "NA", ".", "N/A", "null", "NaN"};

const std::vector<std::string> kIntNames = {"count", "visits", "items", "pop", "units", "cases"};
const std::vector<std::string> kDecNames = {"value", "temp", "price", "depth", "ratio", "level"};
const std::vector<std::string> kTextNames = {"name", "city", "region", "species", "site", "kind"};
const std::vector<std::string> kDateNames = {"day", "date", "visit", "when", "start", "seen"};

Cell number(double v) {
  Cell c;
  c.what = Cell::kNumber;
  c.number = v;
  return c;
}

Cell text_cell(const std::string& v) {
  Cell c;
  c.what = Cell::kText;
  c.text = text_value(v);
  return c;
}

std::string two(int v) {
  char b[8];
  std::snprintf(b, sizeof b, "%02d", v);
  return b;
}

// The value of one cell of `c`.
Value make_value(Rng& rng, const Column& c, const Dialect& d) {
  Value v;
  if (c.missing > 0 && rng.chance(c.missing)) {
    // Blank-separated text cannot hold an empty field.
    std::string token = rng.pick(kMissingTokens);
    if (token.empty() && d.delim == 0) token = "NA";
    v.raw = token;
    v.cell = Cell{};
    return v;
  }
  const int y = rng.range(1990, 2024), m = rng.range(1, 12), day = rng.range(1, 28);
  const int hh = rng.range(0, 23), mi = rng.range(0, 59), ss = rng.range(0, 59);
  const double ymd = y * 10000.0 + m * 100.0 + day;
  const double hms = hh * 10000.0 + mi * 100.0 + ss;
  switch (c.col) {
    case Col::kInt: {
      const int n = rng.range(0, 50000);
      v.raw = std::to_string(n);
      v.cell = number(n);
      break;
    }
    case Col::kDec: {
      const int cents = rng.range(-50000, 250000);
      const int a = std::abs(cents);
      const std::string sign = cents < 0 ? "-" : "";
      const std::string canonical = sign + std::to_string(a / 100) + "." + two(a % 100);
      if (d.decimal_comma) {
        // Spreadsheet style: a comma before the decimals, a point between
        // thousands.
        std::string whole = std::to_string(a / 100);
        for (int at = static_cast<int>(whole.size()) - 3; at > 0; at -= 3)
          whole.insert(static_cast<size_t>(at), ".");
        v.raw = sign + whole + "," + two(a % 100);
      } else {
        v.raw = canonical;
      }
      v.cell = number(std::strtod(canonical.c_str(), nullptr));
      break;
    }
    case Col::kWord:
      v.raw = rng.pick(kWords);
      v.cell = text_cell(v.raw);
      break;
    case Col::kPhrase:
      // Without quotes a value cannot hold the delimiter; between runs of
      // blanks a quoted value holds blanks but no quote.
      if (d.quote == 0)
        v.raw = rng.pick(kWords);
      else if (d.delim == 0)
        v.raw = rng.pick(kBlankPhrases);
      else
        v.raw = rng.chance(30) ? rng.pick(kQuoted) : rng.pick(kPhrases);
      v.cell = text_cell(v.raw);
      break;
    case Col::kDate:
      v.raw = std::to_string(y) + "-" + two(m) + "-" + two(day);
      v.cell = number(ymd);
      break;
    case Col::kStamp: {
      const std::string date = c.stamp == 0 ? std::to_string(y) + "/" + two(m) + "/" + two(day)
                                            : std::to_string(y) + "-" + two(m) + "-" + two(day);
      v.raw = date + (c.stamp == 1 ? "T" : " ") + two(hh) + ":" + two(mi) + ":" + two(ss);
      v.cell = number(ymd * 1000000.0 + hms);
      break;
    }
    case Col::kSlash:
      v.raw = std::to_string(y) + "/" + two(m) + "/" + two(day);
      v.cell = number(ymd);
      break;
    case Col::kDot:
      v.raw = two(day) + "." + two(m) + "." + std::to_string(y);
      v.cell = number(ymd);
      break;
    case Col::kMon:
      v.raw =
          kMonths[static_cast<size_t>(m - 1)] + " " + std::to_string(day) + " " + std::to_string(y);
      v.cell = number(ymd);
      break;
    case Col::kTime:
      v.raw = two(hh) + ":" + two(mi) + ":" + two(ss);
      v.cell = number(hms);
      break;
    case Col::kAmbig: {
      // Month and day both at most 12: the order cannot be told, so the
      // value stays text.
      v.raw = two(rng.range(1, 12)) + "/" + two(rng.range(1, 12)) + "/" + std::to_string(y);
      v.cell = text_cell(v.raw);
      break;
    }
    case Col::kCode: {
      char b[8];
      std::snprintf(b, sizeof b, "%05d", rng.range(1, 9999));
      v.raw = b;
      v.cell = text_cell(v.raw);
      break;
    }
    case Col::kLong:
      v.raw = rng.pick(kLongs);
      v.cell = text_cell(v.raw);
      break;
    case Col::kLetters:
      // Letters that spell a missing token (NA, NAN, NULL) would be missing.
      do {
        v.raw.clear();
        for (int i = 0; i < c.width; ++i)
          v.raw.push_back(static_cast<char>('A' + rng.range(0, 25)));
      } while (v.raw == "NA" || v.raw == "NAN" || v.raw == "NULL");
      v.cell = text_cell(v.raw);
      break;
    case Col::kDigits: {
      v.raw = std::to_string(rng.range(1, 9));
      for (int i = 1; i < c.width; ++i) v.raw.push_back(static_cast<char>('0' + rng.range(0, 9)));
      v.cell = number(std::strtod(v.raw.c_str(), nullptr));
      break;
    }
  }
  return v;
}

bool is_text(Col c) {
  return c == Col::kWord || c == Col::kPhrase || c == Col::kAmbig || c == Col::kCode ||
         c == Col::kLong || c == Col::kLetters;
}

// A field as the dialect writes it: quoted when it must be (or when every
// text field is), with its quote characters escaped.
std::string field(const std::string& raw, bool text, const Dialect& d) {
  bool needs = false;
  for (char ch : raw)
    needs = needs || ch == '\n' || ch == '\r' || (d.quote != 0 && ch == d.quote) ||
            (d.delim != 0 && ch == d.delim) || (d.delim == 0 && (ch == ' ' || ch == '\t'));
  if (!needs && !(text && d.quote_text && d.quote != 0)) return raw;
  if (d.quote == 0) std::abort();  // the generator never draws such a value
  std::string out(1, d.quote);
  for (char ch : raw) {
    if (ch == d.quote) out.push_back(d.backslash ? '\\' : d.quote);
    out.push_back(ch);
  }
  out.push_back(d.quote);
  return out;
}

// Writes the text line by line and counts lines as the record ends say.
class Writer {
 public:
  explicit Writer(const Dialect& d) : d_(d) {}
  // Appends one record (it may hold line ends inside quotes); returns the
  // line it starts on.
  uint64_t record(const std::string& r) {
    const uint64_t at = line_;
    text_ += r;
    text_ += d_.eol;
    for (size_t p = r.find(d_.eol); p != std::string::npos; p = r.find(d_.eol, p + d_.eol.size()))
      ++line_;
    ++line_;
    return at;
  }
  std::string finish() {
    if (!d_.final_eol && text_.size() >= d_.eol.size()) text_.resize(text_.size() - d_.eol.size());
    return text_;
  }

 private:
  const Dialect& d_;
  std::string text_;
  uint64_t line_ = 1;
};

// Joins fields with the delimiter; for runs of blanks, right-aligned in
// columns of `widths` (when given) with at least one blank between.
std::string join(const std::vector<std::string>& fields, const Dialect& d,
                 const std::vector<size_t>& widths) {
  std::string out;
  for (size_t j = 0; j < fields.size(); ++j) {
    if (d.delim != 0) {
      if (j) out.push_back(d.delim);
      out += fields[j];
    } else {
      const size_t w = j < widths.size() ? widths[j] : fields[j].size();
      out += std::string(1 + (w > fields[j].size() ? w - fields[j].size() : 0), ' ');
      out += fields[j];
    }
  }
  return out;
}

// The table being built: columns, raw values, truth.
struct Table {
  std::vector<Column> cols;
  std::vector<std::vector<std::string>> header_rows;  // as written
  std::vector<std::vector<Value>> rows;
};

std::string fresh_name(Rng& rng, const std::vector<std::string>& from,
                       std::set<std::string>& used) {
  for (int tries = 0; tries < 20; ++tries) {
    const std::string& n = rng.pick(from);
    if (used.insert(n).second) return n;
  }
  std::string n = rng.pick(from) + std::to_string(used.size());
  used.insert(n);
  return n;
}

// Draws a table of ordinary columns: a text column, numbers, and often a
// date; `extra` columns of other kinds go in at random places.
Table ordinary_table(Rng& rng, const Dialect& d, size_t rows, std::vector<Col> extra = {}) {
  Table t;
  std::set<std::string> used;
  const size_t numbers = static_cast<size_t>(rng.range(2, 4));
  std::vector<Col> cols;
  cols.push_back(rng.chance(50) ? Col::kWord : Col::kPhrase);
  for (size_t i = 0; i < numbers; ++i) cols.push_back(rng.chance(50) ? Col::kInt : Col::kDec);
  if (rng.chance(40)) cols.push_back(Col::kDate);
  for (Col c : extra) cols.insert(cols.begin() + static_cast<long>(rng.below(cols.size() + 1)), c);
  for (Col c : cols) {
    Column col;
    col.col = c;
    const std::vector<std::string>& names = c == Col::kInt   ? kIntNames
                                            : c == Col::kDec ? kDecNames
                                            : is_text(c)     ? kTextNames
                                                             : kDateNames;
    col.name = fresh_name(rng, names, used);
    if (c == Col::kInt || c == Col::kDec) col.missing = rng.chance(50) ? 4 : 0;
    if (c == Col::kStamp) col.stamp = rng.range(0, 2);
    t.cols.push_back(col);
  }
  std::vector<std::string> names;
  for (const Column& c : t.cols) names.push_back(c.name);
  t.header_rows.push_back(names);
  for (size_t r = 0; r < rows; ++r) {
    std::vector<Value> row;
    for (const Column& c : t.cols) row.push_back(make_value(rng, c, d));
    t.rows.push_back(row);
  }
  // Every numeric column holds at least one number in its first rows, so
  // that a column is never missing throughout.
  for (size_t j = 0; j < t.cols.size() && !t.rows.empty(); ++j) {
    if (t.cols[j].missing == 0) continue;
    Column plain = t.cols[j];
    plain.missing = 0;
    t.rows[0][j] = make_value(rng, plain, d);
  }
  return t;
}

std::vector<std::string> row_fields(const Table& t, size_t r, const Dialect& d) {
  std::vector<std::string> f;
  for (size_t j = 0; j < t.cols.size(); ++j)
    f.push_back(field(t.rows[r][j].raw, is_text(t.cols[j].col), d));
  return f;
}

std::vector<size_t> widths_of(const Table& t, const Dialect& d) {
  std::vector<size_t> w(t.cols.size(), 0);
  for (const auto& h : t.header_rows)
    for (size_t j = 0; j < h.size() && j < w.size(); ++j)
      w[j] = std::max(w[j], field(h[j], true, d).size());
  for (size_t r = 0; r < t.rows.size(); ++r) {
    const auto f = row_fields(t, r, d);
    for (size_t j = 0; j < f.size(); ++j) w[j] = std::max(w[j], f[j].size());
  }
  return w;
}

// Fills the case's truth from the table.
void take_truth(Case& k, const Table& t, bool header) {
  k.header.assign(t.cols.size(), "");
  if (header) {
    for (const auto& h : t.header_rows)
      for (size_t j = 0; j < h.size() && j < k.header.size(); ++j) {
        if (!h[j].empty() && !k.header[j].empty()) k.header[j] += " ";
        k.header[j] += h[j];
      }
  }
  for (const auto& row : t.rows) {
    std::vector<Cell> cells;
    for (const Value& v : row) cells.push_back(v.cell);
    k.rows.push_back(cells);
  }
}

// Writes the header rows (when `header`) and every record, damaging the
// records listed in `damage` with `how` (1 a field too many, 2 a field too
// few, 3 a stray quote).
void write_table(Case& k, Writer& w, const Table& t, const Dialect& d, bool header,
                 const std::set<size_t>& damage = {}, int how = 0) {
  const std::vector<size_t> widths = d.delim == 0 ? widths_of(t, d) : std::vector<size_t>{};
  if (header)
    for (const auto& h : t.header_rows) {
      std::vector<std::string> f;
      for (const std::string& n : h) f.push_back(field(n, true, d));
      w.record(join(f, d, widths));
    }
  for (size_t r = 0; r < t.rows.size(); ++r) {
    std::vector<std::string> f = row_fields(t, r, d);
    if (damage.count(r)) {
      if (how == 1) {
        f.insert(f.begin() + static_cast<long>(1 + r % (f.size() - 1)), "77");
      } else if (how == 2) {
        f.pop_back();
      } else {
        // An opening quote that never closes, on a field of a text column.
        for (size_t j = 0; j < t.cols.size(); ++j)
          if (is_text(t.cols[j].col)) {
            f[j] = std::string(1, d.quote) + f[j];
            break;
          }
      }
      const std::string rec = join(f, d, widths);
      k.misfit_rows.push_back(r);
      k.misfit_lines.push_back(w.record(rec));
      k.misfit_texts.push_back(rec);
    } else {
      w.record(join(f, d, widths));
    }
  }
}

// The dialect a case starts from: mostly commas and LF, but any of the
// delimiters, record ends and quoting habits, so that every kind meets them;
// a kind then sets what it is about.
Dialect background_dialect(Rng& rng) {
  Dialect d;
  d.final_eol = !rng.chance(15);
  const int delim = rng.range(1, 100);
  d.delim = delim <= 55 ? ',' : delim <= 70 ? ';' : delim <= 90 ? '\t' : '|';
  const int eol = rng.range(1, 100);
  d.eol = eol <= 70 ? "\n" : eol <= 95 ? "\r\n" : "\r";
  d.quote_text = rng.chance(20);
  return d;
}

// Fixed columns: letters and digits of fixed widths, touching (no blank
// between) or with blanks between and some numbers absent.
void fixed_case(Case& k, Rng& rng, bool touching) {
  Dialect d;
  d.delim = 0;
  const size_t ncols = static_cast<size_t>(rng.range(3, 6));
  Table t;
  for (size_t j = 0; j < ncols; ++j) {
    Column c;
    // Touching columns alternate letters and digits so that the class of
    // the characters changes where a column ends.
    c.col = j % 2 == 0 ? Col::kLetters : Col::kDigits;
    c.width = c.col == Col::kLetters ? rng.range(2, 5) : rng.range(3, 6);
    c.name = (c.col == Col::kLetters ? "c" : "n") + std::to_string(j + 1);
    t.cols.push_back(c);
  }
  const size_t rows = static_cast<size_t>(rng.range(20, 50));
  std::vector<size_t> gap(ncols, touching ? 0 : static_cast<size_t>(rng.range(1, 3)));
  gap[0] = 0;
  const bool header = !touching && rng.chance(50);
  Writer w(d);
  if (header) {
    std::string line;
    for (size_t j = 0; j < ncols; ++j) {
      line += std::string(gap[j], ' ');
      const std::string& n = t.cols[j].name;  // shorter than every width
      line += n + std::string(static_cast<size_t>(t.cols[j].width) - n.size(), ' ');
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    w.record(line);
  }
  for (size_t r = 0; r < rows; ++r) {
    std::vector<Value> row;
    std::string line;
    for (size_t j = 0; j < ncols; ++j) {
      Value v = make_value(rng, t.cols[j], d);
      // With blanks between, a number is sometimes absent: its columns are
      // blank, which a reading by runs of blanks would misplace.
      if (!touching && t.cols[j].col == Col::kDigits && r > 0 && rng.chance(8)) {
        v.raw = std::string(static_cast<size_t>(t.cols[j].width), ' ');
        v.cell = Cell{};
      }
      line += std::string(gap[j], ' ') + v.raw;
      row.push_back(v);
    }
    w.record(line);
    t.rows.push_back(row);
  }
  if (header) t.header_rows.push_back({});
  for (const Column& c : t.cols) {
    if (header) t.header_rows[0].push_back(c.name);
  }
  take_truth(k, t, header);
  k.text = w.finish();
  k.delimiter = 0;
  k.quote = 0;
  k.record_end = d.eol;
}

}  // namespace

const std::vector<std::string>& kinds() {
  return kKinds;
}

std::string text_value(const std::string& value) {
  std::string out;
  for (char c : value) {
    if (out.size() == 8) break;
    out.push_back(c == ' ' || c == '\t' || c == ',' ? '_' : c);
  }
  return out;
}

std::string describe(const Cell& cell) {
  if (cell.what == Cell::kMissing) return ".";
  if (cell.what == Cell::kText) return "\"" + cell.text + "\"";
  // The shortest text that reads back to the same double.
  char b[40];
  const auto end = std::to_chars(b, b + sizeof b, cell.number).ptr;
  return std::string(b, end);
}

Case make_case(uint64_t seed) {
  Case k;
  k.seed = seed;
  k.kind = kKinds[seed % kKinds.size()];
  k.file = "export.csv";
  Rng rng(seed);
  const std::string& kind = k.kind;
  Dialect d = background_dialect(rng);
  size_t rows = static_cast<size_t>(rng.range(15, 60));
  std::vector<Col> extra;
  bool header = true;

  if (kind == "fixed_touching" || kind == "fixed_spaced") {
    fixed_case(k, rng, kind == "fixed_touching");
    k.file = "export.txt";
    return k;
  }

  if (kind == "comma") {
    d.delim = ',';
  } else if (kind == "eol_lf") {
    d.eol = "\n";
  } else if (kind == "semicolon") {
    d.delim = ';';
  } else if (kind == "tab") {
    d.delim = '\t';
    k.file = "export.tsv";
  } else if (kind == "pipe") {
    d.delim = '|';
    k.file = "export.txt";
  } else if (kind == "blanks" || kind == "aligned_blanks") {
    d.delim = 0;
    d.quote = kind == "blanks" && rng.chance(50) ? '"' : 0;
    k.file = "export.txt";
  } else if (kind == "quote_double") {
    d.quote_text = true;
    if (rng.chance(50)) d.eol = "\r\n";  // all quoted, CRLF: RFC 4180 to the letter
  } else if (kind == "quote_single") {
    d.quote = '\'';
    d.quote_text = rng.chance(50);
  } else if (kind == "quote_none") {
    d.quote = 0;
  } else if (kind == "escape_doubled" || kind == "escape_backslash") {
    d.quote_text = rng.chance(50);
    d.backslash = kind == "escape_backslash";
    extra.push_back(Col::kPhrase);
  } else if (kind == "eol_crlf") {
    d.eol = "\r\n";
  } else if (kind == "eol_cr") {
    d.eol = "\r";
  } else if (kind == "decimal_comma") {
    d.delim = ';';
    d.decimal_comma = true;
  } else if (kind == "no_header") {
    header = false;
  } else if (kind == "small") {
    rows = static_cast<size_t>(rng.range(3, 6));
  } else if (kind == "header_only") {
    rows = 0;
  } else if (kind == "timestamps") {
    extra.push_back(Col::kStamp);
  } else if (kind == "other_dates") {
    extra.push_back(rng.chance(50) ? Col::kSlash : Col::kDot);
    extra.push_back(rng.chance(50) ? Col::kMon : Col::kTime);
  } else if (kind == "ambiguous_dates") {
    extra.push_back(Col::kAmbig);
  } else if (kind == "leading_zeros") {
    extra.push_back(Col::kCode);
  } else if (kind == "long_text") {
    extra.push_back(Col::kLong);
  } else if (kind == "embedded_eol") {
    d.eol = rng.chance(50) ? "\n" : "\r\n";
  } else if (kind == "gzip" || kind == "zstd" || kind == "xz" || kind == "bzip2") {
    const char delims[] = {',', ';', '\t'};
    d.delim = delims[rng.below(3)];
    k.compression = kind;
    k.file = std::string("export.csv") + (kind == "gzip"   ? ".gz"
                                          : kind == "zstd" ? ".zst"
                                          : kind == "xz"   ? ".xz"
                                                           : ".bz2");
  }

  Table t = ordinary_table(rng, d, rows, extra);

  if (kind == "embedded_eol") {
    // Some values of the text column hold a line end early, inside quotes;
    // the rewrite writes it as a blank.
    for (size_t j = 0; j < t.cols.size(); ++j)
      if (is_text(t.cols[j].col)) {
        for (auto& row : t.rows)
          if (rng.chance(25)) {
            const std::string a = rng.pick(kWords).substr(0, 3), b = rng.pick(kWords);
            row[j].raw = a + d.eol + b;
            row[j].cell = text_cell(a + " " + b);
          }
        break;
      }
  }
  if (kind == "multi_header") {
    // A second header row of units; its names join the first row's.
    const std::vector<std::string> units = {"(kg)", "(m)", "km", "%", "(n)", "USD"};
    std::vector<std::string> second;
    for (const Column& c : t.cols) second.push_back(is_text(c.col) ? "" : rng.pick(units));
    t.header_rows.push_back(second);
  }
  bool bom = kind == "bom";
  if (kind == "small") {
    // A few records leave little evidence for the header: with a byte-order
    // mark, CRLF, an empty first name or odd names it is easily missed.
    bom = rng.chance(40);
    if (rng.chance(40)) d.eol = "\r\n";
    std::vector<std::string>& h = t.header_rows[0];
    if (rng.chance(30)) h[0] = "";
    if (h.size() > 2 && rng.chance(30)) h[1] = rng.chance(50) ? "GDP (bn)" : "growth %";
  }
  if (kind == "odd_names") {
    std::vector<std::string>& h = t.header_rows[0];
    const std::vector<std::string> odd = {"GDP (bn)", "growth %", "rate/yr", "No.", "size [m]"};
    for (size_t j = 1; j < h.size(); ++j)
      if (rng.chance(60)) h[j] = rng.pick(odd);
    if (h.size() > 2 && rng.chance(50)) h[2] = h[1];  // a repeated name
    if (rng.chance(50)) h[rng.below(h.size())] = "";  // an empty name
    // The names need quoting when they hold the delimiter; drop it here.
    for (std::string& n : h)
      for (char& c : n)
        if (c == d.delim) c = ' ';
  }
  if (kind == "year_names") {
    // A country and its values by year, the years quoted as names.
    Table y;
    Column name;
    name.col = Col::kWord;
    name.name = "country";
    y.cols.push_back(name);
    const int first = rng.range(1950, 2000), years = rng.range(3, 8);
    for (int i = 0; i < years; ++i) {
      Column c;
      c.col = rng.chance(50) ? Col::kDec : Col::kInt;
      c.name = std::to_string(first + i);
      c.missing = 3;
      y.cols.push_back(c);
    }
    std::vector<std::string> names;
    for (const Column& c : y.cols) names.push_back(c.name);
    y.header_rows.push_back(names);
    for (size_t r = 0; r < rows; ++r) {
      std::vector<Value> row;
      for (const Column& c : y.cols) {
        Column plain = c;
        if (r == 0) plain.missing = 0;
        row.push_back(make_value(rng, plain, d));
      }
      y.rows.push_back(row);
    }
    d.quote_text = true;
    t = y;
  }

  Writer w(d);
  if (kind == "bom") {
    // The byte-order mark goes before the first line; it is not a line.
    if (rng.chance(50)) d.eol = "\r\n";
  }
  if (kind == "preamble") {
    // Title lines, one of them sometimes holding the delimiter once (two
    // fields, never the table's count).
    const std::string d1 = d.delim == '\t' ? "\t" : std::string(1, d.delim);
    const std::vector<std::string> titles = {
        "Table 3. Population by region", "Source: national survey" + d1 + " 2020",
        "Prepared by the statistics office", "Units: persons" + d1 + " thousands",
        "Quarterly figures"};
    const size_t n = static_cast<size_t>(rng.range(1, 3)), first = rng.below(titles.size());
    for (size_t i = 0; i < n; ++i) w.record(titles[(first + i) % titles.size()]);
    if (rng.chance(50)) w.record("");
  }
  // Comment lines begin with "#" (or "%", as some tools write them).
  const std::string comment = rng.chance(30) ? "%" : "#";
  if (kind == "comments" || kind == "aligned_blanks") {
    w.record(comment + " exported " + std::to_string(rng.range(2000, 2024)) + "-01-01");
    w.record(comment + " columns: see the manual");
  }

  std::set<size_t> damage;
  int how = 0;
  // A compressed file sometimes has a record with a field too many, whose
  // line counts lines of the decompressed text.
  const bool damaged_compressed = !k.compression.empty() && rng.chance(30);
  if (kind == "field_too_many" || kind == "field_too_few" || kind == "stray_quote" ||
      damaged_compressed) {
    how = kind == "field_too_few" ? 2 : kind == "stray_quote" ? 3 : 1;
    const int n = rng.range(1, 3);
    // Never the first records, so that the table's shape is clear before them.
    while (damage.size() < static_cast<size_t>(n)) damage.insert(5 + rng.below(rows - 5));
  }
  if (kind == "comments") {
    // Comment lines inside the data too: written between records.
    Table head = t, tail = t;
    const size_t cut = rows / 2;
    head.rows.assign(t.rows.begin(), t.rows.begin() + static_cast<long>(cut));
    tail.rows.assign(t.rows.begin() + static_cast<long>(cut), t.rows.end());
    write_table(k, w, head, d, header);
    w.record(comment + " a note in the middle");
    write_table(k, w, tail, d, false);
  } else {
    write_table(k, w, t, d, header, damage, how);
  }
  // Misfit indices count from the data's first record.
  if (kind == "footnotes") {
    // A blank line (not always) and notes of one or two fields.
    if (rng.chance(70)) w.record("");
    w.record(rng.chance(50) ? "Note: values in thousands." : "* provisional figures");
    if (rng.chance(50)) w.record("Source: the survey office" + std::string(1, d.delim) + " 2021");
  }
  if (kind == "two_tables") {
    // A second, smaller table below a blank line, with other columns.
    w.record("");
    std::vector<Col> other = {Col::kDate};
    Table second = ordinary_table(rng, d, static_cast<size_t>(rng.range(3, 6)), other);
    while (second.cols.size() == t.cols.size()) {
      other.push_back(Col::kInt);
      second = ordinary_table(rng, d, static_cast<size_t>(rng.range(3, 6)), other);
    }
    Case ignored;
    write_table(ignored, w, second, d, true);
  }
  take_truth(k, t, header);
  k.text = w.finish();
  k.delimiter = d.delim;
  k.quote = d.quote;
  k.backslash = d.backslash;
  k.record_end = d.eol;
  if (bom) k.text.insert(0, "\xEF\xBB\xBF");
  return k;
}

}  // namespace corpus
