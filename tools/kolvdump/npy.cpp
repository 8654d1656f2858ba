#include "npy.hpp"

#include <cstring>

namespace kolvdump {

namespace {

constexpr size_t kAlign = 64;
constexpr size_t kPreamble = 10;  // magic (6), version (2), header length (2)

// A Python string literal in single quotes; bytes outside printable ASCII
// as \xHH escapes.
std::string python_string(const std::string& s) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string literal = "'";
  for (char ch : s) {
    auto b = static_cast<uint8_t>(ch);
    if (ch == '\'' || ch == '\\') {
      literal += '\\';
      literal += ch;
    } else if (b >= 0x20 && b < 0x7F) {
      literal += ch;
    } else {
      literal += "\\x";
      literal += kHex[b >> 4];
      literal += kHex[b & 0xF];
    }
  }
  return literal + "'";
}

const char* numeric_type(uint32_t width) {
  switch (width) {
    case 2:
      return "'<i2'";
    case 4:
      return "'<f4'";
    default:
      return "'<f8'";
  }
}

}  // namespace

bool npy_structured(const DataSet& ds, const std::vector<uint32_t>& columns) {
  for (uint32_t c : columns) {
    if (ds.columns[c].character) return true;
  }
  return false;
}

std::string npy_header(const DataSet& ds, const std::vector<uint32_t>& columns, uint64_t rows,
                       size_t size) {
  std::string dict = "{'descr': ";
  std::string shape;
  if (npy_structured(ds, columns)) {
    dict += '[';
    for (size_t i = 0; i < columns.size(); ++i) {
      const Column& col = ds.columns[columns[i]];
      if (i > 0) dict += ", ";
      dict += '(' + python_string(col.label) + ", " +
              (col.character ? "'|S8'" : numeric_type(ds.width)) + ')';
    }
    dict += ']';
    shape = '(' + std::to_string(rows) + ",)";
  } else {
    dict += numeric_type(ds.width);
    shape = '(' + std::to_string(rows) + ", " + std::to_string(columns.size()) + ')';
  }
  dict += ", 'fortran_order': False, 'shape': " + shape + ", }";
  size_t total = (kPreamble + dict.size() + 1 + kAlign - 1) / kAlign * kAlign;
  if (size > total) total = size;
  size_t header_length = total - kPreamble;
  std::string header = "\x93NUMPY";
  header += '\x01';
  header += '\x00';
  header += static_cast<char>(header_length & 0xFF);
  header += static_cast<char>(header_length >> 8);
  header += dict;
  header.append(total - header.size() - 1, ' ');
  header += '\n';
  return header;
}

void write_npy_rows(const DataSet& ds, const std::vector<uint32_t>& columns, const uint8_t* rows,
                    size_t n, Output& out) {
  const size_t row_bytes = static_cast<size_t>(ds.row_bytes);
  const size_t width = ds.width;
  const size_t out_row = columns.size() * width;
  for (size_t r = 0; r < n; ++r) {
    const uint8_t* row = rows + r * row_bytes;
    char* p = out.reserve(out_row);
    for (uint32_t c : columns) {
      std::memcpy(p, row + c * width, width);
      p += width;
    }
    out.commit(p);
  }
}

}  // namespace kolvdump
