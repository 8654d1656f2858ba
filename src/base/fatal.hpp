// getout: the one fatal exit of a run.
#pragma once

namespace kolv {

// Formats the message printf-style and throws FatalError. The run's entry
// catches it, closes the files, removes the temporary output unless
// appending, prints the message and ends with status -1.
[[noreturn]] void getout(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Ends the run as getout does but prints nothing: the reason was printed
// already (statement errors, a bad-data report).
[[noreturn]] void end_quietly();

}  // namespace kolv
