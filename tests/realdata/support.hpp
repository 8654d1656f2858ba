// Plumbing of the real-data round trips: scratch directories, running the
// kolv program, reading a data set back, and the element encodings that the
// expected values are written in.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/dataset.hpp"
#include "support/files.hpp"
#include "support/scratch.hpp"

namespace realdata {

// The real-data folder as an absolute path, or "" when it is not there.
std::string data_dir();

using kolv_support::file_exists;
using kolv_support::read_file;
using kolv_support::ScratchDir;
using kolv_support::write_file;

struct KolvRun {
  int status = -1;  // exit status, or -1 when the program did not exit normally
  std::string out;
  std::string err;
};

// Writes `command` as `dir`/`name` and runs kolv on it from `dir`, with
// "-noc" when `quiet`.
KolvRun run_kolv(const ScratchDir& dir, const std::string& name, const std::string& command,
                 bool quiet = true);

// ------------------------------------------------------------ 8-byte slots
// Every field is first one 8-byte slot: a double, the missing-value pattern,
// or up to 8 characters padded with zero bytes.
inline constexpr uint64_t kMissingSlot = 0x7FFFFFFF00000000ULL;
uint64_t number_slot(double x);
uint64_t text_slot(const std::string& text);  // first 8 bytes, zero-padded

// The element of `size` bytes (2, 4 or 8) that a slot becomes: 8 bytes are
// the slot; 4 bytes the single nearest to it; 2 bytes floor(x + 0.5) as a
// 32-bit integer (0x80000000 when out of range), of which the low 16 bits.
// Slots whose 16 high bits, sign cleared, exceed 0x7FF0 are missing values.
std::string element(uint64_t slot, int size);

// ------------------------------------------------------------- data sets
using kolv_support::DataSet;
using kolv_support::read_data_set;

struct ExpectedSet {
  uint32_t rows = 0;          // row count of the header
  uint32_t rows_written = 0;  // rows the file holds (fewer after a bad-data stop)
  int element_size = 8;
  bool complex = false;
  std::vector<std::string> names;
  std::vector<uint8_t> types;  // 1 numeric, 0 character
  std::string data;            // the expected elements of the rows written
};

// Checks a data set against what is expected, element by element, with
// GoogleTest assertions naming the first rows and columns that differ.
void expect_data_set(const std::string& path, const ExpectedSet& expected);

// kolvdump's verdict on a data set: 0 when it reads back whole, 1 when its
// rows disagree with the header, 2 when it is not a data set.
int kolvdump_status(const std::string& path);

}  // namespace realdata
