// Failure injection: the real kolv program, run in a fresh scratch directory
// under conditions that make its files fail. Each case checks the exact
// message, the exit status, and what is left on disk: an existing output
// keeps its bytes after every fatal end, and no temporary output (out_ and
// six characters) remains anywhere in the scratch directory.
//
// Runs happen in a forked child that may lower its own limits before it
// executes kolv: RLIMIT_FSIZE with SIGXFSZ ignored makes writes past a size
// fail as on a full disk; dropping to an unprivileged user makes permission
// bits count even when the tests run as root.
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
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

// The user an unprivileged run becomes when the tests run as root.
constexpr uid_t kNobody = 65534;

void spit(const std::string& path, const std::string& bytes) {
  ASSERT_TRUE(kolv_support::write_file(path, bytes)) << path << ": " << std::strerror(errno);
}

// ---- data set bytes, as the file format describes them ----

// The variable block of one numeric variable named X.
std::string one_variable_block() {
  return variable_block({"X"});
}

std::string doubles(double value, size_t count) {
  std::string bytes;
  for (size_t i = 0; i < count; ++i) bytes.append(reinterpret_cast<const char*>(&value), 8);
  return bytes;
}

// A finished data set of one numeric column X holding `rows` rows of 7.0.
std::string finished_data_set(uint32_t rows) {
  return header(8, rows, 1) + one_variable_block() + doubles(7.0, rows);
}

// ---- scratch directories and runs ----

// A scratch directory holding the run's working directory, work/, and beside
// it the captured standard output and error. It lies under /tmp, which an
// unprivileged run can reach wherever the tests are.
class Scratch {
 public:
  Scratch() : dir_("kolv_failure", "/tmp"), top_(dir_.path()), work_(top_ + "/work") {
    if (mkdir(work_.c_str(), 0777) != 0) std::abort();
    // Open to an unprivileged run: it must reach work/ and create files there.
    chmod(top_.c_str(), 0755);
    chmod(work_.c_str(), 0777);
  }

  const std::string& work() const { return work_; }
  const std::string& top() const { return top_; }
  std::string at(const std::string& name) const { return work_ + "/" + name; }
  std::string out_path() const { return top_ + "/stdout"; }
  std::string err_path() const { return top_ + "/stderr"; }

  // Temporary outputs (out_ and six characters) anywhere under work/.
  std::vector<std::string> temporaries() const {
    std::vector<std::string> found;
    collect_temporaries(work_, found);
    return found;
  }

 private:
  static void collect_temporaries(const std::string& dir, std::vector<std::string>& found) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return;
    while (dirent* e = readdir(d)) {
      const std::string name = e->d_name;
      if (name == "." || name == "..") continue;
      const std::string path = dir + "/" + name;
      struct stat st;
      if (lstat(path.c_str(), &st) != 0) continue;
      if (S_ISDIR(st.st_mode)) {
        collect_temporaries(path, found);
      } else if (name.size() == 10 && name.compare(0, 4, "out_") == 0) {
        found.push_back(path);
      }
    }
    closedir(d);
  }

  kolv_support::ScratchDir dir_;
  std::string top_;
  std::string work_;
};

struct Limits {
  long long file_size = -1;   // RLIMIT_FSIZE in bytes; -1 leaves it
  bool unprivileged = false;  // run as an ordinary user when the tests run as root
};

struct Result {
  int status = -1;  // exit status, or -1 when the run did not exit normally
  int signal = 0;
  std::string out;
  std::string err;
};

// Whether a run with these limits becomes the unprivileged user.
bool drops_privileges(const Limits& limits) {
  return limits.unprivileged && geteuid() == 0;
}

// The program an unprivileged run executes. The build tree may lie where that
// user cannot reach (a home directory of mode 700), so the program is copied
// into the scratch directory, which every user may enter. Empty when the copy
// fails (errno tells why).
std::string reachable_program(const Scratch& scratch) {
  const std::string copy = scratch.top() + "/kolv";
  if (file_exists(copy)) return copy;
  const int in = open(KOLV_PROGRAM, O_RDONLY | O_CLOEXEC);
  if (in < 0) return "";
  const int out = open(copy.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0755);
  if (out < 0) {
    close(in);
    return "";
  }
  char chunk[65536];
  ssize_t n;
  bool ok = true;
  while ((n = read(in, chunk, sizeof chunk)) > 0)
    if (write(out, chunk, static_cast<size_t>(n)) != n) ok = false;
  if (n < 0) ok = false;
  close(in);
  if (close(out) != 0) ok = false;
  if (!ok || chmod(copy.c_str(), 0755) != 0) return "";
  return copy;
}

