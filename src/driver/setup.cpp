#include "driver/setup.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "base/fatal.hpp"
#include "base/interrupt.hpp"
#include "base/journal.hpp"
#include "base/paths.hpp"
#include "driver/messages.hpp"
#include "driver/plan.hpp"
#include "engine/loops.hpp"
#include "format/dataset.hpp"

namespace kolv {

namespace {

// Printed when character data meet 2- or 4-byte elements under NOCHECK, and
// after the loop when such data were found.
void say_character_data_lost(FILE* out) {
  std::fputs(kCharacterDataLost, out);
}

void close_file(FILE*& f) {
  if (f != nullptr) std::fclose(f);
  f = nullptr;
}

// What is wrong with a data set that rows cannot be appended to.
const char* append_refusal(HeaderCheck check) {
  switch (check) {
    case HeaderCheck::kVersion92:
      return kVersion92AppendTarget;
    case HeaderCheck::kReversed:
      return kReversedAppendTarget;
    case HeaderCheck::kUnrecognised:
    case HeaderCheck::kVersion96:
      break;
  }
  return kUnrecognisedAppendTarget;
}

// The appended-to file must be a finished version-96 data set.
void validate_append_target(Run& run, FILE* target) {
  uint8_t uhout[kHeaderSize];
  const HeaderCheck check = ReadFileHeader(target, uhout);
  if (check != HeaderCheck::kVersion96) getout("%s", append_refusal(check));
  run.set.file_version = static_cast<int>(kFileVersion);
  run.cnt.row = header_rows(uhout);
  std::fclose(target);
}

void make_temporary_name(Run& run) {
  char directory[kPathSize];
  const char* out = run.set.outfile;
  const char* slash = std::strrchr(out, '/');
  if (slash == nullptr) {
    std::strcpy(directory, "./");
  } else {
    size_t length = static_cast<size_t>(slash - out);
    std::memcpy(directory, out, length);
    directory[length] = '\0';
  }
  {
    // The file exists from the moment its name is made: a signal from then
    // on removes it.
    SignalBlock block;
    char* name = veldatempnam(directory, "out_");
    if (name == nullptr) getout(kCantCreateTemporaryOutput);
    g_strlcpy(run.files.outtmp, name, kPathSize);
    std::free(name);
    guard_remove(run.guard, run.files.outtmp);
  }
  // The reserved name is private to its creator; the data set it becomes
  // gets the ordinary permissions of a new file.
  mode_t mask = ::umask(0);
  ::umask(mask);
  ::chmod(run.files.outtmp, 0666 & ~mask);
}

void write_all_variables_block(Run& run) {
  Variables& v = run.vars;
  run.lay.allout = 1;
  v.varout = v.varin;
  journal_cover(run.guard, data_offset(static_cast<uint32_t>(v.varout)));
  FILE* f = std::fopen(run.files.outtmp, "r+b");
  if (f == nullptr) getout(kCantOpenTemporaryFile760);
  VarBlockWrite written = write_variable_block(f, v.inames.data(), v.itypes.data(), v.varout);
  if (std::fclose(f) != 0 && written == VarBlockWrite::kDone) written = VarBlockWrite::kNamesFailed;
  switch (written) {
    case VarBlockWrite::kNamesFailed:
      getout(kCantWriteNames1);
    case VarBlockWrite::kTypesFailed:
      getout(kCantWriteTypes1);
    case VarBlockWrite::kPadFailed:
      getout(kCantWriteTypes1a);
    case VarBlockWrite::kDone:
      break;
  }
}

void settle_element_type(Run& run) {
  Settings& s = run.set;
  FILE* out = run.io.out;
  if (s.otyp == 0) {
    s.otyp = 8;
  } else if (run.vars.chardata && s.otyp < 8) {
    if (s.noauto) {
      say_character_data_lost(out);
    } else {
      std::fputs(kSettingDoublePrecision, out);
      s.otyp = 8;
    }
  }
  run.vars.chardata = 0;
}

void report_character_data(Run& run) {
  Variables& v = run.vars;
  bool found = false;
  for (int i = 0; i < v.varout; ++i) {
    size_t input = run.lay.allout ? static_cast<size_t>(i)
                                  : static_cast<size_t>(v.outvec[static_cast<size_t>(i)]);
    uint8_t flag = input < v.vrec.size() ? v.vrec[input] : 0;
    if (flag == 255) v.chartrunc = 1;
    if (flag != 0 && v.itypes[input] == 1) found = true;
  }
  FILE* out = run.io.out;
  if (found) std::fputs(kCharacterDataInNumericField, out);
  if (found && run.set.otyp < 8) {
    say_character_data_lost(out);
  } else if (v.chartrunc) {
    std::fputs(kCharacterDataTruncated, out);
  }
}

void complete_header(Run& run) {
  if (run.set.file_version == 92) getout(kInternalError921);
  uint8_t uhout[128];
  build_header(uhout, run.set.otyp, run.set.cplx, run.cnt.row,
               static_cast<uint32_t>(run.vars.varout));
  FILE* f = std::fopen(run.files.outtmp, "r+b");
  if (f == nullptr) getout(kCantOpenTemporaryOutput);
  bool ok = std::fwrite(uhout, sizeof uhout, 1, f) == 1;
  if (std::fclose(f) != 0) ok = false;
  if (!ok) getout(kInternalError5023);
}

// Opens the data set to append to for update and takes its lock before
// anything of it is read: a run that finds it locked waits for the holder to
// finish. From then on a signal puts its old bytes back. Null when the file
// does not open for update.
FILE* open_append_target(Run& run) {
  FILE* target = std::fopen(run.files.outtmp, "r+b");
  if (target == nullptr) return nullptr;
  const int fd = ::dup(::fileno(target));
  if (fd >= 0) {
    lock_exclusive(fd);
    // An append that never reached its end is undone before anything is read.
    recover_journal(run.files.outtmp, fd, run.io.err);
    struct stat st;
    guard_restore(run.guard, fd, ::fstat(fd, &st) == 0 ? st.st_size : 0);
    journal_attach(run.guard, run.files.outtmp);
  }
  return target;
}

void sync_file(const char* name);
void append_created(Run& run, const char* aside);

// An APPEND run that found no data set made it aside, under a temporary
// name; it is whole now. It takes its name only if no other run has made a
// data set of that name meanwhile (link never replaces a file); otherwise
// this run's rows are appended to that one, under its lock and journal, as
// if the data set had been there from the start.
void put_created_in_place(Run& run) {
  char aside[kPathSize];
  g_strlcpy(aside, run.files.outtmp, kPathSize);
  sync_file(aside);
  {
    SignalBlock block;
    if (::link(aside, run.set.outfile) == 0) {
      ::unlink(aside);
      guard_clear(run.guard);
      g_strlcpy(run.files.outtmp, run.set.outfile, kPathSize);
    } else if (errno != EEXIST) {
      // A file system without hard links: renamed, as a fresh output is.
      std::rename(aside, run.set.outfile);
      guard_clear(run.guard);
      g_strlcpy(run.files.outtmp, run.set.outfile, kPathSize);
    }
  }
  if (std::strcmp(run.files.outtmp, run.set.outfile) == 0) {
    sync_directory_of(run.set.outfile);
    return;
  }
  append_created(run, aside);
}

// Syncs a finished file before it is renamed into place.
void sync_file(const char* name) {
  if (!sync_wanted()) return;
  const int fd = ::open(name, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  sync_fd(fd);
  ::close(fd);
}

// The loser of two APPEND runs that both found no data set: its rows, made
// aside in `aside`, go after the data set the other run made.
void append_created(Run& run, const char* aside) {
  const uint32_t rows = run.cnt.row;
  // Read through a descriptor from here on; the name goes at once, so that
  // nothing of this run is left beside the data set whatever ends it.
  const int from = ::open(aside, O_RDONLY | O_CLOEXEC);
  ::unlink(aside);
  g_strlcpy(run.files.outtmp, run.set.outfile, kPathSize);
  FILE* target = open_append_target(run);
  if (target == nullptr || from < 0) {
    if (target != nullptr) std::fclose(target);
    if (from >= 0) ::close(from);
    getout(kCantOpenTemporaryOutput);
  }
  try {
    validate_append_target(run, target);
  } catch (const FatalError&) {
    ::close(from);
    throw;
  }
  const uint64_t start = data_offset(static_cast<uint32_t>(run.vars.varout));
  journal_cover(run.guard, start);
  struct stat st;
  bool ok = ::fstat(run.guard.fd, &st) == 0;
  // The variable block over the data set's own, then the rows at its end.
  const uint64_t end = ok ? static_cast<uint64_t>(st.st_size) : 0;
  std::vector<char> chunk(1 << 20);
  uint64_t at = 128;
  while (ok) {
    const ssize_t n = ::pread(from, chunk.data(), chunk.size(), static_cast<off_t>(at));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      ok = n == 0;
      break;
    }
    uint64_t put = 0;
    while (ok && put < static_cast<uint64_t>(n)) {
      const uint64_t here = at + put;
      const uint64_t to = here < start ? here : end + (here - start);
      const uint64_t span = here < start
                                ? std::min<uint64_t>(start - here, static_cast<uint64_t>(n) - put)
                                : static_cast<uint64_t>(n) - put;
      const ssize_t w = ::pwrite(run.guard.fd, chunk.data() + put, static_cast<size_t>(span),
                                 static_cast<off_t>(to));
      if (w < 0 && errno == EINTR) continue;
      if (w <= 0) ok = false;
      if (w > 0) put += static_cast<uint64_t>(w);
    }
    at += static_cast<uint64_t>(n);
  }
  ::close(from);
  if (!ok) getout(kDiskFull);
  run.cnt.row += rows;
  sync_fd(run.guard.fd);
  SignalBlock block;
  complete_header(run);
  journal_commit(run.guard);
  guard_clear(run.guard);
}

}  // namespace

void settle_created_on_fatal(Run& run) {
  if (!run.set.appending || !run.files.gottmp ||
      std::strcmp(run.files.outtmp, run.set.outfile) == 0)
    return;
  // What a fatal error leaves of a data set an APPEND run creates: the file as
  // far as it got, under the data set's name, unless another run made one.
  if (::link(run.files.outtmp, run.set.outfile) == 0 || errno == EEXIST)
    ::unlink(run.files.outtmp);
  else
    std::rename(run.files.outtmp, run.set.outfile);
}

bool is_directory(FILE* f) {
  struct stat st;
  return ::fstat(::fileno(f), &st) == 0 && S_ISDIR(st.st_mode);
}

void prepare_output(Run& run) {
  Files& files = run.files;
  g_strlcpy(files.outtmp, run.set.outfile, kPathSize);
  files.fout = nullptr;
  FILE* f = nullptr;
  if (run.set.appending) {
    if (FILE* target = open_append_target(run)) {
      validate_append_target(run, target);
      return;
    }
    if (errno != ENOENT) getout(kCantCreateTemporaryOutput);
  }
  // A fresh output, or a data set an APPEND run did not find: made aside
  // and put in place when complete.
  make_temporary_name(run);
  if (f == nullptr) {
    SignalBlock block;
    f = std::fopen(files.outtmp, "wb");
    if (f != nullptr) files.gottmp = 1;
  }
  if (f == nullptr) getout(kCantCreateTemporaryOutput);
  static constexpr uint8_t kZeroHeader[128] = {};
  bool ok = std::fwrite(kZeroHeader, sizeof kZeroHeader, 1, f) == 1;
  if (std::fclose(f) != 0) ok = false;
  if (!ok) getout(kInternalError802);
}

int convert_and_complete(Run& run) {
  Variables& v = run.vars;
  if (run.lay.varformat == 2 || v.varout == 0) write_all_variables_block(run);
  // A fresh output holds nothing beyond its variable block before the rows.
  if (!run.set.appending) {
    if (::truncate(run.files.outtmp, data_offset(static_cast<uint32_t>(v.varout))) != 0)
      getout(kCantWriteTypes1a);
  }
  settle_element_type(run);

  Source source{std::fopen(run.set.infile, "rb"), run.set.infile};
  run.rb.infp = source.file;
  // A directory opens like a file here but holds no text to convert.
  if (source.file == nullptr || is_directory(source.file)) getout(kCantOpenInputFile);
  const Plan plan = make_plan(run);
  std::unique_ptr<Engine> engine;
  try {
    engine = std::make_unique<Engine>(plan, run.io);
  } catch (const std::bad_alloc&) {
    getout(kInsufficientMemory2);
  }
  // An appended data set changes from here on only under its journal.
  if (run.set.appending) journal_cover(run.guard, 128);
  run.files.fout = std::fopen(run.files.outtmp, "ab");
  if (run.files.fout == nullptr) getout(kCantOpenTemporaryOutput);
  // Rows leave in whole blocks; an unbuffered stream makes every block one
  // write, so a failed write is seen at the block that failed.
  std::setvbuf(run.files.fout, nullptr, _IONBF, 0);
  RowSink sink{run.files.fout};

  LoopStatus status = engine->convert(source, sink);
  run.cnt.row += engine->rows;
  v.vrec = std::move(engine->vrec);

  if (std::fclose(run.files.fout) != 0 && status == kLoopDone) status = kLoopWriteFailed;
  run.files.fout = nullptr;
  close_file(run.rb.infp);

  report_character_data(run);
  if (status == kLoopNoMemory) std::fputs(kOutOfMemory2, run.io.out);
  if (status == kLoopWriteFailed) std::fputs(kDiskFull, run.io.out);
  if (run.set.appending && std::strcmp(run.files.outtmp, run.set.outfile) != 0) {
    complete_header(run);
    put_created_in_place(run);
  } else if (run.set.appending) {
    // The rows reach the disk before the header that counts them.
    sync_fd(run.guard.fd);
    // The final header and the journal's removal complete an appended data
    // set: a signal is seen either before them (the data set is restored) or
    // after them (the run is complete and nothing is undone).
    SignalBlock block;
    complete_header(run);
    journal_commit(run.guard);
    guard_clear(run.guard);
  } else {
    complete_header(run);
    sync_file(run.files.outtmp);
    // The output name changes only here; with the signals held back, a signal
    // finds either the temporary file (removed, the old output untouched) or
    // the finished output in its place (kept). The rename replaces the old
    // output in one step; the old output is removed first only when the
    // rename alone cannot replace it.
    SignalBlock block;
    if (std::rename(run.files.outtmp, run.set.outfile) != 0) {
      std::remove(run.set.outfile);
      std::rename(run.files.outtmp, run.set.outfile);
    }
    guard_clear(run.guard);
    sync_directory_of(run.set.outfile);
    journal_discard(run.set.outfile);
  }
  if (!run.set.quiet) {
    std::fprintf(run.io.out, kSummary, run.set.cfile, run.set.infile, run.set.outfile);
  }
  return 0;
}

}  // namespace kolv
