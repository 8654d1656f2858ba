// The row engine: reads rows by a layout's rules, turns each into output
// elements and writes them in blocks of at most kBlockBytes.
#pragma once

#include <cstdio>
#include <memory>
#include <new>
#include <vector>

#include "engine/elements.hpp"
#include "engine/layouts.hpp"
#include "engine/loops.hpp"
#include "engine/messages.hpp"
#include "engine/rowblock.hpp"

namespace kolv {

namespace engine_detail {

inline void report_incomplete_row(Engine& engine, const char* pos) {
  sourcerr(engine, kLastRowIncomplete, pos, engine.srcrow);
}

}  // namespace engine_detail

// Layout L, element width W (2, 4 or 8); All: every input variable is output
// in input order, otherwise the columns that the plan selects. With All and
// W == 8 fields are scanned straight into the output block.
template <RowLayout L, int W, bool All>
LoopStatus row_loop(Engine& engine) {
  using namespace engine_detail;
  const Plan& plan = engine.plan;
  const int cplx = plan.parts();
  const int n = plan.variables() * cplx;
  const int outputs = static_cast<int>(plan.columns.size());
  const int columns = All ? n : outputs * cplx;
  constexpr bool kDirect = All && W == 8;
  const size_t row_bytes = kolv::row_bytes(plan);
  size_t rows_per_block = row_bytes == 0 ? 1 : kBlockBytes / row_bytes;
  if (rows_per_block == 0) rows_per_block = 1;  // a row wider than a block still fits one

  std::unique_ptr<char[]> row_buffer;
  BlockWriter writer(engine, false);
  std::vector<FieldKind> types;
  std::vector<int32_t> selected;
  try {
    if (!kDirect) row_buffer.reset(new char[8 * static_cast<size_t>(n) + 8]());
    types.resize(static_cast<size_t>(n) + 1);
    for (int k = 0; k < n; ++k)
      types[static_cast<size_t>(k)] = plan.kinds[static_cast<size_t>(k / cplx)];
    if (!All) {
      // Input slot of every output element: real part, then imaginary part.
      selected.resize(static_cast<size_t>(columns) + 1);
      for (int j = 0; j < outputs; ++j)
        for (int c = 0; c < cplx; ++c)
          selected[static_cast<size_t>(j * cplx + c)] =
              plan.columns[static_cast<size_t>(j)] * cplx + c;
    }
  } catch (const std::bad_alloc&) {
    return kLoopNoMemory;
  }
  // Slack after the block: a direct scan writes whole 8-byte slots.
  if (!writer.reserve(row_bytes, rows_per_block, 8)) return kLoopNoMemory;

  ReadBuffer& rb = engine.rb;
  char* pos = rb.inbuff.get();
  if (*pos == '\0') return kLoopDone;
  if constexpr (L == RowLayout::kSoft) {
    pos = skip<is_soft_separator>(rb, pos, engine.srcrow);
    if (*pos == '\0') return kLoopDone;
  }

  bool partial = false;
  for (;;) {
    char* out = writer.row();
    char* slots = kDirect ? out : row_buffer.get();
    RowEnd end = read_row<L>(engine, pos, slots, n, types.data(), partial);
    if (end == RowEnd::kRejected) return kLoopRejected;
    if (end == RowEnd::kIncomplete) {
      report_incomplete_row(engine, pos);
      return writer.flush() == BlockWrite::kWritten ? kLoopDone : kLoopWriteFailed;
    }
    if constexpr (!kDirect) {
      for (int j = 0; j < columns; ++j) {
        int slot = All ? j : selected[static_cast<size_t>(j)];
        put_element<W>(out + static_cast<size_t>(j) * W, slots + 8 * static_cast<size_t>(slot));
      }
    }
    if (writer.finish_row() == BlockWrite::kFailed) return kLoopWriteFailed;
    if (at_refill(rb, pos)) pos = fillbuff(rb, pos);
    if (*pos == '\0') break;
  }
  if (writer.flush() == BlockWrite::kFailed) return kLoopWriteFailed;
  if (L == RowLayout::kLinePerRow && partial) std::fputs(kPartialRecords, engine.io.err);
  return kLoopDone;
}

}  // namespace kolv
