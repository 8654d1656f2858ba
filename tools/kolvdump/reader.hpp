// Reading a data set for kolvdump: the header (decoded and checked through
// the format's own code), the variable block, and the rows in blocks, found
// by seeking when the file allows it. Nothing here prints; what is wrong
// with a file comes back as a Fault for the command line to word.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "format/dataset.hpp"

namespace kolvdump {

struct Variable {
  std::string name;  // the bytes of the 32-byte name slot up to its first zero
  bool numeric = true;
};

// One column of the rows: a variable, or one part of a complex variable.
struct Column {
  std::string label;  // the name, with ".re" or ".im" for a complex part
  uint32_t variable = 0;
  bool character = false;  // a character variable's element in an 8-byte data set
};

struct DataSet {
  kolv::HeaderFields header;
  uint32_t width = 0;  // element width: 2, 4 or 8
  bool complex = false;
  std::vector<Variable> variables;
  std::vector<Column> columns;  // all of them, in file order
  uint64_t row_bytes = 0;
  // A regular file's size, known before the rows are read.
  bool size_known = false;
  uint64_t file_size = 0;
};

enum class Fault {
  kNone,
  kCannotRead,    // a read failed (errno in `error`)
  kTooShort,      // fewer than 128 bytes (a = bytes)
  kUnfinished,    // 128 zero bytes: a run of kolv that never finished
  kNotDataSet,    // no signature words
  kVersion92,     // an older data set
  kOtherOrder,    // written in the other byte order
  kBadOrderMark,  // neither byte order
  kElementType,   // a = type code, b = element size
  kComplexFlag,   // a = flag
  kDataOffset,    // a = data offset, b = columns, c = the offset they imply
  kShortBlock,    // the variable block is cut short (a = columns)
  kTypeByte,      // a = type byte, b = variable number
};

struct Problem {
  Fault fault = Fault::kNone;
  uint64_t a = 0, b = 0, c = 0;
  int error = 0;
};

// Reads and checks the header and the variable block of `in`, positioned at
// its start; on success `in` is at the first row.
Problem open_data_set(FILE* in, DataSet& ds);

// The rows a file holds, counted from its size or by reading to its end.
struct RowCount {
  uint64_t rows = 0;
  uint64_t trailing = 0;  // bytes after the last whole row
  int error = 0;          // errno of a failed read
};

// Reads rows from the data set's file. Rows are numbered from 0.
class RowReader {
 public:
  RowReader(FILE* in, const DataSet& ds);

  // Goes to row `row`: by seeking when the file allows it, else by reading
  // and dropping the rows before it. False when a read fails.
  bool skip_to(uint64_t row);

  // Reads up to `max_rows` whole rows into `to`; returns how many. Fewer than
  // asked means the end of the file (or a failed read: see error()).
  size_t read(uint8_t* to, size_t max_rows);

  // The rows and trailing bytes of the whole file; reads the rest of a file
  // whose size is not known (the rows already read count).
  RowCount count();

  int error() const { return error_; }
  uint64_t position() const { return next_; }

 private:
  FILE* in_;
  const DataSet& ds_;
  uint64_t next_ = 0;     // the row the file is at
  uint64_t partial_ = 0;  // bytes of an incomplete row met at the end
  bool at_end_ = false;
  int error_ = 0;
};

}  // namespace kolvdump
