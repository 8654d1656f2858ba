// The 128 KiB read buffer: filled from the input, always ended by a zero byte,
// refilled in place by moving the unconsumed tail to the front.
#pragma once

#include "base/state.hpp"

namespace kolv {

// Fills the buffer for the first time (the run driver's first fill).
void first_fill(ReadBuffer& rb);

// Moves the text from pos (up to its zero byte) to the buffer's start, reads
// more input behind it while there is more, ends it with a zero byte and
// returns the buffer's start.
char* fillbuff(ReadBuffer& rb, char* pos);

// True when pos is at the zero byte and more input may follow: the place for
// a refill.
inline bool at_refill(const ReadBuffer& rb, const char* pos) {
  return *pos == '\0' && rb.theresmore;
}

}  // namespace kolv
