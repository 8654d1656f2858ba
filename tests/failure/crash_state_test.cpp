// Crash states: what a power loss or a kernel crash can leave of a kolv run,
// and what the next run makes of it.
//
// A run is recorded under strace (its file calls, with every byte written).
// The test replays the calls on a model of the files in the run's directory
// and builds every state a crash could leave: after each prefix of the
// calls, the changes made durable by an fsync of their file (data) or of the
// directory (names) are kept, and the others are kept or lost in the ways a
// file system may lose them: all kept, all lost, each one lost alone, data
// lost but names kept and the reverse, and each unsynced write torn (cut at a
// sector boundary, or its range left as zeros, as when a file's new size
// reaches the disk before its data). Each distinct state is put on disk and
// the recovery is run: for an APPEND, the next APPEND (which rolls a hot
// journal back) must leave the old data set or the completed one, each with
// its own rows after it; for a fresh output, the output name must hold the
// old data set or the new one, never anything else.
//
// The states are counted by the phase of the run the crash falls in, and the
// counts printed. Without strace the test skips, saying so; with
// KOLV_REQUIRE_STRACE=1 (set by CI) it fails instead.
//
// Beside them, journals made by hand from their documented layout (hot,
// damaged, stale) are met by kolv and kolvdump; those need no strace.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#ifndef KOLV_PROGRAM
#error "KOLV_PROGRAM must name the kolv program"
#endif
#ifndef KOLVDUMP_PROGRAM
#error "KOLVDUMP_PROGRAM must name the kolvdump program"
#endif

#include "support/dataset.hpp"
#include "support/files.hpp"
#include "support/scratch.hpp"

namespace {

using kolv_support::data_offset;
using kolv_support::file_exists;
using kolv_support::header;
using kolv_support::read_file;
using kolv_support::remove_tree;
using kolv_support::variable_block;
using kolv_support::write_file;

std::string find_strace() {
  for (const char* dir : {"/usr/bin", "/bin", "/usr/local/bin"}) {
    const std::string path = std::string(dir) + "/strace";
    if (::access(path.c_str(), X_OK) == 0) return path;
  }
  return "";
}

void append_double(std::string& bytes, double value) {
  char raw[8];
  std::memcpy(raw, &value, 8);
  bytes.append(raw, 8);
}

// ---- the recorded calls ----

struct Call {
  std::string name;
  std::vector<std::string> args;  // as strace printed them, strings decoded
  long long result = -1;
};

// Decodes strace's -xx strings ("\x41\x42") in place of the argument text.
bool parse_line(const std::string& line, Call& call) {
  const size_t open = line.find('(');
  if (open == std::string::npos || line.compare(0, 3, "+++") == 0 || line.compare(0, 3, "---") == 0)
    return false;
  call.name = line.substr(0, open);
  call.args.clear();
  size_t i = open + 1;
  std::string arg;
  int depth = 0;
  for (; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '"') {
      ++i;
      while (i < line.size() && line[i] != '"') {
        if (line[i] == '\\' && i + 3 < line.size() && line[i + 1] == 'x') {
          arg.push_back(static_cast<char>(std::stoi(line.substr(i + 2, 2), nullptr, 16)));
          i += 4;
        } else {
          arg.push_back(line[i]);
          ++i;
        }
      }
      if (line.compare(i + 1, 3, "...") == 0) return false;  // cut short: -s too small
      continue;
    }
    if (c == '{' || c == '[') ++depth;
    if (c == '}' || c == ']') --depth;
    if (depth == 0 && (c == ',' || c == ')')) {
      const size_t first = arg.find_first_not_of(' ');
      call.args.push_back(first == std::string::npos ? "" : arg.substr(first));
      arg.clear();
      if (c == ')') break;
      continue;
    }
    arg.push_back(c);
  }
  const size_t eq = line.find("= ", i);
  if (eq == std::string::npos) return false;
  call.result = std::strtoll(line.c_str() + eq + 2, nullptr, 10);
  return true;
}

// ---- the model: the operations that reach the disk ----

struct Op {
  enum Kind { kWrite, kTruncate, kLink, kUnlink, kRename, kSyncFile, kSyncDir };
  explicit Op(Kind k) : kind(k) {}
  Kind kind;
  int inode = -1;
  uint64_t at = 0;    // kWrite: offset; kTruncate: length
  std::string bytes;  // kWrite
  std::string a, b;   // names (kLink: a; kUnlink: a; kRename: a -> b)
  std::string phase;  // the run's phase this call belongs to
};

struct Recording {
  std::vector<Op> ops;
  std::map<std::string, int> initial_names;        // name -> inode before the run
  std::map<int, std::string> initial_content;      // inode -> bytes before the run
  std::map<std::string, std::string> final_names;  // what the run left (the model)
};

// The state of the directory's tracked files: name -> bytes.
using State = std::map<std::string, std::string>;

