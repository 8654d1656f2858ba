// How many threads a conversion may use, and how large its chunks are.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kolv {

// Inputs smaller than this convert on one thread: starting workers would
// cost more than it saves.
inline constexpr int64_t kParallelMinBytes = int64_t{4} << 20;

// The text one worker converts at a time, cut at a line end.
inline constexpr size_t kDefaultChunkBytes = size_t{1} << 20;

// The cores this process may run on: its CPU affinity, bounded by the CPU
// limit of its control groups (cpu.max), at least 1.
int usable_cores();

// KOLV_THREADS when it is a whole number from 1 up, otherwise
// usable_cores(). 1 converts on the calling thread alone.
int conversion_threads();

// KOLV_CHUNK_BYTES when set to a whole number from 1 up (for tests: tiny
// chunks make even small inputs run in parallel), otherwise 0.
size_t chunk_bytes_override();

}  // namespace kolv
