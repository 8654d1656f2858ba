// Writes a large delimited input to standard output, fast and reproducibly,
// for the large-input run (large_input.sh); not part of the test suite.
//
//   gen_rows decimals BYTES   rows of ten blank-separated decimals (values
//                             from a fixed pseudo-random sequence) until at
//                             least BYTES bytes are written
//   gen_rows ones ROWS        ROWS lines holding "1"
//   gen_rows ... bad          then one more line holding "+", which is not
//                             a number: the conversion stops with a report
//
// Prints the number of rows written (the "+" line not counted) on standard
// error.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr size_t kChunk = 1 << 20;

struct Out {
  std::string buf;
  unsigned long long written = 0;
  void flush() {
    if (!buf.empty() && std::fwrite(buf.data(), buf.size(), 1, stdout) != 1) {
      std::perror("gen_rows: write");
      std::exit(1);
    }
    written += buf.size();
    buf.clear();
  }
  void add(const char* s, size_t n) {
    buf.append(s, n);
    if (buf.size() >= kChunk) flush();
  }
};

// One decimal with three to five digits before the point and two after,
// signed now and then: "12345.67", "-301.05".
size_t decimal(uint64_t& state, char* p) {
  state = state * 6364136223846793005ULL + 1442695040888963407ULL;
  uint64_t r = state >> 20;
  char* start = p;
  if ((r & 15) == 0) *p++ = '-';
  const int digits = 3 + static_cast<int>(r >> 4 & 1) + static_cast<int>(r >> 5 & 1);
  r >>= 6;
  *p++ = static_cast<char>('1' + r % 9);
  r /= 9;
  for (int i = 1; i < digits; ++i, r /= 10) *p++ = static_cast<char>('0' + r % 10);
  *p++ = '.';
  *p++ = static_cast<char>('0' + r % 10);
  r /= 10;
  *p++ = static_cast<char>('0' + r % 10);
  return static_cast<size_t>(p - start);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: gen_rows decimals BYTES | ones ROWS  [bad]\n");
    return 2;
  }
  const std::string kind = argv[1];
  const unsigned long long amount = std::strtoull(argv[2], nullptr, 10);
  const bool bad = argc > 3 && std::strcmp(argv[3], "bad") == 0;
  Out out;
  out.buf.reserve(kChunk + 256);
  unsigned long long rows = 0;
  if (kind == "decimals") {
    uint64_t state = 1;
    char line[256];
    while (out.written + out.buf.size() < amount) {
      size_t n = 0;
      for (int v = 0; v < 10; ++v) {
        n += decimal(state, line + n);
        line[n++] = v == 9 ? '\n' : ' ';
      }
      out.add(line, n);
      ++rows;
    }
  } else if (kind == "ones") {
    for (; rows < amount; ++rows) out.add("1\n", 2);
  } else {
    std::fprintf(stderr, "gen_rows: unknown kind %s\n", kind.c_str());
    return 2;
  }
  if (bad) out.add("+\n", 2);
  out.flush();
  if (std::fflush(stdout) != 0) return 1;
  std::fprintf(stderr, "%llu\n", rows);
  return 0;
}
