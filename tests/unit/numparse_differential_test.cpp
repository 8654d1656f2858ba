// parse_double against the C library's strtod over millions of generated texts:
// both must stop at the same byte and give the same bit pattern. Each family of
// texts has its own fixed seed, so a failure reproduces on every run.
//
// KOLV_DIFF_COUNT sets the total number of texts (default 5,000,000), shared
// among the families by weight; KOLV_DIFF_LONG_COUNT the same for the long
// forms (default 10,000,000); KOLV_DIFF_SEED varies the seeds.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <cfloat>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "base/numparse.hpp"
#include "generated_text.hpp"

namespace {

using kolv_test::add_digits;
using kolv_test::below;
using kolv_test::between;
using kolv_test::chance;
using kolv_test::count_from_env;
using kolv_test::pick;
using kolv_test::Rng;
using kolv_test::shown;

// One reusable buffer that holds each text so that its terminating zero byte
// is the last readable byte before an inaccessible page: reading past the end
// of a text faults at once.
class PageEndBuffer {
 public:
  static constexpr size_t kDataPages = 4;
  PageEndBuffer() {
    page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_ = (kDataPages + 1) * page_;
    void* m = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) std::abort();
    base_ = static_cast<char*>(m);
    if (mprotect(base_ + kDataPages * page_, page_, PROT_NONE) != 0) std::abort();
  }
  ~PageEndBuffer() { munmap(base_, size_); }
  PageEndBuffer(const PageEndBuffer&) = delete;
  PageEndBuffer& operator=(const PageEndBuffer&) = delete;
  size_t capacity() const { return kDataPages * page_ - 1; }
  const char* place(const std::string& text) {
    char* p = base_ + kDataPages * page_ - (text.size() + 1);
    std::memcpy(p, text.c_str(), text.size() + 1);
    return p;
  }

 private:
  char* base_ = nullptr;
  size_t page_ = 0;
  size_t size_ = 0;
};

void add_sign(Rng& r, std::string& s) {
  const int k = static_cast<int>(below(r, 10));
  if (k < 4)
    s += '-';
  else if (k == 4)
    s += '+';
}

// Bytes that may follow a number in a field: terminators, letters, a second
// point or exponent, or any byte at all.
void add_junk(Rng& r, std::string& s) {
  if (chance(r, 50)) return;
  const int n = between(r, 1, 3);
  for (int i = 0; i < n; ++i) {
    if (chance(r, 80))
      s += pick(r, "eE+-.0123456789xXpP,; \t\r\n\v\fabcIi}_\"");
    else
      s += static_cast<char>(between(r, 1, 255));
  }
}

void add_exponent(Rng& r, std::string& s, int lo, int hi) {
  s += chance(r, 80) ? 'e' : 'E';
  const int v = between(r, lo, hi);
  if (v < 0)
    s += '-';
  else if (chance(r, 30))
    s += '+';
  if (chance(r, 10)) s.append(static_cast<size_t>(between(r, 1, 3)), '0');
  s += std::to_string(v < 0 ? -v : v);
}

std::string printed(const char* format, double v) {
  char b[512];
  std::snprintf(b, sizeof b, format, v);
  return b;
}

std::string printed_prec(const char* format, int prec, double v) {
  char b[512];
  std::snprintf(b, sizeof b, format, prec, v);
  return b;
}

double random_finite(Rng& r) {
  for (;;) {
    const double d = std::bit_cast<double>(r());
    if (std::isfinite(d)) return d;
  }
}

// --- the families -----------------------------------------------------------

// The common shape of real data: signed decimals with six places.
void gen_six_places(Rng& r, std::string& s) {
  if (chance(r, 50)) s += '-';
  add_digits(r, s, between(r, 1, 6));
  s += '.';
  add_digits(r, s, 6);
  add_junk(r, s);
}

// Any mix of sign, digits, point and exponent, including the incomplete ones.
void gen_random_decimal(Rng& r, std::string& s) {
  add_sign(r, s);
  const bool wide = chance(r, 10);
  add_digits(r, s, between(r, 0, wide ? 22 : 8));
  if (chance(r, 70)) {
    s += '.';
    add_digits(r, s, between(r, 0, wide ? 22 : 8));
  }
  if (chance(r, 35)) {
    s += pick(r, "eE");
    if (chance(r, 60)) s += pick(r, "+-");
    add_digits(r, s, between(r, 0, 3));
  }
  add_junk(r, s);
}

