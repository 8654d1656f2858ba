// Variable names and name ranges (name[n], name[a:b], name[a-b]), shared by
// INVAR, OUTVAR and packed record descriptions.
#pragma once

#include "driver/state.hpp"

namespace kolv {

// Most names one range may generate; a larger range is refused as too many.
inline constexpr long kMaxRangeCount = 1L << 22;

struct NameRange {
  long first = 0;
  long last = 0;
  int width = 0;  // zero padding of the generated numbers; 0 for none
};

// Parses a range with the cursor p on its "["; on success leaves p after the
// "]" and returns nullptr, otherwise returns where the syntax error is
// reported from.
char* parse_range(char*& p, NameRange& range, int vpad);

// Reads a name of at most 32 letters, digits and "_" at p into run.vars.vname
// (cleared first); returns its length. A 33rd name character is left at p.
int read_name(Run& run, char*& p);

// Folds vname by type unless names keep their case: numeric names upper case,
// character names lower case.
void fold_name(Run& run, bool numeric);

// The i-th generated name of a range: the stem (vname) cut to 32 - width
// characters, followed by i zero-padded to width.
void range_name(const char* stem, int width, long i, char* out);

}  // namespace kolv
