// kolvprep on a corpus of generated exports with known truth: every case is
// written to a scratch folder, kolvprep looks at it, the command it prints
// runs with `sh -c`, and the data set is compared with the truth record by
// record and cell by cell. A case is right (the truth), repaired (damaged
// records recovered whole), set aside (the truth without exactly the damaged
// records listed in NAME.rejects, and the report says so), refused (exit 1
// with one line naming an option) or wrong; the test prints the count of
// each per kind and fails on any wrong case, naming its seed.
//
// KOLV_CORPUS_COUNT (default 410, ten of each kind) and KOLV_CORPUS_SEED
// (the first seed, default 1) choose the cases; one case is written to a
// folder for a closer look by
//   kolvprep_corpus_case SEED FOLDER
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "generator.hpp"
#include "runner.hpp"

namespace {

uint64_t env_number(const char* name, uint64_t fallback) {
  const char* v = std::getenv(name);
  return v != nullptr && *v != '\0' ? std::strtoull(v, nullptr, 10) : fallback;
}

bool env_flag(const char* name) {
  const char* v = std::getenv(name);
  return v != nullptr && *v != '\0' && std::string(v) != "0";
}

struct Tally {
  uint64_t by_score[6] = {};
  uint64_t records = 0, records_right = 0, cells = 0, cells_right = 0;
  void add(const corpus::Outcome& o) {
    ++by_score[static_cast<int>(o.score)];
    records += o.records;
    records_right += o.records_right;
    cells += o.cells;
    cells_right += o.cells_right;
  }
};

std::string percent(uint64_t part, uint64_t whole) {
  if (whole == 0) return "-";
  char b[16];
  std::snprintf(b, sizeof b, "%.1f",
                100.0 * static_cast<double>(part) / static_cast<double>(whole));
  return b;
}

TEST(KolvprepCorpus, EveryCaseConvertsIsSetAsideOrIsRefused) {
  const uint64_t count = env_number("KOLV_CORPUS_COUNT", 10 * corpus::kinds().size());
  const uint64_t first = env_number("KOLV_CORPUS_SEED", 1);
  const std::string bin_path = std::string(KOLVPREP_BIN_DIR) + ":" + KOLV_BIN_DIR;

  const char* tmp = std::getenv("TMPDIR");
  std::string root = std::string(tmp && *tmp ? tmp : "/tmp") + "/kolvprep_corpus_XXXXXX";
  ASSERT_NE(mkdtemp(root.data()), nullptr);

  std::map<std::string, Tally> by_kind;
  Tally all;
  std::vector<std::string> wrongs, skips;
  for (uint64_t seed = first; seed < first + count; ++seed) {
    const corpus::Case c = corpus::make_case(seed);
    const std::string dir = root + "/" + std::to_string(seed);
    ASSERT_EQ(std::system(("mkdir '" + dir + "'").c_str()), 0);
    const corpus::Outcome o = corpus::run_case(c, dir, bin_path);
    by_kind[c.kind].add(o);
    all.add(o);
    if (o.score == corpus::Score::kWrong)
      wrongs.push_back("seed " + std::to_string(seed) + " (" + c.kind + "): " + o.why +
                       "\n  to look at it: " + KOLVPREP_CORPUS_CASE + " " + std::to_string(seed) +
                       " /tmp/case" + std::to_string(seed));
    if (o.score == corpus::Score::kSkipped) skips.push_back(c.kind + ": " + o.why);
    std::system(("rm -rf '" + dir + "'").c_str());
  }
  std::system(("rm -rf '" + root + "'").c_str());

  std::printf("%-17s %6s %9s %10s %8s %6s %8s %10s %8s\n", "kind", "right", "repaired", "set aside",
              "refused", "wrong", "skipped", "records %", "cells %");
  auto row = [](const std::string& name, const Tally& t) {
    std::printf("%-17s %6llu %9llu %10llu %8llu %6llu %8llu %10s %8s\n", name.c_str(),
                static_cast<unsigned long long>(t.by_score[0]),
                static_cast<unsigned long long>(t.by_score[1]),
                static_cast<unsigned long long>(t.by_score[2]),
                static_cast<unsigned long long>(t.by_score[3]),
                static_cast<unsigned long long>(t.by_score[4]),
                static_cast<unsigned long long>(t.by_score[5]),
                percent(t.records_right, t.records).c_str(),
                percent(t.cells_right, t.cells).c_str());
  };
  for (const std::string& kind : corpus::kinds())
    if (by_kind.count(kind)) row(kind, by_kind[kind]);
  row("all", all);
  std::fflush(stdout);

  if (!skips.empty()) {
    // A compressing program is missing: those cases cannot be written.
    if (env_flag("KOLV_REQUIRE_COMPRESSION"))
      ADD_FAILURE() << skips.size() << " cases skipped, first: " << skips.front();
    else
      std::printf("%zu cases skipped (%s)\n", skips.size(), skips.front().c_str());
  }
  for (const std::string& w : wrongs) ADD_FAILURE() << w;
  if (!wrongs.empty())
    ADD_FAILURE() << wrongs.size() << " of " << count
                  << " cases wrong; rerun one alone with KOLV_CORPUS_SEED=SEED KOLV_CORPUS_COUNT=1";
}

}  // namespace
