// INVAR for delimited input: names, types and their case, ranges and their
// padding, the DELIMIT clause and RECORD as a name.
#include "command/invar.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "test_run.hpp"

namespace {

using kolv::FatalError;
using kolv_test::TestRun;

std::string iname(const TestRun& t, int i) {
  const char* field = t.run.vars.inames.data() + 32 * static_cast<size_t>(i);
  return std::string(field, strnlen(field, 32));
}

std::vector<std::string> inames(const TestRun& t) {
  std::vector<std::string> names;
  for (int i = 0; i < t.run.vars.varin; ++i) names.push_back(iname(t, i));
  return names;
}

std::vector<int> itypes(const TestRun& t) {
  std::vector<int> types;
  for (int i = 0; i < t.run.vars.varin; ++i)
    types.push_back(t.run.vars.itypes[static_cast<size_t>(i)]);
  return types;
}

int scan(TestRun& t, const std::string& statement) {
  t.statement(statement);
  return kolv::scaninvar(t.run, t.st());
}

// The message of the fatal end that parsing statement leads to.
std::string fatal_of(TestRun& t, const std::string& statement) {
  try {
    scan(t, statement);
  } catch (const FatalError& e) {
    return e.message;
  }
  return "(no fatal error)";
}

using Names = std::vector<std::string>;
using Types = std::vector<int>;

// ---- names and types -------------------------------------------------------------

TEST(Scaninvar, TypeSwitchesAndCaseOfNames) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR $ name # age wt"), 3);
  EXPECT_EQ(inames(t), (Names{"name", "AGE", "WT"}));
  EXPECT_EQ(itypes(t), (Types{0, 1, 1}));
  EXPECT_EQ(t.run.lay.varformat, 1);
  EXPECT_EQ(t.run.lay.fmtflag, 0);
}

TEST(Scaninvar, NamesAreNumericUntilSwitched) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR a,b\nc , d"), 4);
  EXPECT_EQ(inames(t), (Names{"A", "B", "C", "D"}));
  EXPECT_EQ(itypes(t), (Types{1, 1, 1, 1}));
}

TEST(Scaninvar, SwitchHoldsUntilTheNextSwitch) {
  TestRun t;
  scan(t, "INVAR a $ B c #d $E");
  EXPECT_EQ(inames(t), (Names{"A", "b", "c", "D", "e"}));
  EXPECT_EQ(itypes(t), (Types{1, 0, 0, 1, 0}));
}

TEST(Scaninvar, SwitchMayFollowANameAtOnce) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR a$B#c"), 3);
  EXPECT_EQ(inames(t), (Names{"A", "b", "C"}));
  EXPECT_EQ(itypes(t), (Types{1, 0, 1}));
}

TEST(Scaninvar, AnyNumberOfSwitchesBeforeTheFirstName) {
  TestRun t;
  scan(t, "INVAR $ # a");
  EXPECT_EQ(inames(t), (Names{"A"}));
  EXPECT_EQ(itypes(t), (Types{1}));
  scan(t, "INVAR #$,$ a");
  EXPECT_EQ(inames(t), (Names{"a"}));
  EXPECT_EQ(itypes(t), (Types{0}));
}

TEST(Scaninvar, PreserveCaseKeepsNamesAsWritten) {
  TestRun t;
  t.run.set.keepcase = 1;
  scan(t, "INVAR $ Name # aGe");
  EXPECT_EQ(inames(t), (Names{"Name", "aGe"}));
  EXPECT_EQ(itypes(t), (Types{0, 1}));
}

TEST(Scaninvar, NamesMayBeginWithADigit) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR 1st $ 2nd_x"), 2);
  EXPECT_EQ(inames(t), (Names{"1ST", "2nd_x"}));
}

TEST(Scaninvar, NameOf32CharactersIsAcceptedWithoutZero) {
  TestRun t;
  std::string name(32, 'q');
  EXPECT_EQ(scan(t, "INVAR $ " + name + " b"), 2);
  EXPECT_EQ(std::string(t.run.vars.inames.data(), 32), name);
  EXPECT_EQ(iname(t, 1), "b");
}

TEST(Scaninvar, NameOf33CharactersIsASyntaxErrorAtItsLastCharacter) {
  TestRun t;
  EXPECT_EQ(fatal_of(t, "INVAR a " + std::string(32, 'q') + "z rest"),
            "KOLV - Syntax error at: z rest\n");
}

TEST(Scaninvar, TrailingTextIsASyntaxError) {
  TestRun t;
  EXPECT_EQ(fatal_of(t, "INVAR a + b"), "KOLV - Syntax error at: + b\n");
  EXPECT_EQ(fatal_of(t, "INVAR a b)"), "KOLV - Syntax error at: )\n");
}

