#include "golden_case.hpp"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "byte_language.hpp"
#include "difference.hpp"
#include "process.hpp"
#include "support/files.hpp"

namespace fs = std::filesystem;

namespace kolv::e2e {
namespace {

constexpr std::chrono::seconds kTimeLimit{60};

// A mistake in the case folder itself (not in the program under test).
struct CaseError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A case that copies a real-data file cannot run where the real-data folder
// is not beside the project.
struct MissingRealData : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string read_file(const fs::path& path) {
  std::string bytes;
  if (!kolv_support::read_file(path.string(), bytes))
    throw CaseError("cannot read " + path.string());
  return bytes;
}

void write_file(const fs::path& path, std::string_view data) {
  if (!kolv_support::write_file(path.string(), data))
    throw CaseError("cannot write " + path.string());
}

std::vector<std::string> split_words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

// A path inside the temporary directory: relative and never climbing out.
fs::path inner_path(const std::string& text, const std::string& where) {
  fs::path path(text);
  if (text.empty() || path.is_absolute())
    throw CaseError(where + ": path must be relative: " + text);
  for (const fs::path& part : path)
    if (part == "..") throw CaseError(where + ": path must not contain '..': " + text);
  return path.lexically_normal();
}

void add_parents(std::set<std::string>& dirs, fs::path path) {
  for (path = path.parent_path(); !path.empty(); path = path.parent_path())
    dirs.insert(path.generic_string());
}

// What the temporary directory must hold after the run.
struct Expectation {
  std::map<std::string, std::string> inputs;   // relative path -> bytes before the run
  std::map<std::string, std::string> outputs;  // relative path -> expected bytes
  std::map<std::string, std::string> sources;  // expected path -> file in the case that gives it
  std::set<std::string> dirs;                  // directories that may exist
};

bool is_case_control(const fs::path& relative) {
  const std::string first = relative.begin()->string();
  return first == "expected" || first == "NOTES" || first == "args" || first == "setup";
}

// Copies the input files of the case into work and records them.
void copy_inputs(const fs::path& case_dir, const fs::path& work, Expectation& expect) {
  for (auto it = fs::recursive_directory_iterator(case_dir);
       it != fs::recursive_directory_iterator(); ++it) {
    fs::path relative = it->path().lexically_relative(case_dir);
    if (is_case_control(relative)) {
      if (it->is_directory()) it.disable_recursion_pending();
      continue;
    }
    if (it->is_directory()) {
      fs::create_directories(work / relative);
      expect.dirs.insert(relative.generic_string());
    } else if (it->is_regular_file()) {
      fs::create_directories((work / relative).parent_path());
      std::string bytes = read_file(it->path());
      write_file(work / relative, bytes);
      expect.inputs[relative.generic_string()] = std::move(bytes);
      add_parents(expect.dirs, relative);
    } else {
      throw CaseError("input is neither a file nor a folder: " + relative.string());
    }
  }
}

std::uint64_t setup_number(const std::string& text, int base, const std::string& where) {
  size_t used = 0;
  std::uint64_t value = 0;
  try {
    value = std::stoull(text, &used, base);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != text.size() || text[0] == '-' || text[0] == '+')
    throw CaseError(where + ": not a number: " + text);
  return value;
}

void apply_setup(const fs::path& case_dir, const fs::path& work, Expectation& expect) {
  const fs::path setup = case_dir / "setup";
  if (!fs::exists(setup)) return;
  std::istringstream lines(read_file(setup));
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const std::string where = "setup line " + std::to_string(number);
    std::vector<std::string> words = split_words(line);
    if (words.empty() || words[0][0] == '#') continue;
    const std::string& verb = words[0];
    if (verb == "mkdir" && words.size() == 2) {
      fs::path path = inner_path(words[1], where);
      fs::create_directories(work / path);
      expect.dirs.insert(path.generic_string());
      add_parents(expect.dirs, path);
    } else if (verb == "fill" && words.size() == 4) {
      fs::path path = inner_path(words[1], where);
      std::uint64_t count = setup_number(words[2], 10, where);
      std::uint64_t byte = setup_number(words[3], 16, where);
      if (byte > 255) throw CaseError(where + ": byte out of range: " + words[3]);
      std::string bytes(count, static_cast<char>(byte));
      fs::create_directories((work / path).parent_path());
      write_file(work / path, bytes);
      expect.inputs[path.generic_string()] = std::move(bytes);
      add_parents(expect.dirs, path);
    } else if (verb == "realdata" && words.size() == 3) {
      const std::string& name = words[1];
      if (name.find('/') != std::string::npos || name == "." || name == "..")
        throw CaseError(where + ": not a real-data file name: " + name);
      const fs::path source = fs::path(KOLV_E2E_REALDATA_DIR) / name;
      if (!fs::is_directory(source.parent_path()))
        throw MissingRealData("the real-data folder " + source.parent_path().string() +
                              " is not there, so " + name + " cannot be copied in");
      if (!fs::is_regular_file(source))
        throw CaseError(where + ": no real-data file " + source.string());
      fs::path path = inner_path(words[2], where);
      std::string bytes = read_file(source);
      fs::create_directories((work / path).parent_path());
      write_file(work / path, bytes);
      expect.inputs[path.generic_string()] = std::move(bytes);
      add_parents(expect.dirs, path);
    } else if (verb == "mode" && words.size() == 3) {
      std::uint64_t mode = setup_number(words[1], 8, where);
      fs::path path = inner_path(words[2], where);
      if (chmod((work / path).c_str(), static_cast<mode_t>(mode)) != 0)
        throw CaseError(where + ": cannot change the mode of " + words[2]);
    } else {
      throw CaseError(where +
                      ": expected mode <octal> <path>, mkdir <path>, fill <path> "
                      "<count> <byte-hex> or realdata <name> <path>: " +
                      line);
    }
  }
}

void load_expected_files(const fs::path& case_dir, Expectation& expect) {
  const fs::path root = case_dir / "expected" / "files";
  if (!fs::exists(root)) return;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file()) continue;
    fs::path relative = entry.path().lexically_relative(root);
    std::string name = relative.generic_string();
    std::string bytes;
    if (relative.extension() == ".bytes") {
      name.resize(name.size() - 6);
      try {
        Bytes assembled = assemble_bytes(read_file(entry.path()));
        bytes.assign(assembled.begin(), assembled.end());
      } catch (const ByteLanguageError& e) {
        throw CaseError("expected/files/" + relative.generic_string() + ": " + e.what());
      }
    } else {
      bytes = read_file(entry.path());
    }
    if (expect.outputs.count(name))
      throw CaseError("expected file given twice (raw and .bytes): " + name);
    expect.outputs[name] = std::move(bytes);
    expect.sources[name] = "expected/files/" + relative.generic_string();
    add_parents(expect.dirs, fs::path(name));
  }
}

