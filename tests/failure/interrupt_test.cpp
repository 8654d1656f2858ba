// Interrupted and concurrent runs of the real kolv program.
//
// The kill test starts kolv on an input that takes a few hundred
// milliseconds to convert, sends one of SIGINT, SIGTERM, SIGHUP, SIGPIPE and
// SIGXFSZ after a random delay (seeded, so every run of the test sends the
// same signals at the same fractions of the conversion time), and checks what
// is left: no temporary output, an earlier output either untouched or
// replaced by the complete new data set, an appended data set either
// byte-identical to its copy before the run or holding the old rows plus all
// the new ones under a header that counts them. A run that exited by itself
// must have completed; a run that did not must have died by the signal sent.
//
// The expected data sets are built here from the file layout and from the
// values the test wrote into the input, never from what kolv printed.
//
// KOLV_KILL_SEED changes the seed and KOLV_KILL_TRACE prints each kill's
// timings. The input is scaled to take about 300 ms to convert (smaller on a
// sanitizer build, larger on a fast machine), so the number of kills stays
// the same.
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#ifndef KOLV_PROGRAM
#error "KOLV_PROGRAM must name the kolv program"
#endif

#include "support/dataset.hpp"
#include "support/files.hpp"
#include "support/scratch.hpp"

namespace {

using kolv_support::data_offset;
using kolv_support::file_exists;
using kolv_support::get32;
using kolv_support::header;
using kolv_support::put32;
using kolv_support::read_file;
using kolv_support::variable_block;
using kolv_support::write_file;

// Whether the file holds exactly `expected`, read through one fixed buffer.
bool file_equals(const std::string& path, const std::string& expected) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  static char chunk[1 << 20];
  size_t at = 0;
  bool same = true;
  for (;;) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      same = same && n == 0 && at == expected.size();
      break;
    }
    const size_t got = static_cast<size_t>(n);
    if (at + got > expected.size() || std::memcmp(chunk, expected.data() + at, got) != 0) {
      same = false;
      break;
    }
    at += got;
  }
  ::close(fd);
  return same;
}

long long file_size(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

// ---- data set bytes, from the file layout ----

void append_double(std::string& bytes, double value) {
  char raw[8];
  std::memcpy(raw, &value, 8);
  bytes.append(raw, 8);
}

// ---- scratch directory and runs ----

class Scratch {
 public:
  std::string at(const std::string& name) const { return scratch_.file(name); }
  const std::string& dir() const { return scratch_.path(); }

  // Temporary outputs: out_ and six characters.
  std::vector<std::string> temporaries() const {
    std::vector<std::string> found;
    for (const std::string& name : scratch_.entries())
      if (name.size() == 10 && name.compare(0, 4, "out_") == 0) found.push_back(name);
    return found;
  }

 private:
  kolv_support::ScratchDir scratch_{"kolv_interrupt"};
};

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ};