TEST(Scaninvar, RangeMustFollowTheNameAtOnce) {
  TestRun t;
  EXPECT_EQ(fatal_of(t, "INVAR a [2]"), "KOLV - Syntax error at: [2]\n");
}

TEST(Scaninvar, NoNamesGivesZero) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR"), 0);
  EXPECT_EQ(scan(t, "INVAR , \n $ #"), 0);
}

TEST(Scaninvar, EachStatementStartsTheTablesAfresh) {
  TestRun t;
  scan(t, "INVAR a b c");
  EXPECT_EQ(scan(t, "INVAR $ z"), 1);
  EXPECT_EQ(inames(t), (Names{"z"}));
  EXPECT_EQ(itypes(t), (Types{0}));
  // The new statement starts in numeric mode again.
  EXPECT_EQ(scan(t, "INVAR y"), 1);
  EXPECT_EQ(itypes(t), (Types{1}));
}

// ---- chardata ------------------------------------------------------------------

TEST(Scaninvar, CharacterDeclarationSetsChardataForTheStatement) {
  TestRun t;
  scan(t, "INVAR $ s # a b");
  EXPECT_EQ(t.run.vars.chardata, 1);  // stays set after later numeric names
}

TEST(Scaninvar, NumericOnlyStatementLeavesChardataClear) {
  TestRun t;
  scan(t, "INVAR $ s");
  EXPECT_EQ(t.run.vars.chardata, 1);
  scan(t, "INVAR a b");
  EXPECT_EQ(t.run.vars.chardata, 0);
}

// ---- RECORD as a name ------------------------------------------------------------

TEST(Scaninvar, RecordWithoutNumberIsAName) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR record x y"), 3);
  EXPECT_EQ(inames(t), (Names{"RECORD", "X", "Y"}));
  EXPECT_EQ(t.run.lay.varformat, 1);
}

TEST(Scaninvar, RecordEqualsWithoutNumberIsReadAsNames) {
  TestRun t;
  // Back at the word: RECORD is a name and the "=" is trailing text.
  EXPECT_EQ(fatal_of(t, "INVAR record = x"), "KOLV - Syntax error at: = x\n");
}

TEST(Scaninvar, RecordMustBeAWholeWord) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR records 10"), 2);
  EXPECT_EQ(inames(t), (Names{"RECORDS", "10"}));
  EXPECT_EQ(t.run.lay.varformat, 1);
}

TEST(Scaninvar, RecordWithComplexIsFatal) {
  TestRun t;
  t.run.set.cplx = 2;
  EXPECT_EQ(fatal_of(t, "INVAR RECORD = 10 (1,10) a"),
            "KOLV - Can't read packed ASCII (COMPLEX specified)\n");
  // The check comes before the look for a number.
  EXPECT_EQ(fatal_of(t, "INVAR record x"), "KOLV - Can't read packed ASCII (COMPLEX specified)\n");
}

// ---- ranges --------------------------------------------------------------------

TEST(Ranges, CountFromOne) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR x[3]"), 3);
  EXPECT_EQ(inames(t), (Names{"X1", "X2", "X3"}));
}

TEST(Ranges, LeadingZeroSetsTheWidthAsWritten) {
  TestRun t;
  scan(t, "INVAR x[005]");
  EXPECT_EQ(inames(t), (Names{"X001", "X002", "X003", "X004", "X005"}));
  scan(t, "INVAR w[01:3]");
  EXPECT_EQ(inames(t), (Names{"W01", "W02", "W03"}));
}

TEST(Ranges, LeadingZeroPadsUnderNovpadToo) {
  TestRun t;
  t.run.set.vpad = 0;
  scan(t, "INVAR x[003]");
  EXPECT_EQ(inames(t), (Names{"X001", "X002", "X003"}));
}

TEST(Ranges, VpadPadsToTheLastNumbersWidth) {
  TestRun t;
  scan(t, "INVAR y[8-10]");
  EXPECT_EQ(inames(t), (Names{"Y08", "Y09", "Y10"}));
  scan(t, "INVAR z[10]");
  EXPECT_EQ(iname(t, 0), "Z01");
  EXPECT_EQ(iname(t, 9), "Z10");
}

TEST(Ranges, NovpadDoesNotPad) {
  TestRun t;
  t.run.set.vpad = 0;
  scan(t, "INVAR y[8-10]");
  EXPECT_EQ(inames(t), (Names{"Y8", "Y9", "Y10"}));
  scan(t, "INVAR z[10]");
  EXPECT_EQ(iname(t, 0), "Z1");
  EXPECT_EQ(iname(t, 9), "Z10");
}

