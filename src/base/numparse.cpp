// The out-of-line parts of parse_double: from_chars for decimals the fast
// path cannot convert exactly, strtod for everything else, and the whole
// padded conversion behind parse_double_padded's straight line.
#include "base/numparse.hpp"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "base/pow5_table.hpp"

namespace kolv::numparse_detail {

namespace {

__extension__ typedef unsigned __int128 Uint128;

constexpr uint64_t kInfinityBits = 0x7FF0000000000000ULL;
constexpr uint64_t kFractionMask = (uint64_t{1} << 52) - 1;

}  // namespace

namespace {

// The double of mantissa m (at most 53 bits; 2^53 after a rounding carry)
// whose lowest bit weighs 2^lowest.
double encode(uint64_t m, int64_t lowest, uint64_t sign) {
  if (m >> 53) {  // rounding carried into a 54th bit
    m >>= 1;
    ++lowest;
  }
  uint64_t bits = m;  // a subnormal: lowest is -1074 and the exponent field 0
  if (m >> 52) {
    const int64_t field = lowest + 52 + 1023;
    bits = field >= 2047 ? kInfinityBits : static_cast<uint64_t>(field) << 52 | (m & kFractionMask);
  }
  return std::bit_cast<double>(bits | sign);
}

// With 5^q ~ T * 2^e (T of 128 bits, rounded down) and w shifted left until
// its top bit is set, X = w * T is a 192-bit number whose bit 0 weighs
// 2^(q + e - shift). The double keeps X's top 53 bits (fewer for a
// subnormal); the bits below them decide the rounding unless the true value
// may lie on the other side of a rounding boundary.
//
// Exact (the number is w * 10^q): both halves of T are multiplied, and the
// true value lies in [X, X + w): exactly X when T is exact (0 <= q <= 55),
// else strictly above X and below X + w < X + 2^64.
//
// Not exact (the number lies strictly between w * 10^q and (w + 1) * 10^q,
// w its first 19 significant digits): only T's high half is multiplied, and
// the true value lies strictly above X and below X + (2^shift + 2) * 2^128.
template <bool Exact>
bool product(uint64_t w, int64_t q, bool neg, double* out) {
  const uint64_t sign = uint64_t{neg} << 63;
  if (w == 0) {
    *out = std::bit_cast<double>(sign);
    return true;
  }
  if (q < kPow5Min || q > kPow5Max) return false;
  const Pow5& t = kPow5[q - kPow5Min];
  const int shift = std::countl_zero(w);
  w <<= shift;
  const Uint128 high = static_cast<Uint128>(w) * t.hi;
  uint64_t x0 = 0;
  uint64_t x1 = static_cast<uint64_t>(high);
  uint64_t x2 = static_cast<uint64_t>(high >> 64);
  if constexpr (Exact) {
    const Uint128 low = static_cast<Uint128>(w) * t.lo;
    x0 = static_cast<uint64_t>(low);
    x1 += static_cast<uint64_t>(low >> 64);
    x2 += x1 < static_cast<uint64_t>(high);
  }

  const int top = 190 + static_cast<int>(x2 >> 63);  // X's highest set bit
  const int64_t base = q + t.e - shift;              // bit 0 of X weighs 2^base
  if (top + base > 1023) {                           // at least 2^1024
    *out = std::bit_cast<double>(kInfinityBits | sign);
    return true;
  }
  // The lowest bit the double keeps: 52 below the top, or 2^-1074.
  const int64_t kept = std::max<int64_t>(top - 52, -1074 - base);
  if (kept > 191) return false;                // all of X lies below the smallest subnormal
  const int k = static_cast<int>(kept - 128);  // 10 to 63: the kept bits are all in x2
  const uint64_t m = x2 >> k;
  const uint64_t rest = x2 & ((uint64_t{1} << k) - 1);
  const uint64_t half = uint64_t{1} << (k - 1);
  bool up;
  if constexpr (Exact) {
    if (q >= 0 && q <= kPow5ExactMax) {
      up = rest > half || (rest == half && ((x1 | x0) != 0 || (m & 1) != 0));
    } else {
      // At or above the halfway point when X is; below it when X + w stays
      // below, which can fail only when rest is one short of half and x1 is
      // all ones.
      if (rest + 1 == half && x1 == ~uint64_t{0}) return false;
      up = rest >= half;
    }
  } else {
    // Above the halfway point when X is at or above it; below it when the
    // top of the interval, under (rest + 1 + 2^shift + 2) units, stays at or
    // below it. A carry out of the kept bits (the value at or above the next
    // mantissa) lands, less than 2^shift + 2 units on, far below its halfway
    // point, so rounding up from X is right there too.
    const uint64_t reach = rest + (uint64_t{1} << shift) + 3;
    if (rest < half && reach > half) return false;
    up = rest >= half;
  }
  *out = encode(m + up, kept + base, sign);
  return true;
}

}  // namespace

bool parse_exact_product(uint64_t w, int64_t q, bool neg, double* out) {
  return product<true>(w, q, neg, out);
}

bool parse_long_mantissa(const char* digits, const char* mant_end, int64_t exponent, bool neg,
                         double* out) {
  const char* s = digits;
  while (s < mant_end && (*s == '0' || *s == '.')) ++s;  // leading zeros carry no digit
  uint64_t w = 0;
  int taken = 0;
  for (; s < mant_end && taken < 19; ++s) {
    if (*s == '.') continue;
    w = 10 * w + static_cast<uint64_t>(*s - '0');
    ++taken;
  }
  // The digits after the first 19: how many (they scale w) and whether any is
  // not a zero (then the number lies strictly between w and w + 1 units).
  int64_t dropped = 0;
  bool sticky = false;
  for (; s < mant_end; ++s) {
    if (*s == '.') continue;
    ++dropped;
    sticky |= *s != '0';
  }
  return sticky ? product<false>(w, exponent + dropped, neg, out)
                : product<true>(w, exponent + dropped, neg, out);
}

bool parse_significant(const Significant& st, int64_t exponent, bool neg, double* out) {
  return st.sticky ? product<false>(st.w, exponent + st.dropped, neg, out)
                   : product<true>(st.w, exponent + st.dropped, neg, out);
}

const char* parse_decimal_slow(const char* p, const char* num, const char* end, double* out) {
  double v;
  const auto r = std::from_chars(num, end, v);
  // Out-of-range results (overflow, or a nonzero value that rounds to zero)
  // leave v unset; strtod gives them as +-HUGE_VAL or a signed zero.
  if (r.ec == std::errc() && r.ptr == end) {
    *out = v;
    return end;
  }
  return parse_with_strtod(p, out);
}

const char* parse_padded_whole(const char* p, double* out) {
  return parse_double_as<true>(p, out);
}

const char* parse_with_strtod(const char* p, double* out) {
  char* end;
  *out = std::strtod(p, &end);
  return end;
}

}  // namespace kolv::numparse_detail
