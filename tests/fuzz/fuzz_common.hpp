// What every fuzz target shares: a private scratch directory per process, a
// whole kolv run in-process with its messages caught in memory, and the
// checks that hold after any run, whatever the input:
//   - the exit status is 0 or 255;
//   - no temporary output (out_ and six characters) is left behind;
//   - a run that ends fatally leaves an existing output with its bytes
//     (unless it was appending: an appended file is updated in place);
//   - no file descriptor stays open on a file of the scratch directory.
// A broken check prints why and aborts, which both libFuzzer and the replay
// program report as a failure of that input.
#pragma once

#include <dirent.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "command/settings.hpp"
#include "command/statement.hpp"
#include "driver/entry.hpp"
#include "support/dataset.hpp"
#include "support/files.hpp"

namespace kolv_fuzz {

[[noreturn]] inline void broken(const char* what, const std::string& detail = {}) {
  std::fprintf(stderr, "kolv fuzz check failed: %s%s%s\n", what, detail.empty() ? "" : ": ",
               detail.c_str());
  std::fflush(stderr);
  std::abort();
}

using kolv_support::get32;
using kolv_support::read_file;

// Writes a scratch file; a failure breaks the run of the target.
inline void write_file(const std::string& path, const std::string& bytes) {
  if (!kolv_support::write_file(path, bytes)) broken("cannot write scratch file", path);
}

// Bytes of a finished data set that stands in the output's place before
// every run: one numeric column X and two rows (1.0 and 2.0).
inline std::string previous_data_set() {
  const double rows[2] = {1.0, 2.0};
  return kolv_support::header(8, 2, 1) + kolv_support::variable_block({"X"}) +
         std::string(reinterpret_cast<const char*>(rows), sizeof rows);
}

// A scratch directory private to this process, made on first use and
// emptied of everything a run may leave there between runs.
class Sandbox {
 public:
  // Never destroyed: the clean-up at exit still needs it.
  static Sandbox& get() {
    static Sandbox* box = new Sandbox;
    return *box;
  }

  const std::string& dir() const { return dir_; }
  std::string path(const char* name) const { return dir_ + "/" + name; }

  // Runs kolv on the command file with the given bytes; returns the exit
  // status and leaves standard output in `out`.
  int run(const std::string& command_file, std::string& out, bool quiet = true) {
    const Inside inside(*this);
    prepare();
    write_file(path("run.cmd"), command_file);
    const std::string cmd = path("run.cmd");
    const char* argv[] = {"kolv", cmd.c_str(), "-noc", nullptr};
    char* out_data = nullptr;
    size_t out_size = 0;
    FILE* out_stream = open_memstream(&out_data, &out_size);
    if (out_stream == nullptr) broken("open_memstream");
    const int status = kolv::kolv_main(quiet ? 3 : 2, argv, kolv::Console{out_stream, null_});
    std::fclose(out_stream);
    out.assign(out_data ? out_data : "", out_size);
    std::free(out_data);
    if (show_) {
      std::fprintf(stderr, "--- command file\n%s\n--- status %d, standard output\n%s---\n",
                   command_file.c_str(), status, out.c_str());
    }
    check_descriptors();
    if (status != 0 && status != 255)
      broken("exit status is neither 0 nor 255", std::to_string(status));
    check_leftovers(status);
    return status;
  }

  // Empties the directory but for the files the target keeps, and puts the
  // previous data set back in the output's place.
  void prepare() {
    DIR* d = opendir(dir_.c_str());
    if (d == nullptr) broken("cannot list scratch directory", dir_);
    std::vector<std::string> doomed;
    while (dirent* e = readdir(d)) {
      std::string name = e->d_name;
      if (name == "." || name == ".." || name == "in.txt") continue;
      doomed.push_back(name);
    }
    closedir(d);
    for (const std::string& name : doomed) unlink(path(name.c_str()).c_str());
    write_file(path("out.dat"), previous_);
  }

  const std::string& previous() const { return previous_; }

  // The existing output must hold its bytes after a fatal end.
  void expect_output_kept(const std::string& why) {
    std::string now;
    if (!read_file(path("out.dat"), now)) broken("existing output removed", why);
    if (now != previous_) broken("existing output changed", why);
  }