// The arguments, one per line; a missing file means the single argument run.cmd.
std::vector<std::string> load_args(const fs::path& case_dir) {
  const fs::path path = case_dir / "args";
  if (!fs::exists(path)) return {"run.cmd"};
  std::string text = read_file(path);
  std::vector<std::string> args;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    args.push_back(text.substr(pos, end - pos));
    pos = end + 1;
  }
  return args;
}

int load_status(const fs::path& case_dir) {
  const fs::path path = case_dir / "expected" / "status";
  if (!fs::exists(path)) throw CaseError("expected/status is missing (it is required)");
  std::string text = read_file(path);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  return static_cast<int>(setup_number(text, 10, "expected/status"));
}

std::string load_optional(const fs::path& path) {
  return fs::exists(path) ? read_file(path) : "";
}

// Opens up every folder and file so that the check and the removal can read them.
void make_accessible(const fs::path& root) {
  std::error_code ec;
  fs::permissions(root, fs::perms::owner_all, fs::perm_options::add, ec);
  for (auto it = fs::recursive_directory_iterator(root, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (it->is_symlink()) continue;
    fs::perms add = it->is_directory() ? fs::perms::owner_all : fs::perms::owner_read;
    fs::permissions(it->path(), add, fs::perm_options::add, ec);
    ec.clear();
  }
}

void check_tree(const fs::path& work, const Expectation& expect, CaseOutcome& outcome) {
  std::set<std::string> seen;
  for (const auto& entry : fs::recursive_directory_iterator(work)) {
    const std::string name = entry.path().lexically_relative(work).generic_string();
    const fs::file_status status = entry.symlink_status();
    if (fs::is_directory(status)) {
      if (!expect.dirs.count(name))
        outcome.failures.push_back("unexpected folder left behind: " + name);
      continue;
    }
    seen.insert(name);
    const bool listed = expect.outputs.count(name) || expect.inputs.count(name);
    if (!listed) {
      std::string what = "unexpected file left behind: " + name;
      if (fs::is_regular_file(status))
        what += " (" + std::to_string(fs::file_size(entry.path())) + " bytes)";
      outcome.failures.push_back(what);
      continue;
    }
    if (!fs::is_regular_file(status)) {
      outcome.failures.push_back("not a regular file: " + name);
      continue;
    }
    const std::string actual = read_file(entry.path());
    if (auto out = expect.outputs.find(name); out != expect.outputs.end()) {
      std::string diff = describe_byte_difference(out->second, actual);
      if (!diff.empty())
        outcome.failures.push_back("file " + name + " differs from " + expect.sources.at(name) +
                                   ":\n" + diff);
    } else {
      std::string diff = describe_byte_difference(expect.inputs.at(name), actual);
      if (!diff.empty())
        outcome.failures.push_back("input file " + name + " was changed:\n" + diff);
    }
  }
  for (const auto& [name, bytes] : expect.outputs)
    if (!seen.count(name)) outcome.failures.push_back("expected file is missing: " + name);
  for (const auto& [name, bytes] : expect.inputs)
    if (!seen.count(name) && !expect.outputs.count(name))
      outcome.failures.push_back("input file was removed: " + name);
}

// The expected text with its placeholders filled in.
std::string expand(const std::string& text, const std::string& dir, const std::string& date) {
  return replace_all(replace_all(text, "@DIR@", dir), "@DATE@", date);
}

// The actual text with the run's directory and build date turned back into placeholders.
std::string generalise(const std::string& text, const std::string& dir, const std::string& date) {
  std::string out = replace_all(text, dir, "@DIR@");
  return date.empty() ? out : replace_all(out, date, "@DATE@");
}

void compare_stream(const char* stream, const fs::path& case_dir, const std::string& actual,
                    const std::string& dir, const RunnerOptions& options, CaseOutcome& outcome) {
  const fs::path path = case_dir / "expected" / stream;
  if (options.update) {
    if (actual.empty()) {
      fs::remove(path);
    } else {
      write_file(path, generalise(actual, dir, options.build_date));
    }
    return;
  }
  std::string diff =
      describe_text_difference(expand(load_optional(path), dir, options.build_date), actual);
  if (!diff.empty())
    outcome.failures.push_back(std::string(stream) + " differs from expected/" + stream + ":\n" +
                               diff);
}

std::string make_temp_root() {
  std::string name = "/tmp/kolv_e2e_XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw CaseError("mkdtemp failed under /tmp");
  return name;
}

void run_in(const fs::path& case_dir, const fs::path& root, const RunnerOptions& options,
            CaseOutcome& outcome) {
  const fs::path work = root / "work";
  fs::create_directory(work);
  Expectation expect;
  copy_inputs(case_dir, work, expect);
  apply_setup(case_dir, work, expect);
  load_expected_files(case_dir, expect);
  const std::vector<std::string> args = load_args(case_dir);
  const int expected_status = options.update ? 0 : load_status(case_dir);

  char resolved[PATH_MAX];
  if (realpath(work.c_str(), resolved) == nullptr)
    throw CaseError("realpath failed on " + work.string());
  const std::string dir = resolved;

  const fs::path stdout_path = root / "stdout";
  const fs::path stderr_path = root / "stderr";
  ProcessResult run = run_process(options.program, args, dir, stdout_path, stderr_path, kTimeLimit);
  if (!run.started) {
    outcome.failures.push_back(run.error);
    return;
  }
  make_accessible(root);
  const std::string actual_out = load_optional(stdout_path);
  const std::string actual_err = load_optional(stderr_path);

  if (run.timed_out) {
    outcome.failures.push_back("no exit within " + std::to_string(kTimeLimit.count()) +
                               " s; killed");
  } else if (!run.exited) {
    outcome.failures.push_back("ended by signal " + std::to_string(run.signal));
  } else if (options.update) {
    fs::create_directories(case_dir / "expected");
    write_file(case_dir / "expected" / "status", std::to_string(run.exit_status) + "\n");
  } else if (run.exit_status != expected_status) {
    outcome.failures.push_back("exit status " + std::to_string(run.exit_status) + ", expected " +
                               std::to_string(expected_status));
  }
  if (options.update && (run.timed_out || !run.exited)) {
    outcome.failures.push_back("expectations not updated: the run did not end normally");
  } else {
    compare_stream("stdout", case_dir, actual_out, dir, options, outcome);
    compare_stream("stderr", case_dir, actual_err, dir, options, outcome);
    if (options.update)
      outcome.notes.push_back("updated expected/status, stdout and stderr of " + case_dir.string());
  }
  check_tree(work, expect, outcome);
}

}  // namespace

