// Data set bytes written by hand from the file layout, for the tests that
// prepare append targets and check what a run left: the 128-byte header of a
// finished data set, the variable block, and little-endian 32-bit words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace failure_test {

inline void put32(std::string& s, size_t at, uint32_t v) {
  for (size_t i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (8 * i) & 0xFF);
}

inline uint32_t get32(const std::string& s, size_t at) {
  uint32_t v = 0;
  for (size_t i = 4; i-- > 0;) v = v << 8 | static_cast<unsigned char>(s[at + i]);
  return v;
}

// Where the rows begin: the header, 33 bytes a variable, padded to 8.
inline uint32_t data_offset(uint32_t columns) {
  return 128 + 33 * columns + (columns % 8 == 0 ? 0 : 8 - columns % 8);
}

// A finished header for elements of otyp bytes (2, 4 or 8).
inline std::string header(uint32_t otyp, uint32_t rows, uint32_t columns) {
  std::string h(128, '\0');
  put32(h, 0, 0xFFFFFFFF);
  put32(h, 8, 0xFFFFFFFF);
  put32(h, 16, 0xFFFFFFFF);
  put32(h, 28, 0xABCDEF02);
  put32(h, 32, 1);
  put32(h, 40, 1);
  put32(h, 44, otyp == 2 ? 12 : otyp == 4 ? 1004 : 1008);
  put32(h, 48, otyp);
  put32(h, 56, 1);
  put32(h, 60, 2);
  put32(h, 64, 1);
  put32(h, 72, data_offset(columns));
  put32(h, 80, rows);
  put32(h, 84, columns);
  return h;
}

// The variable block of numeric variables with these (upper-case) names.
inline std::string variable_block(const std::vector<std::string>& names) {
  std::string block;
  for (const std::string& name : names) {
    std::string field(32, '\0');
    field.replace(0, name.size(), name);
    block += field;
  }
  block.append(names.size(), '\x01');
  const size_t n = names.size();
  block.append(n % 8 == 0 ? 0 : 8 - n % 8, '\0');
  return block;
}

}  // namespace failure_test
