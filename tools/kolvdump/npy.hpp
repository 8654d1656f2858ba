// Rows as a NumPy .npy file, format version 1.0: the magic "\x93NUMPY", the
// version bytes 1 and 0, the header's length as a little-endian 16-bit
// word, and the header: a Python dictionary literal in ASCII, padded with
// blanks and ended by a line feed so that the data start on a multiple of
// 64 bytes. The data are the elements as stored, row after row.
//
// When every selected column is numeric the array is 2-D, of '<f8', '<f4'
// or '<i2' by the element width; with a character column (8-byte data sets
// only) it is a 1-D structured array, one field per column, '|S8' for
// character columns. Missing values keep their stored patterns.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "output.hpp"
#include "reader.hpp"

namespace kolvdump {

// Whether the selection makes a structured array.
bool npy_structured(const DataSet& ds, const std::vector<uint32_t>& columns);

// The whole header, magic to line feed, for `rows` rows. With `size` above
// what the header needs, the padding makes it exactly `size` bytes (a
// multiple of 64), so that a header rewritten with another row count fits
// the same room.
std::string npy_header(const DataSet& ds, const std::vector<uint32_t>& columns, uint64_t rows,
                       size_t size = 0);

// `n` rows of the selected columns, elements as stored.
void write_npy_rows(const DataSet& ds, const std::vector<uint32_t>& columns, const uint8_t* rows,
                    size_t n, Output& out);

}  // namespace kolvdump
