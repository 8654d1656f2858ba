// The setting statements: INPUT, OUTPUT, OUTTYP and MSYM. Each starts at its
// fixed argument offset in the statement text held in the read buffer.
#pragma once

#include "base/state.hpp"

namespace kolv {

// Input file name into run.set.infile; returns its length (0: not given).
int scaninput(Run& run);
// Output file name with ".dat" into run.set.outfile; returns its length.
int scanoutput(Run& run);
// Element size from the first argument character; prints the notice on a bad one.
int scanouttyp(Run& run);
// Missing-value symbol; returns 0 (after its message) when the statement has none.
int scanms(Run& run);

}  // namespace kolv