TEST(Ranges, ZeroFirstNumberGivesWidthOne) {
  TestRun t;
  scan(t, "INVAR x[0:2]");
  EXPECT_EQ(inames(t), (Names{"X0", "X1", "X2"}));
}

TEST(Ranges, LastNumberDigitsCountAsWritten) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR x[1:010]"), 10);
  EXPECT_EQ(iname(t, 0), "X001");
  EXPECT_EQ(iname(t, 9), "X010");
}

TEST(Ranges, NovpadIgnoresZerosOfTheLastNumber) {
  TestRun t;
  t.run.set.vpad = 0;
  EXPECT_EQ(scan(t, "INVAR x[1:010]"), 10);
  EXPECT_EQ(iname(t, 0), "X1");
  EXPECT_EQ(iname(t, 9), "X10");
}

TEST(Ranges, BlanksAndLineFeedsInside) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR x[ 1 :\n 3\n] y[ 2 ]"), 5);
  EXPECT_EQ(inames(t), (Names{"X1", "X2", "X3", "Y1", "Y2"}));
}

TEST(Ranges, CharacterRangeIsLowerCase) {
  TestRun t;
  scan(t, "INVAR a[2] $ Tag[2] # b");
  EXPECT_EQ(inames(t), (Names{"A1", "A2", "tag1", "tag2", "B"}));
  EXPECT_EQ(itypes(t), (Types{1, 1, 0, 0, 1}));
}

TEST(Ranges, StemIsCutToLeaveRoomForTheNumber) {
  TestRun t;
  std::string stem(31, 's');
  scan(t, "INVAR $ " + stem + "[10]");
  EXPECT_EQ(t.run.vars.varin, 10);
  EXPECT_EQ(std::string(t.run.vars.inames.data(), 32), std::string(30, 's') + "01");
  EXPECT_EQ(std::string(t.run.vars.inames.data() + 32 * 9, 32), std::string(30, 's') + "10");
  std::string full(32, 'f');
  scan(t, "INVAR $ " + full + "[2]");
  EXPECT_EQ(std::string(t.run.vars.inames.data(), 32), std::string(31, 'f') + "1");
}

TEST(Ranges, ZeroCountIsASyntaxErrorAtTheNumber) {
  TestRun t;
  EXPECT_EQ(fatal_of(t, "INVAR x[0]"), "KOLV - Syntax error at: 0]\n");
}

TEST(Ranges, DescendingRangeIsASyntaxErrorAtTheFirstNumber) {
  TestRun t;
  EXPECT_EQ(fatal_of(t, "INVAR x[3:1]"), "KOLV - Syntax error at: 3:1]\n");
}

TEST(Ranges, MalformedRangesAreSyntaxErrors) {
  TestRun t;
  EXPECT_EQ(fatal_of(t, "INVAR x[]"), "KOLV - Syntax error at: ]\n");
  EXPECT_EQ(fatal_of(t, "INVAR x[a]"), "KOLV - Syntax error at: a]\n");
  EXPECT_EQ(fatal_of(t, "INVAR x[1:]"), "KOLV - Syntax error at: ]\n");
  EXPECT_EQ(fatal_of(t, "INVAR x[1 2]"), "KOLV - Syntax error at: 2]\n");
  EXPECT_EQ(fatal_of(t, "INVAR x[1+2]"), "KOLV - Syntax error at: +2]\n");
  EXPECT_EQ(fatal_of(t, "INVAR x[1:3 x]"), "KOLV - Syntax error at: x]\n");
  EXPECT_EQ(fatal_of(t, "INVAR x[2"), "KOLV - Syntax error at: \n");
}

// ---- DELIMIT -------------------------------------------------------------------

TEST(Delimit, AloneMeansComma) {
  TestRun t;
  t.run.lay.delimiter = '|';
  EXPECT_EQ(scan(t, "INVAR DELIMIT a b"), 2);
  EXPECT_EQ(t.run.lay.fmtflag & 2, 2);
  EXPECT_EQ(t.run.lay.fmtflag & 4, 0);
  EXPECT_EQ(t.run.lay.delimiter, ',');
  EXPECT_EQ(t.run.lay.ndels, 0);
  EXPECT_EQ(t.run.set.scd, 1);
  EXPECT_EQ(inames(t), (Names{"A", "B"}));
  EXPECT_EQ(t.out_text(), "");
}

TEST(Delimit, CharacterInParenthesesIsTheDelimiter) {
  TestRun t;
  scan(t, "INVAR delimit ( | ) a");
  EXPECT_EQ(t.run.lay.delimiter, '|');
  EXPECT_EQ(t.run.lay.ndels, 0);
  EXPECT_EQ(inames(t), (Names{"A"}));
}

