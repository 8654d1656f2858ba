// The benchmark corpus: deterministic (fixed seeds, std::mt19937_64 whose
// sequence the C++ standard fixes, integer arithmetic only), so every machine
// writes the same bytes.
//
//   gen_corpus DIR [ROWS]     (ROWS defaults to 1,000,000)
//
// writes into DIR:
//   soft.txt    ROWS lines of ten signed decimals with six places, one blank
//               between them (soft-delimited)
//   comma.csv   the same numbers, comma-separated, one record per line
//   mixed.txt   ROWS lines: a word, four of the row's numbers, a code (2 to 12
//               letters: some are cut to 8), the next four numbers
//   packed.txt  the same numbers in fixed columns: ten fields of 14 bytes,
//               each the digits without the point (six decimals implied),
//               right-aligned; a line end after each 140-byte record
//   long.txt    ROWS / 4 lines of ten long forms, one blank between them:
//               17-digit mantissas with exponents from -300 to 300, and
//               25-digit decimals
//   quoted.csv  a header line, then ROWS lines: a quoted label of two words
//               and comma.csv's ten numbers
//   plain.csv   quoted.csv's records as kolv reads them alone: no header,
//               the label unquoted with "_" for its blank
//
// Every number in soft.txt, comma.csv, packed.txt (with its implied point)
// and columns 2-5 and 7-10 of mixed.txt is the same text, so one strtod
// reading of soft.txt is the reference for all of them.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

namespace {

using Rng = std::mt19937_64;

uint64_t below(Rng& r, uint64_t n) {
  return r() % n;
}

constexpr uint64_t kPow10[] = {1, 10, 100, 1000, 10000, 100000, 1000000};

struct Number {
  bool negative;
  uint64_t whole;     // 0 to 99999
  uint64_t fraction;  // six places
};

// A signed decimal with six places whose integer part has 1 to 5 digits, the
// magnitudes spread evenly: -1234.567890, 7.000001, -0.120000.
Number draw_number(Rng& r) {
  Number n;
  n.negative = (r() & 1) != 0;
  n.whole = below(r, kPow10[1 + below(r, 5)]);
  n.fraction = below(r, 1000000);
  return n;
}

char* put_decimal(char* out, const Number& n) {
  return out + std::sprintf(out, "%s%llu.%06llu", n.negative ? "-" : "",
                            static_cast<unsigned long long>(n.whole),
                            static_cast<unsigned long long>(n.fraction));
}

// The packed form: sign, integer digits and the six decimals without a point,
// right-aligned in 14 bytes ("      -0120000" is -0.120000).
char* put_packed(char* out, const Number& n) {
  char digits[32];
  std::sprintf(digits, "%s%llu%06llu", n.negative ? "-" : "",
               static_cast<unsigned long long>(n.whole),
               static_cast<unsigned long long>(n.fraction));
  return out + std::sprintf(out, "%14s", digits);
}

char* put_word(char* out, Rng& r, int lo, int hi) {
  const int n = lo + static_cast<int>(below(r, static_cast<uint64_t>(hi - lo + 1)));
  for (int i = 0; i < n; ++i) *out++ = static_cast<char>('a' + below(r, 26));
  return out;
}

char* put_digits(char* out, Rng& r, int n) {
  for (int i = 0; i < n; ++i) *out++ = static_cast<char>('0' + below(r, 10));
  return out;
}

// A long form: a 17-digit mantissa with an exponent (-1.2345678901234567e-123)
// or a 25-digit decimal (-123456789012.3456789012345).
char* put_long(char* out, Rng& r) {
  if (r() & 1) *out++ = '-';
  if (r() & 1) {
    *out++ = static_cast<char>('1' + below(r, 9));
    *out++ = '.';
    out = put_digits(out, r, 16);
    const int e = static_cast<int>(below(r, 601)) - 300;
    out += std::sprintf(out, "e%+03d", e);
  } else {
    const int whole = 1 + static_cast<int>(below(r, 20));
    *out++ = static_cast<char>('1' + below(r, 9));
    out = put_digits(out, r, whole - 1);
    *out++ = '.';
    out = put_digits(out, r, 25 - whole);
  }
  return out;
}

FILE* open_out(const std::string& dir, const char* name) {
  const std::string path = dir + "/" + name;
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) {
    std::perror(path.c_str());
    std::exit(1);
  }
  static char* buffers[8];
  static int used = 0;
  buffers[used] = new char[1 << 20];
  std::setvbuf(f, buffers[used++], _IOFBF, 1 << 20);
  return f;
}

