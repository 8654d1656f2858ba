// The setting statements with arguments: INPUT, OUTPUT, OUTTYP and MSYM, each
// parsed from the statement text as getstat leaves it in the buffer.
#include "command/settings.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "test_run.hpp"

namespace {

using namespace std::string_literals;
using kolv_test::TestRun;

std::string cwd() {
  char buf[4096];
  return getcwd(buf, sizeof buf) ? std::string(buf) : std::string();
}

const std::string kBadTypeNotice =
    "\n\n"
    "       Use: I or 2 - for 2 byte integer\n"
    "            F or 4 - for 4 byte floating point\n"
    "            D or 8 - for 8 byte floating point\n\n"
    "       Defaulting to 8 byte floating point...\n";

// ---- INPUT -----------------------------------------------------------------------

TEST(Scaninput, AbsolutePathKeepsInnerBlank) {
  TestRun t;
  t.statement("INPUT /tmp/my data.asc");
  EXPECT_EQ(kolv::scaninput(t.run, t.st()), 16);
  EXPECT_STREQ(t.run.set.infile, "/tmp/my data.asc");
}

TEST(Scaninput, SeparatorsBeforeThePathAreSkipped) {
  TestRun t;
  t.statement("INPUT , \n ,/srv/in.asc");
  EXPECT_EQ(kolv::scaninput(t.run, t.st()), 11);
  EXPECT_STREQ(t.run.set.infile, "/srv/in.asc");
}

TEST(Scaninput, RelativePathIsMadeAbsolute) {
  TestRun t;
  t.statement("input data/in.txt");
  std::string expected = cwd() + "/data/in.txt";
  EXPECT_EQ(kolv::scaninput(t.run, t.st()), static_cast<int>(expected.size()));
  EXPECT_EQ(std::string(t.run.set.infile), expected);
}

TEST(Scaninput, RelativePathKeepsInnerBlank) {
  TestRun t;
  t.statement("INPUT my data.asc");
  std::string expected = cwd() + "/my data.asc";
  EXPECT_EQ(kolv::scaninput(t.run, t.st()), static_cast<int>(expected.size()));
  EXPECT_EQ(std::string(t.run.set.infile), expected);
}

TEST(Scaninput, NoPathGivesZero) {
  TestRun t;
  t.statement("INPUT  \n ,");
  EXPECT_EQ(kolv::scaninput(t.run, t.st()), 0);
}

TEST(Scaninput, ShortStatementReadsAsItsEnd) {
  TestRun t;
  // Bytes left in the buffer past the statement's end are not an argument.
  t.statement("INPUT\0 /stale/name.asc"s);
  EXPECT_EQ(kolv::scaninput(t.run, t.st()), 0);
}

TEST(Scaninput, AtMost1020CharactersAreCopied) {
  TestRun t;
  std::string name = "/" + std::string(1100, 'a');
  t.statement("INPUT " + name);
  EXPECT_EQ(kolv::scaninput(t.run, t.st()), 1020);
  EXPECT_EQ(std::string(t.run.set.infile), name.substr(0, 1020));
}

// ---- OUTPUT ----------------------------------------------------------------------

TEST(Scanoutput, ExtensionIsReplacedByDat) {
  TestRun t;
  t.statement("OUTPUT /tmp/results.old");
  EXPECT_EQ(kolv::scanoutput(t.run, t.st()), 16);
  EXPECT_STREQ(t.run.set.outfile, "/tmp/results.dat");
}

TEST(Scanoutput, DotInDirectoryIsNotAnExtension) {
  TestRun t;
  t.statement("OUTPUT /tmp/dir.v2/results");
  kolv::scanoutput(t.run, t.st());
  EXPECT_STREQ(t.run.set.outfile, "/tmp/dir.v2/results.dat");
}

TEST(Scanoutput, OnlyTheLastExtensionIsCut) {
  TestRun t;
  t.statement("OUTPUT /tmp/a.b.c");
  kolv::scanoutput(t.run, t.st());
  EXPECT_STREQ(t.run.set.outfile, "/tmp/a.b.dat");
}

TEST(Scanoutput, NameWithoutExtensionGetsDat) {
  TestRun t;
  t.statement("OUTPUT /tmp/x");
  EXPECT_EQ(kolv::scanoutput(t.run, t.st()), 10);
  EXPECT_STREQ(t.run.set.outfile, "/tmp/x.dat");
}

TEST(Scanoutput, RelativeNameIsMadeAbsolute) {
  TestRun t;
  t.statement("output results.old");
  std::string expected = cwd() + "/results.dat";
  EXPECT_EQ(kolv::scanoutput(t.run, t.st()), static_cast<int>(expected.size()));
  EXPECT_EQ(std::string(t.run.set.outfile), expected);
}

TEST(Scanoutput, NoNameGivesZero) {
  TestRun t;
  t.statement("OUTPUT ");
  EXPECT_EQ(kolv::scanoutput(t.run, t.st()), 0);
}

// ---- OUTTYP ----------------------------------------------------------------------

struct TypeCase {
  const char* statement;
  int otyp;
};

// Names the case by its statement (the struct's padding bytes are never read).
void PrintTo(const TypeCase& c, std::ostream* os) {
  *os << c.statement;
}

class ScanouttypValid : public ::testing::TestWithParam<TypeCase> {};

TEST_P(ScanouttypValid, SetsTheElementSize) {
  TestRun t;
  t.statement(GetParam().statement);
  kolv::scanouttyp(t.run, t.st());
  EXPECT_EQ(t.run.set.otyp, GetParam().otyp);
  EXPECT_EQ(t.out_text(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Letters, ScanouttypValid,
    ::testing::Values(TypeCase{"OUTTYP I", 2}, TypeCase{"OUTTYP i", 2}, TypeCase{"OUTTYP 2", 2},
                      TypeCase{"OUTTYP F", 4}, TypeCase{"OUTTYP f", 4}, TypeCase{"OUTTYP 4", 4},
                      TypeCase{"OUTTYP D", 8}, TypeCase{"OUTTYP d", 8}, TypeCase{"OUTTYP 8", 8},
                      TypeCase{"OUTTYP ,\n, Integer", 2}, TypeCase{"outtyp float", 4}));

TEST(Scanouttyp, BadCharacterPrintsNoticeAndGivesEight) {
  TestRun t;
  t.run.set.otyp = 2;
  t.statement("OUTTYP 3");
  kolv::scanouttyp(t.run, t.st());
  EXPECT_EQ(t.run.set.otyp, 8);
  EXPECT_EQ(t.out_text(), "KOLV - Invalid output type 3" + kBadTypeNotice);
}

TEST(Scanouttyp, NoticeQuotesTheCharacterAsWritten) {
  TestRun t;
  t.statement("OUTTYP x");
  kolv::scanouttyp(t.run, t.st());
  EXPECT_EQ(t.run.set.otyp, 8);
  EXPECT_EQ(t.out_text(), "KOLV - Invalid output type x" + kBadTypeNotice);
}

TEST(Scanouttyp, ArgumentStartsOneCharacterAfterTheKeyword) {
  TestRun t;
  t.statement("OUTTYP-I");
  kolv::scanouttyp(t.run, t.st());
  EXPECT_EQ(t.run.set.otyp, 2);
}

TEST(Scanouttyp, ShortStatementReadsAsItsEnd) {
  TestRun t;
  // "OUTTYP;" leaves the text "OUTTYP"; a stale "I" further on is not read.
  t.statement("OUTTYP\0\0I"s);
  kolv::scanouttyp(t.run, t.st());
  EXPECT_EQ(t.run.set.otyp, 8);
  EXPECT_EQ(t.out_text(), "KOLV - Invalid output type \0"s + kBadTypeNotice);
}

// ---- MSYM ------------------------------------------------------------------------

TEST(Scanms, SkipsBlanksCommasAndLineFeeds) {
  TestRun t;
  t.statement("MSYM ,,  * ");
  EXPECT_EQ(kolv::scanms(t.run, t.st()), 1);
  EXPECT_EQ(t.run.set.mstring, '*');
  EXPECT_EQ(t.run.set.msym_found, 1);
  EXPECT_EQ(t.out_text(), "");
}

TEST(Scanms, OnlyTheFirstCharacterCounts) {
  TestRun t;
  t.statement("msym \n-99");
  kolv::scanms(t.run, t.st());
  EXPECT_EQ(t.run.set.mstring, '-');
}

TEST(Scanms, ControlCharacterEndsTheSkip) {
  TestRun t;
  t.statement("MSYM \r*");
  kolv::scanms(t.run, t.st());
  EXPECT_EQ(t.run.set.mstring, '\r');
}

TEST(Scanms, NothingAfterKeywordIsReportedAndKeepsTheSymbol) {
  TestRun t;
  t.run.set.mstring = '#';
  t.statement("MSYM , \n");
  EXPECT_EQ(kolv::scanms(t.run, t.st()), 0);
  EXPECT_EQ(t.run.set.mstring, '#');
  EXPECT_EQ(t.run.set.msym_found, 0);
  EXPECT_EQ(t.out_text(), "KOLV - Missing value symbol not found\n");
}

TEST(Scanms, ShortStatementReadsAsItsEnd) {
  TestRun t;
  t.statement("MSYM\0*"s);
  EXPECT_EQ(kolv::scanms(t.run, t.st()), 0);
  EXPECT_EQ(t.run.set.mstring, '.');
  EXPECT_EQ(t.out_text(), "KOLV - Missing value symbol not found\n");
}

TEST(Scanms, LaterSymbolClearsAnEarlierFailure) {
  TestRun t;
  t.statement("MSYM");
  kolv::scanms(t.run, t.st());
  EXPECT_EQ(t.run.set.msym_found, 0);
  t.statement("MSYM *");
  kolv::scanms(t.run, t.st());
  EXPECT_EQ(t.run.set.msym_found, 1);
  EXPECT_EQ(t.run.set.mstring, '*');
}

}  // namespace
