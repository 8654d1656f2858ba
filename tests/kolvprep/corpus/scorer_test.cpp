// The corpus scorer must see a wrong data set: a plain comma case that
// kolvprep converts right is scored wrong once its truth is changed in one
// cell, one name or one record, and a case with records set aside is scored
// wrong when the truth does not hold them as damaged. A refusal counts only
// as one line naming an option, and a printed command must check its data
// set (a stand-in kolvprep says what is scored).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "generator.hpp"
#include "runner.hpp"

namespace {

class Scratch {
 public:
  Scratch() {
    const char* tmp = std::getenv("TMPDIR");
    path_ = std::string(tmp && *tmp ? tmp : "/tmp") + "/kolvprep_scorer_XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) path_.clear();
  }
  ~Scratch() {
    if (!path_.empty()) std::system(("rm -rf '" + path_ + "'").c_str());
  }
  // A fresh empty folder for one run.
  std::string next() {
    const std::string dir = path_ + "/" + std::to_string(++runs_);
    std::system(("mkdir '" + dir + "'").c_str());
    return dir;
  }

 private:
  std::string path_;
  int runs_ = 0;
};

const std::string kBin = std::string(KOLVPREP_BIN_DIR) + ":" + KOLV_BIN_DIR;

// The first seed of `kind`.
corpus::Case first_of(const std::string& kind) {
  for (uint64_t seed = 1;; ++seed)
    if (corpus::kinds()[seed % corpus::kinds().size()] == kind) return corpus::make_case(seed);
}

TEST(CorpusScorer, ScoresAChangedTruthWrong) {
  Scratch dir;
  const corpus::Case c = first_of("comma");
  const corpus::Outcome right = corpus::run_case(c, dir.next(), kBin);
  ASSERT_EQ(right.score, corpus::Score::kRight) << right.why;
  EXPECT_EQ(right.records_right, c.rows.size());

  corpus::Case cell = c;
  cell.rows[1][1].what = corpus::Cell::kNumber;
  cell.rows[1][1].number = -0.5;  // no generated value has one decimal
  const corpus::Outcome a = corpus::run_case(cell, dir.next(), kBin);
  EXPECT_EQ(a.score, corpus::Score::kWrong);
  EXPECT_NE(a.why.find("record 2 column 2: want -0.5"), std::string::npos) << a.why;
  EXPECT_EQ(a.records_right, c.rows.size() - 1);

  corpus::Case name = c;
  name.header[0] = "other";
  const corpus::Outcome b = corpus::run_case(name, dir.next(), kBin);
  EXPECT_EQ(b.score, corpus::Score::kWrong);
  EXPECT_NE(b.why.find("want other"), std::string::npos) << b.why;

  corpus::Case longer = c;
  longer.rows.push_back(c.rows.back());
  const corpus::Outcome d = corpus::run_case(longer, dir.next(), kBin);
  EXPECT_EQ(d.score, corpus::Score::kWrong);
  EXPECT_NE(d.why.find(std::to_string(c.rows.size()) + " records where " +
                       std::to_string(longer.rows.size()) + " were due"),
            std::string::npos)
      << d.why;
}

TEST(CorpusScorer, ScoresRecordsSetAsideWrongWhenTheTruthHoldsThemWhole) {
  Scratch dir;
  const corpus::Case c = first_of("field_too_many");
  const corpus::Outcome o = corpus::run_case(c, dir.next(), kBin);
  if (o.score != corpus::Score::kSetAside)
    GTEST_SKIP() << "kolvprep does not set this case's records aside ("
                 << corpus::score_word(o.score) << "), so there is nothing to check";
  corpus::Case whole = c;
  whole.misfit_rows.clear();
  whole.misfit_lines.clear();
  whole.misfit_texts.clear();
  const corpus::Outcome w = corpus::run_case(whole, dir.next(), kBin);
  EXPECT_EQ(w.score, corpus::Score::kWrong);
  EXPECT_NE(w.why.find("no damaged record starts there"), std::string::npos) << w.why;
}

// A stand-in kolvprep, first on the PATH, that prints `out` and `err` and
// exits with `status`.
std::string fake_kolvprep(Scratch& dir, const std::string& out, const std::string& err,
                          int status) {
  const std::string bin = dir.next();
  const std::string script = "#!/bin/sh\nprintf '%s' '" + out + "'\nprintf '%s' '" + err +
                             "' >&2\nexit " + std::to_string(status) + "\n";
  FILE* f = std::fopen((bin + "/kolvprep").c_str(), "w");
  if (f == nullptr) return bin;
  std::fputs(script.c_str(), f);
  std::fclose(f);
  std::system(("chmod +x '" + bin + "/kolvprep'").c_str());
  return bin + ":" + kBin;
}

TEST(CorpusScorer, ScoresARefusalByItsOneLineNamingAnOption) {
  Scratch dir;
  const corpus::Case c = first_of("comma");
  const std::string line = "kolvprep: export.csv: no steady layout (give --delimiter)\n";
  const corpus::Outcome refused = corpus::run_case(c, dir.next(), fake_kolvprep(dir, "", line, 1));
  EXPECT_EQ(refused.score, corpus::Score::kRefused) << refused.why;

  const corpus::Outcome two =
      corpus::run_case(c, dir.next(), fake_kolvprep(dir, "", line + line, 1));
  EXPECT_EQ(two.score, corpus::Score::kWrong) << two.why;

  const corpus::Outcome no_option = corpus::run_case(
      c, dir.next(), fake_kolvprep(dir, "", "kolvprep: export.csv: no steady layout\n", 1));
  EXPECT_EQ(no_option.score, corpus::Score::kWrong) << no_option.why;

  // A command that does not check the data set it leaves is wrong, whatever
  // the data set holds.
  const corpus::Outcome unchecked =
      corpus::run_case(c, dir.next(), fake_kolvprep(dir, "report\nkolv t.cmd\n", "", 0));
  EXPECT_EQ(unchecked.score, corpus::Score::kWrong);
  EXPECT_NE(unchecked.why.find("does not end with"), std::string::npos) << unchecked.why;
}

}  // namespace
