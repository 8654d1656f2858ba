// One golden case: a folder of inputs and expectations, run against the real
// program in a fresh temporary directory (the format is in tests/e2e/README.md).
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kolv::e2e {

struct RunnerOptions {
  std::string program;     // the kolv binary
  std::string build_date;  // what @DATE@ stands for
  bool keep = false;       // leave the temporary directory and print its path
  bool update = false;     // rewrite expected/status, stdout and stderr from the run
};

struct CaseOutcome {
  std::vector<std::string> failures;  // empty when the case passed
  std::vector<std::string> notes;     // things worth printing either way
  std::string skipped;                // why the case could not run here (a missing real-data file)
};

// Names of the case folders under dir, sorted; hidden folders are skipped.
std::vector<std::string> list_case_names(const std::filesystem::path& dir);

// A test name for a folder name: letters, digits and '_' kept, others become '_'.
std::string test_name_for(const std::string& folder);

CaseOutcome run_case(const std::filesystem::path& case_dir, const RunnerOptions& options);

// Replaces every occurrence of from by to.
std::string replace_all(std::string text, const std::string& from, const std::string& to);

}  // namespace kolv::e2e
