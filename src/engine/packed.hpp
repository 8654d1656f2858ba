// Packed ASCII records: the field converters of loopfmt. Unlike scandbl and
// scanstr they read a field's own NUL-terminated copy, never the read buffer,
// so they never refill and never run into the next field.
#pragma once

#include <cstdint>

#include "base/numwide.hpp"
#include "engine/loops.hpp"
#include "engine/plan.hpp"

namespace kolv {

// Blanks past a record's end that one field text keeps. A longer run of
// blanks means the same (leading blanks are skipped, any blank ends a value)
// and the bad-data dump shows only 16 bytes, so texts stay within record + a
// few bytes however wide a field is declared.
inline constexpr int64_t kBlankRun = 17;

// One record in the read buffer.
struct PackedRecord {
  const char* bytes;
  int64_t length;
};

// Appends bytes [from, to) of the field at `start` to out; bytes past the
// record's end read as blanks (at most kBlankRun of them). Returns the end.
char* append_field(char* out, PackedRecord rec, int64_t start, int64_t from, int64_t to);

// The text scandbltemp reads: the field, with d decimals rebuilt as its first
// width - d bytes, a point and its last d bytes. The point is inserted even
// when the field holds one. With more decimals than bytes the point stands
// before the whole field. Returns the position of the ending NUL.
char* numeric_text(char* out, PackedRecord rec, const PackedField& f);

// The byte at `at` of the record, a blank past its end.
inline char field_byte(PackedRecord rec, int64_t at) {
  return at < rec.length ? rec.bytes[at] : ' ';
}

// Only the space is a blank: a tab-filled numeric field is bad data.
bool all_blanks(const char* text, const char* end);

// Text met in a numeric field (or handed on by scandbltemp): "." or the MSYM
// character standing alone is the missing value; otherwise up to 8 bytes up
// to the first blank, tab, line end, comma or NUL, zero-padded, and vrec of
// `index` is set to 255 when more follow. Marks vrec of `index` with 1 in
// every case; status is always 1.
void scanstrtemp(Engine& engine, const char* text, char* value, int index, uint32_t& status);

// The number in a numeric field's text: blanks skipped, "." or the MSYM
// character before an ending byte, "I" or "}" is the missing value, a letter
// or "_" makes it character data (scanstrtemp), otherwise strtod's number with
// anything after it ignored. Status 0 when nothing converts. Records the
// text's start in engine.rb.cperr for the bad-data report.
void scandbltemp(Engine& engine, const char* text, char* value, int index, uint32_t& status);

// The common numeric field of a record, read in place: blanks, an optional
// sign, then 1 to 19 digits up to the field's end, at least as many digits as
// implied decimals, the first byte after the blanks neither "." nor the MSYM
// character. Gives the number that scandbltemp reads from the field's rebuilt
// text (blanks, sign, digits, a point and the last `decimals` digits) and
// returns true; returns false for every other field, which must take the
// rebuilt text. Wide: a field of at most 16 bytes is read in one 16-byte
// load (where that is built), others eight bytes at a time; at least 16
// readable bytes must follow the field's start and 8 its end (the read
// buffer keeps kReadSlack bytes after its text). Both readings decide the same fields
// with the same values.
template <bool Wide>
bool packed_number_as(const char* field, int64_t width, int decimals, char mstring, double* out);

inline bool packed_number(const char* field, int64_t width, int decimals, char mstring,
                          double* out) {
  return packed_number_as<kWideNumbers>(field, width, decimals, mstring, out);
}

// loopfmt with the buffer filled at most `buffer_bytes` at a time, rounded
// down to whole records (one record when it is longer). loopfmt itself uses
// the full read size; tests use small sizes to make records cross refills.
int loopfmt_buffered(Engine& engine, int buffer_bytes);

// The records of engine.rb.infp by a record length already settled (line
// ends checked and reported): what a worker converts a chunk of records by.
LoopStatus loopfmt_records(Engine& engine, int64_t record);

}  // namespace kolv
