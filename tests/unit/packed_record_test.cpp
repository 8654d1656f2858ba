// INVAR RECORD: packed record descriptions (scanformat).
#include "command/packed_record.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/state.hpp"
#include "command/invar.hpp"

namespace {

using kolv::PackedField;

// A fresh run whose messages are captured.
struct FormatRun {
  kolv::Run run;
  char* text = nullptr;
  size_t size = 0;
  FormatRun() { run.io.out = open_memstream(&text, &size); }
  ~FormatRun() {
    std::fclose(run.io.out);
    std::free(text);
  }
  FormatRun(const FormatRun&) = delete;
  FormatRun& operator=(const FormatRun&) = delete;

  // Parses a description given from the record length on.
  int parse(const char* description) {
    std::strcpy(run.rb.inbuff.get(), description);
    return kolv::scanformat(run, run.rb.inbuff.get());
  }
  // Parses a whole INVAR statement (without its ";").
  int statement(const char* st) {
    std::strcpy(run.rb.inbuff.get(), st);
    return kolv::scaninvar(run, kolv::current_statement(run));
  }
  std::string messages() {
    std::fflush(run.io.out);
    return std::string(text, size);
  }
  std::string name(int i) const {
    const char* field = &run.vars.inames[static_cast<size_t>(i) * kolv::kNameSize];
    return std::string(field, strnlen(field, kolv::kNameSize));
  }
  const PackedField& field(int i) const { return run.vars.fmv[static_cast<size_t>(i)]; }
  int type(int i) const { return run.vars.itypes[static_cast<size_t>(i)]; }
};

void expect_field(const PackedField& f, int type, int decimals, int start, int width) {
  EXPECT_EQ(f.type, type);
  EXPECT_EQ(f.decimals, decimals);
  EXPECT_EQ(f.start, start);
  EXPECT_EQ(f.width, width);
}

TEST(ScanFormat, RecordLengthZeroIsRefused) {
  FormatRun f;
  EXPECT_EQ(f.parse("0 x"), 0);
  EXPECT_EQ(f.messages(), "KOLV - Record length must be 1-131072 bytes\n");
  EXPECT_EQ(f.run.lay.varformat, 2);
}

TEST(ScanFormat, RecordLengthAboveBufferIsRefused) {
  FormatRun f;
  EXPECT_EQ(f.parse("131073 x"), 0);
  EXPECT_EQ(f.messages(), "KOLV - Record length must be 1-131072 bytes\n");
  FormatRun g;
  EXPECT_EQ(g.parse("99999999999999999999 x"), 0);
  EXPECT_EQ(g.messages(), "KOLV - Record length must be 1-131072 bytes\n");
}

TEST(ScanFormat, RecordLengthLimitsAreAccepted) {
  FormatRun f;
  EXPECT_EQ(f.parse("131072 x"), 1);
  EXPECT_EQ(f.run.vars.record, 131072);
  EXPECT_EQ(f.messages(), "");
  FormatRun g;
  EXPECT_EQ(g.parse("1 (1,1) x"), 1);
  EXPECT_EQ(g.run.vars.record, 1);
  expect_field(g.field(0), 1, 0, 0, 1);
}

TEST(ScanFormat, HelpTextExample) {
  FormatRun f;
  ASSERT_EQ(f.parse("80 $(1,1) sex #(*,8.2) vol[4] (60,10) total"), 6);
  EXPECT_EQ(f.run.vars.varin, 6);
  EXPECT_EQ(f.run.vars.record, 80);
  EXPECT_EQ(f.run.lay.varformat, 2);
  EXPECT_EQ(f.name(0), "sex");
  EXPECT_EQ(f.type(0), 0);
  expect_field(f.field(0), 0, 0, 0, 1);
  const char* vols[] = {"VOL1", "VOL2", "VOL3", "VOL4"};
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(f.name(1 + i), vols[i]);
    EXPECT_EQ(f.type(1 + i), 1);
    expect_field(f.field(1 + i), 1, 2, 1 + 8 * i, 8);
  }
  EXPECT_EQ(f.name(5), "TOTAL");
  expect_field(f.field(5), 1, 0, 59, 10);
  // A character field of one byte: nothing to truncate.
  EXPECT_EQ(f.run.vars.chartrunc, 0);
  // Character fields ask for 8-byte elements as INVAR's do.
  EXPECT_EQ(f.run.vars.chardata, 1);
  EXPECT_EQ(f.messages(), "");
}

