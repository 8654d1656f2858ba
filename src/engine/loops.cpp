#include "engine/loops.hpp"

#include "base/fatal.hpp"
#include "engine/readbuf.hpp"
#include "engine/row_engine.hpp"

namespace kolv {

namespace {

// Selected-variable loops serve every element size; the width is fixed per run.
template <RowLayout L>
LoopStatus some_loop(Run& run) {
  switch (run.set.otyp) {
    case 2:
      return row_loop<L, 2, false>(run);
    case 4:
      return row_loop<L, 4, false>(run);
    case 8:
      return row_loop<L, 8, false>(run);
    default:
      return kLoopNoType;
  }
}

// Converting all-variable loops: 2- or 4-byte elements.
template <RowLayout L>
LoopStatus shfl_loop(Run& run) {
  if (run.set.otyp == 2) return row_loop<L, 2, true>(run);
  if (run.set.otyp == 4) return row_loop<L, 4, true>(run);
  return kLoopNoType;
}

template <RowLayout L>
LoopStatus all_dispatch(Run& run) {
  if (run.set.otyp == 2 || run.set.otyp == 4) return shfl_loop<L>(run);
  if (run.set.otyp == 8) return row_loop<L, 8, true>(run);
  return kLoopNoType;
}

}  // namespace

LoopStatus loop_SD_SL_SOME(Run& run) {
  return some_loop<RowLayout::kSoft>(run);
}
LoopStatus loop_HD_NL_SOME(Run& run) {
  return some_loop<RowLayout::kNewline>(run);
}
LoopStatus loop_HD_SL_SOME(Run& run) {
  return some_loop<RowLayout::kHardStream>(run);
}
LoopStatus loop_HD_HL_SOME(Run& run) {
  return some_loop<RowLayout::kLinePerRow>(run);
}

LoopStatus loop_shfl_SD_SL_ALL(Run& run) {
  return shfl_loop<RowLayout::kSoft>(run);
}
LoopStatus loop_dbl_SD_SL_ALL(Run& run) {
  return row_loop<RowLayout::kSoft, 8, true>(run);
}
LoopStatus loop_shfl_HD_NL_ALL(Run& run) {
  return shfl_loop<RowLayout::kNewline>(run);
}
LoopStatus loop_dbl_HD_NL_ALL(Run& run) {
  return row_loop<RowLayout::kNewline, 8, true>(run);
}
LoopStatus loop_shfl_HD_SL_ALL(Run& run) {
  return shfl_loop<RowLayout::kHardStream>(run);
}
LoopStatus loop_dbl_HD_SL_ALL(Run& run) {
  return row_loop<RowLayout::kHardStream, 8, true>(run);
}
LoopStatus loop_shfl_HD_HL_ALL(Run& run) {
  return shfl_loop<RowLayout::kLinePerRow>(run);
}
LoopStatus loop_dbl_HD_HL_ALL(Run& run) {
  return row_loop<RowLayout::kLinePerRow, 8, true>(run);
}

LoopStatus loop_SD_SL_ALL(Run& run) {
  return all_dispatch<RowLayout::kSoft>(run);
}
LoopStatus loop_HD_NL_ALL(Run& run) {
  return all_dispatch<RowLayout::kNewline>(run);
}
LoopStatus loop_HD_SL_ALL(Run& run) {
  return all_dispatch<RowLayout::kHardStream>(run);
}
LoopStatus loop_HD_HL_ALL(Run& run) {
  return all_dispatch<RowLayout::kLinePerRow>(run);
}

LoopStatus select_and_run_loop(Run& run) {
  if (run.lay.varformat == 2) return loopfmt(run);
  first_fill(run.rb);
  if (run.lay.allout) run.lay.fmtflag |= 8;
  const bool newline = run.lay.delimiter == '\n';
  switch (run.lay.fmtflag) {
    case 0:
      return loop_SD_SL_SOME(run);
    case 2:
      return newline ? loop_HD_NL_SOME(run) : loop_HD_SL_SOME(run);
    case 6:
      return loop_HD_HL_SOME(run);
    case 8:
      return loop_SD_SL_ALL(run);
    case 10:
      return newline ? loop_HD_NL_ALL(run) : loop_HD_SL_ALL(run);
    case 14:
      return loop_HD_HL_ALL(run);
    default:
      getout("KOLV - Internal error 301\n");
  }
}

}  // namespace kolv