// Mantissas and exponents at the limits of the exact shortcut: 2^53 and its
// neighbours, 19 and 20 digits, decimal exponents around +-22.
void gen_fast_path_edges(Rng& r, std::string& s) {
  uint64_t m;
  std::string wrapped;
  switch (below(r, 7)) {
    case 0:
      m = (uint64_t{1} << 53) - 4 + below(r, 9);
      break;
    case 1:
      m = below(r, (uint64_t{1} << 53) + 1);
      break;
    case 2:
      m = 1000000000000000000ULL + below(r, 9000000000000000000ULL);
      break;
    case 3: {
      static const uint64_t p10[] = {1,
                                     10,
                                     100,
                                     1000,
                                     1000000,
                                     1000000000000ULL,
                                     10000000000000000ULL,
                                     1000000000000000000ULL};
      m = p10[below(r, 8)] + below(r, 3) - 1;
      break;
    }
    case 4:
      m = r() >> below(r, 64);
      break;
    case 5: {
      // 20 digits whose value modulo 2^64 is small: a 64-bit accumulator wraps.
      __extension__ typedef unsigned __int128 u128;
      u128 v = (static_cast<u128>(between(r, 1, 5)) << 64) + below(r, (uint64_t{1} << 53) + 1);
      for (; v != 0; v /= 10) wrapped.insert(wrapped.begin(), static_cast<char>('0' + v % 10));
      m = 0;
      break;
    }
    default:
      m = below(r, 1000000);
      break;
  }
  add_sign(r, s);
  if (chance(r, 15)) s.append(static_cast<size_t>(between(r, 1, 4)), '0');
  std::string digits = wrapped.empty() ? std::to_string(m) : wrapped;
  if (chance(r, 20)) digits.append(static_cast<size_t>(between(r, 1, 4)), '0');
  if (chance(r, 10)) add_digits(r, digits, between(r, 1, 3));  // 20 digits and more
  const int len = static_cast<int>(digits.size());
  const int point = chance(r, 70) ? between(r, 0, len) : len;
  s += digits.substr(0, static_cast<size_t>(point));
  if (point < len || chance(r, 20)) s += '.';
  s += digits.substr(static_cast<size_t>(point));
  // The decimal exponent of the value: (len - point) fraction digits, less the
  // written exponent; aim it around the limits of +-22.
  if (chance(r, 80)) {
    const int frac = len - point;
    const int target = between(r, -25, 25);
    add_exponent(r, s, target + frac, target + frac);
  }
  add_junk(r, s);
}

// Doubles printed by the C library in many formats, with a bias towards the
// boundaries: the largest and smallest normal, the subnormals, powers of two.
void gen_double_boundaries(Rng& r, std::string& s) {
  double d;
  const int k = static_cast<int>(below(r, 10));
  if (k < 4) {
    d = random_finite(r);
  } else if (k < 6) {
    // A subnormal: any bits below the smallest normal.
    d = std::bit_cast<double>(below(r, uint64_t{1} << 52));
  } else {
    static const double anchors[] = {DBL_MAX,
                                     DBL_MIN,
                                     std::numeric_limits<double>::denorm_min(),
                                     9007199254740992.0,
                                     1e22,
                                     1e23,
                                     1.0,
                                     0.1,
                                     1e-22,
                                     1e308,
                                     1e-308,
                                     0x1p1023,
                                     0x1p-1022,
                                     0x1p-1074,
                                     5e-324,
                                     0.0};
    d = anchors[below(r, sizeof anchors / sizeof anchors[0])];
    const int steps = between(r, -3, 3);
    for (int i = 0; i < steps; ++i) d = std::nextafter(d, HUGE_VAL);
    for (int i = 0; i > steps; --i) d = std::nextafter(d, 0.0);
  }
  if (chance(r, 50)) d = -d;
  switch (below(r, 7)) {
    case 0:
      s = printed("%.17g", d);
      break;
    case 1:
      s = printed_prec("%.*g", between(r, 1, 17), d);
      break;
    case 2:
      s = printed_prec("%.*e", between(r, 0, 25), d);
      break;
    case 3:
      s = printed_prec("%.*E", between(r, 14, 18), d);
      break;
    case 4:
      s = std::fabs(d) < 1e30 ? printed_prec("%.*f", between(r, 0, 30), d) : printed("%.16e", d);
      break;
    case 5:
      s = printed(chance(r, 50) ? "%a" : "%A", d);
      break;
    default:
      s = printed("%.15g", d);
      break;
  }
  add_junk(r, s);
}

