// The statement reader of the command file (getstat) and the keyword helpers
// strnicmp, getword and spaces.
#include "command/statement.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "test_run.hpp"

namespace {

using namespace std::string_literals;
using kolv::FatalError;
using kolv_test::TestRun;

constexpr size_t kLimit = 131072;

// Reads statements from a command file holding text.
class Statements {
 public:
  explicit Statements(const std::string& text) { t_.run.files.fcf = kolv_test::file_with(text); }
  int next() { return kolv::getstat(t_.run); }
  std::string text() const { return std::string(t_.run.rb.inbuff.get()); }
  TestRun& run() { return t_; }

 private:
  TestRun t_;
};

// Runs getstat once more and returns the fatal message it ends with.
std::string fatal_of_next(Statements& s) {
  try {
    s.next();
  } catch (const FatalError& e) {
    return e.message;
  }
  return "(no fatal error)";
}

// ---- comments -----------------------------------------------------------------

TEST(Getstat, CommentBeforeKeywordIsDropped) {
  Statements s("@ note @ OUTTYP D ;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "OUTTYP D ");
}

TEST(Getstat, CommentInsideStatementIsDroppedWhole) {
  Statements s("OUT@ a comment; with a semicolon @TYP D;INPUT x;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "OUTTYP D");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "INPUT x");
}

TEST(Getstat, CommentMayHoldLineEnds) {
  Statements s("@ first line\nsecond line @\nAPPEND;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "APPEND");
}

TEST(Getstat, CommentBetweenStatementsOnly) {
  Statements s("APPEND; @ trailing remark @");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "APPEND");
  EXPECT_EQ(s.next(), 0);
  EXPECT_EQ(s.text(), "");
}

TEST(Getstat, OpenCommentIsFatalWithOneLineEnd) {
  Statements s("OUTTYP D; APPEND @ never closed;\n");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(fatal_of_next(s), "KOLV - Open comment\n");
  EXPECT_EQ(s.run().out_text(), "");
}

TEST(Getstat, LoneCommentSignIsAnOpenComment) {
  Statements s("@");
  EXPECT_EQ(fatal_of_next(s), "KOLV - Open comment\n");
}

// ---- white space before and inside a statement ---------------------------------

TEST(Getstat, LeadingBlankLinesCarriageReturnsTabsAndZerosVanish) {
  Statements s("\r\n\r\n  \t \n\0\0OUTPUT x.asc;"s);
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "OUTPUT x.asc");
}

TEST(Getstat, CarriageReturnAfterKeywordIsKept) {
  Statements s("OUTTYP\r\nD;\r\nAPPEND\r;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "OUTTYP\r\nD");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "APPEND\r");
}

TEST(Getstat, LineFeedsInsideStatementAreStored) {
  Statements s("INVAR a\nb\n;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "INVAR a\nb\n");
}

TEST(Getstat, TabAsSecondCharacterOfLineGivesOneBlank) {
  Statements s("x\na\tb;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "x\na b");
}

TEST(Getstat, TabAtLineStartGivesEightBlanks) {
  Statements s("x\n\ty;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "x\n        y");
}

TEST(Getstat, TabGivesDistanceModuloEightBlanks) {
  Statements s("abc\td;abcdefgh\ti;abcdefghi\tj;abcdefg\tk;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "abc   d");  // distance 3: three blanks
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "abcdefgh        i");  // distance 8: modulo 8 is 0, eight blanks
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "abcdefghi j");  // distance 9: one blank
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "abcdefg       k");  // distance 7: seven blanks
}

TEST(Getstat, TabBlanksCountTowardsTheNextTab) {
  // The first tab (distance 2) gives 2 blanks; the second then stands at
  // distance 4 and gives 4, not the advance to the next tab stop.
  Statements s("ab\t\tc;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "ab" + std::string(6, ' ') + "c");
}

TEST(Getstat, CarriageReturnInsideStatementCountsAsCharacterForTabs) {
  Statements s("a\r\tb;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "a\r  b");
}

TEST(Getstat, EachStatementMeasuresTabsFromItsOwnStart) {
  Statements s("abcdef;de\tf;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "abcdef");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "de  f");
}

// ---- statement ends --------------------------------------------------------------

TEST(Getstat, StatementsAreReadInTurn) {
  Statements s("INPUT a;\nOUTPUT b;\n\nAPPEND;\n");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "INPUT a");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "OUTPUT b");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "APPEND");
  EXPECT_EQ(s.next(), 0);
  EXPECT_EQ(s.text(), "");
}

TEST(Getstat, LastStatementWithoutSemicolonIsNotAStatement) {
  Statements s("INPUT a;\nOUTPUT b");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "INPUT a");
  EXPECT_EQ(s.next(), 0);
  EXPECT_EQ(s.text(), "OUTPUT b");  // partial text, terminated, for the caller to discard
  EXPECT_EQ(s.next(), 0);
}

TEST(Getstat, EmptyFileHasNoStatement) {
  Statements s("");
  EXPECT_EQ(s.next(), 0);
  EXPECT_EQ(s.text(), "");
}

TEST(Getstat, EmptyStatementIsStillAStatement) {
  Statements s(" ;APPEND;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(s.text(), "APPEND");
}

// ---- length limit ----------------------------------------------------------------

TEST(Getstat, StatementOfExactlyTheLimitIsAccepted) {
  Statements s(std::string(kLimit, 'a') + ";");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(std::strlen(s.run().run.rb.inbuff.get()), kLimit);
}

TEST(Getstat, StatementOneCharacterOverTheLimitIsFatal) {
  Statements s(std::string(kLimit + 1, 'a') + ";");
  EXPECT_EQ(fatal_of_next(s), "KOLV - Statement too long\n");
  EXPECT_EQ(s.run().out_text(), "");
}

TEST(Getstat, TabBlanksAreNotHeldToTheLimit) {
  // 131071 characters, then a tab at distance 7 (seven blanks) that runs past
  // the limit: accepted, since only ordinary characters are checked.
  Statements s(std::string(kLimit - 1, 'a') + "\t;");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(std::strlen(s.run().run.rb.inbuff.get()), kLimit - 1 + 7);
}

TEST(Getstat, OrdinaryCharacterAfterTabBlanksPastTheLimitIsFatal) {
  Statements s(std::string(kLimit - 1, 'a') + "\tb;");
  EXPECT_EQ(fatal_of_next(s), "KOLV - Statement too long\n");
}

TEST(Getstat, CommentsDoNotCountTowardsTheLimit) {
  Statements s("@" + std::string(kLimit + 10, 'c') + "@" + std::string(kLimit, 'a') + ";");
  EXPECT_EQ(s.next(), 1);
  EXPECT_EQ(std::strlen(s.run().run.rb.inbuff.get()), kLimit);
}

// ---- strnicmp --------------------------------------------------------------------

TEST(Strnicmp, MatchIgnoresCase) {
  EXPECT_EQ(kolv::strnicmp("output x.asc", "OUTPUT", 6), 0);
  EXPECT_EQ(kolv::strnicmp("OuTtYp D", "outtyp", 6), 0);
}

TEST(Strnicmp, WhatFollowsTheKeywordIsNotExamined) {
  EXPECT_EQ(kolv::strnicmp("APPENDX", "APPEND", 6), 0);
  EXPECT_EQ(kolv::strnicmp("NOAPPEND", "NOAPPEND", 8), 0);
}

TEST(Strnicmp, ShortenedKeywordDoesNotMatch) {
  EXPECT_EQ(kolv::strnicmp("OUT", "OUTPUT", 6), -1);
  EXPECT_EQ(kolv::strnicmp("APPEN;", "APPEND", 6), -1);
}

TEST(Strnicmp, OrderOfUpperCasedCharacters) {
  EXPECT_EQ(kolv::strnicmp("abc", "ABD", 3), -1);
  EXPECT_EQ(kolv::strnicmp("abd", "ABC", 3), 1);
  // "_" (0x5F) is compared with upper-case "A" (0x41), so it is greater.
  EXPECT_EQ(kolv::strnicmp("_", "a", 1), 1);
  EXPECT_EQ(kolv::strnicmp("a", "_", 1), -1);
}

TEST(Strnicmp, StopsWhereBothStringsEnd) {
  EXPECT_EQ(kolv::strnicmp("ab", "AB", 10), 0);
  EXPECT_EQ(kolv::strnicmp("", "", 5), 0);
  EXPECT_EQ(kolv::strnicmp("abc", "AB", 10), 1);
}

TEST(Strnicmp, ComparesAtMostNCharacters) {
  EXPECT_EQ(kolv::strnicmp("abcX", "ABCY", 3), 0);
  EXPECT_EQ(kolv::strnicmp("x", "y", 0), 0);
}

// ---- getword and spaces ------------------------------------------------------------

TEST(Getword, SkipsSeparatorsAndCopiesAWord) {
  char text[] = " ,\n,abc_12 rest";
  const char* sptr = text;
  char buf[8];
  std::memset(buf, 'Z', sizeof buf);
  EXPECT_EQ(kolv::getword(sptr, buf, 8), 6);
  EXPECT_EQ(std::string(buf, 8), std::string("abc_12\0\0", 8));
  EXPECT_EQ(std::string(sptr), " rest");
}

TEST(Getword, NoWordGivesZeroAndAClearedBuffer) {
  char text[] = "  +x";
  const char* sptr = text;
  char buf[4];
  std::memset(buf, 'Z', sizeof buf);
  EXPECT_EQ(kolv::getword(sptr, buf, 4), 0);
  EXPECT_EQ(std::string(buf, 4), std::string(4, '\0'));
  EXPECT_EQ(*sptr, '+');
}

TEST(Getword, WordThatFillsTheBufferGivesZero) {
  char text[] = "abcdefgh";
  const char* sptr = text;
  char buf[8];
  EXPECT_EQ(kolv::getword(sptr, buf, 8), 0);
  char shorter[] = "abcdefg";
  sptr = shorter;
  EXPECT_EQ(kolv::getword(sptr, buf, 8), 7);
}

TEST(Getword, TabIsNotASeparator) {
  char text[] = "\tabc";
  const char* sptr = text;
  char buf[8];
  EXPECT_EQ(kolv::getword(sptr, buf, 8), 0);
}

TEST(Spaces, BlanksOnlyOrEmpty) {
  EXPECT_EQ(kolv::spaces(""), 1);
  EXPECT_EQ(kolv::spaces("    "), 1);
  EXPECT_EQ(kolv::spaces("  a "), 0);
  EXPECT_EQ(kolv::spaces("\t"), 0);
  EXPECT_EQ(kolv::spaces(" \n"), 0);
}

}  // namespace
