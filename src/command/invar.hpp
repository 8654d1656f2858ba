// INVAR for delimited input: variable names and types, ranges, and the
// DELIMIT clause that chooses the hard-delimited layouts.
#pragma once

#include "base/state.hpp"
#include "command/statement.hpp"

namespace kolv {

// Parses an INVAR statement; returns the number of input variables (a packed
// RECORD description is handed to scanformat).
int scaninvar(Run& run, Statement st);

// Parses a DELIMIT clause with p just after the word, leaving p where the
// name list begins; 1 valid, 0 not.
int scandel(Run& run, const char*& p);

}  // namespace kolv
