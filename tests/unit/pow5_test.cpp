// The power-of-five table and the product method of parse_double, checked
// against exact big-integer arithmetic and the C library's strtod.
#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/numparse.hpp"
#include "base/pow5_table.hpp"

namespace {

// A small generator of 64-bit words (xorshift), so that every run draws the
// same numbers.
struct XorShift {
  uint64_t state;
  uint64_t operator()() {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
  }
};

using kolv::numparse_detail::kPow5;
using kolv::numparse_detail::kPow5ExactMax;
using kolv::numparse_detail::kPow5Max;
using kolv::numparse_detail::kPow5Min;
using kolv::numparse_detail::parse_exact_product;
using kolv::numparse_detail::parse_long_mantissa;
using kolv::numparse_detail::parse_significant;
using kolv::numparse_detail::read_digits_significant;
using kolv::numparse_detail::Significant;

// A non-negative big integer, 32-bit limbs, lowest first.
using Big = std::vector<uint32_t>;

void mul_small(Big& a, uint32_t m) {
  uint64_t carry = 0;
  for (uint32_t& limb : a) {
    const uint64_t v = uint64_t{limb} * m + carry;
    limb = static_cast<uint32_t>(v);
    carry = v >> 32;
  }
  if (carry != 0) a.push_back(static_cast<uint32_t>(carry));
}

Big pow5(int n) {
  Big a{1};
  for (int i = 0; i < n; ++i) mul_small(a, 5);
  return a;
}

Big mul(const Big& a, const Big& b) {
  Big r(a.size() + b.size(), 0);
  for (size_t i = 0; i < a.size(); ++i) {
    uint64_t carry = 0;
    for (size_t j = 0; j < b.size(); ++j) {
      const uint64_t v = uint64_t{a[i]} * b[j] + r[i + j] + carry;
      r[i + j] = static_cast<uint32_t>(v);
      carry = v >> 32;
    }
    for (size_t k = i + b.size(); carry != 0; ++k) {
      const uint64_t v = uint64_t{r[k]} + carry;
      r[k] = static_cast<uint32_t>(v);
      carry = v >> 32;
    }
  }
  while (r.size() > 1 && r.back() == 0) r.pop_back();
  return r;
}

Big power_of_two(int n) {
  Big a(static_cast<size_t>(n / 32) + 1, 0);
  a.back() = uint32_t{1} << (n % 32);
  return a;
}

int compare(Big a, Big b) {
  while (a.size() > 1 && a.back() == 0) a.pop_back();
  while (b.size() > 1 && b.back() == 0) b.pop_back();
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  for (size_t i = a.size(); i-- > 0;)
    if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
  return 0;
}

Big from128(uint64_t hi, uint64_t lo) {
  return {static_cast<uint32_t>(lo), static_cast<uint32_t>(lo >> 32), static_cast<uint32_t>(hi),
          static_cast<uint32_t>(hi >> 32)};
}

void add_one(Big& a) {
  for (uint32_t& limb : a)
    if (++limb != 0) return;
  a.push_back(1);
}

// Every entry: T in [2^127, 2^128), and 5^q * 2^-e in [T, T + 1): for q >= 0,
// T * 2^e <= 5^q < (T + 1) * 2^e (exactly equal while q <= kPow5ExactMax);
// for q < 0, T * 5^-q <= 2^-e < (T + 1) * 5^-q.
TEST(Pow5Table, EveryEntryIsTheRoundedDownPower) {
  ASSERT_EQ(kPow5Max - kPow5Min + 1, static_cast<int>(std::size(kPow5)));
  for (int q = kPow5Min; q <= kPow5Max; ++q) {
    const auto& t = kPow5[q - kPow5Min];
    ASSERT_TRUE(t.hi >> 63) << "5^" << q << " is not normalized";
    Big low = from128(t.hi, t.lo);
    Big high = low;
    add_one(high);
    if (q >= 0) {
      const Big p = pow5(q);
      if (t.e >= 0) {
        const Big scale = power_of_two(t.e);
        EXPECT_LE(compare(mul(low, scale), p), 0) << "5^" << q;
        EXPECT_LT(compare(p, mul(high, scale)), 0) << "5^" << q;
        if (q > kPow5ExactMax) {
          EXPECT_NE(compare(mul(low, scale), p), 0) << "5^" << q;
        }
      } else {
        const Big scale = power_of_two(-t.e);
        EXPECT_EQ(compare(low, mul(p, scale)), 0) << "5^" << q << " should be exact";
        EXPECT_LE(q, kPow5ExactMax);
      }
    } else {
      const Big d = pow5(-q);
      const Big two = power_of_two(-t.e);
      EXPECT_LE(compare(mul(low, d), two), 0) << "5^" << q;
      EXPECT_LT(compare(two, mul(high, d)), 0) << "5^" << q;
    }
  }
}

double with_strtod(uint64_t w, int q, bool neg) {
  char text[64];
  std::snprintf(text, sizeof text, "%s%llue%d", neg ? "-" : "", static_cast<unsigned long long>(w),
                q);
  return std::strtod(text, nullptr);
}

uint64_t bits(double d) {
  return std::bit_cast<uint64_t>(d);
}

TEST(ExactProduct, KnownValues) {
  double d = 0;
  ASSERT_TRUE(parse_exact_product(17976931348623157, 292, false, &d));
  EXPECT_EQ(d, DBL_MAX);
  ASSERT_TRUE(parse_exact_product(22250738585072014, -324, false, &d));
  EXPECT_EQ(d, DBL_MIN);
  ASSERT_TRUE(parse_exact_product(49406564584124654, -340, true, &d));
  EXPECT_EQ(bits(d), bits(-std::nextafter(0.0, 1.0)));   // the smallest subnormal
  ASSERT_TRUE(parse_exact_product(10, 308, false, &d));  // 1e309
  EXPECT_EQ(d, HUGE_VAL);
  ASSERT_TRUE(parse_exact_product(0, 400, true, &d));
  EXPECT_EQ(bits(d), bits(-0.0));
  ASSERT_TRUE(parse_exact_product(3, -1, false, &d));
  EXPECT_EQ(d, 0.3);
  // 2^53 + 1 lies halfway between 2^53 and 2^53 + 2: ties go to the even one.
  ASSERT_TRUE(parse_exact_product(9007199254740993, 0, false, &d));
  EXPECT_EQ(d, 9007199254740992.0);
  ASSERT_TRUE(parse_exact_product(9007199254740995, 0, false, &d));
  EXPECT_EQ(d, 9007199254740996.0);
  // Beyond the table: another method must decide.
  EXPECT_FALSE(parse_exact_product(1, kPow5Min - 1, false, &d));
  EXPECT_FALSE(parse_exact_product(1, kPow5Max + 1, false, &d));
}

// 17-digit mantissas over the whole exponent range: whenever the product
// decides, it agrees with strtod, and it decides nearly always (the method's
// point: the fallback is rare).
TEST(ExactProduct, AgreesWithStrtodAndDecidesNearlyAlways) {
  XorShift next{0x9E3779B97F4A7C15ULL};
  int decided = 0;
  const int count = 200000;
  for (int i = 0; i < count; ++i) {
    const uint64_t w = 10000000000000000ULL + next() % 90000000000000000ULL;
    const int q = -340 + static_cast<int>(next() % 632);
    const bool neg = (next() & 1) != 0;
    double d = 0;
    if (!parse_exact_product(w, q, neg, &d)) continue;
    ++decided;
    ASSERT_EQ(bits(d), bits(with_strtod(w, q, neg))) << w << "e" << q;
  }
  EXPECT_GE(decided, count * 999 / 1000);
}

TEST(LongMantissa, FirstNineteenDigitsDecide) {
  const std::string text = "1234567890123456789012345";  // 25 digits
  double d = 0;
  ASSERT_TRUE(parse_long_mantissa(text.data(), text.data() + text.size(), -10, false, &d));
  EXPECT_EQ(bits(d), bits(std::strtod("1234567890123456789012345e-10", nullptr)));
  const std::string pointed = "000.000123456789012345678901234";
  ASSERT_TRUE(parse_long_mantissa(pointed.data(), pointed.data() + pointed.size(), -27, true, &d));
  EXPECT_EQ(bits(d), bits(-std::strtod("0.000123456789012345678901234", nullptr)));
}

// 25-digit mantissas, most with a point among them, over the exponent
// range: the one product with its wider error bound decides nearly always,
// and always as strtod does.
TEST(LongMantissa, DecidesNearlyAlwaysAndAsStrtod) {
  XorShift next{0x2545F4914F6CDD1DULL};
  int decided = 0;
  const int count = 100000;
  for (int i = 0; i < count; ++i) {
    std::string digits(1, static_cast<char>('1' + next() % 9));
    for (int d = 0; d < 24; ++d) digits += static_cast<char>('0' + next() % 10);
    const size_t point = next() % 26;
    std::string text = digits;
    if (point < 25) text.insert(point, 1, '.');
    const int exponent = -320 + static_cast<int>(next() % 620);
    const int64_t scale = exponent - (point < 25 ? static_cast<int64_t>(25 - point) : 0);
    double d = 0;
    const bool done = parse_long_mantissa(text.data(), text.data() + text.size(), scale, false, &d);
    // The padded reading, which keeps the first 19 significant digits as it
    // reads eight digits at a time, decides the same way.
    std::vector<char> padded(text.begin(), text.end());
    padded.resize(text.size() + 16, 'x');
    Significant st;
    uint64_t mant = 0;
    const char* q = read_digits_significant(padded.data(), mant, st);
    if (*q == '.') q = read_digits_significant(q + 1, mant, st);
    ASSERT_EQ(q, padded.data() + text.size()) << text;
    double e = 0;
    ASSERT_EQ(parse_significant(st, scale, false, &e), done) << text;
    if (!done) continue;
    ASSERT_EQ(bits(e), bits(d)) << text;
    ++decided;
    const std::string full = text + "e" + std::to_string(exponent);
    ASSERT_EQ(bits(d), bits(std::strtod(full.c_str(), nullptr))) << full;
  }
  // The wider bound leaves a few in a thousand undecided (0.4 % here).
  EXPECT_GE(decided, count * 99 / 100);
}

// Leading zeros, before and after the point, are not significant: with up to
// 30 of them before 15 to 30 significant digits, and with zeros inside the
// digits, the padded conversion (which keeps the first 19 significant digits
// as it reads) gives strtod's double.
TEST(LongMantissa, LeadingZerosAreNotSignificant) {
  XorShift next{0xD1B54A32D192ED03ULL};
  for (int i = 0; i < 200000; ++i) {
    std::string text = next() % 2 ? "-" : "";
    const int zeros = static_cast<int>(next() % 31);
    const int digits = 15 + static_cast<int>(next() % 16);
    const bool point_in_zeros = next() % 2 != 0;
    std::string body(static_cast<size_t>(zeros), '0');
    body += static_cast<char>('1' + next() % 9);
    for (int d = 1; d < digits; ++d)
      body += static_cast<char>(next() % 4 == 0 ? '0' : '0' + next() % 10);
    const size_t point =
        point_in_zeros ? next() % (static_cast<size_t>(zeros) + 1) : next() % (body.size() + 1);
    if (point < body.size()) body.insert(point, 1, '.');
    text += body;
    if (next() % 2) {
      text += 'e';
      text += std::to_string(-340 + static_cast<int>(next() % 680));
    }
    text += ' ';
    std::vector<char> padded(text.begin(), text.end());
    padded.resize(text.size() + 16, '7');
    padded[text.size()] = '\0';
    char* end = nullptr;
    const double want = std::strtod(padded.data(), &end);
    double got = 0;
    const char* got_end = kolv::parse_double_padded(padded.data(), &got);
    ASSERT_EQ(got_end, end) << text;
    ASSERT_EQ(bits(got), bits(want)) << text;
  }
}

// A halfway point written with more than 19 digits: the first 19 digits and
// one more round differently, so the product cannot decide and says so.
TEST(LongMantissa, HalfwayPointIsLeftToTheExactMethod) {
  // 9007199254740993.0000001: just above 2^53 + 1, which rounds up to 2^53 + 2.
  const std::string text = "90071992547409930000001";
  double d = 0;
  EXPECT_FALSE(parse_long_mantissa(text.data(), text.data() + text.size(), -7, false, &d));
  EXPECT_EQ(bits(d), bits(0.0));  // untouched
  // The whole conversion still gives the right double, by its fallback.
  const std::string whole = "9007199254740993.0000001";
  EXPECT_EQ(kolv::parse_double(whole.c_str(), &d), whole.c_str() + whole.size());
  EXPECT_EQ(d, 9007199254740994.0);
}

}  // namespace
