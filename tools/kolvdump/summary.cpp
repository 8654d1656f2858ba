#include "summary.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "render.hpp"
#include "values.hpp"

namespace kolvdump {

namespace {

// A 64-bit mix (the splitmix64 finaliser): a bijection whose bits all
// depend on all the key's bits, for the hash table and the estimate.
uint64_t mix(uint64_t x) {
  x ^= x >> 30;
  x *= 0xBF58476D1CE4E5B9ULL;
  x ^= x >> 27;
  x *= 0x94D049BB133111EBULL;
  x ^= x >> 31;
  return x;
}

// Whether the text of key `a` (its bytes from the lowest) sorts before
// that of `b`, byte by byte.
bool in_text_order(uint64_t a, uint64_t b) {
  for (int shift = 0; shift < 64; shift += 8) {
    auto x = static_cast<uint8_t>(a >> shift), y = static_cast<uint8_t>(b >> shift);
    if (x != y) return x < y;
  }
  return false;
}

// ---- distinct and most frequent values ----
//
// A value of up to 8 bytes is its own 64-bit key. Up to a bound (see
// exact_distinct_bound) distinct keys are counted exactly in an open-addressing table (grown as
// needed, so a column of few values keeps a small one). When one more
// distinct key arrives, the table is given up for two fixed structures fed
// from then on:
//  - an estimate of the distinct count from 4096 one-byte registers, each
//    the longest run of leading zeros among the hashes that fall to it (its
//    standard error is about 1.6%), with the count of empty registers used
//    while many are empty;
//  - the most frequent values by the method of repeated drops: 64 counters;
//    a value without one takes a free one, and when none is free the value
//    is not counted but every counter drops by one (a counter at zero is
//    freed). A count is then at most the value's true count and short of it
//    by at most the number of drops, and a value without a counter occurred
//    at most that many times; to both bounds the table adds the greatest
//    count it left out. A value is named only when its count exceeds that
//    bound: it is then surely more frequent than every value not named.
//    The drops free many counters at once, so a value costs a probe of a
//    small index and, on average, a few steps more.
// Both start from the table's exact counts when it is given up.
class Frequencies {
 public:
  static constexpr size_t kCounters = 64;
  static constexpr unsigned kRegisterBits = 12;

  explicit Frequencies(size_t bound = kExactDistinct) : bound_(bound) {}

  void add(uint64_t key) {
    ++total_;
    if (!estimating_) {
      if (add_exact(key)) return;
      start_estimating();
    }
    add_estimated(key);
  }

  bool estimating() const { return estimating_; }
  uint64_t total() const { return total_; }

  uint64_t distinct() const {
    if (!estimating_) return size_;
    const double m = static_cast<double>(registers_.size());
    double sum = 0;
    size_t zeros = 0;
    for (uint8_t r : registers_) {
      sum += std::ldexp(1.0, -static_cast<int>(r));
      zeros += r == 0;
    }
    double estimate = 0.7213 / (1 + 1.079 / m) * m * m / sum;
    if (estimate <= 2.5 * m && zeros > 0) estimate = m * std::log(m / static_cast<double>(zeros));
    return static_cast<uint64_t>(std::llround(estimate));
  }

  struct Frequent {
    uint64_t key = 0;
    uint64_t count = 0;   // exact, or the most it can be
    uint64_t excess = 0;  // the true count is at least count - excess
  };

  // The most frequent keys, most first (ties in the byte order of their
  // texts, so that the order does not depend on the table's layout).
  std::vector<Frequent> top(size_t n) const {
    std::vector<Frequent> all;
    if (estimating_) {
      const uint64_t unsure = drops_ + dropped_;
      for (size_t i = 0; i < kCounters; ++i) {
        if (counts_[i] > unsure) all.push_back({keys_[i], counts_[i] + unsure, unsure});
      }
    } else {
      for (size_t i = 0; i < slots_.size(); ++i) {
        if (slots_[i].count != 0) all.push_back({slots_[i].key, slots_[i].count, 0});
      }
    }
    auto more = [](const Frequent& a, const Frequent& b) {
      return a.count != b.count ? a.count > b.count : in_text_order(a.key, b.key);
    };
    n = std::min(n, all.size());
    std::partial_sort(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(n), all.end(), more);
    all.resize(n);
    return all;
  }

