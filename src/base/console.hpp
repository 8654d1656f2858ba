// The run's two message streams. The core library prints through these and
// nothing else, so a test can capture every message in memory.
#pragma once

#include <cstdio>

namespace kolv {

// Standard output and standard error by default.
struct Console {
  FILE* out = stdout;
  FILE* err = stderr;
};

}  // namespace kolv