TEST(Delimit, NOptionAfterTheDelimiter) {
  TestRun t;
  scan(t, "INVAR DELIMIT(,N) a b");
  EXPECT_EQ(t.run.lay.delimiter, ',');
  EXPECT_EQ(t.run.lay.ndels, 1);
  EXPECT_EQ(inames(t), (Names{"A", "B"}));
  scan(t, "INVAR DELIMIT( ; , n ) a");
  EXPECT_EQ(t.run.lay.delimiter, ';');
  EXPECT_EQ(t.run.lay.ndels, 1);
}

TEST(Delimit, LaterClauseClearsTheNOption) {
  TestRun t;
  scan(t, "INVAR DELIMIT(|,N) a");
  scan(t, "INVAR DELIMIT(|) a");
  EXPECT_EQ(t.run.lay.ndels, 0);
}

struct EscapeCase {
  const char* clause;
  char delimiter;
  int line_bit;
};

// Names the case by its clause (the struct's padding bytes are never read).
void PrintTo(const EscapeCase& c, std::ostream* os) {
  *os << c.clause;
}

class DelimitEscape : public ::testing::TestWithParam<EscapeCase> {};

TEST_P(DelimitEscape, ChoosesTheDelimiter) {
  TestRun t;
  EXPECT_EQ(scan(t, std::string("INVAR DELIMIT(") + GetParam().clause + ") a b"), 2);
  EXPECT_EQ(t.run.lay.delimiter, GetParam().delimiter);
  EXPECT_EQ(t.run.lay.fmtflag, 2 | GetParam().line_bit);
  EXPECT_EQ(t.run.set.scd, 1);
  EXPECT_EQ(inames(t), (Names{"A", "B"}));
}

INSTANTIATE_TEST_SUITE_P(Escapes, DelimitEscape,
                         ::testing::Values(EscapeCase{"\\C", ',', 0}, EscapeCase{"\\c", ',', 0},
                                           EscapeCase{"\\N", '\n', 0}, EscapeCase{"\\n", '\n', 0},
                                           EscapeCase{"\\R", ',', 4}, EscapeCase{"\\r", ',', 4},
                                           EscapeCase{"\\\\", '\\', 0}));

TEST(Delimit, NewlineEscapeWithNOption) {
  TestRun t;
  scan(t, "INVAR DELIMIT(\\N,N) a");
  EXPECT_EQ(t.run.lay.delimiter, '\n');
  EXPECT_EQ(t.run.lay.ndels, 1);
}

TEST(Delimit, InvalidEscapeIsReportedAndParsingResumesAfterTheLetter) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR DELIMIT(\\X a b"), 2);
  EXPECT_EQ(t.run.set.scd, 0);
  EXPECT_EQ(t.out_text(), "KOLV - Invalid delimiter\n");
  EXPECT_EQ(inames(t), (Names{"A", "B"}));
}

TEST(Delimit, InvalidEscapeLeavesTheParenthesisAsTrailingText) {
  TestRun t;
  EXPECT_EQ(fatal_of(t, "INVAR DELIMIT(\\X) a"), "KOLV - Syntax error at: ) a\n");
  EXPECT_EQ(t.out_text(), "KOLV - Invalid delimiter\n");
}

TEST(Delimit, MissingParenthesisWarnsAndSkipsOneCharacter) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR DELIMIT(| abc de"), 2);
  EXPECT_EQ(t.out_text(), "KOLV WARNING: missing ' )' at: abc de\n");
  EXPECT_EQ(t.run.lay.delimiter, '|');
  EXPECT_EQ(t.run.set.scd, 1);
  EXPECT_EQ(inames(t), (Names{"BC", "DE"}));  // the "a" is skipped all the same
}

TEST(Delimit, NOptionLetterIsTakenBeforeTheMissingParenthesis) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR DELIMIT(|,N b c"), 1);
  EXPECT_EQ(t.run.lay.ndels, 1);
  EXPECT_EQ(t.out_text(), "KOLV WARNING: missing ' )' at: b c\n");
  EXPECT_EQ(inames(t), (Names{"C"}));
}

TEST(Delimit, DelimitMustBeAWholeWord) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR delimiter x"), 2);
  EXPECT_EQ(inames(t), (Names{"DELIMITER", "X"}));
  EXPECT_EQ(t.run.lay.fmtflag, 0);
}

TEST(Delimit, ValidClauseAfterAnInvalidOneResetsTheResult) {
  TestRun t;
  scan(t, "INVAR DELIMIT(\\Q a");
  EXPECT_EQ(t.run.set.scd, 0);
  scan(t, "INVAR DELIMIT(|) a");
  EXPECT_EQ(t.run.set.scd, 1);
}

}  // namespace