 private:
  struct Slot {
    uint64_t key = 0;
    uint64_t count = 0;  // 0: empty
  };

  // False when `key` is new and the table already holds bound_ keys.
  bool add_exact(uint64_t key) {
    if (slots_.empty()) slots_.resize(64);
    size_t mask = slots_.size() - 1;
    for (size_t i = mix(key) & mask;; i = (i + 1) & mask) {
      Slot& s = slots_[i];
      if (s.count != 0 && s.key == key) {
        ++s.count;
        return true;
      }
      if (s.count == 0) {
        if (size_ == bound_) return false;
        s.key = key;
        s.count = 1;
        if (++size_ * 2 > slots_.size()) grow();
        return true;
      }
    }
  }

  void grow() {
    std::vector<Slot> old(slots_.size() * 2);
    old.swap(slots_);
    size_t mask = slots_.size() - 1;
    for (const Slot& s : old) {
      if (s.count == 0) continue;
      size_t i = mix(s.key) & mask;
      while (slots_[i].count != 0) i = (i + 1) & mask;
      slots_[i] = s;
    }
  }

  void start_estimating() {
    auto best = top(kCounters + 1);  // from the table, before it is given up
    estimating_ = true;
    registers_.assign(size_t{1} << kRegisterBits, 0);
    for (const Slot& s : slots_) {
      if (s.count != 0) remember(mix(s.key));
    }
    if (best.size() > kCounters) {
      dropped_ = best.back().count;
      best.pop_back();
    }
    for (size_t i = 0; i < best.size(); ++i) {
      keys_[i] = best[i].key;
      counts_[i] = best[i].count;
    }
    rebuild_index();
    std::vector<Slot>().swap(slots_);
  }

  // The counters are found by key through a small open-addressing index
  // (twice as many places as counters), rebuilt after each drop.
  static constexpr size_t kPlaces = 2 * kCounters;
  static constexpr uint8_t kFree = 0xFF;

  void rebuild_index() {
    std::fill(std::begin(index_), std::end(index_), kFree);
    free_count_ = 0;
    for (size_t c = kCounters; c-- > 0;) {
      if (counts_[c] == 0) {
        free_[free_count_++] = static_cast<uint8_t>(c);
      } else {
        index_insert(c, mix(keys_[c]));
      }
    }
  }

  void index_insert(size_t counter, uint64_t h) {
    size_t i = h % kPlaces;
    while (index_[i] != kFree) i = (i + 1) % kPlaces;
    index_[i] = static_cast<uint8_t>(counter);
  }

  void remember(uint64_t h) {
    size_t index = static_cast<size_t>(h >> (64 - kRegisterBits));
    uint64_t rest = h << kRegisterBits;
    int run = rest == 0 ? 64 - static_cast<int>(kRegisterBits) + 1 : std::countl_zero(rest) + 1;
    registers_[index] = std::max(registers_[index], static_cast<uint8_t>(run));
  }

  void add_estimated(uint64_t key) {
    const uint64_t h = mix(key);
    remember(h);
    for (size_t i = h % kPlaces; index_[i] != kFree; i = (i + 1) % kPlaces) {
      if (keys_[index_[i]] == key) {
        ++counts_[index_[i]];
        return;
      }
    }
    if (free_count_ > 0) {
      size_t c = free_[--free_count_];
      keys_[c] = key;
      counts_[c] = 1;
      index_insert(c, h);
      return;
    }
    ++drops_;
    for (uint64_t& count : counts_) --count;
    rebuild_index();
  }