void close_out(FILE* f, const char* name) {
  if (std::fclose(f) != 0) {
    std::perror(name);
    std::exit(1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: gen_corpus DIR [ROWS]\n");
    return 2;
  }
  const std::string dir = argv[1];
  const long rows = argc == 3 ? std::strtol(argv[2], nullptr, 10) : 1000000;
  if (rows <= 0) {
    std::fprintf(stderr, "gen_corpus: ROWS must be positive\n");
    return 2;
  }

  FILE* soft = open_out(dir, "soft.txt");
  FILE* comma = open_out(dir, "comma.csv");
  FILE* mixed = open_out(dir, "mixed.txt");
  FILE* packed = open_out(dir, "packed.txt");
  Rng numbers(20240601);
  Rng words(7);
  char a[512], b[512], m[512], p[512];
  for (long i = 0; i < rows; ++i) {
    char *sa = a, *sb = b, *sm = m, *sp = p;
    sm = put_word(sm, words, 3, 8);
    for (int k = 0; k < 10; ++k) {
      const Number n = draw_number(numbers);
      if (k != 0) {
        *sa++ = ' ';
        *sb++ = ',';
      }
      sa = put_decimal(sa, n);
      sb = put_decimal(sb, n);
      sp = put_packed(sp, n);
      if (k < 8) {
        if (k == 4) {
          *sm++ = ' ';
          sm = put_word(sm, words, 2, 12);
        }
        *sm++ = ' ';
        sm = put_decimal(sm, n);
      }
    }
    *sa++ = '\n';
    *sb++ = '\n';
    *sm++ = '\n';
    *sp++ = '\n';
    std::fwrite(a, 1, static_cast<size_t>(sa - a), soft);
    std::fwrite(b, 1, static_cast<size_t>(sb - b), comma);
    std::fwrite(m, 1, static_cast<size_t>(sm - m), mixed);
    std::fwrite(p, 1, static_cast<size_t>(sp - p), packed);
  }
  close_out(soft, "soft.txt");
  close_out(comma, "comma.csv");
  close_out(mixed, "mixed.txt");
  close_out(packed, "packed.txt");

  FILE* longf = open_out(dir, "long.txt");
  Rng forms(99);
  const long long_rows = rows / 4 > 0 ? rows / 4 : 1;
  for (long i = 0; i < long_rows; ++i) {
    char* s = a;
    for (int k = 0; k < 10; ++k) {
      if (k != 0) *s++ = ' ';
      s = put_long(s, forms);
    }
    *s++ = '\n';
    std::fwrite(a, 1, static_cast<size_t>(s - a), longf);
  }
  close_out(longf, "long.txt");

  // The export kolvprep is measured on: a header line, a quoted text column
  // of two words, and comma.csv's numbers; and the same records as kolv
  // reads them without help (no header, the blank written as "_").
  FILE* quoted = open_out(dir, "quoted.csv");
  FILE* plain = open_out(dir, "plain.csv");
  std::fputs("label,x01,x02,x03,x04,x05,x06,x07,x08,x09,x10\n", quoted);
  Rng again(20240601);
  Rng labels(11);
  for (long i = 0; i < rows; ++i) {
    char *sq = a, *sp = b;
    *sq++ = '"';
    char* w = sq;
    sq = put_word(sq, labels, 2, 4);
    *sq++ = ' ';
    sq = put_word(sq, labels, 2, 3);
    sp = std::copy(w, sq, sp);
    for (char* c = b; c < sp; ++c) {
      if (*c == ' ') *c = '_';
    }
    *sq++ = '"';
    for (int k = 0; k < 10; ++k) {
      const Number n = draw_number(again);
      *sq++ = ',';
      *sp++ = ',';
      sq = put_decimal(sq, n);
      sp = put_decimal(sp, n);
    }
    *sq++ = '\n';
    *sp++ = '\n';
    std::fwrite(a, 1, static_cast<size_t>(sq - a), quoted);
    std::fwrite(b, 1, static_cast<size_t>(sp - b), plain);
  }
  close_out(quoted, "quoted.csv");
  close_out(plain, "plain.csv");
  return 0;
}
