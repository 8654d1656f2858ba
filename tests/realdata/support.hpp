// Plumbing of the real-data round trips: scratch directories, running the
// kolv program, reading a data set back, and the element encodings that the
// expected values are written in.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace realdata {

// The real-data folder as an absolute path, or "" when it is not there.
std::string data_dir();

std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& bytes);
bool file_exists(const std::string& path);

// A fresh directory under the system's temporary directory, removed with
// everything in it when the object goes.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  std::vector<std::string> entries() const;  // names in the directory, sorted

 private:
  std::string path_;
};

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
struct DataSet {
  std::string problem;  // why the file is not a well-formed data set; "" when it is
  uint32_t element_code = 0;
  uint32_t element_size = 0;
  uint32_t complex_flag = 0;
  uint32_t data_offset = 0;
  uint32_t rows = 0;
  uint32_t columns = 0;
  std::vector<std::string> names;
  std::vector<uint8_t> types;
  std::string data;  // every byte from the data offset to the end of the file
};

// Reads a data set and checks the parts of its header that never vary
// (signature, byte-order words, fixed and reserved words, the variable
// block's padding). Any fault is described in `problem`.
DataSet read_data_set(const std::string& path);

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
