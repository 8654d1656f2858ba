// kolvdump's renderings of rows already read: the text view (header,
// variables, aligned rows) and CSV. Each writes into an Output a block of
// rows at a time, so memory stays flat whatever the file's size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "output.hpp"
#include "reader.hpp"

namespace kolvdump {

// ---- text view ----

// The header and the variable list, each line as the text view prints it.
void write_header(const DataSet& ds, std::string_view name, Output& out);
void write_variables(const DataSet& ds, Output& out);

// Column widths of the text view, fixed before the first row is printed:
// each column is as wide as its label and the widest of its values in the
// first block of rows (`sample`); a later, wider value pushes the columns
// after it to the right.
struct TextLayout {
  std::vector<uint32_t> columns;  // indexes into DataSet::columns
  std::vector<size_t> widths;
  size_t row_width = 3;  // the row number column: "row" or the last number
  std::string na = ".";
};

TextLayout plan_text(const DataSet& ds, const std::vector<uint32_t>& columns, const uint8_t* sample,
                     size_t sample_rows, uint64_t last_row_number, std::string na);

// "data:" and the line of labels.
void write_labels(const DataSet& ds, const TextLayout& layout, Output& out);

// `n` rows, numbered from `first_number`.
void write_text_rows(const DataSet& ds, const TextLayout& layout, const uint8_t* rows, size_t n,
                     uint64_t first_number, Output& out);

// The text of one cell as the text view shows it, and the characters it
// takes on screen: a number, the missing text, character data (escaped), or
// character data in a numeric column between double quotes.
size_t text_cell(const uint8_t* element, uint32_t width, bool character, std::string_view na,
                 char* to, char** end);

// ---- CSV ----

struct CsvLayout {
  std::vector<uint32_t> columns;
  std::string na;  // already quoted when it needs it
};

CsvLayout plan_csv(const std::vector<uint32_t>& columns, std::string_view na);

// One field as RFC 4180 writes it: quoted when it holds a comma, a double
// quote, a carriage return or a line feed, its double quotes doubled.
void put_csv_field(std::string_view field, Output& out);

void write_csv_names(const DataSet& ds, const CsvLayout& layout, Output& out);
void write_csv_rows(const DataSet& ds, const CsvLayout& layout, const uint8_t* rows, size_t n,
                    Output& out);

}  // namespace kolvdump
