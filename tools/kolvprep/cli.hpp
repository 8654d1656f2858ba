// The kolvprep program: its arguments, the look at a file and the command
// file written from it, and the --text rewrite. main() is a thin call of run.
#pragma once

#include <cstdio>

namespace kolvprep {

inline constexpr int kExitOk = 0;
inline constexpr int kExitBadInput = 1;  // the file cannot be made a table, or NAME.cmd exists
inline constexpr int kExitUsage = 2;

// The whole program. Output goes to `out` (the report, or the rewritten
// text through out_fd), messages to `err`.
int run(int argc, const char* const* argv, FILE* out, FILE* err);

}  // namespace kolvprep
