#include "driver/setup.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "base/fatal.hpp"
#include "base/interrupt.hpp"
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
  guard_cover(run.guard, data_offset(static_cast<uint32_t>(v.varout)));
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
    struct stat st;
    guard_restore(run.guard, fd, ::fstat(fd, &st) == 0 ? st.st_size : 0);
  }
  return target;
}

// An APPEND run whose data set does not exist makes it under its own name,
// but never over a data set that another run made a moment earlier.
FILE* create_exclusive(const char* name) {
  const int fd = ::open(name, O_WRONLY | O_CREAT | O_EXCL, 0666);
  if (fd < 0) return nullptr;
  FILE* f = ::fdopen(fd, "wb");
  if (f == nullptr) {
    const int saved = errno;
    ::close(fd);
    ::unlink(name);
    errno = saved;
  }
  return f;
}

}  // namespace

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
    {
      SignalBlock block;
      f = create_exclusive(files.outtmp);
      if (f != nullptr) {
        files.gottmp = 1;
        guard_remove(run.guard, files.outtmp);
      }
    }
    if (f == nullptr && errno == EEXIST) {
      if (FILE* target = open_append_target(run)) {
        validate_append_target(run, target);
        return;
      }
    }
    if (f != nullptr) {
      // Later APPEND runs wait for this one, as they do for any other.
      const int fd = ::dup(::fileno(f));
      if (fd >= 0) {
        lock_exclusive(fd);
        SignalBlock block;
        run.guard.fd = fd;
      }
    }
  } else {
    make_temporary_name(run);
  }
  if (f == nullptr) {
    SignalBlock block;
    f = std::fopen(files.outtmp, "wb");
    if (f != nullptr) {
      files.gottmp = 1;
      // A data set an APPEND run makes under its own name did not exist
      // before the run; a signal removes it, as it does a temporary output.
      if (run.set.appending) guard_remove(run.guard, files.outtmp);
    }
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
  if (run.set.appending) {
    // The final header is the step that completes an appended data set: a
    // signal is seen either before it (the data set is restored) or after
    // it (the run is complete and nothing is undone).
    SignalBlock block;
    complete_header(run);
    guard_clear(run.guard);
  } else {
    complete_header(run);
    // The output name changes only here; with the signals held back, a signal
    // finds either the temporary file (removed, the old output untouched) or
    // the finished output in its place (kept).
    SignalBlock block;
    std::remove(run.set.outfile);
    std::rename(run.files.outtmp, run.set.outfile);
    guard_clear(run.guard);
  }
  if (!run.set.quiet) {
    std::fprintf(run.io.out, kSummary, run.set.cfile, run.set.infile, run.set.outfile);
  }
  return 0;
}

}  // namespace kolv
