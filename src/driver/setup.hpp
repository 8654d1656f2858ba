// Output preparation before pass 2, and the conversion with its set-up and
// completion after pass 3.
#pragma once

#include <cstdio>

#include "base/state.hpp"

namespace kolv {

// True when the open stream is a directory (which opens like a file).
bool is_directory(FILE* f);

// Validates an append target, or creates the temporary output beside the
// output with a zero header.
void prepare_output(Run& run);

// A fatal error in an APPEND run that found no data set: the file it made
// aside takes the data set's name, as far as it got (signals blocked).
void settle_created_on_fatal(Run& run);

// Writes the variable block, settles the element type, opens the input, runs
// the row loop, reports, completes the header and puts the file in place.
// Returns the exit status (0).
int convert_and_complete(Run& run);

}  // namespace kolv
