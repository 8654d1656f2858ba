// OUTVAR: which input variables go to the data set, in which order.
#pragma once

#include "base/state.hpp"

namespace kolv {

// Parses the OUTVAR statement in the read buffer, resolves every name and
// writes the variable block into the temporary output; returns the number of
// output variables (0 when the statement is ignored or names none).
int scanoutvar(Run& run);

// Resolves vname and appends it to the output tables, growing them to
// capacity entries when full.
void makeovar(Run& run, long capacity);

}  // namespace kolv
