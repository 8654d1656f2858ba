// The one translation from the command language to the engine: the run's
// settings and tables, final after the passes and the set-up, as a Plan.
#pragma once

#include "base/state.hpp"
#include "engine/plan.hpp"

namespace kolv {

// Reads fmtflag, delimiter, ndels, varformat and allout (the layout), otyp,
// cplx and mstring, noauto (NOCHECK), the input and output tables and the
// packed record description. Throws std::bad_alloc.
Plan make_plan(const Run& run);

}  // namespace kolv
