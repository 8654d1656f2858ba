// Baseline: the loop a user would write first. Reads the text a line at a
// time with stdio, converts every number with strtod and writes the doubles
// of each line with one fwrite. Fields are separated by any run of blanks,
// tabs, carriage returns and commas.
//
//   strtod_loop INPUT OUTPUT
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: strtod_loop INPUT OUTPUT\n");
    return 2;
  }
  FILE* in = std::fopen(argv[1], "rb");
  FILE* out = std::fopen(argv[2], "wb");
  if (in == nullptr || out == nullptr) {
    std::perror("strtod_loop");
    return 1;
  }
  char* line = nullptr;
  size_t capacity = 0;
  std::vector<double> values;
  long lineno = 0;
  while (getline(&line, &capacity, in) > 0) {
    ++lineno;
    values.clear();
    char* p = line;
    for (;;) {
      while (*p == ' ' || *p == '\t' || *p == '\r' || *p == ',') ++p;
      if (*p == '\n' || *p == '\0') break;
      char* end;
      const double v = std::strtod(p, &end);
      if (end == p) {
        std::fprintf(stderr, "strtod_loop: no number on line %ld\n", lineno);
        return 1;
      }
      values.push_back(v);
      p = end;
    }
    if (!values.empty() &&
        std::fwrite(values.data(), sizeof(double), values.size(), out) != values.size()) {
      std::perror("strtod_loop");
      return 1;
    }
  }
  std::free(line);
  if (std::fclose(out) != 0) {
    std::perror("strtod_loop");
    return 1;
  }
  std::fclose(in);
  return 0;
}