// Reads strace's log of a run in `dir` and turns the calls on the tracked
// files (names beginning with "out") into operations. `phase_of` names the
// phase of each operation from what it does.
bool record(const std::string& log, const std::string& dir, const State& before, Recording& rec,
            const std::function<std::string(const Op&, const std::string&)>& phase_of,
            std::string& error) {
  struct Open {
    int inode = -1;
    bool is_dir = false;
    bool append = false;
    uint64_t offset = 0;
  };
  std::map<int, std::shared_ptr<Open>> fds;
  std::map<std::string, int> names;
  std::map<int, std::string> content;
  int next_inode = 0;
  for (const auto& [name, bytes] : before) {
    names[name] = next_inode;
    content[next_inode] = bytes;
    ++next_inode;
  }
  rec.initial_names = names;
  rec.initial_content = content;
  auto tracked = [&](const std::string& path, std::string& name) {
    if (path.compare(0, dir.size() + 1, dir + "/") != 0) return false;
    name = path.substr(dir.size() + 1);
    return name.compare(0, 3, "out") == 0 && name.find('/') == std::string::npos;
  };
  auto name_of = [&](int inode) {
    for (const auto& [n, i] : names)
      if (i == inode) return n;
    return std::string("?");
  };
  auto add = [&](Op op) {
    std::string subject = op.inode >= 0 ? name_of(op.inode) : op.a;
    op.phase = phase_of(op, subject);
    rec.ops.push_back(std::move(op));
  };
  FILE* f = std::fopen(log.c_str(), "r");
  if (f == nullptr) {
    error = "no strace log";
    return false;
  }
  std::string line;
  int c;
  bool ok = true;
  while (ok) {
    line.clear();
    while ((c = std::fgetc(f)) != EOF && c != '\n') line.push_back(static_cast<char>(c));
    if (line.empty() && c == EOF) break;
    Call call;
    if (!parse_line(line, call)) continue;
    const std::string& n = call.name;
    if (call.result < 0) continue;  // a failed call changes nothing
    auto fd_arg = [&](size_t i) { return std::atoi(call.args.at(i).c_str()); };
    if (n == "openat" || n == "open") {
      const std::string& path = call.args.at(n == "openat" ? 1 : 0);
      const std::string& flags = call.args.at(n == "openat" ? 2 : 1);
      std::string name;
      const bool is_dir = path == dir;
      if (!is_dir && !tracked(path, name)) continue;
      auto o = std::make_shared<Open>();
      o->is_dir = is_dir;
      o->append = flags.find("O_APPEND") != std::string::npos;
      if (!is_dir) {
        if (names.count(name) == 0) {
          if (flags.find("O_CREAT") == std::string::npos) {
            error = "opened a file the model does not hold: " + name;
            ok = false;
            break;
          }
          names[name] = next_inode;
          content[next_inode] = "";
          Op op{Op::kLink};
          op.inode = next_inode;
          op.a = name;
          add(op);
          ++next_inode;
        } else if (flags.find("O_TRUNC") != std::string::npos) {
          content[names[name]].clear();
          Op op{Op::kTruncate};
          op.inode = names[name];
          op.at = 0;
          add(op);
        }
        o->inode = names[name];
      }
      fds[static_cast<int>(call.result)] = o;
    } else if (n == "close") {
      fds.erase(fd_arg(0));
    } else if (n == "dup" || (n == "fcntl" && call.args.at(1).compare(0, 7, "F_DUPFD") == 0)) {
      auto it = fds.find(fd_arg(0));
      if (it != fds.end()) fds[static_cast<int>(call.result)] = it->second;
    } else if (n == "dup2" || n == "dup3") {
      auto it = fds.find(fd_arg(0));
      if (it != fds.end()) fds[static_cast<int>(call.result)] = it->second;
    } else if (n == "read") {
      auto it = fds.find(fd_arg(0));
      if (it != fds.end()) it->second->offset += static_cast<uint64_t>(call.result);
    } else if (n == "lseek") {
      auto it = fds.find(fd_arg(0));
      if (it != fds.end()) it->second->offset = static_cast<uint64_t>(call.result);
    } else if (n == "write" || n == "pwrite64") {
      auto it = fds.find(fd_arg(0));
      if (it == fds.end()) continue;
      Open& o = *it->second;
      std::string& data = content[o.inode];
      Op op{Op::kWrite};
      op.inode = o.inode;
      op.bytes = call.args.at(1).substr(0, static_cast<size_t>(call.result));
      if (n == "pwrite64") {
        op.at = std::strtoull(call.args.at(3).c_str(), nullptr, 10);
      } else {
        op.at = o.append ? data.size() : o.offset;
        o.offset = op.at + op.bytes.size();
      }
      if (data.size() < op.at + op.bytes.size()) data.resize(op.at + op.bytes.size(), '\0');
      data.replace(op.at, op.bytes.size(), op.bytes);
      add(op);
    } else if (n == "writev" || n == "pwritev") {
      if (fds.count(fd_arg(0)) != 0) {
        error = "writev on a tracked file: not modelled";
        ok = false;
      }
    } else if (n == "ftruncate") {
      auto it = fds.find(fd_arg(0));
      if (it == fds.end()) continue;
      Op op{Op::kTruncate};
      op.inode = it->second->inode;
      op.at = std::strtoull(call.args.at(1).c_str(), nullptr, 10);
      content[op.inode].resize(op.at, '\0');
      add(op);
    } else if (n == "fsync" || n == "fdatasync") {
      auto it = fds.find(fd_arg(0));
      if (it == fds.end()) continue;
      Op op{it->second->is_dir ? Op::kSyncDir : Op::kSyncFile};
      op.inode = it->second->inode;
      add(op);
    } else if (n == "rename" || n == "renameat" || n == "renameat2") {
      const bool at = n != "rename";
      std::string from, to;
      if (!tracked(call.args.at(at ? 1 : 0), from) || !tracked(call.args.at(at ? 3 : 1), to)) {
        error = "a rename the model does not follow";
        ok = false;
        break;
      }
      names[to] = names.at(from);
      names.erase(from);
      Op op{Op::kRename};
      op.a = from;
      op.b = to;
      add(op);
    } else if (n == "link" || n == "linkat") {
      const bool at = n == "linkat";
      std::string from, to;
      if (!tracked(call.args.at(at ? 1 : 0), from) || !tracked(call.args.at(at ? 3 : 1), to)) {
        error = "a link the model does not follow";
        ok = false;
        break;
      }
      names[to] = names.at(from);
      Op op{Op::kLink};
      op.inode = names[to];
      op.a = to;
      add(op);
    } else if (n == "unlink" || n == "unlinkat") {
      std::string name;
      if (!tracked(call.args.at(n == "unlinkat" ? 1 : 0), name)) continue;
      Op op{Op::kUnlink};
      op.a = name;
      op.inode = names[name];
      names.erase(name);
      add(op);
    }
  }
  std::fclose(f);
  for (const auto& [name, inode] : names) rec.final_names[name] = content[inode];
  return ok;
}

