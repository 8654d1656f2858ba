// The common field's number read sixteen bytes at a time.
//
// parse_window16 takes the shape of nearly every exported number, an
// optional sign, digits, optionally a point and more digits, at least one
// digit in all, ending before the sixteenth byte: "-12345.678901", "0.5",
// "17". One 16-byte load classifies every byte (digit, point, other), the
// digit values are gathered into one integer by a ladder of multiply-adds,
// and one IEEE division by an exact power of ten gives the value. It returns
// exactly strtod's value and end for such text, and nullptr for any other
// text (more digits, an exponent, a hexadecimal "0x", no digits), which the
// caller converts by parse_double_padded.
//
// The 16 bytes from p must be readable (the read buffer keeps kReadSlack
// bytes after its text). Bytes after the number's end are loaded but never decide
// anything: the end is the first byte that is neither a digit nor the first
// point, and a zero byte is neither.
//
// Built with SSE2, which every x86-64 processor has; elsewhere parse_field
// is parse_double_padded alone. Both paths are tested on every build that
// has both.
#pragma once

#include <bit>
#include <cstdint>

#include "base/limits.hpp"
#include "base/numparse.hpp"

#if defined(__SSE2__)
#include <emmintrin.h>
#define KOLV_WIDE_NUMBERS 1
static_assert(sizeof(__m128i) <= kolv::kWidestLoad,
              "the window is a load the buffer's slack allows");
#else
#define KOLV_WIDE_NUMBERS 0
#endif

namespace kolv {

inline constexpr bool kWideNumbers = KOLV_WIDE_NUMBERS != 0;

#if KOLV_WIDE_NUMBERS

namespace numwide_detail {

// kBefore[n]: 0xFF in the bytes before byte n of a 16-byte window, 0 after.
struct alignas(16) ByteMask {
  uint8_t b[16];
};
inline constexpr auto kBefore = [] {
  struct Table {
    ByteMask m[17];
  } t{};
  for (int n = 0; n <= 16; ++n)
    for (int i = 0; i < 16; ++i) t.m[n].b[i] = i < n ? 0xFF : 0;
  return t;
}();

inline __m128i before(int n) {
  return _mm_load_si128(reinterpret_cast<const __m128i*>(kBefore.m[n].b));
}

// The value of 16 digit values 0-9 (a byte each, the first the most
// significant) as one integer: pairs, fours, eights, then the two eights.
inline uint64_t sixteen_digits(__m128i d) {
  // Pairs in each 16-bit lane: ten times the first byte plus the second.
  const __m128i pairs =
      _mm_add_epi16(_mm_mullo_epi16(_mm_and_si128(d, _mm_set1_epi16(0x00FF)), _mm_set1_epi16(10)),
                    _mm_srli_epi16(d, 8));
  // Fours in each 32-bit lane: a hundred times the first pair plus the second.
  const __m128i fours = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00010064));
  // Eights: the fours (below 10000) packed into 16-bit lanes, then again.
  const __m128i eights = _mm_madd_epi16(_mm_packs_epi32(fours, fours), _mm_set1_epi32(0x00012710));
  const auto both = static_cast<uint64_t>(_mm_cvtsi128_si64(eights));
  return (both & 0xFFFFFFFF) * 100000000 + (both >> 32);
}

}  // namespace numwide_detail

inline const char* parse_window16(const char* p, double* out) {
  using namespace numwide_detail;
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i values = _mm_sub_epi8(v, _mm_set1_epi8('0'));
  // A digit's value is at most 9 as an unsigned byte; every other byte's is more.
  const __m128i is_digit = _mm_cmpeq_epi8(_mm_min_epu8(values, _mm_set1_epi8(9)), values);
  const auto digits = static_cast<uint32_t>(_mm_movemask_epi8(is_digit));
  const auto points =
      static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8('.'))));

  const bool neg = *p == '-';
  const int s = neg | (*p == '+');
  // Bit 16 stands for whatever follows the window: it ends every run.
  const uint32_t stops = ~digits | 0x10000;
  const int whole_end = std::countr_zero(stops >> s << s);
  int point = whole_end, end = whole_end;
  if ((points >> whole_end) & 1) {
    end = std::countr_zero(stops >> (whole_end + 1) << (whole_end + 1));
  }
  // At least one digit, the end inside the window, and nothing after it that
  // strtod would read on: an exponent, or the "x" of a hexadecimal number.
  const int ndigits = end - s - (end != point);
  const char stop = static_cast<char>(p[end & 15] | 0x20);
  if (end > 15 || ndigits == 0 || stop == 'e' || stop == 'x') return nullptr;

  // The digits' values with the point closed up: the whole digits move one
  // byte on, over the point, so that all digits make one run ending at end - 1
  // (at end when there is no point) and that run is the decimal's mantissa.
  const __m128i d = _mm_and_si128(values, is_digit);
  const __m128i run =
      _mm_or_si128(_mm_andnot_si128(before(point + 1), _mm_and_si128(d, before(end))),
                   _mm_slli_si128(_mm_and_si128(d, before(point)), 1));
  // Byte i weighs 10^(15 - i): the mantissa times 10^(15 - point) over
  // 10^(15 - point) is the value. Both are exact doubles (at most 15 digits:
  // byte 0 is never in the run), so the one rounding of the division is
  // strtod's correct rounding.
  const double x = static_cast<double>(sixteen_digits(run)) / numparse_detail::kPow10[15 - point];
  *out = std::bit_cast<double>(std::bit_cast<uint64_t>(x) | uint64_t{neg} << 63);
  return p + end;
}

#endif

// The number of a delimited field, in the read buffer: the 16-byte window
// where it takes the text, else the padded conversion.
inline const char* parse_field(const char* p, double* out) {
#if KOLV_WIDE_NUMBERS
  if (const char* end = parse_window16(p, out)) return end;
#endif
  return parse_double_padded(p, out);
}

}  // namespace kolv