  size_t bound_;
  uint64_t total_ = 0;
  bool estimating_ = false;
  std::vector<Slot> slots_;
  size_t size_ = 0;
  std::vector<uint8_t> registers_;
  uint64_t keys_[kCounters] = {};
  uint64_t counts_[kCounters] = {};  // 0: a free counter
  uint8_t index_[kPlaces] = {};      // counter numbers, kFree where none
  uint8_t free_[kCounters] = {};     // the free counters
  size_t free_count_ = 0;
  uint64_t drops_ = 0;    // times every counter dropped by one
  uint64_t dropped_ = 0;  // the greatest count the table left out
};

}  // namespace

// ---- the histogram ----

void HistogramCells::add(double v) {
  if (!started_) {
    start(v);
    return;
  }
  double t = v * scale_;
  if (t >= low_ && t < high_) {
    ++cells_[static_cast<size_t>(static_cast<int64_t>(std::floor(t)) - anchor_)];
    return;
  }
  refit(v);
}

void HistogramCells::steps(double min, double max, uint64_t (&to)[8]) const {
  std::fill(std::begin(to), std::end(to), 0);
  // In halves, so that a range wider than the largest double does not
  // overflow; halving is exact, so the quotient is the same.
  const double half_range = max / 2 - min / 2;
  for (size_t i = 0; i < cells_.size(); ++i) {
    if (cells_[i] == 0) continue;
    double lower = std::ldexp(static_cast<double>(anchor_ + static_cast<int64_t>(i)), e_);
    double from_min = std::max(lower, min) / 2 - min / 2;
    double at = half_range > 0 ? std::floor(8 * (from_min / half_range)) : 0;
    size_t step = at >= 7 ? 7 : at <= 0 ? 0 : static_cast<size_t>(at);
    to[step] += cells_[i];
  }
}

namespace {

constexpr int64_t kCells = static_cast<int64_t>(kHistogramCells);

// The cell numbers stay below 2^52 in magnitude, so that they and the
// window's bounds are exact doubles: the width is at least 2^-50 of the
// largest magnitude seen.
int least_exponent(double magnitude) {
  return magnitude == 0 ? -1000 : std::max(-1000, std::ilogb(magnitude) - 50);
}

int64_t cell(double v, int e) {
  return static_cast<int64_t>(std::floor(std::ldexp(v, -e)));
}

}  // namespace

void HistogramCells::start(double v) {
  started_ = true;
  cells_.assign(kHistogramCells, 0);
  e_ = least_exponent(std::fabs(v));
  place(cell(v, e_), cell(v, e_));
  ++cells_[static_cast<size_t>(cell(v, e_) - anchor_)];
}

void HistogramCells::place(int64_t low, int64_t high) {
  anchor_ = low - (kCells - (high - low + 1)) / 2;
  scale_ = std::ldexp(1.0, -e_);
  low_ = static_cast<double>(anchor_);
  high_ = static_cast<double>(anchor_ + kCells);
}

void HistogramCells::refit(double v) {
  // The cells in use, and the magnitudes they and `v` reach.
  size_t first = 0, last = 0;
  bool any = false;
  for (size_t i = 0; i < cells_.size(); ++i) {
    if (cells_[i] == 0) continue;
    if (!any) first = i;
    last = i;
    any = true;
  }
  const int64_t low = anchor_ + static_cast<int64_t>(first);
  const int64_t high = anchor_ + static_cast<int64_t>(last);
  double magnitude = std::max({std::fabs(v), std::fabs(std::ldexp(static_cast<double>(low), e_)),
                               std::fabs(std::ldexp(static_cast<double>(high + 1), e_))});
  int e = std::max(e_, least_exponent(magnitude));
  // At width 2^x the cells in use become low >> (x - e_) to high >> (x - e_).
  auto low_at = [&](int x) { return std::min(low >> std::min(63, x - e_), cell(v, x)); };
  auto high_at = [&](int x) { return std::max(high >> std::min(63, x - e_), cell(v, x)); };
  auto span = [&](int x) { return high_at(x) - low_at(x) + 1; };
  if (span(e) > kCells * 3 / 4) {
    while (span(e) > kCells / 2) ++e;
  }
  std::vector<uint64_t> old(kHistogramCells, 0);
  old.swap(cells_);
  const int64_t old_anchor = anchor_;
  const int shift = std::min(63, e - e_);
  const int64_t new_low = low_at(e), new_high = high_at(e);
  e_ = e;
  place(new_low, new_high);
  for (size_t i = first; i <= last; ++i) {
    if (old[i] == 0) continue;
    int64_t merged = (old_anchor + static_cast<int64_t>(i)) >> shift;
    cells_[static_cast<size_t>(merged - anchor_)] += old[i];
  }
  ++cells_[static_cast<size_t>(cell(v, e_) - anchor_)];
}

// ---- one column ----

struct ColumnSummary {
  uint32_t column = 0;
  bool character = false;
  uint64_t missing = 0;
  // Character column: its values. Numeric column: the text met in it,
  // counted exactly up to the least bound (such text is rare, its distinct
  // count is not shown).
  explicit ColumnSummary(size_t bound) : texts(bound) {}
  Frequencies texts;
  // Numeric column.
  uint64_t numbers = 0;
  uint64_t nans = 0;
  bool have_range = false;           // a number other than NaN was seen
  uint8_t min[8] = {}, max[8] = {};  // the elements of the least and greatest
  double min_value = 0, max_value = 0;
  uint64_t finite = 0;
  // The finite numbers' mean and sum of squared deviations, combined block
  // by block in long double, so that numbers near the largest double do not
  // overflow them.
  long double mean = 0, m2 = 0;
  double finite_min = 0, finite_max = 0;
  HistogramCells cells;
};

size_t exact_distinct_bound(size_t columns) {
  return std::clamp(kExactDistinctShared / std::max<size_t>(columns, 1), kExactDistinctLeast,
                    kExactDistinct);
}

Summary::Summary(const DataSet& ds, const std::vector<uint32_t>& columns) : ds_(ds) {
  size_t character = 0;
  for (uint32_t c : columns) character += ds.columns[c].character;
  const size_t bound = exact_distinct_bound(character);
  for (uint32_t c : columns) {
    auto s = std::make_unique<ColumnSummary>(ds.columns[c].character ? bound : kExactDistinctLeast);
    s->column = c;
    s->character = ds.columns[c].character;
    columns_.push_back(std::move(s));
  }
}

Summary::~Summary() = default;

void Summary::add(const uint8_t* rows, size_t n) {
  rows_ += n;
  const size_t width = ds_.width;
  const size_t row_bytes = static_cast<size_t>(ds_.row_bytes);
  scratch_.resize(n);
  for (auto& sp : columns_) {
    ColumnSummary& s = *sp;
    const uint8_t* at = rows + static_cast<size_t>(s.column) * width;
    if (s.character) {
      for (size_t r = 0; r < n; ++r, at += row_bytes) {
        if (classify(at, ds_.width, true) == CellKind::kMissing) {
          ++s.missing;
          continue;
        }
        s.texts.add(load64(at));
      }
      continue;
    }
    // The block's finite numbers are gathered, then taken in three short
    // loops: the range, the mean and deviations (two passes over the block,
    // merged into the column's by the pairwise formula), and the cells.
    size_t count = 0;
    const uint8_t* least = nullptr;
    const uint8_t* greatest = nullptr;
    for (size_t r = 0; r < n; ++r, at += row_bytes) {
      switch (classify(at, ds_.width, false)) {
        case CellKind::kMissing:
          ++s.missing;
          continue;
        case CellKind::kText:
          s.texts.add(load64(at));
          continue;
        case CellKind::kNumber:
          break;
      }
      ++s.numbers;
      double v = number_value(at, ds_.width);
      if (std::isnan(v)) {
        ++s.nans;
        continue;
      }
      if (!s.have_range || v < s.min_value) least = at, s.min_value = v;
      if (!s.have_range || v > s.max_value) greatest = at, s.max_value = v;
      s.have_range = true;
      if (std::isfinite(v)) scratch_[count++] = v;
    }
    if (least != nullptr) std::memcpy(s.min, least, width);
    if (greatest != nullptr) std::memcpy(s.max, greatest, width);
    if (count == 0) continue;
    double lo = scratch_[0], hi = scratch_[0], sum = 0;
    for (size_t i = 0; i < count; ++i) {
      lo = std::min(lo, scratch_[i]);
      hi = std::max(hi, scratch_[i]);
      sum += scratch_[i];
    }
    const double nb = static_cast<double>(count);
    double mean_b = sum / nb;
    double m2_b = 0, err_b = 0;
    for (size_t i = 0; i < count; ++i) {
      double d = scratch_[i] - mean_b;
      m2_b += d * d;
      err_b += d;
    }
    // The compensated two-pass form: err_b corrects the block mean's rounding.
    long double m2_block = m2_b - err_b * err_b / nb;
    long double mean_block = mean_b + err_b / nb;
    if (!std::isfinite(m2_b) || !std::isfinite(sum)) {
      // Numbers beyond about 1e154 whose squares (or a sum beyond 1e308)
      // overflow a double: the block again in long double, whose range
      // holds them (the rare case; the common one stays in doubles).
      long double lsum = 0;
      for (size_t i = 0; i < count; ++i) lsum += scratch_[i];
      const long double lmean = lsum / nb;
      long double lm2 = 0, lerr = 0;
      for (size_t i = 0; i < count; ++i) {
        long double d = scratch_[i] - lmean;
        lm2 += d * d;
        lerr += d;
      }
      m2_block = lm2 - lerr * lerr / nb;
      mean_block = lmean + lerr / nb;
    }
    if (s.finite == 0) {
      s.mean = mean_block;
      s.m2 = m2_block;
      s.finite_min = lo;
      s.finite_max = hi;
    } else {
      const long double na = static_cast<long double>(s.finite);
      const long double total = na + nb;
      const long double delta = mean_block - s.mean;
      s.mean += delta * (nb / total);
      s.m2 += m2_block + delta * delta * (na * nb / total);
      s.finite_min = std::min(s.finite_min, lo);
      s.finite_max = std::max(s.finite_max, hi);
    }
    s.finite += count;
    for (size_t i = 0; i < count; ++i) s.cells.add(scratch_[i]);
  }
}

// ---- writing ----

bool locale_is_utf8() {
  const char* name = nullptr;
  for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') {
      name = value;
      break;
    }
  }
  if (name == nullptr) return false;
  std::string lower;
  for (const char* p = name; *p != '\0'; ++p) {
    char c = *p;
    lower += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return lower.find("utf-8") != std::string::npos || lower.find("utf8") != std::string::npos;
}

