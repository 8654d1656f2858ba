// The row loops of delimited input, and the choice of one for a run.
//
// There is one row engine (layouts.hpp, row_engine.hpp), specialised at
// compile time by record layout, element width and whether every input
// variable is output. The named loops below are its entry points.
#pragma once

#include "base/state.hpp"

namespace kolv {

// What a row loop returns. The driver reports kLoopNoMemory and
// kLoopWriteFailed, and completes the output in every case.
enum LoopStatus : int {
  kLoopDone = 0,         // the input was read to its end
  kLoopNoMemory = 1,     // no row buffer could be had
  kLoopWriteFailed = 2,  // a block write failed (a full disk)
  kLoopRejected = 3,     // the input was rejected after a bad-data report
  kLoopNoType = -1,      // no loop for the element type
};

// Selected output variables (OUTVAR), one per layout; any element size.
LoopStatus loop_SD_SL_SOME(Run& run);
LoopStatus loop_HD_NL_SOME(Run& run);
LoopStatus loop_HD_SL_SOME(Run& run);
LoopStatus loop_HD_HL_SOME(Run& run);

// All variables: converting loops for 2- and 4-byte elements, direct loops for
// 8-byte elements, and a dispatcher per layout that picks one by otyp.
LoopStatus loop_shfl_SD_SL_ALL(Run& run);
LoopStatus loop_dbl_SD_SL_ALL(Run& run);
LoopStatus loop_shfl_HD_NL_ALL(Run& run);
LoopStatus loop_dbl_HD_NL_ALL(Run& run);
LoopStatus loop_shfl_HD_SL_ALL(Run& run);
LoopStatus loop_dbl_HD_SL_ALL(Run& run);
LoopStatus loop_shfl_HD_HL_ALL(Run& run);
LoopStatus loop_dbl_HD_HL_ALL(Run& run);
LoopStatus loop_SD_SL_ALL(Run& run);
LoopStatus loop_HD_NL_ALL(Run& run);
LoopStatus loop_HD_SL_ALL(Run& run);
LoopStatus loop_HD_HL_ALL(Run& run);

// Packed ASCII records.
LoopStatus loopfmt(Run& run);

// Fills the buffer the first time (delimited input), adds the all-variables
// bit and runs the loop that the layout bits, allout and otyp choose.
LoopStatus select_and_run_loop(Run& run);

}  // namespace kolv
