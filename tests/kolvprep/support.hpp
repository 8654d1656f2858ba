// Plumbing of kolvprep's end-to-end tests: a scratch directory, running
// kolvprep and the command it prints, reading the data set's bytes, and a
// reading of the text as a CSV reader understands it, written here on its
// own so that it checks kolvprep rather than repeating it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kptest {

std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& bytes);
bool file_exists(const std::string& path);

class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  std::vector<std::string> entries() const;

 private:
  std::string path_;
};

struct Result {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs a shell command in `dir` with kolvprep and kolv first on the PATH.
Result shell(const std::string& dir, const std::string& command);

// Runs kolvprep with `args` (already shell words) in `dir`.
Result kolvprep(const std::string& dir, const std::string& args);

// The last line of a text, without its line end.
std::string last_line(const std::string& text);

// A single-quoted shell word.
std::string quote(const std::string& s);

// The data set, read from its bytes: header words, names, types, and every
// element as an 8-byte slot (the file is written with 8-byte elements).
struct DataSet {
  std::string problem;  // "" when the file reads as a finished data set
  uint32_t rows = 0, columns = 0, element_size = 0;
  std::vector<std::string> names;
  std::vector<uint8_t> types;
  std::vector<uint64_t> slots;  // rows x columns
};
DataSet read_data_set(const std::string& path);

inline constexpr uint64_t kMissing = 0x7FFFFFFF00000000ULL;

// One expected value.
struct Cell {
  bool missing = false;
  bool text = false;
  double number = 0;
  std::string chars;  // the 8 bytes of a character element, zero-padded
};

// How the reference reads the text.
struct Reading {
  char delimiter = ',';                          // 0: runs of blanks
  size_t skip = 0;                               // lines dropped at the start
  char comment = 0;                              // lines beginning with it are dropped
  std::vector<std::pair<size_t, size_t>> fixed;  // (start, width), 0-based, for fixed columns
  bool raw_text = false;    // fixed columns read by kolv itself: text keeps its blanks
  std::vector<char> kinds;  // per column: 'n' number, 'c' character, 'd' date, 't' time
};

// Fields of every record: RFC 4180 quoting, blanks trimmed, blank lines
// skipped.
std::vector<std::vector<std::string>> read_records(const std::string& text, const Reading& r);

// The cell a field becomes.
Cell expected_cell(const std::string& field, char kind, bool raw_text);

// Compares the data set with the reference reading; returns "" when every
// value agrees, else a description of the first differences.
std::string compare(const DataSet& ds, const std::vector<std::vector<std::string>>& records,
                    const Reading& r);

}  // namespace kptest
