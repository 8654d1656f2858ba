// Shared by the tests that generate texts by the million (the differential
// test of parse_double and the fast-path tests): the random draws, the counts
// and seeds the environment may set, and a text shown with its unprintable
// bytes escaped.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

namespace kolv_test {

using Rng = std::mt19937_64;

inline uint64_t below(Rng& r, uint64_t n) {
  return r() % n;
}
inline int between(Rng& r, int lo, int hi) {
  return lo + static_cast<int>(below(r, static_cast<uint64_t>(hi - lo + 1)));
}
inline bool chance(Rng& r, int percent) {
  return below(r, 100) < static_cast<uint64_t>(percent);
}
inline char pick(Rng& r, const char* set) {
  return set[below(r, std::strlen(set))];
}
inline void add_digits(Rng& r, std::string& s, int n) {
  for (int i = 0; i < n; ++i) s += static_cast<char>('0' + below(r, 10));
}

// A count from the environment variable `name`, or the default.
inline uint64_t count_from_env(const char* name, uint64_t fallback) {
  const char* v = std::getenv(name);
  return v != nullptr && *v != '\0' ? std::strtoull(v, nullptr, 10) : fallback;
}

// KOLV_DIFF_SEED (decimal or 0x hexadecimal), or the default.
inline uint64_t seed_from_env(uint64_t fallback) {
  const char* v = std::getenv("KOLV_DIFF_SEED");
  return v != nullptr && *v != '\0' ? std::strtoull(v, nullptr, 0) : fallback;
}

inline std::string shown(const std::string& text) {
  std::string s;
  for (char ch : text) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (c >= 32 && c < 127 && c != '"' && c != '\\') {
      s += static_cast<char>(c);
    } else {
      char b[8];
      std::snprintf(b, sizeof b, "\\x%02x", c);
      s += b;
    }
  }
  return s;
}

}  // namespace kolv_test
