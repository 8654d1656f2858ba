// Exports with known truth for kolvprep's corpus test: each seed gives one
// export of one kind (a delimiter, a quote, a record end, a header shape, a
// preamble, misfit records, fixed columns, dates, compression, ...) and
// what kolv must store from it: the column names as written in the header,
// and the value of every cell. Records that were damaged on purpose (a field
// too many or too few, a stray quote) are known by index and line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corpus {

// One value as kolv stores it: a number (dates and times as yyyymmdd,
// hhmmss or yyyymmddhhmmss), missing, or the 8 bytes of a character value
// (a blank, tab or comma written as "_", cut to 8 bytes).
struct Cell {
  enum What { kNumber, kMissing, kText } what = kMissing;
  double number = 0;
  std::string text;  // kText: at most 8 bytes, no zero byte
};

struct Case {
  uint64_t seed = 0;
  std::string kind;         // one of kinds()
  std::string file;         // the file's name (with .gz etc. when compressed)
  std::string text;         // the export's text (before compression)
  std::string compression;  // "" or the program that compresses it: gzip, zstd, xz, bzip2
  // How the table is written: the delimiter (0 for runs of blanks or fixed
  // columns), the quote (0 for none), whether a quote inside a quoted value
  // is escaped by a backslash (else doubled), and the record end.
  char delimiter = ',';
  char quote = '"';
  bool backslash = false;
  std::string record_end = "\n";
  // The header text of each column (rows of a multi-row header joined by a
  // blank, as kolvprep joins them); empty strings when there is no header.
  std::vector<std::string> header;
  std::vector<std::vector<Cell>> rows;  // the table's records, in order
  // The records damaged on purpose: their index in rows, the 1-based line of
  // their first line in `text`, and their bytes without the final line end.
  std::vector<size_t> misfit_rows;
  std::vector<uint64_t> misfit_lines;
  std::vector<std::string> misfit_texts;
};

// Every kind, in the order the seeds cycle through them.
const std::vector<std::string>& kinds();

// The case of `seed`: its kind is kinds()[seed % kinds().size()], everything
// else drawn from the seed. The same seed gives the same case everywhere.
Case make_case(uint64_t seed);

// The 8-byte character value kolv stores for `value`.
std::string text_value(const std::string& value);

// A cell's truth written for a person: the number, "." for missing, or the
// text in double quotes.
std::string describe(const Cell& cell);

}  // namespace corpus
