#include "driver/setup.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "format/dataset.hpp"
#include "base/fatal.hpp"
#include "base/paths.hpp"
#include "engine/loops.hpp"
#include "engine/readbuf.hpp"

namespace kolv {

namespace {

constexpr char kCantOpenTemporaryOutput[] = "KOLV - Can't open temporary output file\n";
constexpr char kCantCreateTemporaryOutput[] = "KOLV - Can't create temporary output file\n";
constexpr char kCantWriteTypes1a[] = "KOLV - Can't write variable types to header (1a)\n";

// Printed when character data meet 2- or 4-byte elements under NOCHECK, and
// after the loop when such data were found.
void say_character_data_lost(FILE* out) {
  std::fputs("KOLV - OUTput TYPe D required for character data\n", out);
  std::fputs("       Character data in output file will be lost\n", out);
}

void close_file(FILE*& f) {
  if (f != nullptr) std::fclose(f);
  f = nullptr;
}

// The appended-to file must be a finished version-96 data set.
void validate_append_target(Run& run, FILE* target) {
  uint8_t uhout[128];
  run.set.file_version = ReadFileHeader(target, uhout);
  if (run.set.file_version != 96) {
    std::fclose(target);
    getout("kolv - invalid file type for append\n");
  }
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
  char* name = veldatempnam(directory, "out_");
  if (name == nullptr) getout(kCantCreateTemporaryOutput);
  g_strlcpy(run.files.outtmp, name, kPathSize);
  std::free(name);
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
  FILE* f = std::fopen(run.files.outtmp, "r+b");
  if (f == nullptr) getout("KOLV - Can't open temporary file 760\n");
  VarBlockWrite written = write_variable_block(f, v.inames.data(), v.itypes.data(), v.varout);
  if (std::fclose(f) != 0 && written == VarBlockWrite::kDone) written = VarBlockWrite::kNamesFailed;
  switch (written) {
    case VarBlockWrite::kNamesFailed:
      getout("KOLV - Can't write variable names to header (1)\n");
    case VarBlockWrite::kTypesFailed:
      getout("KOLV - Can't write variable types to header (1)\n");
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
      std::fputs("KOLV - Character data in output file\n", out);
      std::fputs("       Setting output file to double precision\n", out);
      s.otyp = 8;
    }
  }
  run.vars.chardata = 0;
}

void report_character_data(Run& run) {
  Variables& v = run.vars;
  bool found = false;
  for (int i = 0; i < v.varout; ++i) {
    size_t input = run.lay.allout ? static_cast<size_t>(i) : static_cast<size_t>(v.outvec[static_cast<size_t>(i)]);
    uint8_t flag = input < v.vrec.size() ? v.vrec[input] : 0;
    if (flag == 255) v.chartrunc = 1;
    if (flag != 0 && v.itypes[input] == 1) found = true;
  }
  FILE* out = run.io.out;
  if (found) std::fputs("KOLV - Found character data in numeric field\n", out);
  if (found && run.set.otyp < 8) {
    say_character_data_lost(out);
  } else if (v.chartrunc) {
    std::fputs("KOLV - Character data longer than 8 bytes were truncated\n", out);
  }
}

void complete_header(Run& run) {
  if (run.set.file_version == 92) getout("kolv - internal error 921\n");
  uint8_t uhout[128];
  build_header(uhout, run.set.otyp, run.set.cplx, run.cnt.row,
               static_cast<uint32_t>(run.vars.varout));
  FILE* f = std::fopen(run.files.outtmp, "r+b");
  if (f == nullptr) getout(kCantOpenTemporaryOutput);
  bool ok = std::fwrite(uhout, sizeof uhout, 1, f) == 1;
  if (std::fclose(f) != 0) ok = false;
  if (!ok) getout("KOLV - Internal error 502.3\n");
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
  if (run.set.appending) {
    if (FILE* target = std::fopen(files.outtmp, "r+b")) {
      validate_append_target(run, target);
      return;
    }
  } else {
    make_temporary_name(run);
  }
  FILE* f = std::fopen(files.outtmp, "wb");
  if (f == nullptr) getout(kCantCreateTemporaryOutput);
  files.gottmp = 1;
  static constexpr uint8_t kZeroHeader[128] = {};
  bool ok = std::fwrite(kZeroHeader, sizeof kZeroHeader, 1, f) == 1;
  if (std::fclose(f) != 0) ok = false;
  if (!ok) getout("KOLV - Internal error 802\n");
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

  run.rb.infp = std::fopen(run.set.infile, "rb");
  // A directory opens like a file here but holds no text to convert.
  if (run.rb.infp == nullptr || is_directory(run.rb.infp)) getout("KOLV - Can't open input file\n");
  if (v.varin >= 1001) {
    try {
      v.vrec.assign(static_cast<size_t>(v.varin), 0);
    } catch (const std::bad_alloc&) {
      getout("KOLV - Insufficient memory (2)\n");
    }
  }
  run.files.fout = std::fopen(run.files.outtmp, "ab");
  if (run.files.fout == nullptr) getout(kCantOpenTemporaryOutput);
  // Rows leave in whole blocks; an unbuffered stream makes every block one
  // write, so a failed write is seen at the block that failed.
  std::setvbuf(run.files.fout, nullptr, _IONBF, 0);

  int status = select_and_run_loop(run);

  if (std::fclose(run.files.fout) != 0 && status == 0) status = 2;
  run.files.fout = nullptr;
  close_file(run.rb.infp);

  report_character_data(run);
  if (status == 1) std::fputs("KOLV - Out of memory 2\n", run.io.out);
  if (status == 2) std::fputs("KOLV - Disk full - conversion incomplete\n", run.io.out);
  complete_header(run);
  if (!run.set.appending) {
    std::remove(run.set.outfile);
    std::rename(run.files.outtmp, run.set.outfile);
  }
  if (!run.set.quiet) {
    std::fprintf(run.io.out, "Command file:  %s\n", run.set.cfile);
    std::fprintf(run.io.out, "Input file:    %s\n", run.set.infile);
    std::fprintf(run.io.out, "Output file:   %s\n", run.set.outfile);
  }
  return 0;
}

}  // namespace kolv