// Runs the kolv program in work/ with the given arguments (after argv[0]).
// A child that cannot execute the program ends with status 124 after saying
// why on its standard error.
Result run_kolv(const Scratch& scratch, const std::vector<std::string>& args, Limits limits = {}) {
  Result result;
  const std::string program = drops_privileges(limits) ? reachable_program(scratch) : KOLV_PROGRAM;
  if (program.empty()) {
    result.err = std::string("cannot copy ") + KOLV_PROGRAM +
                 " where an unprivileged user can run it: " + std::strerror(errno);
    return result;
  }
  const pid_t child = fork();
  if (child < 0) return result;
  if (child == 0) {
    // In the child only async-signal-safe calls until exec.
    if (chdir(scratch.work().c_str()) != 0) _exit(120);
    const int in = open("/dev/null", O_RDONLY);
    const int out = open(scratch.out_path().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    const int err = open(scratch.err_path().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (in < 0 || out < 0 || err < 0) _exit(121);
    dup2(in, 0);
    dup2(out, 1);
    dup2(err, 2);
    if (limits.file_size >= 0) {
      signal(SIGXFSZ, SIG_IGN);  // kept across exec: writes fail with EFBIG instead
      struct rlimit rl;
      rl.rlim_cur = static_cast<rlim_t>(limits.file_size);
      rl.rlim_max = static_cast<rlim_t>(limits.file_size);
      if (setrlimit(RLIMIT_FSIZE, &rl) != 0) _exit(122);
    }
    if (drops_privileges(limits)) {
      if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0) _exit(123);
    }
    alarm(120);  // a hang ends the run by a signal, which fails the test
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    const char* why = std::strerror(errno);
    const char lead[] = "cannot execute the kolv program: ";
    if (write(2, lead, sizeof lead - 1) < 0 || write(2, why, std::strlen(why)) < 0) _exit(125);
    _exit(124);
  }
  int wstatus = 0;
  while (waitpid(child, &wstatus, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(wstatus)) result.status = WEXITSTATUS(wstatus);
  if (WIFSIGNALED(wstatus)) result.signal = WTERMSIG(wstatus);
  result.out = read_file(scratch.out_path());
  result.err = read_file(scratch.err_path());
  return result;
}

// `lines` lines of "1": one row each for a single numeric variable.
std::string ones(size_t lines) {
  std::string text;
  text.reserve(lines * 2);
  for (size_t i = 0; i < lines; ++i) text += "1\n";
  return text;
}

const char kPrevious[] = "bytes of an earlier data set, which no failed run may touch";

// A command file converting in.txt (one numeric variable X) to out.dat.
const char kOneVariable[] = "INPUT in.txt;\nOUTPUT out;\nINVAR x;\n";

class Failure : public ::testing::Test {
 protected:
  Scratch scratch;

  void SetUp() override {
    spit(scratch.at("in.txt"), ones(3));
    spit(scratch.at("out.dat"), kPrevious);
  }

  Result run(const std::string& command_file, Limits limits = {}) {
    spit(scratch.at("run.cmd"), command_file);
    return run_kolv(scratch, {"run.cmd", "-noc"}, limits);
  }

  // A fatal end: status -1 (255), exactly this on standard output, nothing on
  // standard error, the earlier output unchanged and no temporary output.
  void expect_fatal(const Result& r, const std::string& message) {
    EXPECT_EQ(r.signal, 0);
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, message);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(read_file(scratch.at("out.dat")), kPrevious);
    EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
  }
};

// ---- a disk that fills during the conversion ----

// One numeric variable in 8-byte elements: 16384 rows fill a block of 131072
// bytes. With the file limited to the variable block plus one block, the
// second block's write fails as a whole.
constexpr size_t kRowsPerBlock = 131072 / 8;

TEST_F(Failure, DiskFullAtBlockBoundaryKeepsWrittenRowsAndCountsThem) {
  spit(scratch.at("in.txt"), ones(40000));
  const long long limit = data_offset(1) + 131072;
  Result r = run(kOneVariable, {limit, false});
  EXPECT_EQ(r.signal, 0);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "KOLV - Disk full - conversion incomplete\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
  const std::string ds = read_file(scratch.at("out.dat"));
  ASSERT_EQ(ds.size(), static_cast<size_t>(limit));
  EXPECT_EQ(ds.substr(0, 128), header(8, kRowsPerBlock, 1)) << "header rows " << get32(ds, 80);
  EXPECT_EQ(ds.substr(128, 40), one_variable_block());
  EXPECT_EQ(ds.substr(data_offset(1)), doubles(1.0, kRowsPerBlock));
}

TEST_F(Failure, DiskFullInsideBlockHeaderNeverClaimsMissingRows) {
  spit(scratch.at("in.txt"), ones(40000));
  const long long limit = data_offset(1) + 131072 + 1000;
  Result r = run(kOneVariable, {limit, false});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "KOLV - Disk full - conversion incomplete\n");
  EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
  const std::string ds = read_file(scratch.at("out.dat"));
  ASSERT_GE(ds.size(), 128u);
  EXPECT_EQ(get32(ds, 0), 0xFFFFFFFFu);
  EXPECT_EQ(get32(ds, 28), 0xABCDEF02u);
  // The first block was written whole; at most the whole rows of the failed
  // block's first 1000 bytes (125) may have reached the file as well.
  const uint32_t rows = get32(ds, 80);
  EXPECT_GE(rows, kRowsPerBlock);
  EXPECT_LE(rows, kRowsPerBlock + 125);
  EXPECT_LE(data_offset(1) + 8ull * rows, ds.size()) << "header rows " << rows;
  EXPECT_EQ(ds.substr(data_offset(1), 8 * kRowsPerBlock), doubles(1.0, kRowsPerBlock));
}