// Exact halfway points between two neighbouring doubles, and texts just below
// and just above them: the hardest cases of correct rounding.
void gen_halfway(Rng& r, std::string& s) {
  double d;
  if (chance(r, 50)) {
    d = std::ldexp(1.0 + std::ldexp(static_cast<double>(below(r, uint64_t{1} << 52)), -52),
                   between(r, -60, 60));
  } else {
    d = std::fabs(random_finite(r));
  }
  // d and its successor have 53-bit significands: their midpoint has 54 and is
  // exact in the 64-bit significand of long double, whose exponent range also
  // covers the subnormal doubles.
  long double mid;
  if (d == DBL_MAX)
    mid = static_cast<long double>(d) + std::ldexp(1.0L, 970);
  else
    mid = (static_cast<long double>(d) + std::nextafter(d, HUGE_VAL)) / 2;
  char b[1024];
  std::snprintf(b, sizeof b, "%.800Le", mid);  // exact: every digit after is 0
  std::string text(b);
  const size_t epos = text.find('e');
  std::string mant = text.substr(0, epos);
  const std::string exp = text.substr(epos);
  while (mant.back() == '0') mant.pop_back();
  if (mant.back() == '.') mant.pop_back();
  switch (below(r, 5)) {
    case 0:
      break;  // exactly halfway
    case 1:   // below halfway (unless only zeros were cut)
      if (mant.size() > 3)
        mant.resize(static_cast<size_t>(between(r, 3, static_cast<int>(mant.size()) - 1)));
      break;
    case 2:  // just above halfway
      if (mant.find('.') == std::string::npos) mant += '.';
      mant.append(static_cast<size_t>(between(r, 0, 20)), '0');
      mant += '1';
      break;
    case 3:  // halfway, with trailing zeros
      if (mant.find('.') == std::string::npos) mant += '.';
      mant.append(static_cast<size_t>(between(r, 1, 30)), '0');
      break;
    default:  // just below halfway: the last digit one less, then nines
      if (mant.back() != '.' && mant.back() > '0' && mant.size() > 2) {
        mant.back() = static_cast<char>(mant.back() - 1);
        mant.append(static_cast<size_t>(between(r, 1, 20)), '9');
      }
      break;
  }
  if (chance(r, 50)) s += '-';
  s += mant;
  s += exp;
  add_junk(r, s);
}

// Mantissas of 20 to 800 digits, with and without point, leading zeros and exponent.
void gen_long_mantissa(Rng& r, std::string& s) {
  add_sign(r, s);
  int n;
  const int k = static_cast<int>(below(r, 10));
  if (k < 6)
    n = between(r, 20, 40);
  else if (k < 9)
    n = between(r, 41, 200);
  else
    n = between(r, 201, 800);
  std::string digits;
  if (chance(r, 20)) digits.append(static_cast<size_t>(between(r, 1, 400)), '0');
  add_digits(r, digits, n);
  if (chance(r, 15)) digits.append(static_cast<size_t>(between(r, 1, 400)), '0');
  const int len = static_cast<int>(digits.size());
  const int point = chance(r, 70) ? between(r, 0, len) : len;
  s += digits.substr(0, static_cast<size_t>(point));
  if (point < len) s += '.';
  s += digits.substr(static_cast<size_t>(point));
  if (chance(r, 50)) add_exponent(r, s, -400, 400);
  add_junk(r, s);
}

// Exponents near and far beyond the range of double.
void gen_exponent_extremes(Rng& r, std::string& s) {
  add_sign(r, s);
  const int n = between(r, 1, 25);
  add_digits(r, s, n);
  if (chance(r, 50)) {
    s += '.';
    add_digits(r, s, between(r, 0, 10));
  }
  switch (below(r, 4)) {
    case 0:
      add_exponent(r, s, 280, 330);
      break;
    case 1:
      add_exponent(r, s, -360, -300);
      break;
    case 2: {
      s += pick(r, "eE");
      if (chance(r, 50)) s += pick(r, "+-");
      add_digits(r, s, between(r, 4, 30));  // far out of range, or saturating
      break;
    }
    default: {
      s += 'e';
      if (chance(r, 50)) s += '-';
      s.append(static_cast<size_t>(between(r, 1, 25)), '0');
      s += std::to_string(between(r, 0, 400));
      break;
    }
  }
  add_junk(r, s);
}

// --- the long forms: texts the exact shortcut cannot take ---------------------

