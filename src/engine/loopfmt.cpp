#include "engine/loops.hpp"

namespace kolv {

// Packed records are not converted yet.
int loopfmt(Run&) { return kLoopDone; }

}  // namespace kolv
