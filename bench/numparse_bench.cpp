// Number conversion in ns per field: parse_double, parse_double_padded and
// parse_field (the 16-byte window first) against strtod and a bare
// std::from_chars, on the same in-memory corpora.
#include <benchmark/benchmark.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "base/numparse.hpp"
#include "base/numwide.hpp"

namespace {

struct Corpus {
  // Fields separated by one comma, ended by a zero byte and 16 more bytes of
  // padding (for parse_double_padded and the window of parse_field);
  // `length` excludes them.
  std::string text;
  size_t length = 0;
  size_t fields = 0;
};

Corpus padded(Corpus c) {
  c.length = c.text.size();
  c.text.append(17, '\0');
  return c;
}

void add_field(Corpus& c, const char* b) {
  if (c.fields++ != 0) c.text += ',';
  c.text += b;
}

// Signed decimals with six places, as in a typical export: -1234.567890.
const Corpus& six_places() {
  static const Corpus c = [] {
    Corpus k;
    std::mt19937_64 r(1);
    for (int i = 0; i < 100000; ++i) {
      static const double scale[] = {1, 10, 100, 1000, 10000, 100000};
      const double v = (static_cast<double>(r() % 2000001) / 1000000.0 - 1.0) * scale[r() % 6];
      char b[64];
      std::snprintf(b, sizeof b, "%.6f", v);
      add_field(k, b);
    }
    return padded(k);
  }();
  return c;
}

// Long mantissas and exponents: full-precision doubles (-1.2345678901234567e+123)
// and 25-digit decimals.
const Corpus& long_forms() {
  static const Corpus c = [] {
    Corpus k;
    std::mt19937_64 r(2);
    for (int i = 0; i < 100000; ++i) {
      char b[64];
      if (i % 2 == 0) {
        const double m = static_cast<double>(r() >> 11) / 9007199254740992.0 * 10.0;
        const int e = static_cast<int>(r() % 601) - 300;
        std::snprintf(b, sizeof b, "%.16e", (r() & 1 ? -m : m) * 1e1 * std::pow(10.0, e - 1));
      } else {
        std::snprintf(b, sizeof b, "%s%llu.%015llu", r() & 1 ? "-" : "",
                      static_cast<unsigned long long>(r() % 10000000000ULL),
                      static_cast<unsigned long long>(r() % 1000000000000000ULL));
      }
      add_field(k, b);
    }
    return padded(k);
  }();
  return c;
}

template <class Parse>
void run(benchmark::State& state, const Corpus& c, Parse parse) {
  const char* begin = c.text.c_str();
  const char* end = begin + c.length;
  for (auto _ : state) {
    double sum = 0;
    const char* p = begin;
    while (p < end) {
      double v;
      p = parse(p, end, &v);
      sum += v;
      ++p;  // the comma
    }
    benchmark::DoNotOptimize(sum);
  }
  // Seconds per field, shown with an SI prefix (n = ns).
  state.counters["per_field"] = benchmark::Counter(
      static_cast<double>(c.fields),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

const char* with_parse_double(const char* p, const char*, double* v) {
  return kolv::parse_double(p, v);
}

const char* with_parse_double_padded(const char* p, const char*, double* v) {
  return kolv::parse_double_padded(p, v);
}

const char* with_parse_field(const char* p, const char*, double* v) {
  return kolv::parse_field(p, v);
}

const char* with_strtod(const char* p, const char*, double* v) {
  char* e;
  *v = std::strtod(p, &e);
  return e;
}

const char* with_from_chars(const char* p, const char* end, double* v) {
  return std::from_chars(p, end, *v).ptr;
}

void BM_SixPlaces_parse_double(benchmark::State& s) {
  run(s, six_places(), with_parse_double);
}
void BM_SixPlaces_parse_double_padded(benchmark::State& s) {
  run(s, six_places(), with_parse_double_padded);
}
void BM_SixPlaces_parse_field(benchmark::State& s) {
  run(s, six_places(), with_parse_field);
}
void BM_SixPlaces_strtod(benchmark::State& s) {
  run(s, six_places(), with_strtod);
}
void BM_SixPlaces_from_chars(benchmark::State& s) {
  run(s, six_places(), with_from_chars);
}
void BM_LongForms_parse_double(benchmark::State& s) {
  run(s, long_forms(), with_parse_double);
}
void BM_LongForms_parse_double_padded(benchmark::State& s) {
  run(s, long_forms(), with_parse_double_padded);
}
void BM_LongForms_parse_field(benchmark::State& s) {
  run(s, long_forms(), with_parse_field);
}
void BM_LongForms_strtod(benchmark::State& s) {
  run(s, long_forms(), with_strtod);
}
void BM_LongForms_from_chars(benchmark::State& s) {
  run(s, long_forms(), with_from_chars);
}

BENCHMARK(BM_SixPlaces_parse_double);
BENCHMARK(BM_SixPlaces_parse_double_padded);
BENCHMARK(BM_SixPlaces_parse_field);
BENCHMARK(BM_SixPlaces_strtod);
BENCHMARK(BM_SixPlaces_from_chars);
BENCHMARK(BM_LongForms_parse_double);
BENCHMARK(BM_LongForms_parse_double_padded);
BENCHMARK(BM_LongForms_parse_field);
BENCHMARK(BM_LongForms_strtod);
BENCHMARK(BM_LongForms_from_chars);

}  // namespace
