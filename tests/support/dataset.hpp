// Data set bytes for the tests, written from the file layout: little-endian
// words, the header of a finished data set, the variable block, and a
// decoder that checks what never varies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kolv_support {

// Little-endian 32-bit words in a byte string; put32 grows the string when
// the word lies past its end, get32 reads 0 there.
void put32(std::string& bytes, size_t at, uint32_t value);
void put32(std::vector<uint8_t>& bytes, size_t at, uint32_t value);
uint32_t get32(const std::string& bytes, size_t at);

// Where the rows begin: the header, 33 bytes a variable, padded to 8.
uint32_t data_offset(uint32_t columns);

// The header of a finished data set of elements of `size` bytes (2, 4 or 8).
std::string header(uint32_t size, uint32_t rows, uint32_t columns, bool complex = false);

// The variable block: 32-byte name fields, one type byte each (1 numeric,
// 0 character; numeric when `types` is empty), zero bytes to a multiple of 8.
std::string variable_block(const std::vector<std::string>& names,
                           const std::vector<uint8_t>& types = {});

struct DataSet {
  std::string problem;  // why the bytes are not a well-formed data set; "" when they are
  uint32_t element_code = 0;
  uint32_t element_size = 0;
  uint32_t complex_flag = 0;
  uint32_t data_offset = 0;
  uint32_t rows = 0;
  uint32_t columns = 0;
  std::vector<std::string> names;
  std::vector<uint8_t> types;
  std::string data;  // every byte from the data offset to the end
};

// Decodes a data set and checks the parts of its header that never vary
// (signature, byte-order words, fixed and reserved words, the variable
// block's padding). Any fault is described in `problem`.
DataSet decode_data_set(const std::string& bytes);

// The same for a file; a missing file is a problem too.
DataSet read_data_set(const std::string& path);

}  // namespace kolv_support
