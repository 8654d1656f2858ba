// Keeps the user documentation true:
//  - each manual page under man/ renders with groff and with man -l without a
//    single warning (skipped, with a message, where those tools are missing);
//  - kolv(1) carries the version that kolv's banner prints and shows every
//    message found in kolv's sources, and kolvdump(1) names every option of
//    kolvdump's usage line and every one of its diagnostics;
//  - each folder under examples/ that holds an expected.txt is copied to a
//    fresh temporary directory, its command files are run with the built kolv
//    in name order, and kolvdump's text of the data sets they leave equals
//    expected.txt byte for byte.
// The tests are registered at start-up from what the folders hold.

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "support/files.hpp"
#include "support/scratch.hpp"

extern char** environ;

namespace {

const std::string kVersion = KOLV_DOCS_VERSION;  // CMake's project(VERSION)
const std::string kKolv = KOLV_DOCS_KOLV;
const std::string kKolvdump = KOLV_DOCS_KOLVDUMP;
const std::string kManDir = KOLV_DOCS_MAN_DIR;
const std::string kExamplesDir = KOLV_DOCS_EXAMPLES_DIR;
const std::string kSourceDir = KOLV_DOCS_SOURCE_DIR;
const std::string kKolvdumpSourceDir = KOLV_DOCS_KOLVDUMP_SOURCE_DIR;

struct Outcome {
  bool started = false;
  int status = -1;  // exit status; -1 when the program did not exit normally
  std::string out;
  std::string err;
  std::string why;  // why it did not start
};

using kolv_support::read_file;
using kolv_support::ScratchDir;

bool is_directory(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool is_regular(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool ends_with(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// Names in a directory (not "." or ".."), sorted.
std::vector<std::string> list_dir(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      std::string name = e->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The program's path when it is found on PATH, else an empty string.
std::string find_on_path(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::stringstream dirs(path != nullptr ? path : "/usr/bin:/bin");
  std::string dir;
  while (std::getline(dirs, dir, ':')) {
    std::string candidate = (dir.empty() ? "." : dir) + "/" + program;
    if (is_regular(candidate) && access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return "";
}

// Runs program with args in cwd; standard input is /dev/null and both output
// streams are captured through files in scratch.
Outcome run(const std::string& program, const std::vector<std::string>& args,
            const std::string& cwd, const std::string& scratch) {
  Outcome result;
  const std::string out_path = scratch + "/.stdout";
  const std::string err_path = scratch + "/.stderr";
  std::vector<std::string> strings{program};
  strings.insert(strings.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& s : strings) argv.push_back(s.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const int flags = O_WRONLY | O_CREAT | O_TRUNC;
  int rc = posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (rc == 0) rc = posix_spawn_file_actions_addopen(&actions, 1, out_path.c_str(), flags, 0600);
  if (rc == 0) rc = posix_spawn_file_actions_addopen(&actions, 2, err_path.c_str(), flags, 0600);
  if (rc == 0) rc = posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
  pid_t pid = 0;
  if (rc == 0) rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    result.why = "cannot start " + program + ": " + std::strerror(rc);
    return result;
  }
  result.started = true;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
  result.out = read_file(out_path);
  result.err = read_file(err_path);
  unlink(out_path.c_str());
  unlink(err_path.c_str());
  return result;
}

std::string describe(const Outcome& o) {
  return "exit status " + std::to_string(o.status) + "\n--- standard output:\n" + o.out +
         "--- standard error:\n" + o.err;
}

// A test body for testing::RegisterTest.
class Check : public testing::Test {
 public:
  explicit Check(std::function<void()> body) : body_(std::move(body)) {}
  void TestBody() override { body_(); }

 private:
  std::function<void()> body_;
};

void add_test(const std::string& suite, const std::string& name, std::function<void()> body) {
  // '-' would start a negative pattern in a test filter.
  std::string test_name = name;
  std::replace(test_name.begin(), test_name.end(), '-', '_');
  std::replace(test_name.begin(), test_name.end(), '.', '_');
  testing::RegisterTest(suite.c_str(), test_name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                        [body]() -> testing::Test* { return new Check(body); });
}

// --- manual pages -----------------------------------------------------------

void renders_with_groff(const std::string& page) {
  std::string groff = find_on_path("groff");
  if (groff.empty()) {
    GTEST_SKIP() << "groff is not installed (Debian/Ubuntu: apt-get install groff-base); "
                    "the manual pages cannot be checked";
  }
  const ScratchDir scratch("kolv_docs");
  ASSERT_FALSE(scratch.path().empty());
  Outcome o = run(groff, {"-man", "-Tutf8", "-ww", "-z", page}, scratch.path(), scratch.path());
  ASSERT_TRUE(o.started) << o.why;
  EXPECT_EQ(o.status, 0) << describe(o);
  EXPECT_EQ(o.err, "") << "groff warns about " << page;
}

void renders_with_man(const std::string& page) {
  std::string man = find_on_path("man");
  if (man.empty()) {
    GTEST_SKIP() << "man is not installed (Debian/Ubuntu: apt-get install man-db); "
                    "the manual pages cannot be checked";
  }
  const ScratchDir scratch("kolv_docs");
  ASSERT_FALSE(scratch.path().empty());
  Outcome o = run(man, {"--warnings=w", "-l", page}, scratch.path(), scratch.path());
  ASSERT_TRUE(o.started) << o.why;
  EXPECT_EQ(o.status, 0) << describe(o);
  EXPECT_EQ(o.err, "") << "man -l warns about " << page;
  EXPECT_NE(o.out.find("NAME"), std::string::npos) << "nothing rendered:\n" << o.out;
}

std::string roff_plain_text(const std::string& roff);

// Every page's title line names the project's version.
void page_names_project_version(const std::string& page) {
  const std::string text = read_file(page);
  const size_t th = text.find("\n.TH ");
  ASSERT_NE(th, std::string::npos) << page << " has no .TH line";
  const std::string title = text.substr(th + 1, text.find('\n', th + 1) - th - 1);
  EXPECT_NE(title.find("\"kolv " + kVersion + "\""), std::string::npos)
      << "the title line \"" << title << "\" should name kolv " << kVersion;
}

// kolv(1)'s title line and banner name the version that the banner prints,
// the project's version.
void kolv_page_has_banner_version(const std::string& page) {
  const ScratchDir scratch("kolv_docs");
  ASSERT_FALSE(scratch.path().empty());
  Outcome o = run(kKolv, {}, scratch.path(), scratch.path());
  ASSERT_TRUE(o.started) << o.why;
  ASSERT_EQ(o.status, 0) << describe(o);
  const std::string mark = "KOLV Version ";
  size_t at = o.out.find(mark);
  ASSERT_NE(at, std::string::npos) << describe(o);
  std::string version = o.out.substr(at + mark.size());
  version = version.substr(0, version.find_first_of(" \n"));
  ASSERT_FALSE(version.empty());

  std::string text = read_file(page);
  size_t th = text.find("\n.TH ");
  ASSERT_NE(th, std::string::npos) << page << " has no .TH line";
  std::string title = text.substr(th + 1, text.find('\n', th + 1) - th - 1);
  EXPECT_NE(title.find("\"kolv " + version + "\""), std::string::npos)
      << "the title line \"" << title << "\" should name kolv " << version;
  EXPECT_EQ(version, kVersion) << "the banner's version is not the project's";
  EXPECT_NE(roff_plain_text(text).find(mark + kVersion + "  ("), std::string::npos)
      << page << " does not show the banner with version " << kVersion;
}

// The text of a roff page with its character escapes undone and its font
// changes removed, so that messages can be looked up as the program prints
// them.
std::string roff_plain_text(const std::string& roff) {
  static const std::pair<const char*, const char*> kEscapes[] = {
      {"\\f(CR", ""}, {"\\fB", ""},   {"\\fI", ""}, {"\\fP", ""},   {"\\fR", ""},
      {"\\&", ""},    {"\\|", ""},    {"\\-", "-"}, {"\\(aq", "'"}, {"\\(dq", "\""},
      {"\\(ti", "~"}, {"\\(ha", "^"}, {"\\e", "\\"}};
  std::string text;
  for (size_t i = 0; i < roff.size();) {
    bool replaced = false;
    for (const auto& [from, to] : kEscapes) {
      size_t n = std::strlen(from);
      if (roff.compare(i, n, from) == 0) {
        text += to;
        i += n;
        replaced = true;
        break;
      }
    }
    if (!replaced) text += roff[i++];
  }
  return text;
}

// The string literals of a C++ source file, escapes decoded.
std::vector<std::string> string_literals(const std::string& source) {
  std::vector<std::string> literals;
  for (size_t i = 0; i < source.size(); ++i) {
    char c = source[i];
    if (c == '\'') {  // a character literal such as '"'
      size_t end = i + 1;
      while (end < source.size() && source[end] != '\'') end += source[end] == '\\' ? 2u : 1u;
      i = end;
    } else if (c == '/' && i + 1 < source.size() && source[i + 1] == '/') {
      i = source.find('\n', i);
      if (i == std::string::npos) break;
    } else if (c == '"') {
      std::string literal;
      size_t j = i + 1;
      for (; j < source.size() && source[j] != '"'; ++j) {
        if (source[j] == '\\' && j + 1 < source.size()) {
          char e = source[++j];
          literal += e == 'n' ? '\n' : e == 't' ? '\t' : e;
        } else {
          literal += source[j];
        }
      }
      literals.push_back(literal);
      i = j;
    }
  }
  return literals;
}

// The fixed pieces of a message: its text between printf directives and line
// ends.
std::vector<std::string> fixed_pieces(const std::string& message) {
  std::vector<std::string> pieces;
  std::string piece;
  auto flush = [&] {
    if (piece.find_first_not_of(' ') != std::string::npos) pieces.push_back(piece);
    piece.clear();
  };
  for (size_t i = 0; i < message.size(); ++i) {
    if (message[i] == '%') {
      flush();
      ++i;
      while (i < message.size() && std::strchr("-+ #0123456789.lzh", message[i]) != nullptr) ++i;
    } else if (message[i] == '\n') {
      flush();
    } else {
      piece += message[i];
    }
  }
  flush();
  return pieces;
}

// Whether a literal of the program's sources is one of its messages: errors,
// warnings, reports and their continuation lines, the summary lines.
bool is_message(const std::string& s) {
  static const char* const kStarts[] = {"KOLV",
                                        "\nKOLV",
                                        "kolv -",
                                        "WARNING:",
                                        "IGNORING:",
                                        "Records beginning",
                                        " Setting record",
                                        "Bad data",
                                        "Missing delimiter",
                                        "Unexpected delimiter",
                                        "End of file",
                                        "Last row incomplete",
                                        "%u extra bytes",
                                        "Command file:",
                                        "Input file:",
                                        "Output file:",
                                        "ASCII Conversion",
                                        "   Hex:",
                                        "       "};
  for (const char* start : kStarts) {
    if (s.rfind(start, 0) == 0) return true;
  }
  return false;
}

void collect_sources(const std::string& dir, std::vector<std::string>& files) {
  for (const std::string& name : list_dir(dir)) {
    std::string path = dir + "/" + name;
    if (is_directory(path)) {
      collect_sources(path, files);
    } else if (ends_with(name, ".cpp") || ends_with(name, ".hpp")) {
      files.push_back(path);
    }
  }
}

// Every message that kolv's sources can print is written out in kolv(1).
void kolv_page_has_every_message(const std::string& page) {
  const std::string text = roff_plain_text(read_file(page));
  std::vector<std::string> files;
  collect_sources(kSourceDir, files);
  ASSERT_FALSE(files.empty()) << "no sources under " << kSourceDir;
  int messages = 0;
  for (const std::string& file : files) {
    for (const std::string& literal : string_literals(read_file(file))) {
      if (!is_message(literal)) continue;
      ++messages;
      for (const std::string& piece : fixed_pieces(literal)) {
        EXPECT_NE(text.find(piece), std::string::npos)
            << page << " does not show \"" << piece << "\" of the message in " << file;
      }
    }
  }
  EXPECT_GT(messages, 50) << "too few messages found under " << kSourceDir;
}

// Every diagnostic of kolvdump (the text of each say(...) call in its
// sources) is written out in kolvdump(1).
void kolvdump_page_has_every_message(const std::string& page) {
  const std::string text = roff_plain_text(read_file(page));
  std::vector<std::string> files;
  collect_sources(kKolvdumpSourceDir, files);
  ASSERT_FALSE(files.empty()) << "no sources under " << kKolvdumpSourceDir;
  int messages = 0;
  for (const std::string& file : files) {
    const std::string source = read_file(file);
    for (size_t at = source.find("say(err, \""); at != std::string::npos;
         at = source.find("say(err, \"", at + 1)) {
      std::vector<std::string> literals = string_literals(source.substr(at + 9));
      if (literals.empty()) continue;
      ++messages;
      for (const std::string& piece : fixed_pieces(literals.front())) {
        EXPECT_NE(text.find(piece), std::string::npos)
            << page << " does not show \"" << piece << "\" of the message in " << file;
      }
    }
  }
  EXPECT_GT(messages, 5) << "too few messages found under " << kKolvdumpSourceDir;
}

// Every option of kolvdump's usage line appears in kolvdump(1), written with
// roff's minus signs.
void kolvdump_page_names_every_option(const std::string& page) {
  const ScratchDir scratch("kolv_docs");
  ASSERT_FALSE(scratch.path().empty());
  Outcome o = run(kKolvdump, {"--help"}, scratch.path(), scratch.path());
  ASSERT_TRUE(o.started) << o.why;
  ASSERT_EQ(o.status, 0) << describe(o);
  std::string text = read_file(page);
  std::istringstream words(o.out);
  std::string word;
  int options = 0;
  while (words >> word) {
    word.erase(
        std::remove_if(word.begin(), word.end(), [](char c) { return c == '[' || c == ']'; }),
        word.end());
    if (word.rfind("-", 0) != 0) continue;
    ++options;
    std::string roff;
    for (char c : word) roff += c == '-' ? std::string("\\-") : std::string(1, c);
    EXPECT_NE(text.find(roff), std::string::npos) << page << " does not describe " << word;
  }
  EXPECT_GT(options, 0) << "no options found in the usage line: " << o.out;
}

// --- examples -----------------------------------------------------------------

void example_reads_back_as_expected(const std::string& folder) {
  const ScratchDir scratch("kolv_docs");
  ASSERT_FALSE(scratch.path().empty());
  const std::string work = scratch.path();

  // The example's own files, without data sets left by a run in place.
  std::vector<std::string> commands;
  for (const std::string& name : list_dir(folder)) {
    const std::string from = folder + "/" + name;
    if (!is_regular(from) || ends_with(name, ".dat") || name == "expected.txt") continue;
    std::ofstream(work + "/" + name, std::ios::binary) << read_file(from);
    if (ends_with(name, ".cmd")) commands.push_back(name);
  }
  ASSERT_FALSE(commands.empty()) << folder << " holds no command file";

  for (const std::string& command : commands) {
    Outcome o = run(kKolv, {command}, work, work);
    ASSERT_TRUE(o.started) << o.why;
    ASSERT_EQ(o.status, 0) << "kolv " << command << "\n" << describe(o);
  }

  std::string dumped;
  int data_sets = 0;
  for (const std::string& name : list_dir(work)) {
    if (!ends_with(name, ".dat")) continue;
    ++data_sets;
    Outcome o = run(kKolvdump, {name}, work, work);
    ASSERT_TRUE(o.started) << o.why;
    EXPECT_EQ(o.status, 0) << "kolvdump " << name << "\n" << describe(o);
    dumped += o.out;
  }
  EXPECT_GT(data_sets, 0) << "the command files made no data set";
  EXPECT_EQ(dumped, read_file(folder + "/expected.txt"));
}

void register_tests() {
  add_test("docs_man", "pages_present", [] {
    for (const char* page : {"kolv.1", "kolvdump.1", "kolvprep.1"}) {
      EXPECT_TRUE(is_regular(kManDir + "/" + page)) << kManDir << "/" << page << " is missing";
    }
  });
  for (const std::string& name : list_dir(kManDir)) {
    if (!ends_with(name, ".1")) continue;
    const std::string page = kManDir + "/" + name;
    add_test("docs_man", name + "_groff", [page] { renders_with_groff(page); });
    add_test("docs_man", name + "_man", [page] { renders_with_man(page); });
    add_test("docs_man", name + "_project_version", [page] { page_names_project_version(page); });
    if (name == "kolv.1") {
      add_test("docs_man", name + "_version", [page] { kolv_page_has_banner_version(page); });
      add_test("docs_man", name + "_messages", [page] { kolv_page_has_every_message(page); });
    }
    if (name == "kolvdump.1") {
      add_test("docs_man", name + "_options", [page] { kolvdump_page_names_every_option(page); });
      add_test("docs_man", name + "_messages", [page] { kolvdump_page_has_every_message(page); });
    }
  }
  for (const std::string& name : list_dir(kExamplesDir)) {
    const std::string folder = kExamplesDir + "/" + name;
    if (!is_directory(folder) || !is_regular(folder + "/expected.txt")) continue;
    add_test("docs_examples", name, [folder] { example_reads_back_as_expected(folder); });
  }
}

}  // namespace

int main(int argc, char** argv) {
  register_tests();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