// Random doubles printed with their 17 significant digits (the shortest form
// that always reads back), and random 17-digit mantissas with exponents to
// +-300.
void gen_seventeen_digits(Rng& r, std::string& s) {
  if (chance(r, 50)) {
    s += printed(chance(r, 50) ? "%.16e" : "%.17g", random_finite(r));
  } else {
    add_sign(r, s);
    s += static_cast<char>('1' + below(r, 9));
    if (chance(r, 70)) s += '.';
    add_digits(r, s, 16);
    add_exponent(r, s, -300, 300);
  }
  add_junk(r, s);
}

// Mantissas of exactly 19 or 20 significant digits (the largest that a 64-bit
// integer holds, and one more), sometimes behind leading zeros, with any
// exponent of the double range and a little beyond.
void gen_nineteen_twenty(Rng& r, std::string& s) {
  add_sign(r, s);
  if (chance(r, 20)) s.append(static_cast<size_t>(between(r, 1, 5)), '0');
  std::string digits(1, static_cast<char>('1' + below(r, 9)));
  add_digits(r, digits, chance(r, 50) ? 18 : 19);
  if (chance(r, 10)) digits.replace(1, 18, 18, chance(r, 50) ? '9' : '0');  // near powers of ten
  const int point = chance(r, 60) ? between(r, 0, static_cast<int>(digits.size())) : -1;
  if (point >= 0) digits.insert(static_cast<size_t>(point), 1, '.');
  s += digits;
  add_exponent(r, s, -345, 310);
  add_junk(r, s);
}

// Decimals of 25 significant digits, with and without an exponent.
void gen_twenty_five_digits(Rng& r, std::string& s) {
  add_sign(r, s);
  std::string digits;
  add_digits(r, digits, 25);
  digits.insert(static_cast<size_t>(between(r, 0, 25)), 1, '.');
  s += digits;
  if (chance(r, 60)) add_exponent(r, s, -330, 300);
  add_junk(r, s);
}

// Subnormal doubles and texts around the smallest ones: printed subnormals,
// random mantissas with exponents from -300 to -330, and values that round
// to zero or to the smallest subnormal.
void gen_subnormals(Rng& r, std::string& s) {
  switch (below(r, 3)) {
    case 0: {
      const double d = std::bit_cast<double>(below(r, uint64_t{1} << 52) + 1);
      s += printed_prec("%.*e", between(r, 0, 25), chance(r, 50) ? d : -d);
      break;
    }
    case 1:
      add_sign(r, s);
      add_digits(r, s, between(r, 1, 22));
      add_exponent(r, s, -330, -300);
      break;
    default: {  // 2.4703282292062327e-324 is half the smallest subnormal
      add_sign(r, s);
      s += chance(r, 50) ? "2.47032822920623272" : "4.9406564584124654";
      add_digits(r, s, between(r, 0, 30));
      s += "e-324";
      break;
    }
  }
  add_junk(r, s);
}

// Values at the top of the range: DBL_MAX and its neighbours, the halfway
// point to the next power of two (which overflows), and beyond.
void gen_overflow(Rng& r, std::string& s) {
  add_sign(r, s);
  switch (below(r, 3)) {
    case 0:
      s += printed_prec("%.*e", between(r, 0, 25),
                        chance(r, 50) ? DBL_MAX : std::nextafter(DBL_MAX, 0.0));
      break;
    case 1:  // 1.7976931348623158e308 rounds down, ...159e308 up to infinity
      s += chance(r, 50) ? "1.797693134862315708" : "1.797693134862315807";
      add_digits(r, s, between(r, 0, 30));
      s += "e308";
      break;
    default:
      add_digits(r, s, between(r, 1, 20));
      add_exponent(r, s, 290, 330);
      break;
  }
  add_junk(r, s);
}

