// Output elements: how an 8-byte slot becomes a 2-, 4- or 8-byte element.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#include "format/dataset.hpp"

namespace kolv {

inline uint64_t slot_bits(const char* slot) {
  uint64_t bits;
  std::memcpy(&bits, slot, 8);
  return bits;
}

// floor(x + 0.5) truncated to 32 bits (0x80000000 when out of range or not a
// number), of which the low 16 bits are kept: deliberate wrap-around.
//
// floor(y) lies in [-2^31, 2^31) exactly when y does (a NaN in neither), and
// there it is y truncated toward zero, less one when that is above y (a
// negative y with a fraction): no call to the library's floor.
inline uint16_t to_element16(const char* slot) {
  uint64_t bits = slot_bits(slot);
  if (slot_is_missing(bits)) return kMissing16;
  double x;
  std::memcpy(&x, &bits, 8);
  const double y = x + 0.5;
  int32_t i = INT32_MIN;
  if (y >= -2147483648.0 && y < 2147483648.0) {
    int64_t t = static_cast<int64_t>(y);
    t -= static_cast<double>(t) > y;
    i = static_cast<int32_t>(t);
  }
  return static_cast<uint16_t>(static_cast<uint32_t>(i) & 0xFFFF);
}

inline uint32_t to_element32(const char* slot) {
  uint64_t bits = slot_bits(slot);
  if (slot_is_missing(bits)) return kMissing32;
  double x;
  std::memcpy(&x, &bits, 8);
  float f = static_cast<float>(x);
  uint32_t out;
  std::memcpy(&out, &f, 4);
  return out;
}

// Writes one element of width W (2, 4 or 8) for slot at out, little-endian.
template <int W>
inline void put_element(char* out, const char* slot) {
  if constexpr (W == 2) {
    uint16_t e = to_element16(slot);
    out[0] = static_cast<char>(e & 0xFF);
    out[1] = static_cast<char>(e >> 8);
  } else if constexpr (W == 4) {
    uint32_t e = to_element32(slot);
    for (int i = 0; i < 4; ++i) out[i] = static_cast<char>((e >> (8 * i)) & 0xFF);
  } else {
    std::memcpy(out, slot, 8);
  }
}

}  // namespace kolv
