#include "support/dataset.hpp"

#include <cstring>
#include <sstream>
#include <utility>

#include "support/files.hpp"

namespace kolv_support {

void put32(std::string& bytes, size_t at, uint32_t value) {
  if (bytes.size() < at + 4) bytes.resize(at + 4, '\0');
  for (size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(value >> (8 * i) & 0xFF);
}

void put32(std::vector<uint8_t>& bytes, size_t at, uint32_t value) {
  if (bytes.size() < at + 4) bytes.resize(at + 4, 0);
  for (size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<uint8_t>(value >> (8 * i) & 0xFF);
}

uint32_t get32(const std::string& bytes, size_t at) {
  if (at + 4 > bytes.size()) return 0;
  uint32_t v = 0;
  for (size_t i = 4; i-- > 0;) v = v << 8 | static_cast<unsigned char>(bytes[at + i]);
  return v;
}

uint32_t data_offset(uint32_t columns) {
  return 128 + 33 * columns + (columns % 8 == 0 ? 0 : 8 - columns % 8);
}

std::string header(uint32_t size, uint32_t rows, uint32_t columns, bool complex) {
  std::string h(128, '\0');
  put32(h, 0, 0xFFFFFFFF);
  put32(h, 8, 0xFFFFFFFF);
  put32(h, 16, 0xFFFFFFFF);
  put32(h, 28, 0xABCDEF02);
  put32(h, 32, 1);
  put32(h, 40, 1);
  put32(h, 44, size == 2 ? 12 : size == 4 ? 1004 : 1008);
  put32(h, 48, size);
  put32(h, 52, complex ? 1 : 0);
  put32(h, 56, 1);
  put32(h, 60, 2);
  put32(h, 64, 1);
  put32(h, 72, data_offset(columns));
  put32(h, 80, rows);
  put32(h, 84, columns);
  return h;
}

std::string variable_block(const std::vector<std::string>& names,
                           const std::vector<uint8_t>& types) {
  std::string block;
  for (const std::string& name : names) {
    std::string field(32, '\0');
    field.replace(0, name.size(), name);
    block += field;
  }
  for (size_t i = 0; i < names.size(); ++i)
    block += static_cast<char>(types.empty() ? 1 : types[i]);
  const size_t n = names.size();
  block.append(n % 8 == 0 ? 0 : 8 - n % 8, '\0');
  return block;
}

DataSet decode_data_set(const std::string& file) {
  DataSet ds;
  if (file.size() < 128) {
    ds.problem = "shorter than a header: " + std::to_string(file.size()) + " bytes";
    return ds;
  }
  std::ostringstream why;
  // Word offset and the value every finished data set holds there.
  const std::pair<size_t, uint32_t> fixed[] = {
      {0, 0xFFFFFFFF}, {4, 0},           {8, 0xFFFFFFFF}, {12, 0}, {16, 0xFFFFFFFF}, {20, 0},
      {24, 0},         {28, 0xABCDEF02}, {32, 1},         {36, 0}, {40, 1},          {56, 1},
      {60, 2},         {64, 1},          {68, 0},         {76, 0}};
  for (const auto& [offset, value] : fixed) {
    if (get32(file, offset) != value)
      why << "header word at " << offset << " is " << std::hex << get32(file, offset) << ", not "
          << value << std::dec << "; ";
  }
  for (size_t offset = 88; offset < 128; ++offset) {
    if (file[offset] != '\0') {
      why << "reserved header byte " << offset << " is not zero; ";
      break;
    }
  }
  ds.element_code = get32(file, 44);
  ds.element_size = get32(file, 48);
  ds.complex_flag = get32(file, 52);
  ds.data_offset = get32(file, 72);
  ds.rows = get32(file, 80);
  ds.columns = get32(file, 84);
  const uint32_t n = ds.columns;
  const uint32_t pad = n % 8 == 0 ? 0 : 8 - n % 8;
  const uint64_t block_end = 128ULL + 33ULL * n + pad;
  if (ds.data_offset != block_end)
    why << "data offset " << ds.data_offset << ", not 128 + 33n + pad = " << block_end << "; ";
  if (block_end > file.size()) {
    why << "variable block runs past the end of the file; ";
    ds.problem = why.str();
    return ds;
  }
  for (uint32_t i = 0; i < n; ++i) {
    const char* field = file.data() + 128 + 32 * i;
    ds.names.emplace_back(field, strnlen(field, 32));
    // The name is ended by zero bytes to the end of its field.
    for (size_t k = ds.names.back().size(); k < 32; ++k) {
      if (field[k] != '\0') {
        why << "name field " << i << " has bytes after its zero; ";
        break;
      }
    }
    ds.types.push_back(static_cast<uint8_t>(file[128 + 32 * n + i]));
  }
  for (uint32_t k = 0; k < pad; ++k) {
    if (file[128 + 33 * n + k] != '\0') why << "pad byte " << k << " is not zero; ";
  }
  ds.data = file.substr(ds.data_offset);
  ds.problem = why.str();
  return ds;
}

DataSet read_data_set(const std::string& path) {
  std::string bytes;
  if (!read_file(path, bytes)) {
    DataSet ds;
    ds.problem = "no file " + path;
    return ds;
  }
  return decode_data_set(bytes);
}

}  // namespace kolv_support
