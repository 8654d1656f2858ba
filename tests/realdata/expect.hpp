// What a conversion must give, worked out from the input text alone by the
// written rules of each input layout: how the text splits into fields, what
// each field's 8-byte slot is, which reports the conversion prints, and what
// the driver reports about character data afterwards. None of it calls kolv.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace realdata {

// The outcome of a delimited conversion, as the layout rules predict it.
struct Delimited {
  std::vector<uint64_t> slots;  // the finished rows, one slot per field
  size_t rows = 0;              // rows finished (also those before a bad-data stop)
  std::string report;           // "Bad data" or "End of file" lines of the loop
  bool stopped = false;         // the conversion ended at a bad-data report
  std::vector<uint8_t> vrec;    // per variable: 1 text seen, 255 text cut to 8 bytes
  std::string model_gap;        // input these rules were not written for; "" when none
};

// Soft-delimited input: fields separated by any run of blanks, tabs, CRs,
// LFs and commas, a record being the next types.size() * cplx fields. `msym`
// is the MSYM character ('.' when there is none). `infile` is the name the
// reports print.
Delimited soft_delimited(const std::string& text, const std::string& infile,
                         const std::vector<uint8_t>& types, int cplx, char msym);

// DELIMIT(\R): one record per line, fields separated by commas; blanks, tabs
// and CRs around a field are skipped and an empty field is missing.
Delimited record_per_line(const std::string& text, const std::vector<uint8_t>& types, char msym);

// The elements of the first `rows` finished rows, with the given input
// variables as columns (two slots each with COMPLEX), in `size`-byte form.
std::string row_elements(const Delimited& d, size_t rows, size_t variables,
                         const std::vector<int>& columns, int cplx, int size);

// What the driver prints after the conversion about character data, for the
// output columns `columns` (input variable indexes). `chartrunc` is set by a
// packed description with a character field 9 or more bytes wide.
std::string character_report(const std::vector<uint8_t>& vrec, const std::vector<uint8_t>& types,
                             const std::vector<int>& columns, int otyp, bool chartrunc);

// One field of a packed record description: the column counted from 1, the
// width and the implied decimals.
struct PackedField {
  bool numeric;
  int column;
  int width;
  int decimals;
};

// The outcome of a packed conversion (INVAR RECORD).
struct Packed {
  int record = 0;        // record length after the line-end check
  uint32_t rows = 0;     // records converted
  std::string data;      // their elements
  std::string messages;  // everything the conversion itself prints
  bool fatal = false;    // ended by a bad-data report: no data set
  std::vector<uint8_t> vrec;
  bool chartrunc = false;  // a character field 9 or more bytes wide
  std::string model_gap;
};

Packed packed_records(const std::string& file, const std::string& infile, int record,
                      const std::vector<PackedField>& fields, int otyp, char msym, bool check);

// The index list 0, 1, ..., n - 1: every input variable, in input order.
std::vector<int> all_columns(size_t n);

}  // namespace realdata