// One way of applying the unsynced operations of a prefix.
enum class Tear { kWhole, kCut, kZeros };

// The files after applying `keep` (operation indexes, in order), the write
// `torn` (if any) torn as `tear`.
State replay(const Recording& rec, const std::vector<size_t>& keep, size_t torn, Tear tear) {
  std::map<std::string, int> names = rec.initial_names;
  std::map<int, std::string> content = rec.initial_content;
  for (size_t i : keep) {
    const Op& op = rec.ops[i];
    switch (op.kind) {
      case Op::kWrite: {
        std::string bytes = op.bytes;
        if (i == torn && tear == Tear::kZeros) bytes.assign(bytes.size(), '\0');
        if (i == torn && tear == Tear::kCut)
          bytes.resize(bytes.size() > 512 ? (bytes.size() - 1) / 512 * 512 : bytes.size() / 2);
        std::string& data = content[op.inode];
        if (data.size() < op.at + bytes.size()) data.resize(op.at + bytes.size(), '\0');
        data.replace(op.at, bytes.size(), bytes);
        break;
      }
      case Op::kTruncate:
        content[op.inode].resize(op.at, '\0');
        break;
      case Op::kLink:
        names[op.a] = op.inode;
        break;
      case Op::kUnlink:
        names.erase(op.a);
        break;
      case Op::kRename:
        if (names.count(op.a) != 0) {
          names[op.b] = names[op.a];
          names.erase(op.a);
        }
        break;
      case Op::kSyncFile:
      case Op::kSyncDir:
        break;
    }
  }
  State state;
  for (const auto& [name, inode] : names) state[name] = content[inode];
  return state;
}

struct Crashes {
  std::vector<State> states;
  std::vector<std::string> phases;  // the phase of each state
  size_t built = 0;                 // states built before duplicates were dropped
  std::map<std::string, int> built_by_phase;
};

