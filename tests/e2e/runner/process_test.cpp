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

#include "support/files.hpp"
#include "support/scratch.hpp"

namespace kolv::e2e {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

class ProcessTest : public ::testing::Test {
 protected:
  static std::string slurp(const std::string& path) { return kolv_support::read_file(path); }

  kolv_support::ScratchDir scratch_{"kolv_e2e_process", "/tmp"};
  std::string dir_ = scratch_.path();
  std::string out_ = dir_ + "/out";
  std::string err_ = dir_ + "/err";
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
