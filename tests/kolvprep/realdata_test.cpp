// Every real file of ../shared/realdata: kolvprep FILE, then the command it
// prints, then every value of the data set against the text as a CSV reader
// (or, for fixed columns, a reader cutting the columns) understands it.
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "support.hpp"

namespace {

std::string data_dir() {
  char resolved[PATH_MAX];
  if (realpath(KOLV_REALDATA_DIR, resolved) == nullptr) return "";
  return resolved;
}

struct RealFile {
  const char* file;
  const char* layout;  // as --layout names it, or "" for a file kolv reads as it is
  const char* kinds;   // n numeric, c character; "" for fixed columns (from the data set)
  char delimiter;
  size_t skip;
  char comment;
  bool header;
};

const RealFile kFiles[] = {
    {"housing.data", "", "nnnnnnnnnnnnnn", 0, 0, 0, false},
    {"auto-mpg.data", "blank", "nnnnnnnnc", 0, 0, 0, false},
    {"co2_mm_mlo.txt", "blank", "nnnnnnnn", 0, 42, '#', false},
    {"planck_cmb_tt_full_R3.01.txt", "blank", "nnnn", 0, 1, '#', false},
    {"dDPD2015.txt", "", "cnnnnnncnnnnnnn", 0, 0, 0, false},
    {"PRSA_data_2010.1.1-2014.12.31.csv", "comma", "nnnnnnnnncnnn", ',', 1, 0, true},
    // A14 holds codes of five digits with leading zeros ("00202"): kept as
    // text, as written.
    {"crx.data", "comma", "cnnccccnccncccnc", ',', 1, 0, true},
    {"breast-cancer-wisconsin.data", "comma", "nnnnnnnnnnn", ',', 1, 0, true},
    {"iris.csv", "comma", "cnnnn", ',', 1, 0, true},
    {"USW00093991.dly", "", "", 0, 0, 0, false},
    {"SN_m_tot_V2.0.txt", "", "", 0, 0, 0, false},
    {"bsc5.dat", "fixed", "", 0, 0, 0, false},
};

class RealData : public testing::TestWithParam<int> {};

TEST_P(RealData, ConvertsAndMatchesTheText) {
  const RealFile& f = kFiles[GetParam()];
  const std::string dir = data_dir();
  if (dir.empty())
    GTEST_SKIP() << "../shared/realdata is not next to this clone: " << KOLV_REALDATA_DIR;
  const std::string path = dir + "/" + f.file;
  if (!kptest::file_exists(path)) GTEST_SKIP() << path << " is missing";
  kptest::ScratchDir scratch;
  const kptest::Result prep = kptest::kolvprep(scratch.path(), kptest::quote(path));
  ASSERT_EQ(prep.status, 0) << prep.err;
  const std::string command = kptest::last_line(prep.out);
  std::string name = f.file;
  name.resize(name.rfind('.'));
  if (*f.layout == 0) {
    EXPECT_EQ(command, "kolv " + name + ".cmd && kolvdump --check " + name + ".dat") << prep.out;
  } else {
    EXPECT_NE(command.find(std::string("--layout=") + f.layout), std::string::npos) << command;
  }
  EXPECT_EQ(prep.out.find("is a header line") != std::string::npos, f.header) << prep.out;
  const kptest::Result run = kptest::shell(scratch.path(), command);
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_EQ(run.out.find("Bad data"), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("delimiter"), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("extra bytes"), std::string::npos) << run.out;
  EXPECT_EQ(run.err.find("Partial record"), std::string::npos) << run.err;

  const kptest::DataSet ds = kptest::read_data_set(scratch.file(name + ".dat"));
  ASSERT_TRUE(ds.problem.empty()) << ds.problem;
  kptest::Reading r;
  r.delimiter = f.delimiter;
  r.skip = f.skip;
  r.comment = f.comment;
  for (const char* k = f.kinds; *k; ++k) r.kinds.push_back(*k);
  if (*f.kinds == 0) {
    // Fixed columns: the reader cuts the columns kolvprep wrote down.
    const std::string cmd = kptest::read_file(scratch.file(name + ".cmd"));
    std::string layout_text;
    const size_t fixed_at = command.find("--fixed=");
    if (fixed_at != std::string::npos) {
      // --fixed=1-11,12-15,...: the first and last byte of each column, from 1.
      layout_text = command.substr(fixed_at + 8);
      layout_text = layout_text.substr(0, layout_text.find(' '));
      for (size_t at = 0; at != std::string::npos && at < layout_text.size();) {
        size_t a = 0, b = 0;
        if (std::sscanf(layout_text.c_str() + at, "%zu-%zu", &a, &b) != 2) break;
        r.fixed.push_back({a - 1, b - a + 1});
        at = layout_text.find(',', at);
        if (at != std::string::npos) ++at;
      }
    } else {
      // INVAR RECORD groups: (column,width) before the names they place.
      layout_text = cmd.substr(cmd.find("INVAR RECORD"));
      for (size_t at = layout_text.find('('); at != std::string::npos;
           at = layout_text.find('(', at + 1)) {
        size_t a = 0, b = 0;
        if (std::sscanf(layout_text.c_str() + at, "(%zu,%zu)", &a, &b) == 2)
          r.fixed.push_back({a - 1, b});
      }
    }
    ASSERT_EQ(r.fixed.size(), ds.columns) << layout_text.substr(0, 300);
    r.raw_text = command.find("--text") == std::string::npos;
    for (uint8_t t : ds.types) r.kinds.push_back(t ? 'n' : 'c');
  }
  const auto records = kptest::read_records(kptest::read_file(path), r);
  EXPECT_EQ(kptest::compare(ds, records, r), "");

  if (std::string(f.file) == "SN_m_tot_V2.0.txt") {
    // The columns found are those of the file's own description (year 1-4,
    // month 6-7, date 9-16, number 19-23, deviation 25-29, observations
    // 32-35, marker 37); a column found narrower holds only blanks in the
    // bytes it leaves out.
    kptest::Reading own;
    own.fixed = {{0, 4}, {5, 2}, {8, 8}, {18, 5}, {24, 5}, {31, 4}, {36, 1}};
    own.raw_text = true;
    own.kinds = {'n', 'n', 'n', 'n', 'n', 'n', 'c'};
    EXPECT_EQ(kptest::compare(ds, kptest::read_records(kptest::read_file(path), own), own), "");
  }
  if (std::string(f.file) == "USW00093991.dly") {
    // Each day's value (columns 22+8(d-1), 5 wide) is a numeric column.
    for (size_t d = 0; d < 31; ++d) {
      const std::pair<size_t, size_t> value{21 + 8 * d, 5};
      const auto it = std::find(r.fixed.begin(), r.fixed.end(), value);
      ASSERT_NE(it, r.fixed.end()) << "day " << d + 1;
      EXPECT_EQ(ds.types[static_cast<size_t>(it - r.fixed.begin())], 1) << "day " << d + 1;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Files, RealData, testing::Range(0, 12),
                         [](const testing::TestParamInfo<int>& param_info) {
                           std::string n = kFiles[param_info.param].file;
                           for (char& c : n) {
                             if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                           }
                           return n;
                         });

}  // namespace