// Every crash state of every prefix of the recorded operations.
Crashes crash_states(const Recording& rec) {
  Crashes out;
  std::set<State> seen;
  const size_t n = rec.ops.size();
  for (size_t p = 0; p <= n; ++p) {
    // Durable: data operations followed (within the prefix) by an fsync of
    // their file, name operations followed by an fsync of the directory.
    std::vector<bool> durable(p, false);
    for (size_t i = 0; i < p; ++i) {
      const Op& op = rec.ops[i];
      if (op.kind == Op::kSyncFile || op.kind == Op::kSyncDir) {
        durable[i] = true;
        continue;
      }
      const bool data = op.kind == Op::kWrite || op.kind == Op::kTruncate;
      for (size_t j = i + 1; j < p && !durable[i]; ++j) {
        const Op& s = rec.ops[j];
        if (data && s.kind == Op::kSyncFile && s.inode == op.inode) durable[i] = true;
        if (!data && s.kind == Op::kSyncDir) durable[i] = true;
      }
    }
    std::vector<size_t> fixed;
    std::vector<size_t> pending;
    for (size_t i = 0; i < p; ++i) (durable[i] ? fixed : pending).push_back(i);
    auto with = [&](const std::function<bool(size_t)>& kept, size_t torn, Tear tear) {
      std::vector<size_t> keep;
      for (size_t i = 0; i < p; ++i)
        if (durable[i] || kept(i)) keep.push_back(i);
      State s = replay(rec, keep, torn, tear);
      ++out.built;
      ++out.built_by_phase[p == 0 ? "before the run" : rec.ops[p - 1].phase];
      if (seen.insert(s).second) {
        out.states.push_back(std::move(s));
        out.phases.push_back(p == 0 ? "before the run" : rec.ops[p - 1].phase);
      }
    };
    const size_t none = SIZE_MAX;
    auto is_data = [&](size_t i) {
      return rec.ops[i].kind == Op::kWrite || rec.ops[i].kind == Op::kTruncate;
    };
    with([](size_t) { return true; }, none, Tear::kWhole);
    with([](size_t) { return false; }, none, Tear::kWhole);
    with([&](size_t i) { return !is_data(i); }, none, Tear::kWhole);
    with([&](size_t i) { return is_data(i); }, none, Tear::kWhole);
    for (size_t lost : pending) {
      with([&](size_t i) { return i != lost; }, none, Tear::kWhole);
      if (rec.ops[lost].kind == Op::kWrite) {
        with([](size_t) { return true; }, lost, Tear::kCut);
        with([](size_t) { return true; }, lost, Tear::kZeros);
      }
    }
  }
  return out;
}

// ---- the runs ----

struct Ran {
  int status = -1;
  std::string out, err;
};

Ran run_in(const std::string& dir, const std::vector<std::string>& argv_in, bool traced = false) {
  const std::string out = dir + "/../run.stdout";
  const std::string err = dir + "/../run.stderr";
  const pid_t child = ::fork();
  if (child == 0) {
    if (::chdir(dir.c_str()) != 0) ::_exit(120);
    if (traced) {
      // The leak checker of a sanitizer build cannot run under ptrace; the
      // recovery runs, not traced, keep it.
      const char* asan = std::getenv("ASAN_OPTIONS");
      const std::string options = std::string(asan != nullptr ? asan : "") +
                                  (asan != nullptr ? ":" : "") + "detect_leaks=0";
      ::setenv("ASAN_OPTIONS", options.c_str(), 1);
    }
    const int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    const int e = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (o < 0 || e < 0) ::_exit(121);
    ::dup2(o, 1);
    ::dup2(e, 2);
    std::vector<char*> argv;
    for (const std::string& a : argv_in) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    ::_exit(124);
  }
  int wstatus = 0;
  while (::waitpid(child, &wstatus, 0) < 0) {
  }
  Ran r;
  r.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
  r.out = read_file(out);
  r.err = read_file(err);
  return r;
}

class CrashState : public ::testing::Test {
 protected:
  void SetUp() override {
    strace_ = find_strace();
    if (strace_.empty()) {
      if (const char* req = std::getenv("KOLV_REQUIRE_STRACE"); req && std::strcmp(req, "1") == 0)
        FAIL() << "KOLV_REQUIRE_STRACE=1 but strace is not installed";
      GTEST_SKIP() << "strace is not installed: the crash-state test records a run's file calls "
                      "with it (apt-get install strace)";
    }
    const char* tmp = std::getenv("TMPDIR");
    std::string templ =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/kolv_crash_XXXXXX";
    std::vector<char> buffer(templ.begin(), templ.end());
    buffer.push_back('\0');
    ASSERT_NE(::mkdtemp(buffer.data()), nullptr);
    root_ = buffer.data();
    dir_ = root_ + "/d";
    ASSERT_EQ(::mkdir(dir_.c_str(), 0777), 0);
  }
  void TearDown() override {
    if (!root_.empty()) remove_tree(root_);
  }

  // Puts `state` in the directory: files of the state written (out.dat in
  // place, keeping its inode), other tracked files removed.
  void put(const State& state) {
    DIR* d = ::opendir(dir_.c_str());
    ASSERT_NE(d, nullptr);
    std::vector<std::string> present;
    while (dirent* e = ::readdir(d)) {
      const std::string name = e->d_name;
      if (name.compare(0, 3, "out") == 0) present.push_back(name);
    }
    ::closedir(d);
    for (const std::string& name : present)
      if (state.count(name) == 0) ::unlink((dir_ + "/" + name).c_str());
    for (const auto& [name, bytes] : state) ASSERT_TRUE(write_file(dir_ + "/" + name, bytes));
  }

