// The summary's histogram cells, drawing and locale test, in-process. The
// cells must give the exact step counts when every step edge falls on a
// cell boundary, however the range grew; otherwise a step may differ from
// the exact count only by numbers lying within one cell of its edges.
#include "kolvdump/summary.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using kolvdump::HistogramCells;

// The step of each number by the definition: floor(8 (v - min) / range),
// the greatest in the last step.
std::vector<uint64_t> exact_steps(const std::vector<double>& values, double min, double max) {
  std::vector<uint64_t> steps(8, 0);
  for (double v : values) {
    double at = std::floor(8 * (v - min) / (max - min));
    steps[at >= 7 ? 7 : static_cast<size_t>(at)]++;
  }
  return steps;
}

std::vector<uint64_t> cell_steps(const std::vector<double>& values, double min, double max) {
  HistogramCells cells;
  for (double v : values) cells.add(v);
  uint64_t steps[8];
  cells.steps(min, max, steps);
  return std::vector<uint64_t>(steps, steps + 8);
}

// From -2^20 to 2^20 the step edges are multiples of 2^18, so they fall on
// cell boundaries whatever power-of-two width the cells end with.
TEST(SummaryHistogram, ExactWhenEdgesFallOnCellBoundaries) {
  const double top = 1 << 20;
  std::vector<double> rising, falling, outward;
  for (double v = -top; v <= top; v += 7) rising.push_back(v);
  rising.push_back(top);
  falling.assign(rising.rbegin(), rising.rend());
  // From the middle outwards: a new least or greatest number at every step,
  // so the window moves and the width doubles many times.
  for (double d = 0; d < top; d += 3) {
    outward.push_back(d);
    outward.push_back(-d - 1);
  }
  outward.push_back(top);
  outward.push_back(-top);
  for (const auto* values : {&rising, &falling, &outward}) {
    EXPECT_EQ(cell_steps(*values, -top, top), exact_steps(*values, -top, top));
  }
}

TEST(SummaryHistogram, OffOnlyNearStepEdges) {
  // Pseudo-random numbers spread over many magnitudes of range growth:
  // whatever the edges, a step's count differs from the exact one by at
  // most the numbers within 1/1024 of the range of an edge.
  uint64_t state = 88172645463325252ULL;
  auto next = [&] {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return static_cast<double>(state >> 11) / 9007199254740992.0;  // [0, 1)
  };
  std::vector<double> values;
  for (int i = 0; i < 200000; ++i) {
    double scale = std::ldexp(1.0, i / 10000);  // the range grows as it goes
    values.push_back((next() - 0.3) * scale * 3.7);
  }
  double min = values[0], max = values[0];
  for (double v : values) min = std::min(min, v), max = std::max(max, v);
  std::vector<uint64_t> exact = exact_steps(values, min, max);
  std::vector<uint64_t> cells = cell_steps(values, min, max);
  const double range = max - min, near = range / 1024;
  uint64_t total = 0;
  for (size_t k = 0; k < 8; ++k) {
    double low = min + range * static_cast<double>(k) / 8;
    double high = min + range * static_cast<double>(k + 1) / 8;
    uint64_t close = 0;
    for (double v : values) {
      if (std::fabs(v - low) <= near || (k < 7 && std::fabs(v - high) <= near)) ++close;
    }
    uint64_t diff = exact[k] > cells[k] ? exact[k] - cells[k] : cells[k] - exact[k];
    EXPECT_LE(diff, close) << "step " << k;
    total += cells[k];
  }
  EXPECT_EQ(total, values.size());
}

