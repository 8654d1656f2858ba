// INVAR RECORD: the packed record description (the columns of each field).
#pragma once

#include "base/state.hpp"

namespace kolv {

// Parses a packed record description with p on the record length's first
// digit (the rest of an INVAR RECORD statement); returns the number of
// variables, 0 after a reported error.
int scanformat(Run& run, const char* p);

}  // namespace kolv