  // Records `command` run under strace in the directory holding `before`.
  void record_run(const State& before, const std::string& command, Recording& rec,
                  const std::function<std::string(const Op&, const std::string&)>& phase_of) {
    put(before);
    const std::string log = root_ + "/trace.txt";
    const Ran r = run_in(dir_,
                         {strace_, "-o", log, "-qq", "-xx", "-s", "16777216", "-e",
                          "trace=openat,open,close,dup,dup2,dup3,fcntl,read,lseek,write,"
                          "pwrite64,writev,pwritev,ftruncate,fsync,fdatasync,rename,"
                          "renameat,renameat2,link,linkat,unlink,unlinkat",
                          KOLV_PROGRAM, command, "-noc"},
                         true);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    std::string error;
    ASSERT_TRUE(record(log, dir_, before, rec, phase_of, error)) << error;
    // The model must end where the real run ended.
    State real;
    for (const auto& [name, bytes] : rec.final_names) real[name] = read_file(dir_ + "/" + name);
    for (const auto& [name, bytes] : rec.final_names)
      ASSERT_TRUE(real[name] == bytes) << "the model of " << name << " differs from the file";
  }

  static void print_counts(const char* what, const Crashes& crashes) {
    std::map<std::string, int> by_phase;
    for (const std::string& p : crashes.phases) ++by_phase[p];
    std::printf("[ crash states ] %s: %zu distinct states checked (%zu built)\n", what,
                crashes.states.size(), crashes.built);
    std::printf("  phase of the crash : distinct states (states built)\n");
    for (const auto& [phase, built] : crashes.built_by_phase)
      std::printf("  %s : %d (%d)\n", phase.c_str(), by_phase[phase], built);
  }

  // An APPEND of 12000 rows (three row blocks) with these OUTVAR statements
  // to a data set of one variable and 100 rows, whose variable block the
  // run's own goes over; every crash state recovered by the next APPEND.
  void check_append(const std::string& outvar, const char* what);

  std::string strace_, root_, dir_;
};

std::string rows_input(size_t rows, size_t first) {
  std::string text;
  char line[64];
  for (size_t i = first; i < first + rows; ++i) {
    const int n = std::snprintf(line, sizeof line, "%zu %.3f %zu\n", i,
                                static_cast<double>(i % 1000) / 8.0, i % 7);
    text.append(line, static_cast<size_t>(n));
  }
  return text;
}

std::string rows_bytes(size_t rows, size_t first) {
  std::string bytes;
  for (size_t i = first; i < first + rows; ++i) {
    append_double(bytes, static_cast<double>(i));
    append_double(bytes, static_cast<double>(i % 1000) / 8.0);
    append_double(bytes, static_cast<double>(i % 7));
  }
  return bytes;
}

void CrashState::check_append(const std::string& outvar, const char* title) {
  std::string earlier = header(8, 100, 1) + variable_block({"X"});
  for (int i = 0; i < 100; ++i) append_double(earlier, 7.0);
  const std::vector<std::string> names = {"A", "B", "C"};
  const std::string complete = header(8, 12100, 3) + variable_block(names) +
                               earlier.substr(data_offset(3)) + rows_bytes(12000, 0);
  ASSERT_TRUE(write_file(dir_ + "/in.txt", rows_input(12000, 0)));
  ASSERT_TRUE(write_file(dir_ + "/next.txt", rows_input(4, 50000)));
  ASSERT_TRUE(write_file(dir_ + "/run.cmd",
                         "APPEND;\nINPUT in.txt;\nOUTPUT out;\nINVAR a b c;\n" + outvar));
  ASSERT_TRUE(write_file(dir_ + "/next.cmd",
                         "APPEND;\nINPUT next.txt;\nOUTPUT out;\nINVAR a b c;\n"
                         "OUTVAR a b c;\n"));
  auto then_next = [&](const std::string& base, uint32_t rows) {
    return header(8, rows + 4, 3) + variable_block(names) + base.substr(data_offset(3)) +
           rows_bytes(4, 50000);
  };
  const std::string old_then_next = then_next(earlier, 100);
  const std::string new_then_next = then_next(complete, 12100);

  Recording rec;
  bool rows_begun = false;
  bool header_written = false;
  record_run({{"out.dat", earlier}}, "run.cmd", rec, [&](const Op& op, const std::string& name) {
    if (name != "out.dat") {
      if (op.kind == Op::kUnlink && name == "out.dat-journal") return "journal removed (commit)";
      if (op.kind == Op::kSyncDir) return header_written ? "commit" : "journal";
      return "journal";
    }
    if (op.kind == Op::kWrite && op.at >= earlier.size()) rows_begun = true;
    if (op.kind == Op::kWrite && op.at == 0) header_written = true;
    if (header_written) return op.kind == Op::kSyncFile ? "header synced" : "header written";
    if (rows_begun) return op.kind == Op::kSyncFile ? "rows synced" : "rows appended";
    return "variable block";
  });
  ASSERT_FALSE(HasFatalFailure());
  ASSERT_TRUE(rec.final_names["out.dat"] == complete) << "the recorded run did not complete";

  const Crashes crashes = crash_states(rec);
  const std::string rolled = "KOLV - Interrupted append to " + dir_ + "/out.dat rolled back from " +
                             dir_ + "/out.dat-journal\n";
  std::map<std::string, int> outcomes;
  for (size_t i = 0; i < crashes.states.size(); ++i) {
    const State& s = crashes.states[i];
    put(s);
    ASSERT_FALSE(HasFatalFailure());
    const std::string where = "state " + std::to_string(i) + " (" + crashes.phases[i] + ")";
    const bool hot = s.count("out.dat-journal") != 0;
    const Ran r = run_in(dir_, {KOLV_PROGRAM, "next.cmd", "-noc"});
    EXPECT_EQ(r.status, 0) << where << ": " << r.out;
    EXPECT_EQ(r.out, "") << where;
    EXPECT_TRUE(r.err.empty() || (hot && r.err == rolled)) << where << ": " << r.err;
    const std::string now = read_file(dir_ + "/out.dat");
    const bool old = now == old_then_next;
    EXPECT_TRUE(old || now == new_then_next)
        << where << ": " << now.size() << " bytes after recovery and the next APPEND";
    EXPECT_FALSE(file_exists(dir_ + "/out.dat-journal")) << where;
    EXPECT_FALSE(file_exists(dir_ + "/out.dat-journal-new")) << where;
    ++outcomes[old ? "old data set" : "completed data set"];
    if (HasFailure()) break;
  }
  print_counts(title, crashes);
  for (const auto& [what, count] : outcomes)
    std::printf("  recovered to the %s : %d\n", what.c_str(), count);
}