TEST_F(Failure, DiskFullWhileAppendingKeepsOldRowsAndAddsWrittenOnes) {
  const std::string old = finished_data_set(3);
  spit(scratch.at("out.dat"), old);
  struct stat before;
  ASSERT_EQ(stat(scratch.at("out.dat").c_str(), &before), 0);
  spit(scratch.at("in.txt"), ones(40000));
  const long long limit = static_cast<long long>(old.size()) + 131072;
  Result r = run(std::string("APPEND;\n") + kOneVariable, {limit, false});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "KOLV - Disk full - conversion incomplete\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
  const std::string ds = read_file(scratch.at("out.dat"));
  struct stat after;
  ASSERT_EQ(stat(scratch.at("out.dat").c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino) << "an appended file is updated in place";
  ASSERT_EQ(ds.size(), static_cast<size_t>(limit));
  EXPECT_EQ(ds.substr(0, 128), header(8, 3 + kRowsPerBlock, 1)) << "header rows " << get32(ds, 80);
  EXPECT_EQ(ds.substr(128, old.size() - 128), old.substr(128));
  EXPECT_EQ(ds.substr(old.size()), doubles(1.0, kRowsPerBlock));
}

// Packed records: one-byte records followed by line ends, which CHECK joins
// to the records; one variable in 8-byte elements, as above.
TEST_F(Failure, DiskFullDuringPackedRecords) {
  spit(scratch.at("in.txt"), ones(40000));
  const long long limit = data_offset(1) + 131072;
  Result r = run("INPUT in.txt;\nOUTPUT out;\nINVAR RECORD = 1 (1,1) x;\n", {limit, false});
  EXPECT_EQ(r.signal, 0);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "Records beginning with newline... Setting record length to 2\n"
            "KOLV - Disk full - conversion incomplete\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
  const std::string ds = read_file(scratch.at("out.dat"));
  ASSERT_EQ(ds.size(), static_cast<size_t>(limit));
  EXPECT_EQ(ds.substr(0, 128), header(8, kRowsPerBlock, 1)) << "header rows " << get32(ds, 80);
  EXPECT_EQ(ds.substr(128, 40), one_variable_block());
  EXPECT_EQ(ds.substr(data_offset(1)), doubles(1.0, kRowsPerBlock));
}

TEST_F(Failure, DiskFullBeforeThePlaceholderHeader) {
  expect_fatal(run(kOneVariable, {64, false}), "KOLV - Internal error 802\n");
}

TEST_F(Failure, DiskFullInTheVariableNamesOfAllVariables) {
  expect_fatal(run(kOneVariable, {140, false}),
               "KOLV - Can't write variable names to header (1)\n");
}

TEST_F(Failure, DiskFullInTheVariableNamesOfOutvar) {
  expect_fatal(run(std::string(kOneVariable) + "OUTVAR x;\n", {140, false}),
               "KOLV - Can't write variable names to header (2)\n");
}

// ---- an output directory that cannot be written ----
// As root, permission bits do not stop a write, so the directory is made
// impossible instead: missing, or a regular file; the permission case runs
// as an unprivileged user.

TEST_F(Failure, OutputUnderMissingDirectory) {
  expect_fatal(run("INPUT in.txt;\nOUTPUT nodir/out;\nINVAR x;\n"),
               "KOLV - Can't create temporary output file\n");
  EXPECT_FALSE(file_exists(scratch.at("nodir")));
}

TEST_F(Failure, OutputUnderRegularFile) {
  spit(scratch.at("plain"), "not a directory");
  expect_fatal(run("INPUT in.txt;\nOUTPUT plain/out;\nINVAR x;\n"),
               "KOLV - Can't create temporary output file\n");
  EXPECT_EQ(read_file(scratch.at("plain")), "not a directory");
}

TEST_F(Failure, OutputInReadOnlyDirectory) {
  ASSERT_EQ(mkdir(scratch.at("ro").c_str(), 0777), 0);
  spit(scratch.at("ro/out.dat"), kPrevious);
  ASSERT_EQ(chmod(scratch.at("ro").c_str(), 0555), 0);
  expect_fatal(run("INPUT in.txt;\nOUTPUT ro/out;\nINVAR x;\n", {-1, true}),
               "KOLV - Can't create temporary output file\n");
  EXPECT_EQ(read_file(scratch.at("ro/out.dat")), kPrevious);
}

// ---- inputs that cannot be read ----

TEST_F(Failure, MissingInput) {
  expect_fatal(run("INPUT absent.txt;\nOUTPUT out;\nINVAR x;\n"), "KOLV - Can't open input file\n");
}

TEST_F(Failure, MissingInputWithOutvar) {
  expect_fatal(run("INPUT absent.txt;\nOUTPUT out;\nINVAR x y;\nOUTVAR y;\n"),
               "KOLV - Can't open input file\n");
}

TEST_F(Failure, UnreadableInput) {
  ASSERT_EQ(chmod(scratch.at("in.txt").c_str(), 0), 0);
  expect_fatal(run(kOneVariable, {-1, true}), "KOLV - Can't open input file\n");
}

// A directory opens for reading but yields no bytes; converting it as an
// empty input would replace the earlier output with an empty data set, so it
// is refused like an input that cannot be opened.
TEST_F(Failure, InputIsADirectory) {
  ASSERT_EQ(mkdir(scratch.at("indir").c_str(), 0777), 0);
  expect_fatal(run("INPUT indir;\nOUTPUT out;\nINVAR x;\n"), "KOLV - Can't open input file\n");
}

// A command file that is a directory holds no statements: it is reported as
// a command file that is not there.
TEST_F(Failure, CommandFileIsADirectory) {
  ASSERT_EQ(mkdir(scratch.at("cmddir.cmd").c_str(), 0777), 0);
  Result r = run_kolv(scratch, {"cmddir.cmd", "-noc"});
  expect_fatal(r, "KOLV - Command file <" + scratch.at("cmddir.cmd") + "> not found\n");
}

TEST_F(Failure, MissingCommandFile) {
  Result r = run_kolv(scratch, {"absent", "-noc"});
  expect_fatal(r, "KOLV - Command file <" + scratch.work() + "/absent.cmd> not found\n");
}

// ---- long paths on the command line ----

// Makes the directories of `path` (absolute, under work/) one by one.
void make_parents(const std::string& path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    const std::string dir = path.substr(0, slash);
    if (!file_exists(dir)) {
      ASSERT_EQ(mkdir(dir.c_str(), 0777), 0) << dir.size() << ": " << std::strerror(errno);
    }
  }
}