// Leading white space, infinity and NaN spellings, hexadecimal floats.
void gen_special_forms(Rng& r, std::string& s) {
  if (chance(r, 30)) {
    const int n = between(r, 1, 4);
    for (int i = 0; i < n; ++i) s += pick(r, " \t\n\v\f\r");
  }
  const int k = static_cast<int>(below(r, 4));
  if (k == 0) {
    add_sign(r, s);
    static const char* words[] = {"inf",      "infinity",  "nan",   "infin",        "in",
                                  "na",       "nan(",      "nan()", "nan(abc_123)", "nan(0x7)",
                                  "nan(1 2)", "infinityx", "nanx"};
    std::string w = words[below(r, sizeof words / sizeof words[0])];
    for (char& c : w)
      if (chance(r, 40) && c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    s += w;
  } else if (k == 1) {
    add_sign(r, s);
    s += chance(r, 85) ? "0" : "00";
    s += pick(r, "xX");
    const int n = between(r, 0, 16);
    for (int i = 0; i < n; ++i) s += pick(r, "0123456789abcdefABCDEF");
    if (chance(r, 50)) {
      s += '.';
      const int f = between(r, 0, 14);
      for (int i = 0; i < f; ++i) s += pick(r, "0123456789abcdef");
    }
    if (chance(r, 60)) {
      s += pick(r, "pP");
      if (chance(r, 50)) s += pick(r, "+-");
      add_digits(r, s, between(r, 0, 5));
    }
  } else {
    std::string rest;
    if (k == 2)
      gen_six_places(r, rest);
    else
      gen_random_decimal(r, rest);
    s += rest;
  }
  add_junk(r, s);
}

// Short random texts, mostly of the bytes that numbers are made of.
void gen_random_ascii(Rng& r, std::string& s) {
  const int n = between(r, 0, 16);
  for (int i = 0; i < n; ++i) {
    const int k = static_cast<int>(below(r, 10));
    if (k < 6)
      s += pick(r, "0123456789.+-eE");
    else if (k < 9)
      s += pick(r, " \t\n\v\f\rxXpPiInNaAfFtTyY(),_0");
    else
      s += static_cast<char>(between(r, 1, 255));
  }
}

struct Family {
  const char* name;
  int weight;  // share of the total count, in percent
  void (*gen)(Rng&, std::string&);
  int min_converted_percent;  // what the family is built to produce
};

// Names the family in test listings instead of dumping its bytes.
void PrintTo(const Family& f, std::ostream* os) {
  *os << f.name;
}

const Family kFamilies[] = {
    {"SixPlaces", 20, gen_six_places, 100},
    {"RandomDecimals", 23, gen_random_decimal, 50},
    {"FastPathEdges", 15, gen_fast_path_edges, 95},
    {"DoubleBoundaries", 15, gen_double_boundaries, 95},
    {"HalfwayPoints", 3, gen_halfway, 100},
    {"LongMantissas", 4, gen_long_mantissa, 100},
    {"ExponentExtremes", 5, gen_exponent_extremes, 100},
    {"SpecialForms", 7, gen_special_forms, 50},
    {"RandomAscii", 8, gen_random_ascii, 10},
};

uint64_t base_seed() {
  return kolv_test::seed_from_env(0x6b6f6c76ULL);
}

uint64_t total_count() {
  return count_from_env("KOLV_DIFF_COUNT", 5000000);
}

// FNV-1a: each family draws from its own stream, the same on every run.
uint64_t name_hash(const char* name) {
  uint64_t h = 0xcbf29ce484222325ULL;
  for (; *name != 0; ++name) h = (h ^ static_cast<unsigned char>(*name)) * 0x100000001b3ULL;
  return h;
}

class NumparseDifferential : public ::testing::TestWithParam<Family> {};

// Runs count texts of the family through strtod and parse_double, failing on
// the first ten that differ in end or bits.
void expect_same_as_strtod(const Family& f, uint64_t count) {
  Rng rng(base_seed() ^ name_hash(f.name));
  PageEndBuffer buf;
  std::string text;
  std::vector<char> padded;
  uint64_t converted = 0, failures = 0;
  const auto t0 = std::chrono::steady_clock::now();
  for (uint64_t i = 0; i < count; ++i) {
    text.clear();
    f.gen(rng, text);
    ASSERT_LE(text.size(), buf.capacity());
    const char* p = buf.place(text);
    char* libc_end;
    const double libc = std::strtod(p, &libc_end);
    double ours = 0;
    const char* our_end = kolv::parse_double(p, &ours);
    if (libc_end != p) ++converted;
    if (std::bit_cast<uint64_t>(libc) != std::bit_cast<uint64_t>(ours) || libc_end != our_end) {
      if (++failures <= 10)
        ADD_FAILURE() << "text #" << i << " \"" << shown(text) << "\": strtod ends at "
                      << (libc_end - p) << " with " << std::hexfloat << libc << ", parse_double at "
                      << (our_end - p) << " with " << ours;
    }
    // The padded conversion of the read buffer, with padding after the zero
    // byte, must end and round the same.
    padded.assign(text.begin(), text.end());
    padded.resize(text.size() + 1 + 16, '\0');
    double padded_value = 0;
    const char* padded_end = kolv::parse_double_padded(padded.data(), &padded_value);
    if (std::bit_cast<uint64_t>(libc) != std::bit_cast<uint64_t>(padded_value) ||
        padded_end - padded.data() != libc_end - p) {
      if (++failures <= 10)
        ADD_FAILURE() << "text #" << i << " \"" << shown(text) << "\": strtod ends at "
                      << (libc_end - p) << " with " << std::hexfloat << libc
                      << ", parse_double_padded at " << (padded_end - padded.data()) << " with "
                      << padded_value;
    }
  }
  const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  std::printf("[ %-16s ] %llu texts, %llu converted, %llu mismatches, %.2f s\n", f.name,
              static_cast<unsigned long long>(count), static_cast<unsigned long long>(converted),
              static_cast<unsigned long long>(failures), secs);
  EXPECT_EQ(failures, 0u);
  // Guards the generator: a family that stops producing what it is built for
  // would pass while testing nothing.
  if (count >= 1000) {
    EXPECT_GE(converted * 100, count * static_cast<uint64_t>(f.min_converted_percent));
  }
}

TEST_P(NumparseDifferential, SameEndAndBitsAsStrtod) {
  const Family& f = GetParam();
  expect_same_as_strtod(f, total_count() * static_cast<uint64_t>(f.weight) / 100);
}

INSTANTIATE_TEST_SUITE_P(Families, NumparseDifferential, ::testing::ValuesIn(kFamilies),
                         [](const ::testing::TestParamInfo<Family>& param_info) {
                           return std::string(param_info.param.name);
                         });

// The long forms, with a count of their own: KOLV_DIFF_LONG_COUNT (default
// 10,000,000) shared among them by weight. These are the texts the product
// method converts, and its fallbacks.
const Family kLongFamilies[] = {
    {"SeventeenDigits", 25, gen_seventeen_digits, 100},
    {"NineteenTwentyDigits", 20, gen_nineteen_twenty, 100},
    {"TwentyFiveDigits", 15, gen_twenty_five_digits, 100},
    {"LongHalfwayPoints", 10, gen_halfway, 100},
    {"LongSubnormals", 10, gen_subnormals, 100},
    {"LongOverflow", 10, gen_overflow, 100},
    {"LongExponentExtremes", 10, gen_exponent_extremes, 100},
};

uint64_t long_count() {
  return count_from_env("KOLV_DIFF_LONG_COUNT", 10000000);
}

class NumparseLongForms : public ::testing::TestWithParam<Family> {};

TEST_P(NumparseLongForms, SameEndAndBitsAsStrtod) {
  const Family& f = GetParam();
  expect_same_as_strtod(f, long_count() * static_cast<uint64_t>(f.weight) / 100);
}

INSTANTIATE_TEST_SUITE_P(LongForms, NumparseLongForms, ::testing::ValuesIn(kLongFamilies),
                         [](const ::testing::TestParamInfo<Family>& param_info) {
                           return std::string(param_info.param.name);
                         });

// The edge texts of the unit tests, each with every tail byte after it: the
// end position must agree whatever follows the number.
TEST(NumparseDifferentialTails, EveryByteAfterEveryEdgeText) {
  static const char* heads[] = {"",
                                "1",
                                "1e",
                                "1e+",
                                "-",
                                "+",
                                ".",
                                "-.",
                                "0",
                                "0x",
                                "0x1",
                                "0x1p",
                                "1.",
                                ".5",
                                "9007199254740993",
                                "1e400",
                                "inf",
                                "nan",
                                "nan(",
                                "infinity",
                                "4.9e-324",
                                " ",
                                "12345678901234567890"};
  PageEndBuffer buf;
  uint64_t failures = 0;
  for (const char* head : heads) {
    for (int c = 1; c < 256; ++c) {
      for (int d = 0; d < 256; d += 51) {
        std::string text = head;
        text += static_cast<char>(c);
        if (d != 0) text += static_cast<char>(d);
        const char* p = buf.place(text);
        char* libc_end;
        const double libc = std::strtod(p, &libc_end);
        double ours = 0;
        const char* our_end = kolv::parse_double(p, &ours);
        if (std::bit_cast<uint64_t>(libc) != std::bit_cast<uint64_t>(ours) || libc_end != our_end)
          if (++failures <= 10)
            ADD_FAILURE() << "\"" << shown(text) << "\": strtod ends at " << (libc_end - p)
                          << ", parse_double at " << (our_end - p);
      }
    }
  }
  EXPECT_EQ(failures, 0u);
}

}  // namespace
