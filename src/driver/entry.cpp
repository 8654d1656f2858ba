#include "driver/entry.hpp"

#include <cstdio>
#include <cstring>
#include <new>

#include "build_info.hpp"
#include "command/invar.hpp"
#include "command/outvar.hpp"
#include "command/settings.hpp"
#include "command/statement.hpp"
#include "base/fatal.hpp"
#include "base/paths.hpp"
#include "driver/setup.hpp"

namespace kolv {

void hello(FILE* out) {
  std::fprintf(out, "\nKOLV Version 3.2.0  ( %s )\n", KOLV_BUILD_DATE);
  std::fputs("ASCII Conversion Utility\n", out);
  std::fputs("Converts ASCII text files into VELDA data sets.\n", out);
  std::fputs("Copyright (c) 2026 the kolv developers.\n\n", out);
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

bool keyword(const char* statement, const char* word) {
  return strnicmp(statement, word, std::strlen(word)) == 0;
}

void rewind_command_file(Run& run) { std::rewind(run.files.fcf); }

// Pass 1: every setting statement, every illegal command reported.
void pass1(Run& run) {
  Settings& s = run.set;
  const char* st = run.rb.inbuff.get();
  while (getstat(run)) {
    if (keyword(st, "INPUT")) {
      s.inpz = scaninput(run);
    } else if (keyword(st, "OUTPUT")) {
      s.outpz = scanoutput(run);
    } else if (keyword(st, "OUTTYP")) {
      scanouttyp(run);
    } else if (keyword(st, "COMPLEX")) {
      s.cplx = 2;
    } else if (keyword(st, "MSYM")) {
      scanms(run);
    } else if (keyword(st, "APPEND")) {
      s.appending = 1;
    } else if (keyword(st, "CHECK")) {
      s.noauto = 0;
    } else if (keyword(st, "DATA")) {
      s.reshape = 0;
    } else if (keyword(st, "VPAD")) {
      s.vpad = 1;
    } else if (keyword(st, "PRESERVECASE")) {
      s.keepcase = 1;
    } else if (keyword(st, "NOAPPEND")) {
      s.appending = 0;
    } else if (keyword(st, "NOCHECK")) {
      s.noauto = 1;
    } else if (keyword(st, "NODATA")) {
      s.reshape = 1;
    } else if (keyword(st, "NOVPAD")) {
      s.vpad = 0;
    } else if (keyword(st, "NOPRESERVECASE")) {
      s.keepcase = 0;
    } else if (keyword(st, "INVAR") || keyword(st, "OUTVAR")) {
      // handled by passes 2 and 3
    } else {
      std::fprintf(run.io.out, "KOLV - Illegal command: %s\n", st);
      ++s.err;
    }
  }
}

void check_after_pass1(Run& run) {
  Settings& s = run.set;
  FILE* out = run.io.out;
  if (s.inpz == 0 && s.reshape == 0) {
    std::fputs("KOLV - No input file\n", out);
    ++s.err;
    if (s.outpz == 0) {
      std::fputs("KOLV - No output file\n", out);
      ++s.err;
    }
  } else if (s.outpz == 0) {
    std::fputs("KOLV - No output file\n", out);
    ++s.err;
  }
  if (s.reshape == 1) {
    std::fputs("KOLV - NODATA command not supported.\n", out);
    getout("%s", "");
  }
  if (s.err > 0) getout("%s", "");
  if (s.msym_found == 0) getout("%s", "");
}

// Pass 2: the input variables.
void pass2(Run& run) {
  rewind_command_file(run);
  const char* st = run.rb.inbuff.get();
  while (getstat(run)) {
    if (keyword(st, "INVAR")) {
      run.vars.varin = scaninvar(run);
    } else if (keyword(st, "V96")) {
      run.set.file_version = 96;
    }
  }
  if (run.vars.varin == 0) getout("KOLV - No input variables\n");
  if (run.set.scd == 0) getout("%s", "");
}

// Pass 3: the output variables.
void pass3(Run& run) {
  rewind_command_file(run);
  const char* st = run.rb.inbuff.get();
  while (getstat(run)) {
    if (keyword(st, "OUTVAR")) run.vars.varout = scanoutvar(run);
  }
  if (run.vars.undefvar != 0) getout("%s", "");
  std::fclose(run.files.fcf);
  run.files.fcf = nullptr;
}

void close_file(FILE*& f) {
  if (f != nullptr) std::fclose(f);
  f = nullptr;
}

// The fatal end: files closed, the temporary output removed unless appending,
// the message printed; status -1.
int finish_fatal(Run& run, const FatalError& fatal) {
  close_file(run.files.fcf);
  close_file(run.files.fout);
  close_file(run.rb.infp);
  if (run.files.gottmp && !run.set.appending) std::remove(run.files.outtmp);
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
  char* dot = std::strrchr(s.cfile, '.');
  if (dot == nullptr || std::strchr(dot, '/') != nullptr) {
    size_t length = std::strlen(s.cfile);
    g_strlcpy(s.cfile + length, ".cmd", kPathSize - length);
  }
  pathparse(s.cfile);
  run.files.fcf = std::fopen(s.cfile, "r");
  if (run.files.fcf != nullptr && is_directory(run.files.fcf)) {
    std::fclose(run.files.fcf);  // a directory is no command file
    run.files.fcf = nullptr;
  }
  if (run.files.fcf == nullptr) getout("KOLV - Command file <%s> not found\n", s.cfile);

  pass1(run);
  check_after_pass1(run);
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
    std::fputs("KOLV - Insufficient memory (1)\n", io.out);
    return 255;
  }
  run->io = io;
  int status;
  try {
    status = run_kolv(*run, argc, argv);
  } catch (const FatalError& fatal) {
    status = finish_fatal(*run, fatal);
  }
  std::fflush(io.out);
  std::fflush(io.err);
  delete run;
  return status;
}

}  // namespace kolv
