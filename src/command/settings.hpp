// The setting statements: INPUT, OUTPUT, OUTTYP and MSYM. Each reads its
// argument from a fixed offset of the statement's text.
#pragma once

#include "base/state.hpp"
#include "command/statement.hpp"

namespace kolv {

// Input file name into run.set.infile; returns its length (0: not given).
int scaninput(Run& run, Statement st);
// Output file name with ".dat" into run.set.outfile; returns its length.
int scanoutput(Run& run, Statement st);
// Element size from the first argument character; prints the notice on a bad one.
int scanouttyp(Run& run, Statement st);
// Missing-value symbol; returns 0 (after its message) when the statement has none.
int scanms(Run& run, Statement st);

}  // namespace kolv
