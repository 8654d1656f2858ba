// The golden-case machinery itself, driven by small cases whose "program" is
// /bin/sh running a script given in args, so that every kind of mismatch can
// be provoked on purpose.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "golden_case.hpp"
#include "support/scratch.hpp"

namespace kolv::e2e {
namespace {

namespace fs = std::filesystem;

class GoldenRunnerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    options_.program = "/bin/sh";
    options_.build_date = "Jan 02 2026";
  }

  void put(const std::string& relative, const std::string& text) {
    fs::path path = case_dir_ / relative;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
  }
  std::string get(const std::string& relative) {
    std::ifstream in(case_dir_ / relative, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }
  // The case runs: sh -c <script>
  void script(const std::string& body) { put("args", "-c\n" + body + "\n"); }

  std::string failures() {
    CaseOutcome outcome = run_case(case_dir_, options_);
    std::string all;
    for (const std::string& f : outcome.failures) all += f + "\n";
    return all;
  }

  kolv_support::ScratchDir scratch_{"kolv_e2e_selftest", "/tmp"};
  fs::path case_dir_ = scratch_.path();
  RunnerOptions options_;
};

TEST_F(GoldenRunnerTest, MatchingRunPasses) {
  script(
      "printf 'in %s on @\\n' \"$PWD\"; printf 'Jan 02 2026\\n' >&2; printf 'data' > out.bin; exit "
      "3");
  put("in.txt", "1 2\n");
  put("expected/status", "3\n");
  put("expected/stdout", "in @DIR@ on @\n");
  put("expected/stderr", "@DATE@\n");
  put("expected/files/out.bin.bytes", "hex 64 61 74 61  # data\n");
  EXPECT_EQ(failures(), "");
}

TEST_F(GoldenRunnerTest, StatusAndStreamsAreCompared) {
  script("echo two; exit 1");
  put("expected/status", "0\n");
  put("expected/stdout", "one\n");
  std::string f = failures();
  EXPECT_NE(f.find("exit status 1, expected 0"), std::string::npos) << f;
  EXPECT_NE(f.find("stdout differs"), std::string::npos) << f;
  EXPECT_NE(f.find("actual   1: two\\n"), std::string::npos) << f;
}

TEST_F(GoldenRunnerTest, MissingStdoutMeansEmpty) {
  script("echo surprise");
  put("expected/status", "0\n");
  EXPECT_NE(failures().find("stdout differs"), std::string::npos);
}

TEST_F(GoldenRunnerTest, LeftOverFileFails) {
  script("printf x > out_Ab12Cd; exit 0");
  put("expected/status", "0\n");
  EXPECT_NE(failures().find("unexpected file left behind: out_Ab12Cd (1 bytes)"),
            std::string::npos);
}

TEST_F(GoldenRunnerTest, LeftOverFolderFails) {
  script("mkdir junk");
  put("expected/status", "0\n");
  EXPECT_NE(failures().find("unexpected folder left behind: junk"), std::string::npos);
}

TEST_F(GoldenRunnerTest, InputsMustStayUnchanged) {
  script("echo changed > a.txt; rm sub/b.txt");
  put("a.txt", "original\n");
  put("sub/b.txt", "kept?\n");
  put("expected/status", "0\n");
  std::string f = failures();
  EXPECT_NE(f.find("input file a.txt was changed"), std::string::npos) << f;
  EXPECT_NE(f.find("input file was removed: sub/b.txt"), std::string::npos) << f;
}

TEST_F(GoldenRunnerTest, ExpectedFilesAreComparedByteForByte) {
  script("printf 'abc' > out.dat");
  put("expected/status", "0\n");
  put("expected/files/out.dat.bytes", "hex 61 62 64\n");
  put("expected/files/other.txt", "x");
  std::string f = failures();
  EXPECT_NE(f.find("file out.dat differs from expected/files/out.dat.bytes"), std::string::npos)
      << f;
  EXPECT_NE(f.find("offset 2"), std::string::npos) << f;
  EXPECT_NE(f.find("expected file is missing: other.txt"), std::string::npos) << f;
}

TEST_F(GoldenRunnerTest, ChangedInputListedAsExpectedIsAllowed) {
  script("echo new > data.dat");
  put("data.dat", "old\n");
  put("expected/status", "0\n");
  put("expected/files/data.dat", "new\n");
  EXPECT_EQ(failures(), "");
}

TEST_F(GoldenRunnerTest, SetupMakesFoldersFillsAndChangesModes) {
  script("stat -c '%a %s' ro.txt big/f.bin; test -d made/deep && echo dir");
  put("ro.txt", "r\n");
  put("setup", "# comment\nmode 0444 ro.txt\n\nmkdir made/deep\nfill big/f.bin 70000 41\n");
  put("expected/status", "0\n");
  put("expected/stdout", "444 2\n644 70000\ndir\n");
  EXPECT_EQ(failures(), "");
}

TEST_F(GoldenRunnerTest, ArgumentsOnePerLine) {
  put("args", "-c\nprintf '[%s]' \"$@\"\nsh\n\n-noc\n");
  put("expected/status", "0\n");
  put("expected/stdout", "[][-noc]");
  EXPECT_EQ(failures(), "");
}

TEST_F(GoldenRunnerTest, MistakesInTheCaseAreReported) {
  script("true");
  EXPECT_NE(failures().find("expected/status is missing"), std::string::npos);
  put("expected/status", "0\n");
  put("setup", "chmod 7 x\n");
  EXPECT_NE(failures().find("setup line 1"), std::string::npos);
  put("setup", "mkdir ../outside\n");
  EXPECT_NE(failures().find("must not contain '..'"), std::string::npos);
  fs::remove(case_dir_ / "setup");
  put("expected/files/out.bytes", "u8 1\nbogus\n");
  EXPECT_NE(failures().find("expected/files/out.bytes: line 2: unknown directive"),
            std::string::npos);
}

TEST_F(GoldenRunnerTest, UpdateRewritesStreamsWithPlaceholdersButNotFiles) {
  script("echo \"at $PWD on Jan 02 2026\"; exit 4");
  put("expected/status", "0\n");
  put("expected/stderr", "stale\n");
  put("expected/files/out.bin.bytes", "hex 01\n");
  options_.update = true;
  std::string f = failures();
  EXPECT_NE(f.find("expected file is missing: out.bin"), std::string::npos) << f;
  EXPECT_EQ(get("expected/status"), "4\n");
  EXPECT_EQ(get("expected/stdout"), "at @DIR@ on @DATE@\n");
  EXPECT_FALSE(fs::exists(case_dir_ / "expected/stderr"));  // empty output: file removed
  EXPECT_EQ(get("expected/files/out.bin.bytes"), "hex 01\n");
  options_.update = false;
  EXPECT_EQ(failures(), "expected file is missing: out.bin\n");
}

TEST_F(GoldenRunnerTest, KeepLeavesTheDirectory) {
  script("echo kept > k.txt");
  put("expected/status", "0\n");
  put("expected/files/k.txt", "kept\n");
  options_.keep = true;
  CaseOutcome outcome = run_case(case_dir_, options_);
  EXPECT_TRUE(outcome.failures.empty());
  ASSERT_EQ(outcome.notes.size(), 1u);
  const std::string& note = outcome.notes[0];
  const size_t start = note.find("/tmp/");
  ASSERT_NE(start, std::string::npos) << note;
  const fs::path root = note.substr(start, note.find(' ', start) - start);
  EXPECT_TRUE(fs::exists(root / "work" / "k.txt")) << root;
  fs::remove_all(root);
}

TEST(GoldenCaseList, FoldersSortedAndHiddenSkipped) {
  const kolv_support::ScratchDir scratch("kolv_e2e_list", "/tmp");
  const fs::path dir = scratch.path();
  for (const char* sub : {"b_case", "a_case", ".hidden"}) fs::create_directory(dir / sub);
  std::ofstream(dir / "README") << "not a case";
  EXPECT_EQ(list_case_names(dir), (std::vector<std::string>{"a_case", "b_case"}));
}

}  // namespace
}  // namespace kolv::e2e