std::string replace_all(std::string text, const std::string& from, const std::string& to) {
  if (from.empty()) return text;
  for (size_t pos = text.find(from); pos != std::string::npos;
       pos = text.find(from, pos + to.size()))
    text.replace(pos, from.size(), to);
  return text;
}

std::vector<std::string> list_case_names(const fs::path& dir) {
  std::vector<std::string> names;
  if (!fs::is_directory(dir)) return names;
  for (const auto& entry : fs::directory_iterator(dir)) {
    std::string name = entry.path().filename().string();
    if (entry.is_directory() && name[0] != '.') names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string test_name_for(const std::string& folder) {
  std::string name = folder;
  for (char& c : name)
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') c = '_';
  return name;
}

CaseOutcome run_case(const fs::path& case_dir, const RunnerOptions& options) {
  CaseOutcome outcome;
  std::string root;
  try {
    root = make_temp_root();
    run_in(case_dir, root, options, outcome);
  } catch (const MissingRealData& e) {
    outcome.skipped = e.what();
  } catch (const std::exception& e) {
    outcome.failures.push_back(std::string("case could not be run: ") + e.what());
  }
  if (root.empty()) return outcome;
  if (options.keep) {
    outcome.notes.push_back("kept the temporary directory " + root +
                            " (the run's files are in work/)");
  } else {
    make_accessible(root);
    std::error_code ec;
    fs::remove_all(root, ec);
  }
  return outcome;
}

}  // namespace kolv::e2e