std::string draw_histogram(const uint64_t (&steps)[8], Drawing drawing) {
  static constexpr const char* kBlocks[8] = {"\u2581", "\u2582", "\u2583", "\u2584",
                                             "\u2585", "\u2586", "\u2587", "\u2588"};
  static constexpr char kAscii[] = "_.-:=+*#";
  uint64_t most = *std::max_element(std::begin(steps), std::end(steps));
  std::string drawn;
  for (uint64_t count : steps) {
    if (count == 0) {
      drawn += ' ';
      continue;
    }
    // ceil(8 * count / most), without overflow for counts near 2^64.
    auto level = static_cast<size_t>(
        std::ceil(8.0 * static_cast<double>(count) / static_cast<double>(most)));
    level = std::clamp<size_t>(level, 1, 8) - 1;
    if (drawing == Drawing::kBlocks) {
      drawn += kBlocks[level];
    } else {
      drawn += kAscii[level];
    }
  }
  return drawn;
}

namespace {

std::string number_text(uint64_t v) {
  return std::to_string(v);
}

std::string element_text(const uint8_t* element, uint32_t width) {
  char text[kCellRoom];
  return std::string(text, format_number(element, width, text));
}

std::string double_text(double v) {
  uint8_t element[8];
  uint64_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  for (size_t i = 0; i < 8; ++i) element[i] = static_cast<uint8_t>(bits >> (8 * i));
  return element_text(element, 8);
}

// The most frequent values as `"text" count`, separated by ", "; a count
// the estimating counters know only within bounds as `"text" LEAST..MOST`.
std::string frequent_text(const Frequencies& f) {
  std::string text;
  for (const auto& [key, count, excess] : f.top(kShownFrequent)) {
    uint8_t element[8];
    for (size_t i = 0; i < 8; ++i) element[i] = static_cast<uint8_t>(key >> (8 * i));
    if (!text.empty()) text += ", ";
    text += '"';
    text +=
        escape_text(std::string_view(reinterpret_cast<const char*>(element), text_length(element)));
    text += "\" ";
    if (excess > 0) text += number_text(count - excess) + "..";
    text += number_text(count);
  }
  return text;
}

// The fields of one line, in the order of kHeadings.
constexpr const char* kHeadings[] = {"variable", "kind",      "count",    "missing",
                                     "text",     "min",       "max",      "mean",
                                     "sd",       "histogram", "distinct", "values"};
constexpr size_t kFields = std::size(kHeadings);
// Fields aligned to the right in the text view: the counts and numbers.
constexpr bool kRight[kFields] = {false, false, true, true,  true, true,
                                  true,  true,  true, false, true, false};

std::vector<std::string> fields(const DataSet& ds, const ColumnSummary& s, Drawing drawing) {
  std::vector<std::string> f(kFields);
  f[0] = ds.columns[s.column].label;
  f[3] = number_text(s.missing);
  if (s.character) {
    f[1] = "character";
    f[2] = number_text(s.texts.total());
    f[10] = number_text(s.texts.distinct());
    if (s.texts.estimating()) f[10] = "~" + f[10];
    f[11] = frequent_text(s.texts);
    return f;
  }
  f[1] = "numeric";
  f[2] = number_text(s.numbers);
  f[4] = number_text(s.texts.total());
  if (s.have_range) {
    f[5] = element_text(s.min, ds.width);
    f[6] = element_text(s.max, ds.width);
  }
  if (s.finite > 0) {
    f[7] = double_text(static_cast<double>(s.mean));
    if (s.finite > 1) {
      long double variance = std::max(0.0L, s.m2) / static_cast<long double>(s.finite - 1);
      f[8] = double_text(static_cast<double>(std::sqrt(variance)));
    }
    uint64_t steps[8];
    s.cells.steps(s.finite_min, s.finite_max, steps);
    f[9] = draw_histogram(steps, drawing);
  }
  // The texts that stand out (none may, past the exact count).
  if (std::string named = frequent_text(s.texts); !named.empty()) f[11] = "text: " + named;
  return f;
}

}  // namespace

