#include "command/settings.hpp"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "base/paths.hpp"
#include "command/messages.hpp"
#include "command/statement.hpp"

namespace kolv {

namespace {

constexpr int kNameLimit = 1020;

// Copies the rest of the statement (inner blanks and line feeds included) into
// name, at most 1020 characters; returns the count copied.
int copy_name(Statement st, size_t offset, char* name) {
  const char* p = skip_separators(argument_at(st, offset));
  int n = 0;
  while (n < kNameLimit && p[n] != '\0') {
    name[n] = p[n];
    ++n;
  }
  name[n] = '\0';
  return n;
}

}  // namespace

int scaninput(Run& run, Statement st) {
  char* name = run.set.infile;
  if (copy_name(st, 6, name) == 0) return 0;
  pathparse(name);
  return static_cast<int>(std::strlen(name));
}

int scanoutput(Run& run, Statement st) {
  char name[kPathSize + 8];
  if (copy_name(st, 7, name) == 0) {
    run.set.outfile[0] = '\0';
    return 0;
  }
  dropext(name);
  std::strcat(name, ".dat");
  // A 1020-character name plus ".dat" would not fit the path buffer.
  g_strlcpy(run.set.outfile, name, kPathSize);
  pathparse(run.set.outfile);
  return static_cast<int>(std::strlen(run.set.outfile));
}

int scanouttyp(Run& run, Statement st) {
  const char* p = skip_separators(argument_at(st, 7));
  switch (std::toupper(static_cast<unsigned char>(*p))) {
    case 'I':
    case '2':
      return run.set.otyp = 2;
    case 'F':
    case '4':
      return run.set.otyp = 4;
    case 'D':
    case '8':
      return run.set.otyp = 8;
    default:
      break;
  }
  FILE* out = run.io.out;
  std::fprintf(out, kInvalidOutputType, *p);
  return run.set.otyp = 8;
}

int scanms(Run& run, Statement st) {
  const char* p = skip_separators(argument_at(st, 5));
  if (*p == '\0') {
    std::fputs(kMissingValueSymbolNotFound, run.io.out);
    run.set.msym_found = 0;
    return 0;
  }
  run.set.mstring = *p;
  run.set.msym_found = 1;
  return 1;
}

}  // namespace kolv
