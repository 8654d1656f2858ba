// Writes one corpus case to a folder, for a closer look at a case the
// corpus test scored wrong: the export, truth.txt (the names, every cell,
// the damaged records and their lines) and the commands that reproduce the
// run.
//   kolvprep_corpus_case SEED FOLDER
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "generator.hpp"
#include "runner.hpp"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: kolvprep_corpus_case SEED FOLDER\n");
    return 2;
  }
  const uint64_t seed = std::strtoull(argv[1], nullptr, 10);
  const std::string dir = argv[2];
  ::mkdir(dir.c_str(), 0755);
  const corpus::Case c = corpus::make_case(seed);
  std::string error;
  bool missing_tool = false;
  if (!corpus::write_case(c, dir, error, missing_tool)) {
    std::fprintf(stderr, "kolvprep_corpus_case: %s\n", error.c_str());
    return 1;
  }
  std::printf("case %llu (%s) written to %s; truth in truth.txt. Run there:\n",
              static_cast<unsigned long long>(seed), c.kind.c_str(), dir.c_str());
  std::printf("  PATH=%s:%s:$PATH kolvprep --name t %s\n", KOLVPREP_BIN_DIR, KOLV_BIN_DIR,
              c.file.c_str());
  std::printf("then the last line it prints, and kolvdump t.dat\n");
  return 0;
}
