// INVAR for delimited input: variable names and types, ranges, and the
// DELIMIT clause that chooses the hard-delimited layouts.
#pragma once

#include "base/state.hpp"

namespace kolv {

// Parses the INVAR statement in the read buffer; returns the number of input
// variables (a packed RECORD description is handed to scanformat).
int scaninvar(Run& run);

// Parses a DELIMIT clause at run.rb.sptr (just after the word); 1 valid, 0 not.
int scandel(Run& run);

// Adds vname with the current type; grows the tables to capacity when full.
void makeivar(Run& run, long capacity);

// Index of name among the input variables, ignoring case, or -1. Tries the
// entry at varout first (outputs in input order), then scans from 0.
int getvardex(Run& run, const char* name);

// Starts empty input tables with room for 1000 variables.
void reset_input_tables(Run& run, const char* out_of_memory);

// Grows the input tables to capacity entries; false when memory runs out.
bool grow_input_tables(Run& run, long capacity);

// True when p begins with word (any case) not followed by a name character.
bool starts_with_word(const char* p, const char* word);

}  // namespace kolv