TEST_F(CrashState, AnAppendRecoversToTheOldOrTheCompletedDataSet) {
  check_append("OUTVAR a b c;\n", "APPEND");
}

// Two OUTVAR statements, the second covering more of the old file than the
// first: the journal is written again, larger, renamed over the first.
TEST_F(CrashState, AnAppendWhoseJournalGrowsRecoversAsWell) {
  check_append("OUTVAR a;\nOUTVAR a b c;\n", "APPEND, journal written twice");
}

// An APPEND onto no data set: made aside, synced, linked into place, the
// directory synced.
TEST_F(CrashState, AnAppendCreatingItsDataSetLeavesNoneOrTheWholeOne) {
  const std::string complete =
      header(8, 12000, 3) + variable_block({"A", "B", "C"}) + rows_bytes(12000, 0);
  ASSERT_TRUE(write_file(dir_ + "/in.txt", rows_input(12000, 0)));
  ASSERT_TRUE(write_file(dir_ + "/run.cmd", "APPEND;\nINPUT in.txt;\nOUTPUT out;\nINVAR a b c;\n"));
  Recording rec;
  bool linked = false;
  record_run({}, "run.cmd", rec, [&](const Op& op, const std::string&) {
    if (op.kind == Op::kLink && op.a == "out.dat") linked = true;
    if (linked) return op.kind == Op::kSyncDir ? "directory synced" : "linked";
    return op.kind == Op::kSyncFile ? "temporary file synced" : "temporary file written";
  });
  ASSERT_FALSE(HasFatalFailure());
  ASSERT_TRUE(rec.final_names["out.dat"] == complete) << "the recorded run did not complete";
  const Crashes crashes = crash_states(rec);
  std::map<std::string, int> outcomes;
  for (size_t i = 0; i < crashes.states.size(); ++i) {
    const State& s = crashes.states[i];
    const auto it = s.find("out.dat");
    const bool none = it == s.end();
    EXPECT_TRUE(none || it->second == complete)
        << "state " << i << " (" << crashes.phases[i] << "): out.dat of " << it->second.size()
        << " bytes";
    ++outcomes[none ? "no data set" : "whole data set"];
  }
  print_counts("APPEND creating its data set", crashes);
  for (const auto& [what, count] : outcomes)
    std::printf("  out.dat : %s : %d\n", what.c_str(), count);
}

