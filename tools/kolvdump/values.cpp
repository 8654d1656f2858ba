#include "values.hpp"

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
  size_t n = text_length(element);
  if (n == 0) return false;
  for (size_t i = 0; i < n; ++i) {
    if (!is_text_byte(element[i])) return false;
  }
  for (size_t i = n; i < 8; ++i) {
    if (element[i] != 0) return false;
  }
  if (n < 8) return true;
  double value;
  std::memcpy(&value, element, sizeof value);
  if (!(value - value == 0)) return false;  // an infinity or a NaN
  char text[kCellRoom];
  char* end = std::to_chars(text, text + sizeof text, value).ptr;
  return significant_digits(text, end) >= 16;
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

}  // namespace

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