TEST(SummaryHistogram, ExtremeMagnitudesAndOneValue) {
  // A range wider than the largest double, and numbers near 1e15 that
  // differ in their last binary digits (cells of 2^-1 there): every number
  // counted, the greatest in the last step.
  for (const std::vector<double>& values :
       {std::vector<double>{1e300, -1e300, 0, 5e-324, -1.7e308, 1.7e308},
        std::vector<double>{1e15, 1e15 + 0.125, 1e15 + 0.25, 1e15 + 1}}) {
    double min = values[0], max = values[0];
    for (double v : values) min = std::min(min, v), max = std::max(max, v);
    std::vector<uint64_t> steps = cell_steps(values, min, max);
    uint64_t total = 0;
    for (uint64_t c : steps) total += c;
    EXPECT_EQ(total, values.size());
    EXPECT_GT(steps[7], 0u);
  }
  // From -1.7e308 to 1.7e308: -1e300 lies just below the middle (step 3),
  // 0 on it and 1e300 just above (step 4).
  EXPECT_EQ(cell_steps({1e300, -1e300, 0, -1.7e308, 1.7e308}, -1.7e308, 1.7e308),
            (std::vector<uint64_t>{1, 0, 0, 1, 2, 0, 0, 1}));
  // Cells are never narrower than 2^-1000: numbers all closer to zero than
  // that share one cell, and so the first step.
  EXPECT_EQ(cell_steps({5e-324, 1e-320, 2e-310, 0}, 0, 2e-310),
            (std::vector<uint64_t>{4, 0, 0, 0, 0, 0, 0, 0}));
  // A column of one value: all of it in the first step.
  EXPECT_EQ(cell_steps({4.5, 4.5, 4.5}, 4.5, 4.5), (std::vector<uint64_t>{3, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(SummaryHistogram, Drawing) {
  // Most 8: block ceil(8c/8) = c; an empty step is a blank.
  const uint64_t steps[8] = {8, 7, 6, 5, 4, 3, 1, 0};
  EXPECT_EQ(kolvdump::draw_histogram(steps, kolvdump::Drawing::kBlocks),
            "\u2588\u2587\u2586\u2585\u2584\u2583\u2581 ");
  EXPECT_EQ(kolvdump::draw_histogram(steps, kolvdump::Drawing::kAscii), "#*+=:-_ ");
  // One in a million still shows as the lowest block; 500001 of 1000000 is
  // block ceil(4.000008) = 5.
  const uint64_t sparse[8] = {1000000, 1, 0, 0, 0, 0, 0, 500001};
  EXPECT_EQ(kolvdump::draw_histogram(sparse, kolvdump::Drawing::kAscii), "#_     =");
}

TEST(SummaryDistinct, ExactBoundSharedAmongManyColumns) {
  // 65536 each up to 32 columns of text; then 2097152 shared, at least 1024.
  EXPECT_EQ(kolvdump::exact_distinct_bound(0), 65536u);
  EXPECT_EQ(kolvdump::exact_distinct_bound(1), 65536u);
  EXPECT_EQ(kolvdump::exact_distinct_bound(32), 65536u);
  EXPECT_EQ(kolvdump::exact_distinct_bound(33), 2097152u / 33);
  EXPECT_EQ(kolvdump::exact_distinct_bound(2048), 1024u);
  EXPECT_EQ(kolvdump::exact_distinct_bound(100000), 1024u);
}

TEST(SummaryLocale, FirstSetVariableDecides) {
  struct Case {
    const char* all;
    const char* ctype;
    const char* lang;
    bool utf8;
  };
  const Case cases[] = {
      {"C.UTF-8", nullptr, nullptr, true},
      {"C", nullptr, "en_GB.UTF-8", false},
      {"", "de_CH.utf8", nullptr, true},
      {nullptr, nullptr, "en_US.Utf-8", true},
      {nullptr, "POSIX", "en_US.UTF-8", false},
      {nullptr, nullptr, nullptr, false},
      {nullptr, nullptr, "de_DE.ISO-8859-1", false},
  };
  for (const Case& c : cases) {
    for (auto [name, value] :
         {std::pair{"LC_ALL", c.all}, std::pair{"LC_CTYPE", c.ctype}, std::pair{"LANG", c.lang}}) {
      if (value == nullptr) {
        unsetenv(name);
      } else {
        setenv(name, value, 1);
      }
    }
    EXPECT_EQ(kolvdump::locale_is_utf8(), c.utf8)
        << (c.all ? c.all : "-") << " " << (c.ctype ? c.ctype : "-") << " "
        << (c.lang ? c.lang : "-");
  }
}

}  // namespace
