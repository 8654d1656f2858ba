// Fuzz target: the command file. The fuzzed bytes are the statements of a
// command file, after a fixed INPUT and OUTPUT naming a small input and an
// existing data set in the scratch directory, so that every pass, every
// statement parser, the output preparation (append included) and a
// conversion of that input can be reached. Later INPUT and OUTPUT
// statements of the fuzzed bytes override the fixed pair.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_common.hpp"

namespace {

// Small enough to convert at once, varied enough for every layout: blanks,
// commas, semicolons, bars and tabs between values; missing values, words,
// a complex pair, a line without line end; fixed-width lines for packed
// records.
const char kInput[] =
    "  12 3.5 abc\n"
    "-1,2,.\n"
    "4;5;6\n"
    "7|8|9\n"
    "1.5e3\t-2\tword\n"
    "(1,2) 3 +4\n"
    "0001000200030004\n"
    "0005000600070008\n"
    ". . .\n"
    "x 1e400 -0";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace kolv_fuzz;
  Sandbox& box = Sandbox::get();
  static bool input_written = false;
  if (!input_written) {
    write_file(box.path("in.txt"), kInput);
    input_written = true;
  }
  const std::string statements = confined(data, size);
  std::string out;
  // Not quiet: the banner and the summary lines are printed too.
  const int status = box.run(files_head(box) + statements, out, false);
  if (status == 255 && !mentions_append(statements)) box.expect_output_kept("fatal end");
  return 0;
}
