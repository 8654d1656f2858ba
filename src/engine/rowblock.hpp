// Writing a block of finished rows to the output.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstdio>

#include "base/state.hpp"

namespace kolv {

// Writes rows x row_bytes bytes with one write. When the write fails (a full
// disk) the output is cut back to where the block began and the block's rows
// are taken off the row count, so the completed header counts exactly the
// rows the file holds. Returns false on failure.
inline bool write_block(Run& run, const char* block, size_t rows, size_t row_bytes) {
  FILE* out = run.files.fout;
  off_t before = ::lseek(::fileno(out), 0, SEEK_END);
  if (std::fwrite(block, rows * row_bytes, 1, out) == 1) return true;
  if (before >= 0 && ::ftruncate(::fileno(out), before) != 0) {
    // The short block stays; the header still counts only whole blocks.
  }
  run.cnt.row -= static_cast<uint32_t>(rows);
  return false;
}

}  // namespace kolv