// An absolute path of exactly `length` characters under work/, ending in
// `leaf`, made of directory names of at most 200 characters.
std::string long_path(const Scratch& scratch, size_t length, const std::string& leaf) {
  std::string path = scratch.work();
  // Characters for the directories, each costing its name and one '/'.
  const size_t room = length - path.size() - 1 - leaf.size();
  const size_t count = (room + 200) / 201;
  size_t names = room - count;
  for (size_t i = 0; i < count; ++i) {
    const size_t name = names / (count - i);
    path.append(1, '/').append(name, 'd');
    names -= name;
  }
  path += "/" + leaf;
  return path;
}

TEST_F(Failure, CommandFilePathOf1023CharactersIsRead) {
  const std::string cmd = long_path(scratch, 1023, "run.cmd");
  ASSERT_EQ(cmd.size(), 1023u);
  make_parents(cmd);
  spit(cmd, std::string("INPUT ") + scratch.at("in.txt") + ";\nOUTPUT " + scratch.at("out") +
                ";\nINVAR x;\n");
  Result r = run_kolv(scratch, {cmd});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("Command file:  " + cmd + "\n"), std::string::npos) << r.out;
  EXPECT_EQ(read_file(scratch.at("out.dat")),
            header(8, 3, 1) + one_variable_block() + doubles(1.0, 3));
  EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
}