// Starts kolv in the scratch directory with `command` (a command file there)
// and -noc; standard output and error go to files named after `tag`.
// `file_limit` (bytes, or -1) lowers RLIMIT_FSIZE with SIGXFSZ left at its
// default action.
pid_t start_kolv(const Scratch& scratch, const std::string& command, const std::string& tag,
                 long long file_limit = -1, int ignored = 0) {
  const std::string out = scratch.at(tag + ".stdout");
  const std::string err = scratch.at(tag + ".stderr");
  const pid_t child = ::fork();
  if (child != 0) return child;
  // In the child only async-signal-safe calls until exec. The signals the
  // test sends start with their default actions, unblocked.
  for (int sig : kSignals) ::signal(sig, sig == ignored ? SIG_IGN : SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  if (::chdir(scratch.dir().c_str()) != 0) ::_exit(120);
  const int in = ::open("/dev/null", O_RDONLY);
  const int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  const int e = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (in < 0 || o < 0 || e < 0) ::_exit(121);
  ::dup2(in, 0);
  ::dup2(o, 1);
  ::dup2(e, 2);
  if (file_limit >= 0) {
    struct rlimit rl;
    rl.rlim_cur = static_cast<rlim_t>(file_limit);
    rl.rlim_max = static_cast<rlim_t>(file_limit);
    if (::setrlimit(RLIMIT_FSIZE, &rl) != 0) ::_exit(122);
  }
  ::alarm(120);
  char* argv[] = {const_cast<char*>(KOLV_PROGRAM), const_cast<char*>(command.c_str()),
                  const_cast<char*>("-noc"), nullptr};
  ::execv(KOLV_PROGRAM, argv);
  ::_exit(124);
}

struct Ending {
  int status = -1;  // exit status, -1 when ended by a signal
  int signal = 0;
};

Ending wait_for(pid_t child) {
  int wstatus = 0;
  while (::waitpid(child, &wstatus, 0) < 0 && errno == EINTR) {
  }
  Ending end;
  if (WIFEXITED(wstatus)) end.status = WEXITSTATUS(wstatus);
  if (WIFSIGNALED(wstatus)) end.signal = WTERMSIG(wstatus);
  return end;
}

void sleep_us(long long us) {
  struct timespec ts;
  ts.tv_sec = static_cast<time_t>(us / 1000000);
  ts.tv_nsec = static_cast<long>(us % 1000000 * 1000);
  while (::nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

// ---- the scenarios of the kill test ----

// Row values: row i holds i, (i mod 1000)/8 and i mod 7 (all exact in
// binary and in three decimals).
double value_b(size_t i) {
  return static_cast<double>(i % 1000) / 8.0;
}

// Soft-delimited input of three variables, and its rows as 8-byte elements.
std::string delimited_input(size_t rows) {
  std::string text;
  text.reserve(rows * 24);
  char line[64];
  for (size_t i = 0; i < rows; ++i) {
    int n = std::snprintf(line, sizeof line, "%zu %.3f %zu\n", i, value_b(i), i % 7);
    text.append(line, static_cast<size_t>(n));
  }
  return text;
}

std::string delimited_rows(size_t rows) {
  std::string bytes;
  bytes.reserve(rows * 24);
  for (size_t i = 0; i < rows; ++i) {
    append_double(bytes, static_cast<double>(i));
    append_double(bytes, value_b(i));
    append_double(bytes, static_cast<double>(i % 7));
  }
  return bytes;
}

// Packed records of 21 bytes (two fields of 10 columns and the line end).
std::string packed_input(size_t rows) {
  std::string text;
  text.reserve(rows * 21);
  char line[64];
  for (size_t i = 0; i < rows; ++i) {
    int n = std::snprintf(line, sizeof line, "%10zu%10.3f\n", i, value_b(i));
    text.append(line, static_cast<size_t>(n));
  }
  return text;
}

std::string packed_rows(size_t rows) {
  std::string bytes;
  bytes.reserve(rows * 16);
  for (size_t i = 0; i < rows; ++i) {
    append_double(bytes, static_cast<double>(i));
    append_double(bytes, value_b(i));
  }
  return bytes;
}

// An earlier data set: one variable X, 100 rows of 7.0. Its variable block
// is shorter than those of the runs appending to it, so their blocks go over
// its first rows.
std::string earlier_data_set() {
  std::string ds = header(8, 100, 1) + variable_block({"X"});
  for (int i = 0; i < 100; ++i) append_double(ds, 7.0);
  return ds;
}

const char kEarlierOutput[] = "bytes of an earlier output, which no interrupted run may touch";

enum class Before { kNone, kOtherFile, kDataSet };

struct Scenario {
  const char* name;
  bool packed;
  Before before;
  bool append;
  uint64_t seed;
};

// What the kill test saw, for the report at the end.
struct Tally {
  std::map<std::string, int> counts;  // "signal / phase / outcome" -> kills
  int kills = 0;
};

const char* signal_name(int sig) {
  switch (sig) {
    case SIGINT:
      return "SIGINT";
    case SIGTERM:
      return "SIGTERM";
    case SIGHUP:
      return "SIGHUP";
    case SIGPIPE:
      return "SIGPIPE";
    case SIGXFSZ:
      return "SIGXFSZ";
  }
  return "?";
}

class KillTest : public ::testing::TestWithParam<Scenario> {
 protected:
  Scratch scratch;
  std::string earlier;   // out.dat before every run ("" when there is none)
  std::string complete;  // out.dat after a run that completed
  size_t rows = 0;

  void make_input(size_t count) {
    rows = count;
    const Scenario& s = GetParam();
    ASSERT_TRUE(
        write_file(scratch.at("in.txt"), s.packed ? packed_input(rows) : delimited_input(rows)));
    const std::vector<std::string> names =
        s.packed ? std::vector<std::string>{"A", "B"} : std::vector<std::string>{"A", "B", "C"};
    const uint32_t columns = static_cast<uint32_t>(names.size());
    const std::string new_rows = s.packed ? packed_rows(rows) : delimited_rows(rows);
    if (s.append) {
      // The run's header and variable block, the earlier bytes behind them,
      // then the new rows.
      const uint32_t old_rows = get32(earlier, 80);
      complete = header(8, old_rows + static_cast<uint32_t>(rows), columns) +
                 variable_block(names) + earlier.substr(data_offset(columns)) + new_rows;
    } else {
      complete = header(8, static_cast<uint32_t>(rows), columns) + variable_block(names) + new_rows;
    }
  }

  void reset_output() {
    if (GetParam().before == Before::kNone) {
      ::unlink(scratch.at("out.dat").c_str());
    } else {
      ASSERT_TRUE(write_file(scratch.at("out.dat"), earlier));
    }
  }

  // One run to its end: it must complete and leave exactly `complete`.
  double full_run_seconds() {
    reset_output();
    const auto t0 = std::chrono::steady_clock::now();
    Ending end = wait_for(start_kolv(scratch, "run.cmd", "run"));
    const auto t1 = std::chrono::steady_clock::now();
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(read_file(scratch.at("run.stdout")), "");
    EXPECT_EQ(read_file(scratch.at("run.stderr")), "");
    EXPECT_TRUE(file_equals(scratch.at("out.dat"), complete)) << "a full run left other bytes";
    return std::chrono::duration<double>(t1 - t0).count();
  }

  // Where the run is when the signal leaves: judged from what it has put on
  // disk so far.
  std::string phase() {
    const Scenario& s = GetParam();
    if (s.append) {
      const long long size = file_size(scratch.at("out.dat"));
      if (size < 0) return "start-up";
      if (size <= static_cast<long long>(std::max<size_t>(earlier.size(), data_offset(3))))
        return "set-up";
      return "rows";
    }
    const std::vector<std::string> temps = scratch.temporaries();
    if (temps.empty()) return "start-up or finished";
    const long long size = file_size(scratch.at(temps.front()));
    return size <= static_cast<long long>(data_offset(3)) ? "set-up" : "rows";
  }

 public:
  static Tally& tally() {
    static Tally t;
    return t;
  }
};

constexpr int kKillsPerScenario = 55;  // four scenarios: 220 kills

TEST_P(KillTest, EverySignalAtAnyMomentLeavesTheOldBytesOrTheFinishedRun) {
  const Scenario& s = GetParam();
  std::string command;
  if (s.append) command += "APPEND;\n";
  command += "INPUT in.txt;\nOUTPUT out;\n";
  // The delimited APPEND writes its variable block through OUTVAR, the
  // packed one as the block of all variables.
  command += s.packed ? "INVAR RECORD = 21 (1,10) A (11,10) B;\n"
                      : (s.append ? "INVAR a b c;\nOUTVAR a b c;\n" : "INVAR a b c;\n");
  ASSERT_TRUE(write_file(scratch.at("run.cmd"), command));
  if (s.before == Before::kOtherFile) earlier = kEarlierOutput;
  if (s.before == Before::kDataSet) earlier = earlier_data_set();

  // A few hundred milliseconds of work: the input is scaled once to about
  // 300 ms (at most 3,000,000 rows), so the kills fall all through the run on
  // a fast machine and on a sanitizer build alike.
  make_input(1500000);
  double seconds = full_run_seconds();
  if (seconds < 0.2 || seconds > 0.5) {
    const double scaled = static_cast<double>(rows) * 0.3 / seconds;
    make_input(std::clamp<size_t>(static_cast<size_t>(scaled), 20000, 3000000));
    seconds = full_run_seconds();
  }
  ASSERT_FALSE(HasFailure());
  const long long span_us = static_cast<long long>(seconds * 1.1e6) + 1000;

  uint64_t seed = s.seed;
  if (const char* env = std::getenv("KOLV_KILL_SEED")) seed ^= std::strtoull(env, nullptr, 0);
  std::mt19937_64 rng(seed);
  std::printf("[ kill test ] %s: %zu rows, full run %.0f ms, seed %llu\n", s.name, rows,
              seconds * 1000, static_cast<unsigned long long>(seed));

  Tally& tally = KillTest::tally();
  for (int k = 0; k < kKillsPerScenario; ++k) {
    reset_output();
    if (HasFatalFailure()) return;
    const int sig = kSignals[rng() % 5];
    // Half the kills anywhere in the run; a quarter in its first 10 ms (start
    // and set-up: the temporary file, the lock, the variable block); a quarter
    // around its end (the last rows, the final header, the rename).
    long long delay = 0;
    switch (rng() % 4) {
      case 0:
        delay = static_cast<long long>(rng() % 10000);
        break;
      case 1:
        delay =
            span_us * 3 / 4 + static_cast<long long>(rng() % static_cast<uint64_t>(span_us / 4));
        break;
      default:
        delay = static_cast<long long>(rng() % static_cast<uint64_t>(span_us));
        break;
    }
    const pid_t child = start_kolv(scratch, "run.cmd", "run");
    ASSERT_GT(child, 0);
    sleep_us(delay);
    const std::string when = phase();
    ::kill(child, sig);
    const auto tk = std::chrono::steady_clock::now();
    const Ending end = wait_for(child);
    const auto tw = std::chrono::steady_clock::now();

    const std::string where = std::string(s.name) + ", kill " + std::to_string(k) + ", " +
                              signal_name(sig) + " after " + std::to_string(delay) + " us";
    EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{}) << where;
    EXPECT_EQ(read_file(scratch.at("run.stderr")), "") << where;
    // The handler removes the journal after its rollback.
    EXPECT_FALSE(file_exists(scratch.at("out.dat-journal"))) << where;
    EXPECT_FALSE(file_exists(scratch.at("out.dat-journal-new"))) << where;
    const bool present = file_exists(scratch.at("out.dat"));
    const long long left = present ? file_size(scratch.at("out.dat")) : -1;
    const bool finished = present && file_equals(scratch.at("out.dat"), complete);
    const bool untouched = s.before == Before::kNone
                               ? !present
                               : (present && file_equals(scratch.at("out.dat"), earlier));
    std::string outcome;
    if (end.status == 0) {
      EXPECT_TRUE(finished) << where << ": the run exited 0 but its output is not complete";
      EXPECT_EQ(read_file(scratch.at("run.stdout")), "") << where;
      outcome = "exited 0 before the signal, output complete";
    } else {
      EXPECT_EQ(end.signal, sig) << where << ": exit status " << end.status;
      EXPECT_TRUE(finished || untouched)
          << where << ": left " << (present ? std::to_string(left) + " bytes" : "no file")
          << " (before: " << earlier.size() << ", complete: " << complete.size() << ")";
      outcome = finished
                    ? "died by the signal after completing, output complete"
                    : (s.append ? "died by the signal, data set restored byte for byte"
                       : s.before == Before::kNone ? "died by the signal, no output, no temporary"
                                                   : "died by the signal, old output untouched");
    }
    ++tally.counts[std::string(signal_name(sig)) + " | " + s.name + " | " + when + " | " + outcome];
    ++tally.kills;
    if (std::getenv("KOLV_KILL_TRACE"))
      std::printf(
          "k%d delay %lld wait %.1f ms check %.1f ms\n", k, delay,
          std::chrono::duration<double>(tw - tk).count() * 1000,
          std::chrono::duration<double>(std::chrono::steady_clock::now() - tw).count() * 1000);
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Runs, KillTest,
    ::testing::Values(Scenario{"fresh", false, Before::kNone, false, 0x6b6f6c7601},
                      Scenario{"existing", false, Before::kOtherFile, false, 0x6b6f6c7602},
                      Scenario{"append-delimited", false, Before::kDataSet, true, 0x6b6f6c7603},
                      Scenario{"append-packed", true, Before::kDataSet, true, 0x6b6f6c7604}),
    [](const ::testing::TestParamInfo<Scenario>& param) {
      std::string name = param.param.name;
      for (char& c : name)
        if (c == '-') c = '_';
      return name;
    });

// Prints what the kill test saw once all its cases have run.
class TallyPrinter : public ::testing::Environment {
 public:
  void TearDown() override {
    const Tally& t = KillTest::tally();
    if (t.kills == 0) return;
    std::printf("[ kill test ] %d kills: signal | scenario | phase | outcome : count\n", t.kills);
    for (const auto& [key, count] : t.counts) std::printf("  %s : %d\n", key.c_str(), count);
  }
};

const ::testing::Environment* const kTallyPrinter =
    ::testing::AddGlobalTestEnvironment(new TallyPrinter);

// ---- a file-size limit that ends the run by SIGXFSZ ----

class FileLimit : public ::testing::Test {
 protected:
  Scratch scratch;
  void SetUp() override { ASSERT_TRUE(write_file(scratch.at("in.txt"), delimited_input(100000))); }
};

TEST_F(FileLimit, FreshOutputIsRemovedAndTheOldOneKept) {
  ASSERT_TRUE(write_file(scratch.at("out.dat"), kEarlierOutput));
  ASSERT_TRUE(write_file(scratch.at("run.cmd"), "INPUT in.txt;\nOUTPUT out;\nINVAR a b c;\n"));
  const Ending end = wait_for(start_kolv(scratch, "run.cmd", "run", 500000));
  EXPECT_EQ(end.signal, SIGXFSZ);
  EXPECT_EQ(read_file(scratch.at("out.dat")), kEarlierOutput);
  EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
}

TEST_F(FileLimit, AppendedDataSetIsRestored) {
  const std::string earlier = earlier_data_set();
  ASSERT_TRUE(write_file(scratch.at("out.dat"), earlier));
  ASSERT_TRUE(
      write_file(scratch.at("run.cmd"), "APPEND;\nINPUT in.txt;\nOUTPUT out;\nINVAR a b c;\n"));
  const Ending end = wait_for(start_kolv(scratch, "run.cmd", "run", 500000));
  EXPECT_EQ(end.signal, SIGXFSZ);
  EXPECT_TRUE(read_file(scratch.at("out.dat")) == earlier) << "the data set was not restored";
  EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
}

TEST_F(FileLimit, DataSetThatAnAppendWasCreatingIsRemoved) {
  ASSERT_TRUE(
      write_file(scratch.at("run.cmd"), "APPEND;\nINPUT in.txt;\nOUTPUT out;\nINVAR a b c;\n"));
  const Ending end = wait_for(start_kolv(scratch, "run.cmd", "run", 500000));
  EXPECT_EQ(end.signal, SIGXFSZ);
  EXPECT_FALSE(file_exists(scratch.at("out.dat")));
  EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
}

// A signal ignored by the parent stays ignored: the run goes on to its end.
TEST(IgnoredSignal, StaysIgnoredAndTheRunCompletes) {
  Scratch scratch;
  ASSERT_TRUE(write_file(scratch.at("in.txt"), delimited_input(400000)));
  ASSERT_TRUE(write_file(scratch.at("run.cmd"), "INPUT in.txt;\nOUTPUT out;\nINVAR a b c;\n"));
  const pid_t child = start_kolv(scratch, "run.cmd", "run", -1, SIGINT);
  sleep_us(20000);
  ::kill(child, SIGINT);
  const Ending end = wait_for(child);
  EXPECT_EQ(end.status, 0) << "signal " << end.signal;
  EXPECT_TRUE(
      file_equals(scratch.at("out.dat"),
                  header(8, 400000, 3) + variable_block({"A", "B", "C"}) + delimited_rows(400000)));
}

// ---- one writer at a time ----

// Run r appends 200,000 rows (ID r, SEQ 0, 1, ...) to one data set, eight
// runs at once; the data set starts with 10 rows of ID 0.
TEST(ConcurrentAppend, EightRunsQueueAndEachOnesRowsLandWhole) {
  Scratch scratch;
  constexpr int kRuns = 8;
  constexpr size_t kRows = 200000;
  constexpr uint32_t kEarlierRows = 10;
  std::string earlier = header(8, kEarlierRows, 2) + variable_block({"ID", "SEQ"});
  for (uint32_t i = 0; i < kEarlierRows; ++i) {
    append_double(earlier, 0.0);
    append_double(earlier, static_cast<double>(i));
  }
  ASSERT_TRUE(write_file(scratch.at("out.dat"), earlier));
  for (int r = 1; r <= kRuns; ++r) {
    std::string text;
    text.reserve(kRows * 10);
    char line[32];
    for (size_t i = 0; i < kRows; ++i) {
      const int n = std::snprintf(line, sizeof line, "%d %zu\n", r, i);
      text.append(line, static_cast<size_t>(n));
    }
    const std::string n = std::to_string(r);
    ASSERT_TRUE(write_file(scratch.at("in" + n + ".txt"), text));
    ASSERT_TRUE(write_file(scratch.at("run" + n + ".cmd"),
                           "APPEND;\nINPUT in" + n + ".txt;\nOUTPUT out;\nINVAR id seq;\n"));
  }
  std::vector<pid_t> children;
  for (int r = 1; r <= kRuns; ++r) {
    const std::string n = std::to_string(r);
    children.push_back(start_kolv(scratch, "run" + n + ".cmd", "run" + n));
  }
  for (int r = 1; r <= kRuns; ++r) {
    const Ending end = wait_for(children[static_cast<size_t>(r - 1)]);
    const std::string n = std::to_string(r);
    EXPECT_EQ(end.status, 0) << "run " << r << " signal " << end.signal;
    EXPECT_EQ(read_file(scratch.at("run" + n + ".stdout")), "") << "run " << r;
    EXPECT_EQ(read_file(scratch.at("run" + n + ".stderr")), "") << "run " << r;
  }

  const std::string ds = read_file(scratch.at("out.dat"));
  const uint32_t total = kEarlierRows + kRuns * static_cast<uint32_t>(kRows);
  ASSERT_EQ(ds.size(), data_offset(2) + 16ull * total);
  EXPECT_EQ(ds.substr(0, 128), header(8, total, 2)) << "header rows " << get32(ds, 80);
  EXPECT_EQ(ds.substr(128, data_offset(2) - 128), variable_block({"ID", "SEQ"}));
  EXPECT_EQ(ds.substr(data_offset(2), 16 * kEarlierRows), earlier.substr(data_offset(2)));

  // After the earlier rows: eight runs of kRows rows, one run each, each run
  // whole and in order.
  std::set<int> seen;
  size_t at = data_offset(2) + 16 * kEarlierRows;
  for (int segment = 0; segment < kRuns; ++segment) {
    double id;
    std::memcpy(&id, ds.data() + at, 8);
    const int run = static_cast<int>(id);
    ASSERT_TRUE(run >= 1 && run <= kRuns && static_cast<double>(run) == id) << "row id " << id;
    ASSERT_TRUE(seen.insert(run).second) << "the rows of run " << run << " are not in one piece";
    for (size_t i = 0; i < kRows; ++i, at += 16) {
      double row_id;
      double seq;
      std::memcpy(&row_id, ds.data() + at, 8);
      std::memcpy(&seq, ds.data() + at + 8, 8);
      ASSERT_EQ(row_id, id) << "segment " << segment << " row " << i;
      ASSERT_EQ(seq, static_cast<double>(i)) << "segment " << segment << " row " << i;
    }
  }
  EXPECT_EQ(at, ds.size());
}

// A run that finds the data set locked waits, silently, and goes on when the
// lock is released; a signal while it waits leaves the data set as it was.
TEST(ConcurrentAppend, ARunWaitsForTheLockAndASignalWhileWaitingChangesNothing) {
  Scratch scratch;
  const std::string earlier = earlier_data_set();
  ASSERT_TRUE(write_file(scratch.at("out.dat"), earlier));
  ASSERT_TRUE(write_file(scratch.at("in.txt"), delimited_input(1000)));
  ASSERT_TRUE(
      write_file(scratch.at("run.cmd"), "APPEND;\nINPUT in.txt;\nOUTPUT out;\nINVAR a b c;\n"));

  // The lock kolv takes: a write lock over the whole file, held by an open
  // file description that kolv does not inherit.
  const int held = ::open(scratch.at("out.dat").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(held, 0);
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  ASSERT_EQ(::fcntl(held, F_OFD_SETLK, &whole), 0) << std::strerror(errno);

  pid_t waiting = start_kolv(scratch, "run.cmd", "stopped");
  sleep_us(300000);
  int wstatus = 0;
  EXPECT_EQ(::waitpid(waiting, &wstatus, WNOHANG), 0) << "the run did not wait for the lock";
  ::kill(waiting, SIGTERM);
  Ending end = wait_for(waiting);
  EXPECT_EQ(end.signal, SIGTERM);
  EXPECT_EQ(read_file(scratch.at("stopped.stdout")), "");
  EXPECT_TRUE(read_file(scratch.at("out.dat")) == earlier);

  waiting = start_kolv(scratch, "run.cmd", "run");
  sleep_us(300000);
  EXPECT_EQ(::waitpid(waiting, &wstatus, WNOHANG), 0) << "the run did not wait for the lock";
  EXPECT_TRUE(read_file(scratch.at("out.dat")) == earlier) << "the data set changed under the lock";
  ASSERT_EQ(::close(held), 0);
  end = wait_for(waiting);
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(read_file(scratch.at("run.stdout")), "");
  const std::string expected = header(8, 1100, 3) + variable_block({"A", "B", "C"}) +
                               earlier.substr(data_offset(3)) + delimited_rows(1000);
  EXPECT_TRUE(read_file(scratch.at("out.dat")) == expected);
}

// Two APPEND runs onto a data set that does not exist yet: each makes it
// aside; the first to put it in place wins and the other appends its rows to
// it, so both runs' rows land whole, in one order or the other.
TEST(ConcurrentAppend, TwoRunsOntoNoDataSetBothLand) {
  Scratch scratch;
  constexpr size_t kRows = 20000;
  std::string rows[2];
  for (int r = 0; r < 2; ++r) {
    std::string text;
    char line[32];
    for (size_t i = 0; i < kRows; ++i) {
      const int n = std::snprintf(line, sizeof line, "%d %zu\n", r + 1, i);
      text.append(line, static_cast<size_t>(n));
      append_double(rows[r], r + 1.0);
      append_double(rows[r], static_cast<double>(i));
    }
    const std::string n = std::to_string(r + 1);
    ASSERT_TRUE(write_file(scratch.at("in" + n + ".txt"), text));
    ASSERT_TRUE(write_file(scratch.at("run" + n + ".cmd"),
                           "APPEND;\nINPUT in" + n + ".txt;\nOUTPUT out;\nINVAR id seq;\n"));
  }
  const std::string head = header(8, 2 * kRows, 2) + variable_block({"ID", "SEQ"});
  const std::string one_then_two = head + rows[0] + rows[1];
  const std::string two_then_one = head + rows[1] + rows[0];
  int first[2] = {0, 0};
  for (int round = 0; round < 20; ++round) {
    ::unlink(scratch.at("out.dat").c_str());
    const pid_t a = start_kolv(scratch, "run1.cmd", "run1");
    const pid_t b = start_kolv(scratch, "run2.cmd", "run2");
    const Ending ea = wait_for(a);
    const Ending eb = wait_for(b);
    EXPECT_EQ(ea.status, 0) << "round " << round;
    EXPECT_EQ(eb.status, 0) << "round " << round;
    for (const char* tag : {"run1", "run2"}) {
      EXPECT_EQ(read_file(scratch.at(std::string(tag) + ".stdout")), "") << "round " << round;
      EXPECT_EQ(read_file(scratch.at(std::string(tag) + ".stderr")), "") << "round " << round;
    }
    EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{}) << "round " << round;
    EXPECT_FALSE(file_exists(scratch.at("out.dat-journal"))) << "round " << round;
    const std::string ds = read_file(scratch.at("out.dat"));
    ASSERT_TRUE(ds == one_then_two || ds == two_then_one)
        << "round " << round << ": " << ds.size() << " bytes, header rows " << get32(ds, 80);
    ++first[ds == one_then_two ? 0 : 1];
  }
  std::printf(
      "[ creation ] 20 rounds of two APPENDs onto no data set: run 1 first %d, run 2 "
      "first %d, every round both runs' rows whole\n",
      first[0], first[1]);
}

// ---- SIGKILL: what no handler sees ----
//
// APPEND runs (delimited and packed) killed with SIGKILL at random moments
// (seeded), each followed by a second program that must find the data set as
// it was before the killed run or as the killed run would have completed it:
// either `kolvdump --check` (a pending journal is reported, exit 1, and the
// test rolls the journal back by its documented layout and must get the old
// bytes), or another APPEND, which must roll back a hot journal, say so in
// one line on standard error, and leave the old or the completed data set
// with its own rows after it.

// The data set as the journal beside it says it was: its old length and its
// first bytes (the journal's layout: "KOLVJNL1", the old length, the count of
// saved bytes, the device and inode, a checksum, then the saved bytes).
std::string rolled_back(const std::string& data, const std::string& journal) {
  if (journal.size() < 48 || journal.compare(0, 8, "KOLVJNL1") != 0) return "bad journal";
  auto get64 = [&](size_t at) {
    uint64_t v = 0;
    for (size_t i = 8; i-- > 0;) v = v << 8 | static_cast<unsigned char>(journal[at + i]);
    return v;
  };
  const uint64_t length = get64(8);
  const uint64_t saved = get64(16);
  if (saved != journal.size() - 48 || length < saved || length > data.size()) return "bad journal";
  std::string old = data.substr(0, length);
  old.replace(0, saved, journal.substr(48));
  return old;
}

struct KillTally {
  std::map<std::string, int> counts;  // "scenario | phase | follow-up" -> kills
  int kills = 0;
};

KillTally& kill_tally() {
  static KillTally t;
  return t;
}

class SigkillTest : public ::testing::TestWithParam<Scenario> {};

TEST_P(SigkillTest, AKilledAppendLeavesTheOldOrTheCompletedDataSet) {
  const Scenario& s = GetParam();
  Scratch scratch;
  const std::string earlier = earlier_data_set();
  const std::vector<std::string> names =
      s.packed ? std::vector<std::string>{"A", "B"} : std::vector<std::string>{"A", "B", "C"};
  const uint32_t columns = static_cast<uint32_t>(names.size());
  ASSERT_TRUE(
      write_file(scratch.at("run.cmd"), std::string("APPEND;\nINPUT in.txt;\nOUTPUT out;\n") +
                                            (s.packed ? "INVAR RECORD = 21 (1,10) A (11,10) B;\n"
                                                      : "INVAR a b c;\nOUTVAR a b c;\n")));
  ASSERT_TRUE(
      write_file(scratch.at("next.cmd"), std::string("APPEND;\nINPUT next.txt;\nOUTPUT out;\n") +
                                             (s.packed ? "INVAR RECORD = 21 (1,10) A (11,10) B;\n"
                                                       : "INVAR a b c;\nOUTVAR a b c;\n")));
  ASSERT_TRUE(write_file(scratch.at("next.txt"), s.packed ? packed_input(5) : delimited_input(5)));
  const std::string next_rows = s.packed ? packed_rows(5) : delimited_rows(5);
  const std::string journal = scratch.at("out.dat-journal");

  size_t rows = 0;
  std::string complete;
  auto make_input = [&](size_t count) {
    rows = count;
    ASSERT_TRUE(
        write_file(scratch.at("in.txt"), s.packed ? packed_input(rows) : delimited_input(rows)));
    complete = header(8, 100 + static_cast<uint32_t>(rows), columns) + variable_block(names) +
               earlier.substr(data_offset(columns)) +
               (s.packed ? packed_rows(rows) : delimited_rows(rows));
  };
  auto full_run = [&]() {
    EXPECT_TRUE(write_file(scratch.at("out.dat"), earlier));
    const auto t0 = std::chrono::steady_clock::now();
    const Ending end = wait_for(start_kolv(scratch, "run.cmd", "run"));
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    EXPECT_EQ(end.status, 0);
    EXPECT_TRUE(file_equals(scratch.at("out.dat"), complete)) << "a full run left other bytes";
    EXPECT_FALSE(file_exists(journal)) << "a full run left its journal";
    return seconds;
  };
  // About 80 ms of work, so that 110 kills and their checks take seconds.
  make_input(400000);
  double seconds = full_run();
  if (seconds < 0.05 || seconds > 0.12) {
    make_input(std::clamp<size_t>(static_cast<size_t>(static_cast<double>(rows) * 0.08 / seconds),
                                  5000, 2000000));
    seconds = full_run();
  }
  ASSERT_FALSE(HasFailure());
  const long long span_us = static_cast<long long>(seconds * 0.9e6) + 1000;
  // What each follow-up APPEND leaves: the old or the completed data set,
  // with its own five rows after it.
  auto after_next = [&](const std::string& base, uint32_t base_rows) {
    return header(8, base_rows + 5, columns) + variable_block(names) +
           base.substr(data_offset(columns)) + next_rows;
  };
  const std::string earlier_then_next = after_next(earlier, 100);
  const std::string complete_then_next = after_next(complete, 100 + static_cast<uint32_t>(rows));
  const std::string pending_line = "kolvdump: " + scratch.at("out.dat") +
                                   ": an interrupted append is pending (" + journal +
                                   "); the next kolv APPEND onto it rolls it back\n";

  const std::string claims_line =
      "kolvdump: header claims " + std::to_string(100 + rows) + " rows but the file holds " +
      std::to_string((complete.size() - data_offset(columns)) / (8 * columns)) + "\n";

  uint64_t seed = s.seed;
  if (const char* env = std::getenv("KOLV_KILL_SEED")) seed ^= std::strtoull(env, nullptr, 0);
  std::mt19937_64 rng(seed);
  std::printf("[ sigkill test ] %s: %zu rows, full run %.0f ms, seed %llu\n", s.name, rows,
              seconds * 1000, static_cast<unsigned long long>(seed));
  KillTally& tally = kill_tally();
  constexpr int kKills = 110;
  for (int k = 0; k < kKills; ++k) {
    ::unlink(journal.c_str());
    ASSERT_TRUE(write_file(scratch.at("out.dat"), earlier));
    // Half anywhere, a quarter in the first milliseconds (the lock, the
    // journal, the variable block), a quarter near the end (the last rows,
    // the syncs, the header, the journal's removal).
    long long delay = 0;
    switch (rng() % 4) {
      case 0:
        delay = static_cast<long long>(rng() % 8000);
        break;
      case 1:
        delay =
            span_us * 3 / 4 + static_cast<long long>(rng() % static_cast<uint64_t>(span_us / 4));
        break;
      default:
        delay = static_cast<long long>(rng() % static_cast<uint64_t>(span_us));
        break;
    }
    const pid_t child = start_kolv(scratch, "run.cmd", "run");
    ASSERT_GT(child, 0);
    sleep_us(delay);
    ::kill(child, SIGKILL);
    const Ending end = wait_for(child);
    std::string where = std::string(s.name) + ", kill " + std::to_string(k) + " after " +
                        std::to_string(delay) + " us";

    // The phase the kill met, from what it left.
    const std::string left = read_file(scratch.at("out.dat"));
    const bool hot = file_exists(journal);
    std::string phase;
    if (end.status == 0) {
      phase = "exited before the kill";
    } else if (!hot) {
      phase = left == earlier ? "before the journal" : left == complete ? "after the commit" : "?";
    } else if (left.size() <= earlier.size()) {
      phase = "journal written, rows not begun";
    } else if (get32(left, 80) == 100) {
      phase = "rows being appended";
    } else {
      phase = "header written, journal not yet removed";
    }
    EXPECT_NE(phase, "?") << where << ": no journal and " << left.size() << " bytes";
    EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{}) << where;
    where += " (" + phase + ")";

    std::string follow;
    if (k % 2 == 0) {
      follow = "kolvdump --check";
      const std::string out = scratch.at("check.out");
      const std::string err = scratch.at("check.err");
      const std::string command = std::string("'") + KOLVDUMP_PROGRAM + "' --check '" +
                                  scratch.at("out.dat") + "' >'" + out + "' 2>'" + err + "'";
      const int status = std::system(command.c_str());
      const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      if (hot) {
        EXPECT_EQ(code, 1) << where;
        EXPECT_EQ(read_file(err), pending_line) << where;
        EXPECT_TRUE(rolled_back(left, read_file(journal)) == earlier)
            << where << ": the journal does not give back the old data set";
      } else if (left == earlier) {
        EXPECT_EQ(code, 0) << where << ": " << read_file(err);
        EXPECT_EQ(read_file(err), "") << where;
      } else {
        // The completed run's variable block went over the earlier rows'
        // first bytes: its header counts more whole rows than follow it,
        // as after any APPEND of other variables.
        EXPECT_TRUE(left == complete) << where;
        EXPECT_EQ(code, 1) << where;
        EXPECT_EQ(read_file(err), claims_line) << where;
      }
      EXPECT_EQ(read_file(out), "") << where;
    } else {
      follow = "APPEND";
      const Ending next = wait_for(start_kolv(scratch, "next.cmd", "next"));
      EXPECT_EQ(next.status, 0) << where;
      EXPECT_EQ(read_file(scratch.at("next.stdout")), "") << where;
      const std::string said = read_file(scratch.at("next.stderr"));
      const std::string rolled = "KOLV - Interrupted append to " + scratch.at("out.dat") +
                                 " rolled back from " + journal + "\n";
      EXPECT_EQ(said, hot ? rolled : std::string()) << where;
      const std::string now = read_file(scratch.at("out.dat"));
      EXPECT_TRUE(now == earlier_then_next || (!hot && now == complete_then_next))
          << where << ": " << phase << ", " << now.size() << " bytes after the next APPEND";
      EXPECT_FALSE(file_exists(journal)) << where;
      EXPECT_FALSE(file_exists(journal + "-new")) << where;
    }
    ++tally.counts[std::string(s.name) + " | " + phase + " | " + follow];
    ++tally.kills;
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Appends, SigkillTest,
    ::testing::Values(Scenario{"append-delimited", false, Before::kDataSet, true, 0x6b696c6c01},
                      Scenario{"append-packed", true, Before::kDataSet, true, 0x6b696c6c02}),
    [](const ::testing::TestParamInfo<Scenario>& param) {
      std::string name = param.param.name;
      for (char& c : name)
        if (c == '-') c = '_';
      return name;
    });

class KillTallyPrinter : public ::testing::Environment {
 public:
  void TearDown() override {
    const KillTally& t = kill_tally();
    if (t.kills == 0) return;
    std::printf("[ sigkill test ] %d kills: scenario | phase | follow-up : count\n", t.kills);
    for (const auto& [key, count] : t.counts) std::printf("  %s : %d\n", key.c_str(), count);
  }
};

const ::testing::Environment* const kKillTallyPrinter =
    ::testing::AddGlobalTestEnvironment(new KillTallyPrinter);

}  // namespace
