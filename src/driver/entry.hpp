// The program entry as a library call: the whole run, from the banner to the
// exit status, printing only to the given console.
#pragma once

#include "base/state.hpp"

namespace kolv {

// Runs kolv with the given arguments (argv[0] is the program name) and returns
// the exit status: 0 for a completed run or the help text, 255 for a fatal end.
int kolv_main(int argc, const char* const* argv, Console io);

}  // namespace kolv