void Summary::write_text(std::string_view name, Drawing drawing, Output& out) const {
  std::vector<std::vector<std::string>> lines;
  lines.emplace_back(std::begin(kHeadings), std::end(kHeadings));
  for (const auto& s : columns_) lines.push_back(fields(ds_, *s, drawing));
  size_t widths[kFields] = {};
  for (const auto& line : lines) {
    for (size_t i = 0; i < kFields; ++i) widths[i] = std::max(widths[i], shown_width(line[i]));
  }
  out.put(name);
  out.put(": ");
  out.put(number_text(rows_));
  out.put(rows_ == 1 ? " row\n" : " rows\n");
  for (const auto& line : lines) {
    std::string text;
    for (size_t i = 0; i < kFields; ++i) {
      std::string pad(widths[i] - shown_width(line[i]), ' ');
      if (i > 0) text += "  ";
      text += kRight[i] ? pad + line[i] : line[i] + pad;
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    out.put(text);
    out.put('\n');
  }
}

void Summary::write_csv(bool names, Drawing drawing, Output& out) const {
  auto put_line = [&](const std::vector<std::string>& line) {
    for (size_t i = 0; i < line.size(); ++i) {
      if (i > 0) out.put(',');
      put_csv_field(line[i], out);
    }
    out.put('\n');
  };
  if (names) put_line(std::vector<std::string>(std::begin(kHeadings), std::end(kHeadings)));
  for (const auto& s : columns_) put_line(fields(ds_, *s, drawing));
}

}  // namespace kolvdump
