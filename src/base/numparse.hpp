// parse_double: the number conversion of the numeric field scanners.
//
// It returns exactly what the C library's strtod returns for the same text in
// the "C" locale: the same value, bit for bit, and the same end position.
// Plain decimals of at most 19 significant digits whose value is an exact
// integer times an exact power of ten are converted here with one IEEE
// multiplication or division (Clinger's fast path); both operands are exact,
// so the one rounding of that operation is the correct rounding strtod gives.
// Every other decimal is converted by one product of its digits with a
// 128-bit power of five (the Eisel-Lemire method), which decides the correct
// rounding nearly always; the rare product that cannot decide goes to
// std::from_chars (also correctly rounded), and whatever from_chars does not
// take the same way goes to strtod itself.
//
// The text must end with a zero byte; nothing beyond it is ever read.
//
// parse_double_padded is the same conversion, with the same result and end,
// for text that is followed by padding: at least 8 readable bytes after its
// zero byte, as in the read buffer. It reads digits eight bytes at a time,
// so it may look at (and ignore) bytes after the number and after the zero
// byte.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace kolv {

namespace numparse_detail {

// Exact powers of ten: 10^22 is the largest that a double holds exactly.
inline constexpr double kPow10[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                      1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                      1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

inline bool isdig(char c) {
  return static_cast<unsigned char>(c - '0') < 10;
}

inline constexpr uint64_t kPow10Int[9] = {1,      10,      100,      1000,     10000,
                                          100000, 1000000, 10000000, 100000000};

// Eight bytes as one little-endian word: the first byte is the lowest.
inline uint64_t load8(const char* p) {
  uint64_t w;
  std::memcpy(&w, p, 8);
  return w;
}

// For the word x = bytes ^ '0' in every byte (so a digit byte holds 0 to 9):
// the top bit of every byte that was not a decimal digit. Adding 0x76 to the
// low seven bits sets the top bit for 10 and above without a carry into the
// next byte; a byte whose top bit is already set is not a digit either.
inline uint64_t nondigit_bytes(uint64_t x) {
  return (((x & 0x7F7F7F7F7F7F7F7FULL) + 0x7676767676767676ULL) | x) & 0x8080808080808080ULL;
}

// The value of eight digit bytes 0-9, the first byte the most significant:
// pairs, then fours, then the eight, with three multiplications.
inline uint64_t eight_digits(uint64_t x) {
  x = x * 10 + (x >> 8);
  x = ((x & 0x000000FF000000FFULL) * (100 + (1000000ULL << 32)) +
       ((x >> 16) & 0x000000FF000000FFULL) * (1 + (10000ULL << 32))) >>
      32;
  return x;
}

// Reads the run of decimal digits at s into mant (mant becomes mant times ten
// to the number of digits plus their value, wrapping past 19 digits) and
// returns its end. Padded: eight bytes at a time; the first n digits of a word
// are moved to its top, where the bytes before them read as leading zeros.
template <bool Padded>
inline const char* read_digits(const char* s, uint64_t& mant) {
  if constexpr (Padded) {
    for (;;) {
      const uint64_t x = load8(s) ^ 0x3030303030303030ULL;
      const uint64_t stops = nondigit_bytes(x);
      if (stops == 0) {
        mant = mant * kPow10Int[8] + eight_digits(x);
        s += 8;
        continue;
      }
      const int n = std::countr_zero(stops) >> 3;
      if (n != 0) mant = mant * kPow10Int[n] + eight_digits(x << (64 - 8 * n));
      return s + n;
    }
  } else {
    while (isdig(*s)) mant = 10 * mant + static_cast<unsigned>(*s++ - '0');
    return s;
  }
}

// The first 19 significant digits of a digit string as it is read eight
// bytes at a time, and what follows them: how many digits (they scale w)
// and whether any of them is not a zero. Leading zeros are not significant.
struct Significant {
  uint64_t w = 0;
  int taken = 0;
  int64_t dropped = 0;
  bool sticky = false;
};

// Adds a chunk of n digits (1 to 8) whose value is v; aligned holds them in
// its top n bytes (digit values, the first the lowest of them).
inline void add_chunk(Significant& st, uint64_t v, int n, uint64_t aligned) {
  int sig = n;
  if (st.w == 0) {
    // Before the first significant digit: the chunk's leading zeros do not count.
    if (v == 0) return;
    sig = n - ((std::countr_zero(aligned) >> 3) - (8 - n));
  }
  if (st.taken + sig <= 19) {
    st.w = st.w * kPow10Int[sig] + v;
    st.taken += sig;
    return;
  }
  const int keep = 19 - st.taken;  // 0 to 7
  const int drop = sig - keep;     // 1 to 8
  const uint64_t top = v / kPow10Int[drop];
  st.w = st.w * kPow10Int[keep] + top;
  st.taken = 19;
  st.dropped += drop;
  st.sticky |= v != top * kPow10Int[drop];
}

// read_digits<true> that also keeps the significant digits.
inline const char* read_digits_significant(const char* s, uint64_t& mant, Significant& st) {
  for (;;) {
    const uint64_t x = load8(s) ^ 0x3030303030303030ULL;
    const uint64_t stops = nondigit_bytes(x);
    const int n = stops == 0 ? 8 : std::countr_zero(stops) >> 3;
    if (n != 0) {
      const uint64_t aligned = n == 8 ? x : x << (64 - 8 * n);
      const uint64_t v = eight_digits(aligned);
      mant = mant * kPow10Int[n] + v;
      add_chunk(st, v, n, aligned);
    }
    s += n;
    if (n < 8) return s;
  }
}

// The correctly rounded double nearest the number whose first 19
// significant digits are st.w, followed by st.dropped more (not all zeros
// when st.sticky), times 10^exponent; false when the product cannot decide.
bool parse_significant(const Significant& st, int64_t exponent, bool neg, double* out);

// A decimal of known extent [num, end) that the fast path cannot convert
// exactly: from_chars, or strtod from p when from_chars refuses it.
const char* parse_decimal_slow(const char* p, const char* num, const char* end, double* out);

// The correctly rounded double nearest w * 10^q (negated when neg), by one
// 64 x 128-bit product with a power of five. False, with out untouched, in
// the rare cases the product cannot decide (the value lies too near a
// rounding boundary, or far below the smallest subnormal); then another
// method must.
bool parse_exact_product(uint64_t w, int64_t q, bool neg, double* out);

// The same for a digit string of more than 19 digits, from digits to
// mant_end (a point may stand among them), whose value times 10^exponent is
// the number: its first 19 significant digits w give the answer when w and
// w + 1 round to the same double.
bool parse_long_mantissa(const char* digits, const char* mant_end, int64_t exponent, bool neg,
                         double* out);

// Anything that is not a plain decimal (white space, inf, nan, hexadecimal,
// no digits at all): strtod decides.
const char* parse_with_strtod(const char* p, double* out);

// The whole padded conversion, out of line: what parse_double_padded's
// straight line does not take.
const char* parse_padded_whole(const char* p, double* out);

// The conversion, with the digit reader of either kind.
template <bool Padded>
inline const char* parse_double_as(const char* p, double* out) {
  const char* s = p;
  const bool neg = *s == '-';
  s += neg | (*s == '+');  // without a branch: signs come in random order
  // from_chars takes a '-' but not a '+': hand it the text after a '+'.
  const char* num = neg ? p : s;
  // strtod reads "0x" (only with a single leading zero) as a hexadecimal float.
  if (*s == '0' && (s[1] | 0x20) == 'x') return parse_with_strtod(p, out);

  const char* digits = s;
  uint64_t mant = 0;  // wraps past 19 digits; then it is not used
  Significant st;     // padded: the first 19 significant digits, kept as they are read
  if constexpr (Padded) {
    s = read_digits_significant(s, mant, st);
  } else {
    s = read_digits<Padded>(s, mant);
  }
  int64_t ndigits = s - digits;
  int64_t exponent = 0;
  if (*s == '.') {
    const char* frac = ++s;
    if constexpr (Padded) {
      s = read_digits_significant(s, mant, st);
    } else {
      s = read_digits<Padded>(s, mant);
    }
    exponent = -(s - frac);
    ndigits += s - frac;
  }
  if (ndigits == 0) return parse_with_strtod(p, out);
  const char* mant_end = s;

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
    v = exponent < 0 ? v / kPow10[-exponent] : v * kPow10[exponent];
    // v is +0 or positive: setting the sign bit negates it, zero included.
    *out = std::bit_cast<double>(std::bit_cast<uint64_t>(v) | uint64_t{neg} << 63);
    return s;
  }
  if (ndigits <= 19 ? parse_exact_product(mant, exponent, neg, out)
      : Padded      ? parse_significant(st, exponent, neg, out)
                    : parse_long_mantissa(digits, mant_end, exponent, neg, out))
    return s;
  return parse_decimal_slow(p, num, s, out);
}

}  // namespace numparse_detail

