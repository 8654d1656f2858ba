// The process runner: working directory, captured streams, exit status,
// ending by a signal and the time limit.
#include "process.hpp"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace kolv::e2e {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

class ProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/kolv_e2e_process_XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    char resolved[PATH_MAX];
    ASSERT_NE(realpath(name, resolved), nullptr);
    dir_ = resolved;
    out_ = dir_ + "/out";
    err_ = dir_ + "/err";
  }
  void TearDown() override { fs::remove_all(dir_); }

  static std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }

  std::string dir_, out_, err_;
};

TEST_F(ProcessTest, RunsInTheDirectoryWithStreamsCapturedAndNoInput) {
  ProcessResult r =
      run_process("/bin/sh", {"-c", "pwd; echo oops >&2; read x; echo read=$?; exit 3"}, dir_, out_,
                  err_, milliseconds(10000));
  ASSERT_TRUE(r.started) << r.error;
  EXPECT_FALSE(r.timed_out);
  ASSERT_TRUE(r.exited);
  EXPECT_EQ(r.exit_status, 3);
  EXPECT_EQ(slurp(out_), dir_ + "\nread=1\n");  // read fails at once on /dev/null
  EXPECT_EQ(slurp(err_), "oops\n");
}

TEST_F(ProcessTest, ArgumentsArePassedAsTheyAre) {
  ProcessResult r = run_process("/bin/sh", {"-c", "printf '[%s]' \"$@\"", "sh", "a b", "", "-noc"},
                                dir_, out_, err_, milliseconds(10000));
  ASSERT_TRUE(r.exited);
  EXPECT_EQ(slurp(out_), "[a b][][-noc]");
}

TEST_F(ProcessTest, ExitStatus255) {
  ProcessResult r =
      run_process("/bin/sh", {"-c", "exit 255"}, dir_, out_, err_, milliseconds(10000));
  ASSERT_TRUE(r.exited);
  EXPECT_EQ(r.exit_status, 255);
}

TEST_F(ProcessTest, EndedBySignal) {
  ProcessResult r =
      run_process("/bin/sh", {"-c", "kill -9 $$"}, dir_, out_, err_, milliseconds(10000));
  ASSERT_TRUE(r.started);
  EXPECT_FALSE(r.exited);
  EXPECT_EQ(r.signal, 9);
}

TEST_F(ProcessTest, KilledAtTheTimeLimit) {
  const auto start = std::chrono::steady_clock::now();
  ProcessResult r = run_process("/bin/sleep", {"30"}, dir_, out_, err_, milliseconds(200));
  EXPECT_TRUE(r.timed_out);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(ProcessTest, MissingProgramIsReported) {
  ProcessResult r =
      run_process(dir_ + "/no_such_program", {}, dir_, out_, err_, milliseconds(1000));
  EXPECT_FALSE(r.started);
  EXPECT_NE(r.error.find("no_such_program"), std::string::npos) << r.error;
}

}  // namespace
}  // namespace kolv::e2e
