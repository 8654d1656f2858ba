// Checks a data set's rows against reference doubles (the strtod baseline's
// output): every element must be, bit for bit, what the reference value
// becomes as an element of the data set's type (8-byte: the double itself;
// 4-byte: the double rounded to single; 2-byte: floor(x + 0.5) truncated to
// 32 bits, low 16 bits kept).
//
//   compare DATASET REFERENCE REFCOLS [MAP]
//
// REFERENCE holds REFCOLS doubles per row. MAP names, for every column of the
// data set, the reference column it comes from (0-based), or "-" for a
// column that is not checked (character data); without MAP the columns are
// the reference's, in order.
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::vector<unsigned char> slurp(const char* path) {
  std::vector<unsigned char> bytes;
  FILE* f = std::fopen(path, "rb");
  if (f == nullptr) {
    std::perror(path);
    std::exit(2);
  }
  unsigned char chunk[1 << 16];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0)
    bytes.insert(bytes.end(), chunk, chunk + n);
  std::fclose(f);
  return bytes;
}

uint32_t le32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

uint64_t expected_element(double x, uint32_t size) {
  if (size == 8) return std::bit_cast<uint64_t>(x);
  if (size == 4) return std::bit_cast<uint32_t>(static_cast<float>(x));
  const double r = std::floor(x + 0.5);
  int32_t i = INT32_MIN;
  if (r >= -2147483648.0 && r < 2147483648.0) i = static_cast<int32_t>(r);
  return static_cast<uint32_t>(i) & 0xFFFF;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) {
    std::fprintf(stderr, "usage: compare DATASET REFERENCE REFCOLS [MAP]\n");
    return 2;
  }
  const std::vector<unsigned char> ds = slurp(argv[1]);
  const std::vector<unsigned char> ref = slurp(argv[2]);
  const size_t refcols = std::strtoul(argv[3], nullptr, 10);
  if (ds.size() < 128 || refcols == 0) {
    std::fprintf(stderr, "compare: %s is not a data set\n", argv[1]);
    return 1;
  }
  const uint32_t size = le32(&ds[48]);
  const uint32_t offset = le32(&ds[72]);
  const uint32_t rows = le32(&ds[80]);
  const uint32_t columns = le32(&ds[84]);
  std::vector<long> map;
  if (argc == 5) {
    std::string columns = argv[4];
    size_t at = 0;
    while (at <= columns.size()) {
      size_t comma = columns.find(',', at);
      if (comma == std::string::npos) comma = columns.size();
      const std::string item = columns.substr(at, comma - at);
      map.push_back(item == "-" ? -1 : std::strtol(item.c_str(), nullptr, 10));
      at = comma + 1;
    }
  } else {
    for (size_t c = 0; c < refcols; ++c) map.push_back(static_cast<long>(c));
  }
  if (size != 2 && size != 4 && size != 8) {
    std::fprintf(stderr, "compare: element size %u\n", size);
    return 1;
  }
  if (map.size() != columns) {
    std::fprintf(stderr, "compare: the data set has %u columns, the map %zu\n", columns,
                 map.size());
    return 1;
  }
  const size_t refrows = ref.size() / (8 * refcols);
  if (rows != refrows || ds.size() != offset + static_cast<size_t>(rows) * columns * size) {
    std::fprintf(stderr,
                 "compare: %u rows in the header, %zu bytes of rows; the reference has %zu rows\n",
                 rows, ds.size() - offset, refrows);
    return 1;
  }
  size_t checked = 0;
  for (size_t r = 0; r < rows; ++r) {
    for (size_t c = 0; c < columns; ++c) {
      if (map[c] < 0) continue;
      double x;
      std::memcpy(&x, &ref[8 * (r * refcols + static_cast<size_t>(map[c]))], 8);
      uint64_t got = 0;
      std::memcpy(&got, &ds[offset + (r * columns + c) * size], size);
      const uint64_t want = expected_element(x, size);
      if (got != want) {
        std::fprintf(stderr, "compare: row %zu column %zu: %0*llx, expected %0*llx (%.17g)\n",
                     r + 1, c + 1, static_cast<int>(2 * size), static_cast<unsigned long long>(got),
                     static_cast<int>(2 * size), static_cast<unsigned long long>(want), x);
        return 1;
      }
      ++checked;
    }
  }
  std::printf("%zu elements identical\n", checked);
  return 0;
}
