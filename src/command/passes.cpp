#include "command/passes.hpp"

#include <cstdio>
#include <cstring>

#include "base/fatal.hpp"
#include "command/invar.hpp"
#include "command/messages.hpp"
#include "command/outvar.hpp"
#include "command/settings.hpp"
#include "command/statement.hpp"

namespace kolv {

namespace {

bool keyword(Statement st, const char* word) {
  return strnicmp(st.data(), word, std::strlen(word)) == 0;
}

// The statements of pass 1. Keywords match by prefix, so the order matters:
// "NOAPPEND" is tried after "APPEND" fails on it, never before.
void apply_setting(Run& run, Statement st) {
  Settings& s = run.set;
  if (keyword(st, "INPUT")) {
    s.inpz = scaninput(run, st);
  } else if (keyword(st, "OUTPUT")) {
    s.outpz = scanoutput(run, st);
  } else if (keyword(st, "OUTTYP")) {
    scanouttyp(run, st);
  } else if (keyword(st, "COMPLEX")) {
    s.cplx = 2;
  } else if (keyword(st, "MSYM")) {
    scanms(run, st);
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
    std::fprintf(run.io.out, kIllegalCommand, st.data());
    ++s.err;
  }
}

void check_after_pass1(Run& run) {
  Settings& s = run.set;
  FILE* out = run.io.out;
  if (s.inpz == 0 && s.reshape == 0) {
    std::fputs(kNoInputFile, out);
    ++s.err;
    if (s.outpz == 0) {
      std::fputs(kNoOutputFile, out);
      ++s.err;
    }
  } else if (s.outpz == 0) {
    std::fputs(kNoOutputFile, out);
    ++s.err;
  }
  if (s.reshape == 1) {
    std::fputs(kNodataNotSupported, out);
    end_quietly();
  }
  if (s.err > 0) end_quietly();
  if (s.msym_found == 0) end_quietly();
}

}  // namespace

void pass1(Run& run) {
  while (getstat(run)) apply_setting(run, current_statement(run));
  check_after_pass1(run);
}

void pass2(Run& run) {
  std::rewind(run.files.fcf);
  while (getstat(run)) {
    Statement st = current_statement(run);
    if (keyword(st, "INVAR")) {
      run.vars.varin = scaninvar(run, st);
    } else if (keyword(st, "V96")) {
      run.set.file_version = 96;
    }
  }
  if (run.vars.varin == 0) getout(kNoInputVariables);
  if (run.set.scd == 0) end_quietly();
}

void pass3(Run& run) {
  std::rewind(run.files.fcf);
  while (getstat(run)) {
    Statement st = current_statement(run);
    if (keyword(st, "OUTVAR")) run.vars.varout = scanoutvar(run, st);
  }
  if (run.vars.undefvar != 0) end_quietly();
  std::fclose(run.files.fcf);
  run.files.fcf = nullptr;
}

}  // namespace kolv
