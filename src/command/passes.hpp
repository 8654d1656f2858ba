// The three passes over the command file. Pass 1 applies the setting
// statements, pass 2 builds the input variables (INVAR), pass 3 the output
// variables (OUTVAR). The driver prepares the output between passes 1 and 2.
#pragma once

#include "base/state.hpp"

namespace kolv {

// Every setting statement applied, every unknown statement reported; then the
// run ends when there were errors, INPUT or OUTPUT is missing, NODATA was
// given or the last MSYM found no symbol.
void pass1(Run& run);

// INVAR from the start of the command file; ends the run when no input
// variable was declared or the last DELIMIT clause was invalid.
void pass2(Run& run);

// OUTVAR from the start of the command file; ends the run when a name was
// undefined. Closes the command file.
void pass3(Run& run);

}  // namespace kolv