// The command-file name keeps at most 1023 characters: the 1024th is lost.
TEST_F(Failure, CommandFilePathOf1024CharactersIsCut) {
  const std::string cmd = long_path(scratch, 1024, "run.cmd");
  ASSERT_EQ(cmd.size(), 1024u);
  make_parents(cmd);
  spit(cmd, kOneVariable);
  const std::string cut = cmd.substr(0, 1023);
  ASSERT_FALSE(file_exists(cut));
  expect_fatal(run_kolv(scratch, {cmd, "-noc"}), "KOLV - Command file <" + cut + "> not found\n");
}

TEST_F(Failure, CommandFilePathOf5000CharactersIsCut) {
  const std::string cmd =
      scratch.work() + "/x." + std::string(5000 - scratch.work().size() - 3, 'a');
  ASSERT_EQ(cmd.size(), 5000u);
  expect_fatal(run_kolv(scratch, {cmd, "-noc"}),
               "KOLV - Command file <" + cmd.substr(0, 1023) + "> not found\n");
}

// Without an extension there is no room left for ".cmd": the name stays
// within its 1023 characters and is not found.
TEST_F(Failure, CommandFilePathOf5000CharactersWithoutExtension) {
  const std::string cmd = scratch.work() + "/" + std::string(5000 - scratch.work().size() - 1, 'a');
  Result r = run_kolv(scratch, {cmd, "-noc"});
  EXPECT_EQ(r.status, 255);
  const std::string head = "KOLV - Command file <" + cmd.substr(0, 1023);
  const std::string tail = "> not found\n";
  ASSERT_GE(r.out.size(), head.size() + tail.size());
  EXPECT_EQ(r.out.substr(0, head.size()), head);
  EXPECT_EQ(r.out.substr(r.out.size() - tail.size()), tail);
  EXPECT_LE(r.out.size() - tail.size() - std::strlen("KOLV - Command file <"), 1023u);
  EXPECT_EQ(read_file(scratch.at("out.dat")), kPrevious);
  EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
}

// An INPUT name keeps at most 1020 characters; a name the file system
// refuses is an input that cannot be opened.
TEST_F(Failure, InputNameOf5000Characters) {
  expect_fatal(run("INPUT " + std::string(5000, 'i') + ";\nOUTPUT out;\nINVAR x;\n"),
               "KOLV - Can't open input file\n");
}