TEST(ScanFormat, GroupPlacesConsecutiveNames) {
  FormatRun f;
  ASSERT_EQ(f.parse("20 (5,3) a b"), 2);
  expect_field(f.field(0), 1, 0, 4, 3);
  expect_field(f.field(1), 1, 0, 7, 3);
  EXPECT_EQ(f.name(0), "A");
  EXPECT_EQ(f.name(1), "B");
}

TEST(ScanFormat, StarsKeepWidthAndDecimals) {
  FormatRun f;
  ASSERT_EQ(f.parse("20 (*,6.2) a (*,*.*) b"), 2);
  expect_field(f.field(0), 1, 2, 0, 6);
  expect_field(f.field(1), 1, 2, 6, 6);
}

TEST(ScanFormat, GroupWithoutDecimalsResetsThem) {
  FormatRun f;
  ASSERT_EQ(f.parse("20 (1,4.1) a (10,4) b"), 2);
  expect_field(f.field(0), 1, 1, 0, 4);
  expect_field(f.field(1), 1, 0, 9, 4);
}

TEST(ScanFormat, WideCharacterFieldSetsTruncation) {
  FormatRun f;
  ASSERT_EQ(f.parse("20 $(1,12) name"), 1);
  EXPECT_EQ(f.run.vars.chartrunc, 1);
  EXPECT_EQ(f.name(0), "name");
  expect_field(f.field(0), 0, 0, 0, 12);

  FormatRun narrow;
  ASSERT_EQ(narrow.parse("20 $(1,8) name"), 1);
  EXPECT_EQ(narrow.run.vars.chartrunc, 0);
  FormatRun numeric;
  ASSERT_EQ(numeric.parse("20 #(1,12) x"), 1);
  EXPECT_EQ(numeric.run.vars.chartrunc, 0);
  FormatRun star;
  ASSERT_EQ(star.parse("20 #(1,12) x $(*,*) s"), 2);
  EXPECT_EQ(star.run.vars.chartrunc, 1);
}

TEST(ScanFormat, DefaultsBeforeAnyGroup) {
  FormatRun f;
  ASSERT_EQ(f.parse("16 a,b"), 2);
  expect_field(f.field(0), 1, 0, 0, 8);
  expect_field(f.field(1), 1, 0, 8, 8);
  EXPECT_EQ(f.run.vars.chardata, 0);
}

TEST(ScanFormat, BlanksAndLineFeedsInsideGroups) {
  FormatRun f;
  ASSERT_EQ(f.parse("30\n(\n5 ,\n 3.1 \n) a ( * , * )b"), 2);
  expect_field(f.field(0), 1, 1, 4, 3);
  expect_field(f.field(1), 1, 0, 7, 3);
}

TEST(ScanFormat, NamesFoldByType) {
  FormatRun f;
  ASSERT_EQ(f.parse("20 (1,1) Abc $ Def # $ gHi # jk_1"), 4);
  EXPECT_EQ(f.name(0), "ABC");
  EXPECT_EQ(f.name(1), "def");
  EXPECT_EQ(f.name(2), "ghi");
  EXPECT_EQ(f.name(3), "JK_1");
  EXPECT_EQ(f.type(1), 0);
  EXPECT_EQ(f.type(2), 0);
  EXPECT_EQ(f.type(3), 1);
}

