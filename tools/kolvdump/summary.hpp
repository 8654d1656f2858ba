// kolvdump --summary: one line per column, gathered in one pass over the
// rows in memory that does not grow with them.
//
// A numeric column gives its count, missing values, text met where a number
// belongs (counted apart and named), minimum, maximum, mean, standard
// deviation and an 8-step histogram; a character column its count, missing
// values, distinct values and most frequent values. See summary.cpp for how
// each is kept within a fixed room.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "output.hpp"
#include "reader.hpp"

namespace kolvdump {

// Distinct values are counted exactly up to this many per column; past it
// the count is an estimate. The exact tables of all columns together hold at
// most kExactDistinctShared values (about 64 MiB), so with more than 32
// columns of text each column counts fewer exactly (at least
// kExactDistinctLeast).
inline constexpr size_t kExactDistinct = 65536;
inline constexpr size_t kExactDistinctShared = 32 * kExactDistinct;
inline constexpr size_t kExactDistinctLeast = 1024;

// The exact bound of each column when `columns` columns count text values
// (character columns, and numeric ones in case text lands in them).
size_t exact_distinct_bound(size_t columns);
// The most frequent values a line names.
inline constexpr size_t kShownFrequent = 3;
// The fine cells a histogram is gathered in before it is drawn in 8 steps.
inline constexpr size_t kHistogramCells = 4096;

// How the histogram is drawn: Unicode block characters or ASCII.
enum class Drawing { kBlocks, kAscii };

// Whether the locale the environment names (LC_ALL, else LC_CTYPE, else
// LANG, the first that is set and not empty) uses UTF-8: its name holds
// "UTF-8" or "utf8" in any case.
bool locale_is_utf8();

// The 8 steps of a histogram as drawn: an empty step is a blank; otherwise
// the step with most values is the full block and a step with `count` of
// `most` values is block ceil(8 * count / most) (1 to 8).
std::string draw_histogram(const uint64_t (&steps)[8], Drawing drawing);

// The cells a column's finite numbers are counted in, and the 8 steps of
// the histogram drawn from them.
//
// The 8 steps span the finite minimum to the maximum, which are known only
// at the end, so the values are first counted in kHistogramCells cells of a
// width that is a power of two, 2^e: a value v falls in the cell numbered
// floor(v / 2^e), and the cells kept are a window of consecutive numbers.
// When a value falls outside the window, the window is moved to centre the
// values seen; when they no longer fit in three quarters of it, the width
// doubles (as often as needed) until they fit in half. Doubling merges cells
// exactly: cell a becomes cell floor(a / 2). At the end each cell goes to
// the step of its lower edge (or of the minimum, in the first cell), so a
// value lies in the step it is drawn in unless a step's edge falls inside
// its cell: the error is at most one cell, at most a 1/1024 of the range.
class HistogramCells {
 public:
  void add(double v);  // a finite number
  // The counts of the 8 steps from `min` to `max`, the least and the
  // greatest number added.
  void steps(double min, double max, uint64_t (&to)[8]) const;

 private:
  void start(double v);
  // Centres the window on the cells numbered `low` to `high`.
  void place(int64_t low, int64_t high);
  void refit(double v);

  bool started_ = false;
  int e_ = 0;                              // the cells' width is 2^e_
  double scale_ = 1, low_ = 0, high_ = 0;  // 2^-e_, and the window's cell numbers
  int64_t anchor_ = 0;                     // the number of the window's first cell
  std::vector<uint64_t> cells_;
};

struct ColumnSummary;  // one column's gathering, in summary.cpp

class Summary {
 public:
  Summary(const DataSet& ds, const std::vector<uint32_t>& columns);
  ~Summary();
  Summary(const Summary&) = delete;
  Summary& operator=(const Summary&) = delete;

  // Takes `n` whole rows.
  void add(const uint8_t* rows, size_t n);

  // The aligned text view: a line naming the data set and the rows
  // summarised, a line of headings, one line per column.
  void write_text(std::string_view name, Drawing drawing, Output& out) const;
  // The same as CSV (RFC 4180), after a line of headings when `names`.
  void write_csv(bool names, Drawing drawing, Output& out) const;

 private:
  const DataSet& ds_;
  std::vector<std::unique_ptr<ColumnSummary>> columns_;
  std::vector<double> scratch_;  // one column's numbers of one block
  uint64_t rows_ = 0;
};

}  // namespace kolvdump
