// kolvprep end to end on compressed exports: a CSV file compressed by each
// of gzip, zstd, xz and bzip2 gives the printed pipeline through
// `kolvprep --text`, and that pipeline gives the data set of the plain file.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>
#include <string>

#include "../support.hpp"
#include "kolvprep/source.hpp"

namespace {

struct Tool {
  const char* program;
  const char* suffix;
  kolvprep::Compression compression;
};

const Tool kTools[] = {{"gzip", ".gz", kolvprep::Compression::kGzip},
                       {"zstd", ".zst", kolvprep::Compression::kZstd},
                       {"xz", ".xz", kolvprep::Compression::kXz},
                       {"bzip2", ".bz2", kolvprep::Compression::kBzip2}};

// Test names and messages show the program, not the struct's bytes.
void PrintTo(const Tool& tool, std::ostream* os) {
  *os << tool.program;
}

bool required() {
  const char* v = std::getenv("KOLV_REQUIRE_COMPRESSION");
  return v != nullptr && *v != '\0' && std::string(v) != "0";
}

class CompressedPipeline : public ::testing::TestWithParam<Tool> {};

TEST_P(CompressedPipeline, ConvertsLikeThePlainFile) {
  const Tool& tool = GetParam();
  if (!kolvprep::can_read(tool.compression)) {
    if (required()) FAIL() << "this build of kolvprep cannot read " << tool.program;
    GTEST_SKIP() << "this build of kolvprep has no " << tool.program
                 << " decoder (its library was not found when it was built)";
  }
  if (std::system((std::string("command -v ") + tool.program + " >/dev/null 2>&1").c_str()) != 0) {
    if (required()) FAIL() << "the program " << tool.program << " is not on the PATH";
    GTEST_SKIP() << "the program " << tool.program << " is not on the PATH, so no file to convert";
  }
  kptest::ScratchDir dir;
  std::string text = "station,day,temp,note\n";
  for (int i = 0; i < 40; ++i)
    text += "st" + std::to_string(i % 7) + ",2020-01-" + std::to_string(10 + i % 20) + "," +
            std::to_string(i * 3 - 40) + ".5," + (i % 5 == 0 ? "" : "ok") + "\n";
  kptest::write_file(dir.file("obs.csv"), text);
  const kptest::Result zipped =
      kptest::shell(dir.path(), std::string(tool.program) + " -c obs.csv > obs.csv" + tool.suffix);
  ASSERT_EQ(zipped.status, 0) << zipped.err;

  const std::string file = std::string("obs.csv") + tool.suffix;
  // No --name: obs.csv.gz is named obs, as obs.csv is.
  const kptest::Result prep = kptest::kolvprep(dir.path(), file);
  ASSERT_EQ(prep.status, 0) << prep.err;
  const std::string command = kptest::last_line(prep.out);
  // Compressed text always goes through the rewrite, which decompresses it.
  const std::string tail = " " + file + " | kolv obs.cmd && kolvdump --check obs.dat";
  EXPECT_EQ(command.rfind("kolvprep --text ", 0), 0u) << command;
  ASSERT_GE(command.size(), tail.size()) << command;
  EXPECT_EQ(command.substr(command.size() - tail.size()), tail) << command;
  const kptest::Result run = kptest::shell(dir.path(), command);
  ASSERT_EQ(run.status, 0) << run.out << run.err;

  // The plain file, converted beside it, gives the same bytes from the
  // second header word on (the first words carry nothing of the text).
  kptest::ScratchDir plain;
  kptest::write_file(plain.file("obs.csv"), text);
  const kptest::Result plain_prep = kptest::kolvprep(plain.path(), "--name obs obs.csv");
  ASSERT_EQ(plain_prep.status, 0) << plain_prep.err;
  const kptest::Result plain_run = kptest::shell(plain.path(), kptest::last_line(plain_prep.out));
  ASSERT_EQ(plain_run.status, 0) << plain_run.out << plain_run.err;
  const kptest::DataSet a = kptest::read_data_set(dir.file("obs.dat"));
  const kptest::DataSet b = kptest::read_data_set(plain.file("obs.dat"));
  ASSERT_EQ(a.problem, "");
  ASSERT_EQ(b.problem, "");
  EXPECT_EQ(a.rows, 40u);
  EXPECT_EQ(a.names, b.names);
  EXPECT_EQ(a.types, b.types);
  EXPECT_EQ(a.slots, b.slots);
}

INSTANTIATE_TEST_SUITE_P(Tools, CompressedPipeline, ::testing::ValuesIn(kTools),
                         [](const ::testing::TestParamInfo<Tool>& p) {
                           return std::string(p.param.program);
                         });

}  // namespace
