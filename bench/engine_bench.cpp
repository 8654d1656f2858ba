// The hot pieces of a delimited conversion in ns per field: the field
// scanners (scandbl with its quick decision and with its full steps, scanstr),
// the element conversion, and whole row loops over an in-memory input.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "base/state.hpp"
#include "engine/elements.hpp"
#include "engine/loops.hpp"
#include "engine/readbuf.hpp"
#include "engine/scanners.hpp"

namespace {

using Rng = std::mt19937_64;

// Ten signed decimals with six places a line, blank- or comma-separated, as
// the corpus of bench/run.sh writes them.
std::string decimal_rows(int rows, char separator) {
  Rng r(20240601);
  static const uint64_t p10[] = {10, 100, 1000, 10000, 100000};
  std::string s;
  char b[64];
  for (int i = 0; i < rows; ++i) {
    for (int k = 0; k < 10; ++k) {
      const bool neg = (r() & 1) != 0;
      const unsigned long long whole = r() % p10[r() % 5];
      const unsigned long long frac = r() % 1000000;
      std::snprintf(b, sizeof b, "%s%s%llu.%06llu", k ? (separator == ',' ? "," : " ") : "",
                    neg ? "-" : "", whole, frac);
      s += b;
    }
    s += '\n';
  }
  return s;
}

std::string words(int count) {
  Rng r(7);
  std::string s;
  for (int i = 0; i < count; ++i) {
    const int n = 3 + static_cast<int>(r() % 10);
    for (int k = 0; k < n; ++k) s += static_cast<char>('a' + r() % 26);
    s += ' ';
  }
  return s;
}

// A run whose buffer holds text (shorter than the read size), with nothing
// more to read: the scanners never refill.
struct BufferRun {
  kolv::Plan plan;
  kolv::Engine engine{plan, kolv::Console{}};
  size_t fields = 0;
  explicit BufferRun(const std::string& text) {
    std::memcpy(engine.rb.inbuff.get(), text.c_str(), text.size() + 1);
    engine.rb.theresmore = 0;
    for (char c : text) fields += c == ' ' || c == '\n' || c == ',';
  }
};

// Scans every field of the buffer with scan, stepping over one separator.
template <class Scan>
void scan_fields(benchmark::State& state, const std::string& text, Scan scan) {
  BufferRun b(text);
  char slot[8];
  for (auto _ : state) {
    char* p = b.engine.rb.inbuff.get();
    uint32_t status = 0;
    int k = 0;
    while (*p != '\0') {
      p = scan(b.engine, p, slot, k, status);
      benchmark::DoNotOptimize(slot);
      ++p;  // the separator
      k = k == 9 ? 0 : k + 1;
    }
  }
  state.counters["per_field"] = benchmark::Counter(
      static_cast<double>(b.fields),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

const std::string& soft_text() {
  static const std::string t = decimal_rows(1000, ' ');  // about 114 KB: one buffer
  return t;
}

void BM_scandbl(benchmark::State& s) {
  scan_fields(s, soft_text(), kolv::scandbl);
}
void BM_scandbl_full_steps(benchmark::State& s) {
  scan_fields(s, soft_text(), kolv::scan_detail::scandbl_steps);
}
void BM_scanstr(benchmark::State& s) {
  static const std::string t = words(10000);
  scan_fields(s, t, kolv::scanstr);
}

// Element conversion: 8-byte slots (numbers and a few missing values) to
// elements of width W.
template <int W>
void BM_put_element(benchmark::State& state) {
  Rng r(3);
  std::vector<char> slots(8 * 10000);
  for (size_t i = 0; i < 10000; ++i) {
    double v = (static_cast<double>(r() % 2000001) - 1000000.0) / 100.0;
    uint64_t bits;
    std::memcpy(&bits, &v, 8);
    if (r() % 50 == 0) bits = kolv::kMissvalBits;
    std::memcpy(&slots[8 * i], &bits, 8);
  }
  std::vector<char> out(W * 10000);
  for (auto _ : state) {
    for (size_t i = 0; i < 10000; ++i) kolv::put_element<W>(&out[W * i], &slots[8 * i]);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.counters["per_field"] = benchmark::Counter(
      10000, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// A whole row loop over 20,000 rows of ten decimals held in memory, rows
// written to /dev/null: reading, scanning, refills, elements and blocks.
void row_loop_bench(benchmark::State& state, char separator, int otyp, bool line_per_row,
                    bool some) {
  static const std::string soft = decimal_rows(20000, ' ');
  static const std::string comma = decimal_rows(20000, ',');
  const std::string& text = separator == ',' ? comma : soft;
  FILE* sink = std::fopen("/dev/null", "wb");
  for (auto _ : state) {
    state.PauseTiming();
    kolv::Plan plan;
    plan.element = static_cast<kolv::ElementType>(otyp);
    plan.kinds.assign(10, kolv::FieldKind::kNumeric);
    if (line_per_row) {
      plan.layout = kolv::RowLayout::kLinePerRow;
      plan.delimiter = ',';
    }
    if (some) {
      plan.all_columns = false;
      for (int j = 0; j < 5; ++j) plan.columns.push_back(2 * j);
    }
    auto engine = std::make_unique<kolv::Engine>(plan, kolv::Console{});
    kolv::Source source{fmemopen(const_cast<char*>(text.data()), text.size(), "rb"), "bench"};
    FILE* in = source.file;
    kolv::RowSink rows{sink};
    state.ResumeTiming();
    const int status = engine->convert(source, rows);
    state.PauseTiming();
    if (status != 0 || engine->rows != 20000)
      state.SkipWithError("the loop did not convert every row");
    std::fclose(in);
    state.ResumeTiming();
  }
  std::fclose(sink);
  state.counters["per_field"] = benchmark::Counter(
      200000, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_row_loop_soft_D(benchmark::State& s) {
  row_loop_bench(s, ' ', 8, false, false);
}
void BM_row_loop_soft_F(benchmark::State& s) {
  row_loop_bench(s, ' ', 4, false, false);
}
void BM_row_loop_soft_I(benchmark::State& s) {
  row_loop_bench(s, ' ', 2, false, false);
}
void BM_row_loop_soft_5_of_10(benchmark::State& s) {
  row_loop_bench(s, ' ', 8, false, true);
}
void BM_row_loop_comma_line_per_row_D(benchmark::State& s) {
  row_loop_bench(s, ',', 8, true, false);
}

BENCHMARK(BM_scandbl);
BENCHMARK(BM_scandbl_full_steps);
BENCHMARK(BM_scanstr);
BENCHMARK(BM_put_element<2>);
BENCHMARK(BM_put_element<4>);
BENCHMARK(BM_put_element<8>);
BENCHMARK(BM_row_loop_soft_D);
BENCHMARK(BM_row_loop_soft_F);
BENCHMARK(BM_row_loop_soft_I);
BENCHMARK(BM_row_loop_soft_5_of_10);
BENCHMARK(BM_row_loop_comma_line_per_row_D);

}  // namespace
