// parse_double: the number conversion of the numeric field scanners.
//
// It returns exactly what the C library's strtod returns for the same text in
// the "C" locale: the same value, bit for bit, and the same end position.
// Plain decimals of at most 19 significant digits whose value is an exact
// integer times an exact power of ten are converted here with one IEEE
// multiplication or division (Clinger's fast path); both operands are exact,
// so the one rounding of that operation is the correct rounding strtod gives.
// Every other decimal goes to std::from_chars (also correctly rounded), and
// whatever from_chars does not take the same way goes to strtod itself.
//
// The text must end with a zero byte; nothing beyond it is ever read.
#pragma once

#include <bit>
#include <cstdint>

namespace kolv {

namespace numparse_detail {

// Exact powers of ten: 10^22 is the largest that a double holds exactly.
inline constexpr double kPow10[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                      1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                      1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

inline bool isdig(char c) {
  return static_cast<unsigned char>(c - '0') < 10;
}

// A decimal of known extent [num, end) that the fast path cannot convert
// exactly: from_chars, or strtod from p when from_chars refuses it.
const char* parse_decimal_slow(const char* p, const char* num, const char* end, double* out);

// Anything that is not a plain decimal (white space, inf, nan, hexadecimal,
// no digits at all): strtod decides.
const char* parse_with_strtod(const char* p, double* out);

}  // namespace numparse_detail

inline const char* parse_double(const char* p, double* out) {
  using numparse_detail::isdig;
  const char* s = p;
  const bool neg = *s == '-';
  s += neg | (*s == '+');  // without a branch: signs come in random order
  // from_chars takes a '-' but not a '+': hand it the text after a '+'.
  const char* num = neg ? p : s;
  // strtod reads "0x" (only with a single leading zero) as a hexadecimal float.
  if (*s == '0' && (s[1] | 0x20) == 'x') return numparse_detail::parse_with_strtod(p, out);

  const char* digits = s;
  uint64_t mant = 0;  // wraps past 19 digits; then it is not used
  while (isdig(*s)) mant = 10 * mant + static_cast<unsigned>(*s++ - '0');
  int64_t ndigits = s - digits;
  int64_t exponent = 0;
  if (*s == '.') {
    const char* frac = ++s;
    while (isdig(*s)) mant = 10 * mant + static_cast<unsigned>(*s++ - '0');
    exponent = -(s - frac);
    ndigits += s - frac;
  }
  if (ndigits == 0) return numparse_detail::parse_with_strtod(p, out);

  // An exponent counts only with at least one digit: "1e" and "1e+" end before the 'e'.
  if ((*s | 0x20) == 'e') {
    const char* e = s + 1;
    const bool eneg = *e == '-';
    if (eneg || *e == '+') ++e;
    if (isdig(*e)) {
      int64_t x = 0;
      for (; isdig(*e); ++e)
        if (x < 100000000) x = 10 * x + (*e - '0');  // saturates far outside any double
      exponent += eneg ? -x : x;
      s = e;
    }
  }

  if (ndigits <= 19 && mant <= (uint64_t{1} << 53) && exponent >= -22 && exponent <= 22) {
    double v = static_cast<double>(mant);  // exact: at most 2^53
    v = exponent < 0 ? v / numparse_detail::kPow10[-exponent]
                     : v * numparse_detail::kPow10[exponent];
    // v is +0 or positive: setting the sign bit negates it, zero included.
    *out = std::bit_cast<double>(std::bit_cast<uint64_t>(v) | uint64_t{neg} << 63);
    return s;
  }
  return numparse_detail::parse_decimal_slow(p, num, s, out);
}

}  // namespace kolv