TEST(ScanFormat, PreserveCaseKeepsNames) {
  FormatRun f;
  f.run.set.keepcase = 1;
  ASSERT_EQ(f.parse("20 (1,1) Abc $ Def"), 2);
  EXPECT_EQ(f.name(0), "Abc");
  EXPECT_EQ(f.name(1), "Def");
}

TEST(ScanFormat, NameMayStartWithUnderscore) {
  FormatRun f;
  ASSERT_EQ(f.parse("20 _x"), 1);
  EXPECT_EQ(f.name(0), "_X");
}

TEST(ScanFormat, RangesGiveOneFieldEach) {
  FormatRun f;
  ASSERT_EQ(f.parse("80 (1,2) x[3] (10,1) w[01:3] y[8-10] z[005]"), 14);
  const char* names[] = {"X1",  "X2",  "X3",   "W01",  "W02",  "W03",  "Y08",
                         "Y09", "Y10", "Z001", "Z002", "Z003", "Z004", "Z005"};
  for (int i = 0; i < 14; ++i) EXPECT_EQ(f.name(i), names[i]) << i;
  for (int i = 0; i < 3; ++i) expect_field(f.field(i), 1, 0, 2 * i, 2);
  for (int i = 3; i < 14; ++i) expect_field(f.field(i), 1, 0, 9 + (i - 3), 1);
}

TEST(ScanFormat, RangesWithoutPadding) {
  FormatRun f;
  f.run.set.vpad = 0;
  ASSERT_EQ(f.parse("20 y[8-10]"), 3);
  EXPECT_EQ(f.name(0), "Y8");
  EXPECT_EQ(f.name(2), "Y10");
}

TEST(ScanFormat, LongRangeStemIsCut) {
  FormatRun f;
  ASSERT_EQ(f.parse("20 abcdefghijabcdefghijabcdefghij[12]"), 12);
  EXPECT_EQ(f.name(11), "ABCDEFGHIJABCDEFGHIJABCDEFGHIJ12");
}

TEST(ScanFormat, NameOfThirtyTwoCharactersIsAccepted) {
  FormatRun f;
  ASSERT_EQ(f.parse("20 abcdefghijabcdefghijabcdefghijkl"), 1);
  EXPECT_EQ(f.name(0), "ABCDEFGHIJABCDEFGHIJABCDEFGHIJKL");
}

struct SyntaxCase {
  const char* description;
  const char* at;
};

class ScanFormatSyntax : public ::testing::TestWithParam<SyntaxCase> {};

TEST_P(ScanFormatSyntax, IsReportedAndCountsNothing) {
  FormatRun f;
  EXPECT_EQ(f.parse(GetParam().description), 0);
  EXPECT_EQ(f.messages(), std::string("KOLV - Syntax error at: ") + GetParam().at + "\n");
}

INSTANTIATE_TEST_SUITE_P(Errors, ScanFormatSyntax,
                         ::testing::Values(
                             // An item that starts with a digit.
                             SyntaxCase{"80 (1,2) a 1abc", "1abc"}, SyntaxCase{"80 9", "9"},
                             // Other characters with no meaning in a description.
                             SyntaxCase{"80 a ) b", ") b"}, SyntaxCase{"80 a ;", ";"},
                             SyntaxCase{"80 a [3]", "[3]"}, SyntaxCase{"80 a\r\nb", "\r\nb"},
                             // Column groups.
                             SyntaxCase{"80 (x,2) a", "x,2) a"}, SyntaxCase{"80 (1 2) a", "2) a"},
                             SyntaxCase{"80 (1,) a", ") a"}, SyntaxCase{"80 (1,2.x) a", "x) a"},
                             SyntaxCase{"80 (1,2.) a", ") a"}, SyntaxCase{"80 (1,2 .2) a", ".2) a"},
                             SyntaxCase{"80 (1,2 a", "a"}, SyntaxCase{"80 (1,2", ""},
                             SyntaxCase{"80 (", ""}, SyntaxCase{"80 (0,2) a", "0,2) a"},
                             SyntaxCase{"80 (1,9.256) a", "256) a"},
                             // Ranges.
                             SyntaxCase{"80 x[0] y", "0] y"}, SyntaxCase{"80 x[3:1]", "3:1]"},
                             SyntaxCase{"80 x[a]", "a]"}, SyntaxCase{"80 x[2:5", ""},
                             // A 33rd name character.
                             SyntaxCase{"80 abcdefghijabcdefghijabcdefghijklm", "m"}));

