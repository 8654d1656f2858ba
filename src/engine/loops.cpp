#include "engine/loops.hpp"

#include "engine/parallel.hpp"
#include "engine/readbuf.hpp"
#include "engine/row_engine.hpp"
#include "engine/threads.hpp"

namespace kolv {

namespace {

template <RowLayout L, bool All>
LoopStatus by_width(Engine& engine) {
  switch (engine.plan.element) {
    case ElementType::kInt16:
      return row_loop<L, 2, All>(engine);
    case ElementType::kFloat32:
      return row_loop<L, 4, All>(engine);
    case ElementType::kDouble:
      return row_loop<L, 8, All>(engine);
  }
  return kLoopNoType;
}

template <RowLayout L>
LoopStatus by_columns(Engine& engine) {
  return engine.plan.all_columns ? by_width<L, true>(engine) : by_width<L, false>(engine);
}

}  // namespace

LoopStatus run_delimited(Engine& engine) {
  switch (engine.plan.layout) {
    case RowLayout::kSoft:
      return by_columns<RowLayout::kSoft>(engine);
    case RowLayout::kNewline:
      return by_columns<RowLayout::kNewline>(engine);
    case RowLayout::kHardStream:
      return by_columns<RowLayout::kHardStream>(engine);
    case RowLayout::kLinePerRow:
      return by_columns<RowLayout::kLinePerRow>(engine);
    case RowLayout::kPacked:
      break;
  }
  return kLoopNoType;
}

LoopStatus Engine::convert(Source& source, RowSink& row_sink) {
  rb.infp = source.file;
  input_name = source.name;
  sink = row_sink.file;
  if (plan.layout == RowLayout::kPacked) return loopfmt(*this);
  LoopStatus status = kLoopDone;
  if (convert_in_parallel(*this, source, conversion_threads(), status) == Parallel::kFinished)
    return status;
  first_fill(rb);
  return run_delimited(*this);
}

}  // namespace kolv