// ---- append targets that must be refused ----

class AppendTarget : public Failure {
 protected:
  void offer(const std::string& target_bytes, const std::string& message) {
    spit(scratch.at("out.dat"), target_bytes);
    Result r = run(std::string("APPEND;\n") + kOneVariable);
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, message);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(read_file(scratch.at("out.dat")), target_bytes);
    EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
  }
};

const char kUnrecognised[] = "kolv -- unrecognized output file type, cannot append\n";

TEST_F(AppendTarget, Empty) {
  offer("", kUnrecognised);
}

// The first 20 bytes of a version-96 header: the signature words all match,
// but the check word lies beyond the end of the file.
TEST_F(AppendTarget, Short) {
  offer(finished_data_set(2).substr(0, 20), kUnrecognised);
}

TEST_F(AppendTarget, HeaderOnlyWithoutCheckWord) {
  std::string h = header(8, 2, 1);
  put32(h, 28, 0);
  offer(h, kUnrecognised);
}

// A finished data set written on a machine of the other byte order: its
// byte-order flag is set and its check word reads reversed.
TEST_F(AppendTarget, OtherByteOrder) {
  std::string ds = finished_data_set(2);
  put32(ds, 20, 0x01000000);
  put32(ds, 28, 0x02EFCDAB);
  offer(ds, "kolv -- byte order reversed, use morvelix before appending\n");
}

TEST_F(AppendTarget, Version92) {
  std::string v92(40, '\0');
  put32(v92, 0, 0x00000001);
  put32(v92, 4, 0xEECACACA);
  offer(v92 + doubles(1.0, 4), "kolv -- v92 file format, use morvelix before appending\n");
}

TEST_F(AppendTarget, ReadOnlyForAnUnprivilegedUser) {
  const std::string old = finished_data_set(2);
  spit(scratch.at("out.dat"), old);
  ASSERT_EQ(chmod(scratch.at("out.dat").c_str(), 0444), 0);
  // The target does not open for update, so the run tries to create the
  // output under its own name, which fails the same way.
  Result r = run(std::string("APPEND;\n") + kOneVariable, {-1, true});
  EXPECT_EQ(r.status, 255);
  EXPECT_EQ(r.out, "KOLV - Can't create temporary output file\n");
  EXPECT_EQ(read_file(scratch.at("out.dat")), old);
  EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
}

// A data set that may be written in a directory that may not: no journal
// can be made beside it, and the APPEND goes on without one, as it always
// did (status 0, the rows appended, nothing else created).
TEST_F(AppendTarget, WritableDataSetInAReadOnlyDirectory) {
  ASSERT_EQ(mkdir(scratch.at("ro").c_str(), 0777), 0);
  const std::string old = finished_data_set(2);
  spit(scratch.at("ro/out.dat"), old);
  ASSERT_EQ(chmod(scratch.at("ro/out.dat").c_str(), 0666), 0);
  ASSERT_EQ(chmod(scratch.at("ro").c_str(), 0555), 0);
  Result r = run("APPEND;\nINPUT in.txt;\nOUTPUT ro/out;\nINVAR x;\n", {-1, true});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(read_file(scratch.at("ro/out.dat")),
            header(8, 5, 1) + one_variable_block() + doubles(7.0, 2) + doubles(1.0, 3));
  EXPECT_FALSE(file_exists(scratch.at("ro/out.dat-journal")));
}

// Root opens a read-only file for update all the same: the rows are appended
// and the file keeps its mode.
TEST_F(AppendTarget, ReadOnlyForRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can update a read-only file";
  const std::string old = finished_data_set(2);
  spit(scratch.at("out.dat"), old);
  ASSERT_EQ(chmod(scratch.at("out.dat").c_str(), 0444), 0);
  Result r = run(std::string("APPEND;\n") + kOneVariable);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(read_file(scratch.at("out.dat")),
            header(8, 5, 1) + one_variable_block() + doubles(7.0, 2) + doubles(1.0, 3));
  struct stat st;
  ASSERT_EQ(stat(scratch.at("out.dat").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0444u);
  EXPECT_EQ(scratch.temporaries(), std::vector<std::string>{});
}

}  // namespace