TEST(ScanFormat, SyntaxErrorAfterSomeNamesStillCountsNothing) {
  FormatRun f;
  EXPECT_EQ(f.parse("80 a b c (1,x) d"), 0);
  EXPECT_EQ(f.messages(), "KOLV - Syntax error at: x) d\n");
}

TEST(ScanFormat, RangeTooLargeIsFatal) {
  FormatRun f;
  try {
    f.parse("80 (1,1) x[1:99999999]");
    FAIL() << "no fatal end";
  } catch (const kolv::FatalError& e) {
    EXPECT_EQ(e.message, "KOLV - Too many variables (1)\n");
  }
}

TEST(ScanFormat, TablesGrowBeyondAThousand) {
  std::string description = "100000 (1,2)";
  for (int i = 0; i < 1500; ++i) description += " v" + std::to_string(i);
  description += " (3001,1) r[2500]";
  FormatRun f;
  ASSERT_EQ(f.parse(description.c_str()), 4000);
  EXPECT_GE(f.run.vars.varlimit, 4000);
  EXPECT_EQ(f.name(0), "V0");
  EXPECT_EQ(f.name(1499), "V1499");
  expect_field(f.field(1499), 1, 0, 2998, 2);
  EXPECT_EQ(f.name(1500), "R0001");
  EXPECT_EQ(f.name(3999), "R2500");
  expect_field(f.field(1500), 1, 0, 3000, 1);
  expect_field(f.field(3999), 1, 0, 5499, 1);
}

TEST(ScanFormat, HugeColumnsSaturateInsteadOfWrapping) {
  FormatRun f;
  ASSERT_EQ(f.parse("10 (99999999999,99999999999) a b"), 2);
  EXPECT_EQ(f.field(0).start, INT32_MAX - 1);
  EXPECT_EQ(f.field(0).width, INT32_MAX);
  EXPECT_GE(f.field(1).start, f.field(0).start);
}

TEST(ScanFormat, EachDescriptionStartsAfresh) {
  FormatRun f;
  ASSERT_EQ(f.parse("20 $(1,2) s a b c"), 4);
  EXPECT_EQ(f.run.vars.chardata, 1);
  ASSERT_EQ(f.parse("30 #(3,4.1) n"), 1);
  EXPECT_EQ(f.run.vars.varin, 1);
  EXPECT_EQ(f.run.vars.record, 30);
  EXPECT_EQ(f.run.vars.chardata, 0);
  EXPECT_EQ(f.name(0), "N");
  EXPECT_EQ(f.name(1), "");
  expect_field(f.field(0), 1, 1, 2, 4);
}

TEST(ScanFormat, InvarHandsRecordDescriptionsOver) {
  FormatRun f;
  ASSERT_EQ(f.statement("INVAR RECORD = 80 $(1,1) sex #(*,8.2) vol[4] (60,10) total"), 6);
  EXPECT_EQ(f.run.lay.varformat, 2);
  EXPECT_EQ(f.run.vars.record, 80);
  FormatRun g;
  ASSERT_EQ(g.statement("INVAR record\n12 (2,3) a"), 1);
  EXPECT_EQ(g.run.vars.record, 12);
  expect_field(g.field(0), 1, 0, 1, 3);
}

}  // namespace