// A fresh conversion over an earlier data set: the temporary file is synced
// before the rename and the directory after.
TEST_F(CrashState, AFreshOutputIsTheOldOrTheNewDataSet) {
  std::string earlier = header(8, 100, 1) + variable_block({"X"});
  for (int i = 0; i < 100; ++i) append_double(earlier, 7.0);
  const std::string complete =
      header(8, 12000, 3) + variable_block({"A", "B", "C"}) + rows_bytes(12000, 0);
  ASSERT_TRUE(write_file(dir_ + "/in.txt", rows_input(12000, 0)));
  ASSERT_TRUE(write_file(dir_ + "/run.cmd", "INPUT in.txt;\nOUTPUT out;\nINVAR a b c;\n"));
  Recording rec;
  bool renamed = false;
  record_run({{"out.dat", earlier}}, "run.cmd", rec, [&](const Op& op, const std::string&) {
    if (op.kind == Op::kRename) renamed = true;
    if (renamed) return op.kind == Op::kSyncDir ? "directory synced" : "renamed";
    return op.kind == Op::kSyncFile ? "temporary file synced" : "temporary file written";
  });
  ASSERT_FALSE(HasFatalFailure());
  ASSERT_TRUE(rec.final_names["out.dat"] == complete) << "the recorded run did not complete";
  const Crashes crashes = crash_states(rec);
  std::map<std::string, int> outcomes;
  for (size_t i = 0; i < crashes.states.size(); ++i) {
    const State& s = crashes.states[i];
    const auto it = s.find("out.dat");
    ASSERT_TRUE(it != s.end()) << "state " << i << " (" << crashes.phases[i] << "): no out.dat";
    const bool old = it->second == earlier;
    EXPECT_TRUE(old || it->second == complete) << "state " << i << " (" << crashes.phases[i]
                                               << "): out.dat of " << it->second.size() << " bytes";
    ++outcomes[old ? "old data set" : "new data set"];
  }
  print_counts("fresh output", crashes);
  for (const auto& [what, count] : outcomes)
    std::printf("  out.dat holds the %s : %d\n", what.c_str(), count);
}

// ---- journals made by hand, from the documented layout ----

// A journal of the data set `dataset` (its device and inode) saying it was
// `length` bytes long and began with `saved`.
std::string make_journal(const std::string& dataset, uint64_t length, const std::string& saved,
                         int64_t inode_shift = 0) {
  struct stat st;
  if (::stat(dataset.c_str(), &st) != 0) return "";
  std::string j = "KOLVJNL1";
  auto put64 = [&](uint64_t v) {
    for (int i = 0; i < 8; ++i) j.push_back(static_cast<char>(v >> (8 * i) & 0xFF));
  };
  put64(length);
  put64(saved.size());
  put64(static_cast<uint64_t>(st.st_dev));
  put64(static_cast<uint64_t>(st.st_ino) + static_cast<uint64_t>(inode_shift));
  uint64_t hash = 0xcbf29ce484222325ULL;
  auto fnv = [&](const std::string& bytes) {
    for (char c : bytes) {
      hash ^= static_cast<unsigned char>(c);
      hash *= 0x100000001b3ULL;
    }
  };
  fnv(j);
  fnv(saved);
  put64(hash);
  return j + saved;
}

class JournalByHand : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string templ = "/tmp/kolv_journal_XXXXXX";
    if (const char* tmp = std::getenv("TMPDIR"); tmp != nullptr && *tmp != '\0')
      templ = std::string(tmp) + "/kolv_journal_XXXXXX";
    std::vector<char> buffer(templ.begin(), templ.end());
    buffer.push_back('\0');
    ASSERT_NE(::mkdtemp(buffer.data()), nullptr);
    root_ = buffer.data();
    dir_ = root_ + "/d";
    ASSERT_EQ(::mkdir(dir_.c_str(), 0777), 0);
    // The old data set: three variables, 10 rows. The unfinished append
    // over it: another header, 2 rows more.
    old_ = header(8, 10, 3) + variable_block({"A", "B", "C"}) + rows_bytes(10, 0);
    after_ =
        header(8, 12, 3) + variable_block({"A", "B", "C"}) + rows_bytes(10, 0) + rows_bytes(2, 900);
    ASSERT_TRUE(write_file(dir_ + "/next.txt", rows_input(4, 50000)));
    ASSERT_TRUE(
        write_file(dir_ + "/next.cmd", "APPEND;\nINPUT next.txt;\nOUTPUT out;\nINVAR a b c;\n"));
    old_then_next_ = header(8, 14, 3) + variable_block({"A", "B", "C"}) + rows_bytes(10, 0) +
                     rows_bytes(4, 50000);
  }
  void TearDown() override {
    if (!root_.empty()) remove_tree(root_);
  }
  std::string at(const std::string& name) const { return dir_ + "/" + name; }
  Ran kolvdump(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {KOLVDUMP_PROGRAM};
    argv.insert(argv.end(), args.begin(), args.end());
    return run_in(dir_, argv);
  }

  std::string root_, dir_, old_, after_, old_then_next_;
};

