#include "command/statement.hpp"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "base/fatal.hpp"
#include "command/messages.hpp"

namespace kolv {

namespace {}  // namespace

int getstat(Run& run) {
  FILE* fcf = run.files.fcf;
  char* const start = run.rb.inbuff.get();
  // Tab blanks are not held to the statement limit, but they may never run
  // past the buffer itself (its last byte is kept for the terminating zero).
  char* const hard_end = start + kInbuffSize - 1;
  char* w = start;
  char* line = start;
  for (;;) {
    int c = std::fgetc(fcf);
    if (c == EOF) {
      *w = '\0';
      return 0;
    }
    if (c == '@') {
      do {
        c = std::fgetc(fcf);
      } while (c != EOF && c != '@');
      if (c == EOF) {
        *w = '\0';
        getout(kOpenComment);
      }
      continue;
    }
    if (w == start && (c == 0 || c == '\t' || c == '\n' || c == '\r' || c == ' ')) continue;
    if (c == '\t') {
      long column = (w - line) % 8;
      long blanks = column == 0 ? 8 : column;
      if (hard_end - w < blanks) {
        *w = '\0';
        getout(kStatementTooLong);
      }
      std::memset(w, ' ', static_cast<size_t>(blanks));
      w += blanks;
      continue;
    }
    if (c == ';') {
      *w = '\0';
      return 1;
    }
    if (w - start >= kStatementLimit) {
      *w = '\0';
      getout(kStatementTooLong);
    }
    *w++ = static_cast<char>(c);
    if (c == '\n') line = w;
  }
}

int strnicmp(const char* s1, const char* s2, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    int a = std::toupper(static_cast<unsigned char>(s1[i]));
    int b = std::toupper(static_cast<unsigned char>(s2[i]));
    if (a != b) return a > b ? 1 : -1;
    if (a == 0) return 0;
  }
  return 0;
}

Statement current_statement(const Run& run) {
  return Statement(run.rb.inbuff.get());
}

int getword(const char*& sptr, char* buf, int size) {
  while (*sptr == '\n' || *sptr == ' ' || *sptr == ',') ++sptr;
  std::memset(buf, 0, static_cast<size_t>(size));
  int n = 0;
  while (n < size && is_name_char(*sptr)) buf[n++] = *sptr++;
  if (n == size) return 0;
  return n;
}

int spaces(const char* s) {
  for (; *s; ++s)
    if (*s != ' ') return 0;
  return 1;
}

const char* argument_at(Statement st, size_t offset) {
  return st.data() + (st.size() < offset ? st.size() : offset);
}

bool starts_with_word(const char* p, const char* word) {
  size_t n = std::strlen(word);
  return strnicmp(p, word, n) == 0 && !is_name_char(p[n]);
}

}  // namespace kolv
