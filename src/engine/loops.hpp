// The engine's entry: a conversion run from a plan, with its own state.
//
// There is one row engine for delimited input (layouts.hpp, row_engine.hpp),
// specialised at compile time by record layout, element width and whether
// every input variable is output, and one loop for packed records (loopfmt).
// Engine::convert picks the one the plan asks for.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "base/console.hpp"
#include "base/state.hpp"
#include "engine/plan.hpp"

namespace kolv {

// What a row loop returns. The driver reports kLoopNoMemory and
// kLoopWriteFailed, and completes the output in every case.
enum LoopStatus : int {
  kLoopDone = 0,         // the input was read to its end
  kLoopNoMemory = 1,     // no row buffer could be had
  kLoopWriteFailed = 2,  // a block write failed (a full disk)
  kLoopRejected = 3,     // the input was rejected after a bad-data report
  kLoopNoType = -1,      // no loop for the element type
};

// The text to convert: an open file and the name its reports give.
struct Source {
  FILE* file = nullptr;
  std::string name;
};

// Where finished rows go: an unbuffered stream, written one block at a time.
struct RowSink {
  FILE* file = nullptr;
};

// One conversion's mutable state: the read buffer, the counters and the
// context of its reports. The plan is only read.
struct Engine {
  // Allocates the read buffer and the character flags (std::bad_alloc).
  Engine(const Plan& p, Console console)
      : plan(p), io(console), vrec(static_cast<size_t>(std::max(1000, p.variables())), 0) {}
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // Reads the source to its end, writing rows to the sink.
  LoopStatus convert(Source& source, RowSink& sink);

  const Plan& plan;
  Console io;
  ReadBuffer rb;           // the input's text, kReadSize bytes at a time
  std::string input_name;  // the source's name, for reports
  FILE* sink = nullptr;    // the row sink's stream
  uint32_t rows = 0;       // rows written by this conversion
  int32_t srcrow = 1;      // current input line, for reports
  int64_t record = 0;      // packed: the record length read by, line end included
  // One flag per input variable: 1 once character data were read there, 255
  // once such data had to be cut to 8 bytes.
  std::vector<uint8_t> vrec;
};

// The bytes of one output row of a delimited conversion.
inline size_t row_bytes(const Plan& plan) {
  const size_t columns =
      plan.all_columns ? static_cast<size_t>(plan.variables()) : plan.columns.size();
  return static_cast<size_t>(plan.width()) * columns * static_cast<size_t>(plan.parts());
}

// The delimited row loops, after the first fill: the one instantiation that
// the plan's layout, element type and column choice select.
LoopStatus run_delimited(Engine& engine);

// Packed ASCII records.
LoopStatus loopfmt(Engine& engine);

}  // namespace kolv