TEST_F(JournalByHand, AHotJournalIsShownReportedAndRolledBack) {
  ASSERT_TRUE(write_file(at("out.dat"), after_));
  ASSERT_TRUE(write_file(at("out.dat-journal"),
                         make_journal(at("out.dat"), old_.size(), old_.substr(0, data_offset(3)))));
  ASSERT_TRUE(write_file(at("old.dat"), old_));
  const Ran check = kolvdump({"--check", "out.dat"});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.out, "");
  EXPECT_EQ(check.err,
            "kolvdump: out.dat: an interrupted append is pending (out.dat-journal); the next kolv "
            "APPEND onto it rolls it back\n");
  const Ran view = kolvdump({"--csv", "out.dat"});
  const Ran old_view = kolvdump({"--csv", "old.dat"});
  EXPECT_EQ(view.status, 0) << view.err;
  EXPECT_EQ(view.err,
            "kolvdump: out.dat: an interrupted append is pending (out.dat-journal); shown as it "
            "was before it\n");
  EXPECT_EQ(old_view.status, 0);
  EXPECT_EQ(view.out, old_view.out);
  EXPECT_EQ(read_file(at("out.dat")), after_) << "kolvdump wrote";
  EXPECT_TRUE(file_exists(at("out.dat-journal"))) << "kolvdump removed the journal";

  const Ran next = run_in(dir_, {KOLV_PROGRAM, "next.cmd", "-noc"});
  EXPECT_EQ(next.status, 0) << next.out;
  EXPECT_EQ(next.out, "");
  EXPECT_EQ(next.err, "KOLV - Interrupted append to " + at("out.dat") + " rolled back from " +
                          at("out.dat-journal") + "\n");
  EXPECT_TRUE(read_file(at("out.dat")) == old_then_next_);
  EXPECT_FALSE(file_exists(at("out.dat-journal")));
}

TEST_F(JournalByHand, ADamagedJournalIsLeftAloneAndStopsTheAppend) {
  ASSERT_TRUE(write_file(at("out.dat"), after_));
  std::string journal = make_journal(at("out.dat"), old_.size(), old_.substr(0, data_offset(3)));
  journal[60] = static_cast<char>(journal[60] ^ 0x40);  // a saved byte changed
  ASSERT_TRUE(write_file(at("out.dat-journal"), journal));
  const Ran next = run_in(dir_, {KOLV_PROGRAM, "next.cmd", "-noc"});
  EXPECT_EQ(next.status, 255);
  EXPECT_EQ(next.out, "KOLV - Journal " + at("out.dat-journal") +
                          " fails its checksum: left alone, " + at("out.dat") +
                          " not appended to\n");
  EXPECT_EQ(next.err, "");
  EXPECT_TRUE(read_file(at("out.dat")) == after_);
  EXPECT_TRUE(read_file(at("out.dat-journal")) == journal);
  const Ran check = kolvdump({"--check", "out.dat"});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.err,
            "kolvdump: out.dat: journal out.dat-journal fails its checksum: the data set may hold "
            "an unfinished append\n");
}

TEST_F(JournalByHand, AStaleJournalIsRemovedAndIgnored) {
  ASSERT_TRUE(write_file(at("out.dat"), old_));
  ASSERT_TRUE(write_file(at("out.dat-journal"),
                         make_journal(at("out.dat"), 128, std::string(128, '\x55'), 1)));
  ASSERT_TRUE(write_file(at("out.dat-journal-new"), "a journal never finished"));
  const Ran check = kolvdump({"--check", "out.dat"});
  EXPECT_EQ(check.status, 0) << check.err;
  EXPECT_EQ(check.err, "");
  const Ran next = run_in(dir_, {KOLV_PROGRAM, "next.cmd", "-noc"});
  EXPECT_EQ(next.status, 0) << next.out;
  EXPECT_EQ(next.out, "");
  EXPECT_EQ(next.err, "");
  EXPECT_TRUE(read_file(at("out.dat")) == old_then_next_);
  EXPECT_FALSE(file_exists(at("out.dat-journal")));
  EXPECT_FALSE(file_exists(at("out.dat-journal-new")));
}

TEST_F(JournalByHand, AFreshConversionRemovesTheJournalWithTheOldDataSet) {
  ASSERT_TRUE(write_file(at("out.dat"), after_));
  ASSERT_TRUE(write_file(at("out.dat-journal"),
                         make_journal(at("out.dat"), old_.size(), old_.substr(0, data_offset(3)))));
  ASSERT_TRUE(write_file(at("fresh.cmd"), "INPUT next.txt;\nOUTPUT out;\nINVAR a b c;\n"));
  const Ran fresh = run_in(dir_, {KOLV_PROGRAM, "fresh.cmd", "-noc"});
  EXPECT_EQ(fresh.status, 0) << fresh.out;
  EXPECT_EQ(fresh.out, "");
  EXPECT_EQ(fresh.err, "");
  EXPECT_TRUE(read_file(at("out.dat")) ==
              header(8, 4, 3) + variable_block({"A", "B", "C"}) + rows_bytes(4, 50000));
  EXPECT_FALSE(file_exists(at("out.dat-journal")));
}

}  // namespace
