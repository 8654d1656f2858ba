// Runs one program in a given working directory with standard input from
// /dev/null and standard output and error captured to files, under a time limit.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace kolv::e2e {

struct ProcessResult {
  bool started = false;  // false: error says why nothing ran
  bool timed_out = false;
  bool exited = false;  // normal exit; exit_status is valid
  int exit_status = 0;
  int signal = 0;  // the signal that ended it, when it did not exit
  std::string error;
};

// argv[0] is the program path itself; args follow it.
ProcessResult run_process(const std::string& program, const std::vector<std::string>& args,
                          const std::string& cwd, const std::string& stdout_path,
                          const std::string& stderr_path, std::chrono::milliseconds limit);

}  // namespace kolv::e2e