inline const char* parse_double(const char* p, double* out) {
  return numparse_detail::parse_double_as<false>(p, out);
}

// The shape of nearly every exported number, an optional sign, at most seven
// digits, and optionally a point and at most seven digits, is taken in one
// straight line: its mantissa is below 10^14 and its exponent between -7 and
// 0, so the conversion is always the exact one. Everything else (eight or more
// digits in a row, an exponent, a hexadecimal "0x", no digits at all) takes
// the whole conversion from the start.
inline const char* parse_double_padded(const char* p, double* out) {
  using namespace numparse_detail;
  constexpr uint64_t kZeros = 0x3030303030303030ULL;
  const char* s = p;
  const bool neg = *s == '-';
  s += neg | (*s == '+');
  const uint64_t x = load8(s) ^ kZeros;
  const uint64_t stops = nondigit_bytes(x);
  if (stops != 0) {
    const int n = std::countr_zero(stops) >> 3;
    uint64_t mant = n != 0 ? eight_digits(x << (64 - 8 * n)) : 0;
    const char* q = s + n;
    int f = 0;
    uint64_t fstops = 1;
    if (*q == '.') {
      const uint64_t y = load8(q + 1) ^ kZeros;
      fstops = nondigit_bytes(y);
      f = std::countr_zero(fstops | (uint64_t{1} << 63)) >> 3;
      if (f != 0) mant = mant * kPow10Int[f] + eight_digits(y << (64 - 8 * f));
      q += 1 + f;
    }
    const char stop = static_cast<char>(*q | 0x20);
    if (fstops != 0 && n + f != 0 && stop != 'e' && stop != 'x') {
      const double v = static_cast<double>(mant) / kPow10[f];  // exact operands
      *out = std::bit_cast<double>(std::bit_cast<uint64_t>(v) | uint64_t{neg} << 63);
      return q;
    }
  }
  return parse_padded_whole(p, out);
}

}  // namespace kolv
