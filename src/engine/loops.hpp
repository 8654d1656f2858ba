// The row loops of delimited input, and the choice of one for a run.
//
// There is one row engine (layouts.hpp, row_engine.hpp), specialised at
// compile time by record layout, element width and whether every input
// variable is output. The named loops below are its entry points.
#pragma once

#include "base/state.hpp"

namespace kolv {

// Loop status: 0 finished, 1 out of memory, 2 write failed, 3 input rejected
// after a report, -1 no loop for the element type.
inline constexpr int kLoopDone = 0;
inline constexpr int kLoopNoMemory = 1;
inline constexpr int kLoopWriteFailed = 2;
inline constexpr int kLoopRejected = 3;
inline constexpr int kLoopNoType = -1;

// Selected output variables (OUTVAR), one per layout; any element size.
int loop_SD_SL_SOME(Run& run);
int loop_HD_NL_SOME(Run& run);
int loop_HD_SL_SOME(Run& run);
int loop_HD_HL_SOME(Run& run);

// All variables: converting loops for 2- and 4-byte elements, direct loops for
// 8-byte elements, and a dispatcher per layout that picks one by otyp.
int loop_shfl_SD_SL_ALL(Run& run);
int loop_dbl_SD_SL_ALL(Run& run);
int loop_shfl_HD_NL_ALL(Run& run);
int loop_dbl_HD_NL_ALL(Run& run);
int loop_shfl_HD_SL_ALL(Run& run);
int loop_dbl_HD_SL_ALL(Run& run);
int loop_shfl_HD_HL_ALL(Run& run);
int loop_dbl_HD_HL_ALL(Run& run);
int loop_SD_SL_ALL(Run& run);
int loop_HD_NL_ALL(Run& run);
int loop_HD_SL_ALL(Run& run);
int loop_HD_HL_ALL(Run& run);

// Packed ASCII records.
int loopfmt(Run& run);

// Fills the buffer the first time (delimited input), adds the all-variables
// bit and runs the loop that the layout bits, allout and otyp choose.
int select_and_run_loop(Run& run);

}  // namespace kolv
