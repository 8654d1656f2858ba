// One corpus case end to end: the export written to a folder, kolvprep run
// on it, the command it prints run with `sh -c`, and the data set read back
// (through kolvdump's reader) and scored against the case's truth.
#pragma once

#include <cstdint>
#include <string>

#include "generator.hpp"

namespace corpus {

enum class Score { kRight, kRepaired, kSetAside, kRefused, kWrong, kSkipped };
const char* score_word(Score score);

struct Outcome {
  Score score = Score::kWrong;
  std::string why;  // for kWrong and kSkipped: what went wrong
  // Records and cells of the truth that the data set holds as they should be.
  uint64_t records = 0, records_right = 0;
  uint64_t cells = 0, cells_right = 0;
};

// Writes the export of `c` into `dir` (compressed by its program when the
// case says so) and truth.txt beside it. False with `error` when it cannot,
// `missing_tool` true when the compressing program is not installed or this
// build of kolvprep cannot read its files.
bool write_case(const Case& c, const std::string& dir, std::string& error, bool& missing_tool);

// Runs the case in `dir` (an empty folder) with the programs of `bin_path`
// (a PATH prefix) and scores it.
Outcome run_case(const Case& c, const std::string& dir, const std::string& bin_path);

}  // namespace corpus
