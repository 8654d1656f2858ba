// The block of finished rows that every row loop fills and writes: at most
// kBlockBytes, one write call per full block.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "engine/loops.hpp"

namespace kolv {

// How writing a block ended.
enum class BlockWrite { kWritten, kFailed };

class BlockWriter {
 public:
  // zero_after_write: start every block from zero bytes, for loops that leave
  // part of an element unwritten (a packed character field narrower than the
  // element).
  BlockWriter(Engine& engine, bool zero_after_write)
      : engine_(engine), zero_after_write_(zero_after_write) {}

  // Room for rows_per_block rows of row_bytes each, and slack bytes after the
  // block that a row's scan may touch. False when memory runs out.
  bool reserve(size_t row_bytes, size_t rows_per_block, size_t slack) {
    block_.reset(new (std::nothrow) char[rows_per_block * row_bytes + slack]());
    row_bytes_ = row_bytes;
    rows_per_block_ = rows_per_block;
    buffered_ = 0;
    return block_ != nullptr;
  }

  // Where the next row goes.
  char* row() { return block_.get() + buffered_ * row_bytes_; }

  // Counts the row just built into row() and writes the block when it is full.
  BlockWrite finish_row() {
    ++engine_.rows;
    if (++buffered_ < rows_per_block_) return BlockWrite::kWritten;
    return flush();
  }

  // Rows built elsewhere: a whole block of them (rows_per_block rows at
  // rows) written while no row is held, by the same single write that a
  // full block built in place would take, and counted alike.
  BlockWrite write_block(const char* rows) {
    engine_.rows += static_cast<uint32_t>(rows_per_block_);
    return write_rows(rows, rows_per_block_) ? BlockWrite::kWritten : BlockWrite::kFailed;
  }
  size_t held() const { return buffered_; }
  size_t rows_per_block() const { return rows_per_block_; }

  // Writes the rows held, if any.
  BlockWrite flush() {
    if (buffered_ == 0) return BlockWrite::kWritten;
    const size_t rows = buffered_;
    buffered_ = 0;
    if (!write_rows(block_.get(), rows)) return BlockWrite::kFailed;
    if (zero_after_write_) std::memset(block_.get(), 0, rows_per_block_ * row_bytes_);
    return BlockWrite::kWritten;
  }

 private:
  // One write of the rows. When it fails (a full disk) the output is cut back
  // to where the block began and the block's rows are taken off the row
  // count, so the completed header counts exactly the rows the file holds.
  bool write_rows(const char* from, size_t rows) {
    FILE* out = engine_.sink;
    const off_t before = ::lseek(::fileno(out), 0, SEEK_END);
    if (std::fwrite(from, rows * row_bytes_, 1, out) == 1) return true;
    if (before >= 0 && ::ftruncate(::fileno(out), before) != 0) {
      // The short block stays; the header still counts only whole blocks.
    }
    engine_.rows -= static_cast<uint32_t>(rows);
    return false;
  }

  Engine& engine_;
  bool zero_after_write_;
  std::unique_ptr<char[]> block_;
  size_t row_bytes_ = 0;
  size_t rows_per_block_ = 1;
  size_t buffered_ = 0;
};

}  // namespace kolv
