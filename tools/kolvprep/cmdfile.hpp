// From a detection to what kolvprep hands the user: the command that
// converts the file, the command file that command runs, and a short report.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "detect.hpp"

namespace kolvprep {

struct Plan {
  bool direct = false;          // kolv reads the file as it is
  char msym = 0;                // a second missing-value symbol for MSYM (direct only)
  std::string input;            // the INPUT statement's file
  bool input_redirect = false;  // the file reaches kolv on standard input (`< FILE`)
  std::vector<std::string> text_options;
  std::string command;  // the shell command that converts the file
};

// The file name as one shell word.
std::string shell_quote(std::string_view word);

// Decides whether kolv can read the file as it is, and the command.
Plan make_plan(const Detection& d, const std::string& file, const std::string& name);

// The command file's text.
std::string command_file_text(const Detection& d, const Plan& plan, const std::string& file,
                              const std::string& name, const char* version);

// The report's warnings and notes, one line each (without the prefix).
std::vector<std::string> report_warnings(const Detection& d, const Plan& plan);
std::vector<std::string> report_notes(const Detection& d, const Plan& plan);

// One line: the layout found, as the report and the command file say it.
std::string layout_summary(const Detection& d);

}  // namespace kolvprep
