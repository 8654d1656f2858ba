#include "driver/entry.hpp"

#include <cstdio>
#include <cstring>
#include <new>

#include "base/fatal.hpp"
#include "base/interrupt.hpp"
#include "base/journal.hpp"
#include "base/paths.hpp"
#include "build_info.hpp"
#include "command/passes.hpp"
#include "driver/messages.hpp"
#include "driver/setup.hpp"

namespace kolv {

void hello(FILE* out) {
  std::fprintf(out, kBanner, KOLV_BUILD_DATE);
}

void help(FILE* out) {
  static const char* const kLines[] = {
      "\n =========================== KOLV command summary ============================\n",
      "INput VARiables:        $ character,  # numeric(default) toggle",
      "  soft delimited -> INVAR age $sex #pay nvar[1:10] $svar[005];",
      "  hard delimited -> INVAR DELIMIT(,N) age $sex svar[01:3];",
      "  packed ASCII   -> INVAR RECORD = 80 $(1,1) sex #(*,8.2) vol[4] (60,10) total;\n",
      "OUTput VARiables for delimited input files:",
      "  OUTVAR age svar001 svar003 nvar[02-6];\n",
      "INPUT input_file;                  ASCII input file",
      "OUTPUT output_file;                VELDA data set",
      "OUTTYP D;      [ D ]               I - integer,  F - float,  D - double",
      "APPEND;        [ NOAPPEND ]        append data to existing data file",
      "NOCHECK;       [ CHECK ]           don't check/reset record length and type",
      "PRESERVECASE;  [ NOPRESERVECASE ]  preserve case of variable names",
      "MSYM &;        [ . ]               missing value character",
      "COMPLEX;       [ REAL ]            convert as complex data ( x + yi )\n",
  };
  for (const char* line : kLines) {
    std::fputs(line, out);
    std::fputc('\n', out);
  }
}

namespace {

void close_file(FILE*& f) {
  if (f != nullptr) std::fclose(f);
  f = nullptr;
}

// The fatal end: files closed, the temporary output removed unless appending,
// the message printed; status -1.
int finish_fatal(Run& run, const FatalError& fatal) {
  {
    // A signal now finds the files either as the run left them (and undoes
    // the run) or as the fatal end leaves them.
    SignalBlock block;
    close_file(run.files.fcf);
    close_file(run.files.fout);
    close_file(run.rb.infp);
    if (run.files.gottmp && !run.set.appending) std::remove(run.files.outtmp);
    settle_created_on_fatal(run);
    journal_drop(run.guard);  // an appended data set keeps its rows
    guard_clear(run.guard);
  }
  std::fputs(fatal.message.c_str(), run.io.out);
  return 255;
}

int run_kolv(Run& run, int argc, const char* const* argv) {
  Settings& s = run.set;
  s.quiet = argc >= 3 && std::strncmp(argv[2], "-noc", 4) == 0;
  if (!s.quiet) hello(run.io.out);
  if (argc < 2) {
    help(run.io.out);
    return 0;
  }
  g_strlcpy(s.cfile, argv[1], kPathSize);
  if (!hasext(s.cfile)) {
    size_t length = std::strlen(s.cfile);
    g_strlcpy(s.cfile + length, ".cmd", kPathSize - length);
  }
  pathparse(s.cfile);
  run.files.fcf = std::fopen(s.cfile, "r");
  if (run.files.fcf != nullptr && is_directory(run.files.fcf)) {
    std::fclose(run.files.fcf);  // a directory is no command file
    run.files.fcf = nullptr;
  }
  if (run.files.fcf == nullptr) getout(kCommandFileNotFound, s.cfile);

  pass1(run);
  prepare_output(run);
  pass2(run);
  pass3(run);
  return convert_and_complete(run);
}

}  // namespace

int kolv_main(int argc, const char* const* argv, Console io) {
  Run* run = nullptr;
  try {
    run = new Run;
  } catch (const std::bad_alloc&) {
    std::fputs(kInsufficientMemory1, io.out);
    return 255;
  }
  run->io = io;
  // From here to the end a signal undoes what the run has not completed.
  arm_interrupts(run->guard);
  int status;
  try {
    status = run_kolv(*run, argc, argv);
  } catch (const FatalError& fatal) {
    status = finish_fatal(*run, fatal);
  }
  std::fflush(io.out);
  std::fflush(io.err);
  disarm_interrupts(run->guard);
  delete run;  // closes the append lock
  return status;
}

}  // namespace kolv
