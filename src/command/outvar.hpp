// OUTVAR: which input variables go to the data set, in which order.
#pragma once

#include "base/state.hpp"
#include "command/statement.hpp"

namespace kolv {

// Parses an OUTVAR statement, resolves every name and writes the variable
// block into the temporary output; returns the number of output variables (0
// when the statement is ignored or names none).
int scanoutvar(Run& run, Statement st);

// Resolves vname and appends it to the output tables, growing them to
// capacity entries when full.
void makeovar(Run& run, long capacity);

}  // namespace kolv
