// The variable tables: the input table that INVAR and INVAR RECORD fill, its
// growth, and the look-up of a name among the input variables.
#pragma once

#include "base/state.hpp"

namespace kolv {

// Starts empty input tables with room for 1000 variables; ends the run with
// out_of_memory when even that cannot be had.
void reset_input_tables(Run& run, const char* out_of_memory);

// Grows the input tables to capacity entries; false when memory runs out.
bool grow_input_tables(Run& run, long capacity);

// Adds vname with the current type; grows the tables to capacity when full.
void makeivar(Run& run, long capacity);

// Index of name among the input variables, ignoring case, or -1. Tries the
// entry at varout first (outputs in input order), then the first match from 0.
int getvardex(Run& run, const char* name);

}  // namespace kolv
