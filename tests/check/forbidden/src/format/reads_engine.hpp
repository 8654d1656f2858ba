// A format header that reaches up into the engine: the layer check must
// refuse this tree.
#pragma once

#include "base/state.hpp"
#include "engine/loops.hpp"
