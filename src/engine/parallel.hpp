// Conversion on several threads: the input is cut into chunks at line ends
// (line per row) or record ends (packed records),
// workers convert the chunks into rows in memory, and the calling thread
// writes the rows in input order through the row loops' block writer, with
// their block sizes. A worker refuses a chunk at any event whose outcome could
// depend on where the text lies in the read buffer or that prints a message;
// the conversion then starts again on one thread from the input's start.
#pragma once

#include <cstdint>

#include "engine/loops.hpp"

namespace kolv {

// What convert_in_parallel did.
enum class Parallel {
  kNotTried,  // the input or the layout is not one for threads; nothing read
  kFinished,  // the conversion ran to its end; its status is set
  kRefused,   // a chunk was refused: the input, the sink and the engine are as
              // they were before the call, ready for the one-threaded run
};

// Converts the source on `threads` threads when its layout and size allow.
Parallel convert_in_parallel(Engine& engine, Source& source, int threads, LoopStatus& status);

// Packed records of length `record` (line ends already checked) from
// engine.rb.infp, on `threads` threads when the input's size allows.
Parallel convert_packed_in_parallel(Engine& engine, int64_t record, int threads,
                                    LoopStatus& status);

}  // namespace kolv