 private:
  Sandbox() {
    std::string templ = scratch_root() + "/kolv_fuzz_XXXXXX";
    if (mkdtemp(templ.data()) == nullptr) broken("mkdtemp", templ);
    dir_ = templ;
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof cwd) == nullptr) broken("getcwd");
    home_ = cwd;
    null_ = std::fopen("/dev/null", "w");
    if (null_ == nullptr) broken("open /dev/null");
    previous_ = previous_data_set();
    show_ = std::getenv("KOLV_FUZZ_SHOW") != nullptr;
    std::atexit([] { Sandbox::get().remove_all(); });
  }

  // Every run creates, truncates, renames and removes files: memory-backed
  // /dev/shm makes that many times faster than a disk; $TMPDIR decides first.
  static std::string scratch_root() {
    if (const char* tmp = std::getenv("TMPDIR"); tmp != nullptr && *tmp != '\0') return tmp;
    struct stat st;
    if (stat("/dev/shm", &st) == 0 && S_ISDIR(st.st_mode) && access("/dev/shm", W_OK) == 0)
      return "/dev/shm";
    return "/tmp";
  }

  // No descriptor may stay open on a file of the scratch directory or on the
  // directory above it (which a fuzzed INPUT .. names). Other descriptors
  // belong to the fuzzing engine (its symbolizer pipes, for one).
  void check_descriptors() {
    DIR* d = opendir("/proc/self/fd");
    if (d == nullptr) return;
    const std::string parent = dir_.substr(0, dir_.rfind('/'));
    std::string leaked;
    while (dirent* e = readdir(d)) {
      if (e->d_name[0] == '.') continue;
      char target[4096];
      const std::string link = std::string("/proc/self/fd/") + e->d_name;
      const ssize_t n = readlink(link.c_str(), target, sizeof target - 1);
      if (n <= 0) continue;
      target[n] = '\0';
      const std::string to = target;
      if (to == parent || to == dir_ || to.compare(0, dir_.size() + 1, dir_ + "/") == 0)
        leaked = std::string(e->d_name) + " -> " + to;
    }
    closedir(d);
    if (!leaked.empty()) broken("a file descriptor stayed open", leaked);
  }

  void check_leftovers(int status) {
    DIR* d = opendir(dir_.c_str());
    if (d == nullptr) broken("cannot list scratch directory", dir_);
    std::string left;
    while (dirent* e = readdir(d)) {
      const std::string name = e->d_name;
      if (is_temporary_name(name)) left = name;
    }
    closedir(d);
    if (left.empty()) return;
    // Known and reported: a completed run does not check the rename of its
    // finished temporary output onto the output name, so a name that the
    // file system refuses (a component longer than NAME_MAX) leaves the
    // temporary output in place. Excused only when the same rename, tried
    // here, fails for that reason.
    if (status == 0) {
      const std::string output = output_name();
      if (std::rename(path(left.c_str()).c_str(), output.c_str()) != 0 && errno == ENAMETOOLONG) {
        unlink(path(left.c_str()).c_str());
        return;
      }
    }
    broken("temporary output left behind", left);
  }

  // out_ and six letters or digits, as mkstemp makes them. An output is never
  // such a name: it always ends in ".dat".
  static bool is_temporary_name(const std::string& name) {
    if (name.size() != 10 || name.compare(0, 4, "out_") != 0) return false;
    for (size_t i = 4; i < 10; ++i)
      if (!std::isalnum(static_cast<unsigned char>(name[i]))) return false;
    return true;
  }

  // The output name that pass 1 settles for the command file just run: its
  // OUTPUT statements read by the program's own statement reader and parser.
  std::string output_name() {
    auto run = std::make_unique<kolv::Run>();
    run->io = kolv::Console{null_, null_};
    run->files.fcf = std::fopen(path("run.cmd").c_str(), "r");
    if (run->files.fcf == nullptr) broken("cannot reopen the command file");
    try {
      while (kolv::getstat(*run)) {
        kolv::Statement st = kolv::current_statement(*run);
        if (kolv::strnicmp(st.data(), "INPUT", 5) != 0 &&
            kolv::strnicmp(st.data(), "OUTPUT", 6) == 0)
          kolv::scanoutput(*run, st);
      }
    } catch (const kolv::FatalError&) {
    }
    std::fclose(run->files.fcf);
    run->files.fcf = nullptr;
    return run->set.outfile;
  }

  void remove_all() {
    prepare();
    unlink(path("out.dat").c_str());
    unlink(path("in.txt").c_str());
    rmdir(dir_.c_str());
  }

  // A run works inside the scratch directory, so that names without a
  // directory stay inside it; between runs the process is back where it
  // started (libFuzzer reads and writes corpus files by relative names).
  class Inside {
   public:
    explicit Inside(const Sandbox& box) : box_(box) {
      if (chdir(box_.dir_.c_str()) != 0) broken("chdir", box_.dir_);
    }
    ~Inside() {
      if (chdir(box_.home_.c_str()) != 0) broken("chdir", box_.home_);
    }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

   private:
    const Sandbox& box_;
  };

  std::string dir_;
  std::string home_;
  std::string previous_;
  FILE* null_ = nullptr;
  bool show_ = false;  // KOLV_FUZZ_SHOW set: each run's command file and messages on stderr
};

// File names in fuzzed statements stay inside the scratch directory: the
// bytes that could lead out of it ('/', '\\' which becomes '/', and '~' for
// the home directory) are replaced.
inline std::string confined(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  for (char& c : text)
    if (c == '/' || c == '\\' || c == '~') c = '_';
  return text;
}

// Whether a run could have been appending: APPEND in any case anywhere.
inline bool mentions_append(const std::string& text) {
  static const char kWord[] = "APPEND";
  for (size_t i = 0; i + 6 <= text.size(); ++i) {
    size_t k = 0;
    while (k < 6 && (text[i + k] & ~0x20) == kWord[k]) ++k;
    if (k == 6) return true;
  }
  return false;
}

// The fixed head of every generated command file: input and output inside
// the scratch directory.
inline std::string files_head(const Sandbox& box) {
  return "INPUT " + box.path("in.txt") + ";\nOUTPUT " + box.path("out") + ";\n";
}

}  // namespace kolv_fuzz
