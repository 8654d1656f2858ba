#include "values.hpp"

#include <bit>
#include <charconv>
#include <cstring>

#include "format/dataset.hpp"

namespace kolvdump {

namespace {

bool is_text_byte(uint8_t b) {
  return (b >= 0x20 && b < 0x7F) || b >= 0x80;
}

// Significant digits of a number as std::to_chars wrote it ("1.2345e+10",
// "0.001", "-12.5"): the digits of the mantissa without leading zeros.
size_t significant_digits(const char* first, const char* last) {
  size_t digits = 0;
  bool leading = true;
  for (const char* p = first; p != last && *p != 'e'; ++p) {
    if (*p < '0' || *p > '9') continue;
    if (leading && *p == '0') continue;
    leading = false;
    ++digits;
  }
  return digits;
}

// Length of the well-formed UTF-8 sequence of two to four bytes at `p`
// (`left` bytes available), or 0.
size_t utf8_sequence(const uint8_t* p, size_t left) {
  uint8_t b = p[0];
  size_t n = b >= 0xC2 && b <= 0xDF   ? 2
             : b >= 0xE0 && b <= 0xEF ? 3
             : b >= 0xF0 && b <= 0xF4 ? 4
                                      : 0;
  if (n == 0 || n > left) return 0;
  for (size_t i = 1; i < n; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
  }
  // Overlong forms, surrogates and code points past U+10FFFF.
  if (b == 0xE0 && p[1] < 0xA0) return 0;
  if (b == 0xED && p[1] > 0x9F) return 0;
  if (b == 0xF0 && p[1] < 0x90) return 0;
  if (b == 0xF4 && p[1] > 0x8F) return 0;
  return n;
}

}  // namespace

uint16_t load16(const uint8_t* at) {
  return static_cast<uint16_t>(at[0] | at[1] << 8);
}

uint32_t load32(const uint8_t* at) {
  return kolv::load_le32(at);
}

uint64_t load64(const uint8_t* at) {
  return static_cast<uint64_t>(kolv::load_le32(at)) | static_cast<uint64_t>(kolv::load_le32(at + 4))
                                                          << 32;
}

size_t text_length(const uint8_t* element) {
  size_t n = 0;
  while (n < 8 && element[n] != 0) ++n;
  return n;
}

bool numeric_holds_text(const uint8_t* element) {
  // Most numbers fail at the first test: the top byte of a negative double
  // is not printable ASCII, nor is that of most magnitudes.
  const uint8_t top = element[7];
  if (top != 0) {
    // All eight bytes in 0x20-0x7E, tested together: no byte below 0x20 and
    // none above 0x7E.
    uint64_t x;
    std::memcpy(&x, element, sizeof x);
    constexpr uint64_t kOnes = 0x0101010101010101ULL, kHigh = 0x8080808080808080ULL;
    bool below = ((x - kOnes * 0x20) & ~x & kHigh) != 0;
    bool above = (((x + kOnes * (0x7F - 0x7E)) | x) & kHigh) != 0;
    if (below || above) return false;
    double value;
    std::memcpy(&value, element, sizeof value);
    if (!(value - value == 0)) return false;  // an infinity or a NaN
    char text[kCellRoom];
    char* end = std::to_chars(text, text + sizeof text, value, std::chars_format::scientific).ptr;
    return significant_digits(text, end) >= 16;
  }
  size_t n = text_length(element);
  if (n == 0) return false;
  for (size_t i = 0; i < n; ++i) {
    if (!is_text_byte(element[i])) return false;
  }
  for (size_t i = n; i < 8; ++i) {
    if (element[i] != 0) return false;
  }
  return true;
}

CellKind classify(const uint8_t* element, uint32_t width, bool character) {
  switch (width) {
    case 2:
      return load16(element) == kolv::kMissing16 ? CellKind::kMissing : CellKind::kNumber;
    case 4:
      return load32(element) == kolv::kMissing32 ? CellKind::kMissing : CellKind::kNumber;
    default:
      if (kolv::slot_is_missing(load64(element))) return CellKind::kMissing;
      if (character || numeric_holds_text(element)) return CellKind::kText;
      return CellKind::kNumber;
  }
}

namespace {

// The shortest digits that read back to `value`, written plainly for
// magnitudes from 0.00001 up to below 1e16 (300000, 0.000015) and with an
// exponent outside that range (1e+300, 1.5e-06), where plain digits would
// run long.
template <typename T>
char* shortest(T value, char* to, char* last) {
  T magnitude = value < 0 ? -value : value;
  if (magnitude == 0 || (magnitude >= T(1e-5) && magnitude < T(1e16))) {
    return std::to_chars(to, last, value, std::chars_format::fixed).ptr;
  }
  return std::to_chars(to, last, value, std::chars_format::scientific).ptr;
}

// Powers of ten: 1e0 to 1e22 are exact doubles.
constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
// 10^e for e = -5 to 15, as bounds for the decimal exponent.
constexpr double kExponentBound[] = {1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1e0,  1e1,  1e2,  1e3,  1e4, 1e5,
                                     1e6,  1e7,  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Writes `n` (below 10000) as exactly 4 digits.
void put4(uint64_t n, char* to) {
  std::memcpy(to, kDigitPairs + 2 * (n / 100), 2);
  std::memcpy(to + 2, kDigitPairs + 2 * (n % 100), 2);
}

// Writes `n` (10^14 <= n < 10^15) as its 15 digits, in short independent
// steps rather than one long chain of divisions.
void put15(uint64_t n, char* to) {
  uint64_t high = n / 100000000;  // 7 digits
  uint64_t low = n % 100000000;   // 8 digits
  uint64_t high3 = high / 10000;
  to[0] = static_cast<char>('0' + high3 / 100);
  std::memcpy(to + 1, kDigitPairs + 2 * (high3 % 100), 2);
  put4(high % 10000, to + 3);
  put4(low / 10000, to + 7);
  put4(low % 10000, to + 11);
}

// The quick way for the doubles of ordinary data, which were read from
// decimals of at most 15 significant digits. If the shortest text of
// `value` has at most 15 digits, rounding the value to 15 digits gives those
// digits followed by zeros (two such decimals cannot read back to the same
// double), so they are found by one multiplication; the division back must
// give the value exactly, as it is rounded the way reading the text is.
// Returns null, leaving the work to std::to_chars, for a value that needs
// 16 or 17 digits and for magnitudes outside 0.00001 to 1e15.
char* shortest_double(double value, char* to) {
  double magnitude = value < 0 ? -value : value;
  if (!(magnitude >= 1e-5 && magnitude < 1e15)) return nullptr;
  uint64_t bits;
  std::memcpy(&bits, &magnitude, sizeof bits);
  // floor(log10(2) * binary exponent), then one step up where needed.
  int binary = static_cast<int>(bits >> 52) - 1023;
  int exponent = (binary * 78913) >> 18;  // -6 to 14 here
  exponent += magnitude >= kExponentBound[exponent + 6] ? 1 : 0;
  if (exponent < -5 || exponent > 14) return nullptr;
  const int places = 14 - exponent;  // 15 significant digits
  // Round to an integer: below 2^52, adding and taking away 2^52 does it.
  constexpr double kTwo52 = 4503599627370496.0;
  double digits = (magnitude * kPow10[places] + kTwo52) - kTwo52;
  if (!(digits >= 1e14 && digits < 1e15) || digits / kPow10[places] != magnitude) return nullptr;
  auto n = static_cast<uint64_t>(digits);
  // The 15 digits, then room for the fixed 16-byte copies below.
  char text[32] = {};
  put15(n, text);
  // Trailing zeros, eight digits at a time: the last digit is the highest
  // byte of a little-endian load. Counted without a branch (how many digits
  // a value has varies from value to value): 8 when the last eight are
  // zeros, then the zeros among digits 0-6.
  uint64_t tail;
  std::memcpy(&tail, text + 7, sizeof tail);
  tail ^= 0x3030303030303030ULL;
  // (x | 1 is never zero, so its count needs no test; a zero x adds one.)
  const int tail_zeros = (std::countl_zero(tail | 1) + (tail == 0)) / 8;
  uint64_t head;
  std::memcpy(&head, text, sizeof head);  // digits 0-7; digit 7 counted already
  head = (head ^ 0x3030303030303030ULL) & 0x00FFFFFFFFFFFFFFULL;
  const int head_zeros = (std::countl_zero(head | 1) + (head == 0)) / 8 - 1;
  const int zeros = tail_zeros + (tail_zeros >> 3) * head_zeros;  // (tail_zeros >> 3: 1 for 8)
  const int fraction = places < zeros ? 0 : places - zeros;       // digits after the point
  const int count = 15 - (places - fraction);
  // The sign, the digits and the point by copies of a fixed size (the cell
  // has room for them) and moves of the end: no branch on the sign or on
  // the lengths.
  *to = '-';
  to += value < 0;
  if (fraction == 0) {
    std::memcpy(to, text, 16);
    return to + count;
  }
  if (fraction >= count) {  // 0.000ddd
    *to++ = '0';
    *to++ = '.';
    std::memset(to, '0', static_cast<size_t>(fraction - count));
    to += fraction - count;
    std::memcpy(to, text, static_cast<size_t>(count));
    return to + count;
  }
  std::memcpy(to, text, 16);
  to += count - fraction;
  *to++ = '.';
  std::memcpy(to, text + count - fraction, 16);
  return to + fraction;
}

}  // namespace

double number_value(const uint8_t* element, uint32_t width) {
  switch (width) {
    case 2:
      return static_cast<int16_t>(load16(element));
    case 4: {
      float value;
      uint32_t bits = load32(element);
      std::memcpy(&value, &bits, sizeof value);
      return value;
    }
    default: {
      double value;
      uint64_t bits = load64(element);
      std::memcpy(&value, &bits, sizeof value);
      return value;
    }
  }
}

char* format_number(const uint8_t* element, uint32_t width, char* to) {
  char* const last = to + kCellRoom;
  switch (width) {
    case 2:
      return std::to_chars(to, last, static_cast<int16_t>(load16(element))).ptr;
    case 4: {
      float value;
      uint32_t bits = load32(element);
      std::memcpy(&value, &bits, sizeof value);
      return shortest(value, to, last);
    }
    default: {
      double value;
      uint64_t bits = load64(element);
      std::memcpy(&value, &bits, sizeof value);
      if (char* end = shortest_double(value, to)) return end;
      return shortest(value, to, last);
    }
  }
}

char* escape_text(std::string_view bytes, char* to, size_t& shown) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
  size_t size = bytes.size();
  for (size_t i = 0; i < size;) {
    uint8_t b = p[i];
    if (b >= 0x20 && b < 0x7F && b != '\\') {
      *to++ = static_cast<char>(b);
      ++shown;
      ++i;
      continue;
    }
    if (size_t n = b >= 0x80 ? utf8_sequence(p + i, size - i) : 0; n > 0) {
      std::memcpy(to, p + i, n);
      to += n;
      ++shown;
      i += n;
      continue;
    }
    *to++ = '\\';
    *to++ = 'x';
    *to++ = kHex[b >> 4];
    *to++ = kHex[b & 0xF];
    shown += 4;
    ++i;
  }
  return to;
}

std::string escape_text(std::string_view bytes) {
  std::string text(bytes.size() * 4, '\0');
  size_t shown = 0;
  char* end = escape_text(bytes, text.data(), shown);
  text.resize(static_cast<size_t>(end - text.data()));
  return text;
}

size_t shown_width(std::string_view bytes) {
  size_t n = 0;
  for (char c : bytes) {
    if ((static_cast<uint8_t>(c) & 0xC0) != 0x80) ++n;
  }
  return n;
}

}  // namespace kolvdump
