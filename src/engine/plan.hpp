// The plan of one conversion: everything the engine needs to know about the
// input's layout and the output's columns, in typed form. The driver makes it
// once from the command language's settings and tables, after the passes; the
// engine only reads it, so one plan may drive several engines.
#pragma once

#include <cstdint>
#include <vector>

#include "base/state.hpp"

namespace kolv {

// How rows are laid out in the input.
enum class RowLayout {
  kSoft,        // blanks, tabs, CRs, LFs and commas separate; rows ignore lines
  kNewline,     // one LF between fields; a row is the next n lines
  kHardStream,  // one delimiter between fields; line ends are blanks
  kLinePerRow,  // one delimiter between fields; each line is one row
  kPacked,      // fixed-length records, fields cut by columns (Plan::fields)
};

// The output element: its size in bytes is its value.
enum class ElementType : int {
  kInt16 = 2,
  kFloat32 = 4,
  kDouble = 8,
};

// What an input variable holds.
enum class FieldKind : uint8_t {
  kCharacter = 0,
  kNumeric = 1,
};

struct Plan {
  RowLayout layout = RowLayout::kSoft;
  ElementType element = ElementType::kDouble;
  bool complex = false;               // each variable is a real and an imaginary part
  char missing_symbol = '.';          // besides ".", the text of a missing value
  char delimiter = ',';               // between fields of the hard layouts
  bool delimiter_after_last = false;  // a delimiter also ends a row's last field

  std::vector<FieldKind> kinds;  // one per input variable
  bool all_columns = true;       // every input variable is output, in input order
  std::vector<int32_t> columns;  // otherwise: the input variable of each output column

  // Packed records.
  int64_t record_length = 0;
  std::vector<PackedField> fields;      // one per input variable
  bool fit_record_to_line_ends = true;  // a line end after each record joins it (CHECK)

  int variables() const { return static_cast<int>(kinds.size()); }
  int parts() const { return complex ? 2 : 1; }
  int width() const { return static_cast<int>(element); }
};

}  // namespace kolv
