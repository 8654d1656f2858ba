// The record rules of the four delimited layouts, one row at a time: what
// separates fields, what makes a field empty, what ends a row, the line count
// and the reports of a rejected row.
#include "engine/layouts.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_run.hpp"

namespace {

using namespace std::string_literals;
using kolv::RowEnd;
using kolv::RowLayout;
using kolv_test::d8;
using kolv_test::miss8;
using kolv_test::TestRun;
using kolv_test::text8;

// One row reader over a fed input.
template <RowLayout L>
class Rows {
 public:
  Rows(const std::string& input, const std::string& types, char delimiter = ',', int ndels = 0,
       int read_size = kolv::kReadSize)
      : n_(static_cast<int>(types.size())) {
    t.plan.delimiter = delimiter;
    t.plan.delimiter_after_last = ndels != 0;
    for (char c : types)
      types_.push_back(c == 'n' ? kolv::FieldKind::kNumeric : kolv::FieldKind::kCharacter);
    t.declare(types);
    t.feed(input, read_size);
    pos_ = t.buffer();
  }
  RowEnd next() {
    slots_.assign(8 * static_cast<size_t>(n_), '\x55');
    return kolv::read_row<L>(t.engine, pos_, slots_.data(), n_, types_.data(), partial);
  }
  std::string slot(int k) const { return std::string(slots_.data() + 8 * k, 8); }
  long offset() const { return static_cast<long>(pos_ - const_cast<TestRun&>(t).buffer()); }
  char at() const { return *pos_; }
  int32_t line() const { return t.engine.srcrow; }

  TestRun t;
  bool partial = false;

 private:
  int n_;
  std::vector<kolv::FieldKind> types_;
  std::vector<char> slots_;
  char* pos_ = nullptr;
};

using Soft = Rows<RowLayout::kSoft>;
using Newline = Rows<RowLayout::kNewline>;
using Stream = Rows<RowLayout::kHardStream>;
using LinePerRow = Rows<RowLayout::kLinePerRow>;

// ---- soft-delimited stream --------------------------------------------------------

TEST(SoftLayout, CommasAreSeparatorsNotEmptyFields) {
  Soft r("1,,2", "nn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(1));
  EXPECT_EQ(r.slot(1), d8(2));
  EXPECT_EQ(r.at(), '\0');
}

TEST(SoftLayout, AnyRunOfBlanksTabsCrsLfsAndCommas) {
  Soft r("1 \t,\r\n 2\n,\n3 ,", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(1));
  EXPECT_EQ(r.slot(1), d8(2));
  EXPECT_EQ(r.slot(2), d8(3));
  EXPECT_EQ(r.line(), 4);  // three line feeds passed
}

TEST(SoftLayout, LineEndsMeanNothingToRows) {
  Soft r("1 2\n3 4", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(2), d8(3));
  EXPECT_EQ(r.line(), 2);
}

TEST(SoftLayout, NumberRunIntoAWordIsTwoFields) {
  Soft r("12abc 5", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(12));
  EXPECT_EQ(r.slot(1), text8("abc"));
  EXPECT_EQ(r.slot(2), d8(5));
}

TEST(SoftLayout, MissingValueNeedsTheSymbol) {
  Soft r(". 2", "nn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), miss8());
  EXPECT_EQ(r.slot(1), d8(2));
}

TEST(SoftLayout, LetterLeftAfterAMissingValueIsTheNextField) {
  Soft r(".I 2", "nn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), miss8());
  EXPECT_EQ(r.slot(1), text8("I"));
  EXPECT_EQ(r.offset(), 3);
}

TEST(SoftLayout, BraceLeftAfterAMissingValueIsBadData) {
  Soft r(".} 2", "nn");
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_EQ(r.t.out_text(),
            "Bad data - file /data/in.asc,  line 1,  file offset 1 hex,  1 decimal:\n"
            "   Hex:    7d 20 32 \n"
            "   ASCII: \"} 2\"\n");
}

TEST(SoftLayout, InputEndingInsideARowIsIncomplete) {
  Soft r("1 2", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kIncomplete);
  EXPECT_EQ(r.offset(), 3);
  EXPECT_EQ(r.t.out_text(), "");  // the loop prints the report
}

TEST(SoftLayout, BadDataIsTheOnlyReport) {
  Soft r("1\n\n.x 3", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_EQ(r.t.out_text(),
            "Bad data - file /data/in.asc,  line 3,  file offset 3 hex,  3 decimal:\n"
            "   Hex:    2e 78 20 33 \n"
            "   ASCII: \".x 3\"\n");
}

// ---- hard-delimited, newline delimiter ------------------------------------------------

TEST(NewlineLayout, EmptyLineIsAMissingValue) {
  Newline r("1\n\n3", "nnn", '\n');
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(1));
  EXPECT_EQ(r.slot(1), miss8());
  EXPECT_EQ(r.slot(2), d8(3));
  EXPECT_EQ(r.line(), 3);
}

TEST(NewlineLayout, RowIsTheNextLines) {
  Newline r(" 1 \n\t2\r\n3\n4", "nn", '\n', 0);
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(1));
  EXPECT_EQ(r.slot(1), d8(2));
  EXPECT_EQ(r.line(), 3);
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(3));
  EXPECT_EQ(r.slot(1), d8(4));
  EXPECT_EQ(r.at(), '\0');
}

TEST(NewlineLayout, BlankAndAnotherWordIsMissingDelimiter) {
  Newline r("1 2\n3", "nn", '\n');
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_EQ(r.t.out_text(),
            "Missing delimiter - file /data/in.asc,  line 1,  file offset 2 hex,  2 decimal:\n"
            "   Hex:    32 0a 33 \n"
            "   ASCII: \"2\x04"
            "3\"\n");
}

TEST(NewlineLayout, CommaIsNotADelimiterHere) {
  Newline r("1,2\n", "nn", '\n', 1);
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_NE(
      r.t.out_text().find("Missing delimiter - file /data/in.asc,  line 1,  file offset 1 hex"),
      std::string::npos);
}

TEST(NewlineLayout, LastFieldFollowedByLineEndNeedsN) {
  Newline r("1\n2\n", "nn", '\n', 0);
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_EQ(r.t.out_text(),
            "Unexpected delimiter - file /data/in.asc,  line 3,  file offset 3 hex,  3 decimal:\n"
            "   Hex:    0a \n"
            "   ASCII: \"\x04\"\n");
}

TEST(NewlineLayout, LastFieldFollowedByLineEndWithN) {
  Newline r("1\n2\n \t\r", "nn", '\n', 1);
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(1), d8(2));
  EXPECT_EQ(r.at(), '\0');
}

TEST(NewlineLayout, WithNALastFieldWithoutLineEndIsIncomplete) {
  Newline r("1\n2", "nn", '\n', 1);
  EXPECT_EQ(r.next(), RowEnd::kIncomplete);
  EXPECT_EQ(r.offset(), 3);
}

TEST(NewlineLayout, EndAfterALineEndGivesAnEmptyLastField) {
  Newline r("1\n", "nn", '\n', 0);
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(1));
  EXPECT_EQ(r.slot(1), miss8());
}

TEST(NewlineLayout, EndBeforeTheLastFieldIsIncomplete) {
  Newline r("1\n2", "nnn", '\n', 0);
  EXPECT_EQ(r.next(), RowEnd::kIncomplete);
}

// ---- hard-delimited stream ---------------------------------------------------------

TEST(StreamLayout, EmptyFieldBetweenDelimiters) {
  Stream r("1,,3", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(1));
  EXPECT_EQ(r.slot(1), miss8());
  EXPECT_EQ(r.slot(2), d8(3));
}

TEST(StreamLayout, TrailingDelimiterWithoutNIsAMissingLastField) {
  Stream r("1,2,", "nnn", ',', 0);
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(1), d8(2));
  EXPECT_EQ(r.slot(2), miss8());
}

TEST(StreamLayout, TrailingDelimiterWithNIsAnIncompleteRow) {
  Stream r("1,2,", "nnn", ',', 1);
  EXPECT_EQ(r.next(), RowEnd::kIncomplete);
}

TEST(StreamLayout, DelimiterAfterTheLastFieldAtTheEndWithoutN) {
  Stream r("1,2,3,", "nnn", ',', 0);
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_EQ(r.t.out_text(),
            "Unexpected delimiter - file /data/in.asc,  line 1,  file offset 5 hex,  5 decimal:\n"
            "   Hex:    2c \n"
            "   ASCII: \",\"\n");
}

TEST(StreamLayout, DelimiterAfterTheLastFieldAtTheEndWithN) {
  Stream r("1,2,3,", "nnn", ',', 1);
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(2), d8(3));
  EXPECT_EQ(r.at(), '\0');
}

TEST(StreamLayout, UnexpectedDelimiterGivesTheLineBeforeTheSkip) {
  Stream r("1,2,3,\n\n  ", "nnn", ',', 0);
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_EQ(r.t.out_text(),
            "Unexpected delimiter - file /data/in.asc,  line 1,  file offset 5 hex,  5 decimal:\n"
            "   Hex:    2c 0a 0a 20 20 \n"
            "   ASCII: \",\x04\x04  \"\n");
}

TEST(StreamLayout, UnexpectedDelimiterRefilledAwayIsReportedAtTheBufferStart) {
  // The skip after the last delimiter runs through two refills to the end.
  Stream r(
      "1,2,3,"
      "   \n  ",
      "nnn", ',', 0, 6);
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_EQ(r.t.out_text(),
            "Unexpected delimiter - file /data/in.asc,  line 1,  file offset 0 hex,  0 decimal:\n"
            "   Hex:    \n"
            "   ASCII: \"\"\n");
}

TEST(StreamLayout, LineEndIsOnlyABlank) {
  Stream r("1,2,\n3", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(2), d8(3));
  EXPECT_EQ(r.line(), 2);
}

TEST(StreamLayout, LineEndInsteadOfDelimiterIsMissingDelimiter) {
  Stream r("1,2\n3", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_EQ(r.t.out_text(),
            "Missing delimiter - file /data/in.asc,  line 2,  file offset 4 hex,  4 decimal:\n"
            "   Hex:    33 \n"
            "   ASCII: \"3\"\n");
}

TEST(StreamLayout, DelimiterSeparatesRowsToo) {
  Stream r(" 1 , 2 ,\n3\t,4", "nn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(1));
  EXPECT_EQ(r.slot(1), d8(2));
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(3));
  EXPECT_EQ(r.slot(1), d8(4));
}

TEST(StreamLayout, CharacterFieldRunsOverTheDelimiter) {
  Stream r("ab|cd |5", "cn", '|');
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), text8("ab|cd"));
  EXPECT_EQ(r.slot(1), d8(5));
}

TEST(StreamLayout, NumberStopsAtTheDelimiter) {
  Stream r("1|2", "nn", '|');
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(1));
  EXPECT_EQ(r.slot(1), d8(2));
}

TEST(StreamLayout, LetterLeftAfterAMissingValueIsMissingDelimiter) {
  Stream r(".I,2", "nn");
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_NE(
      r.t.out_text().find("Missing delimiter - file /data/in.asc,  line 1,  file offset 1 hex"),
      std::string::npos);
}

// ---- hard-delimited, line per row -----------------------------------------------------

TEST(LinePerRowLayout, ShortLineIsCompletedWithMissingValues) {
  LinePerRow r("1,2\n7,8,9\n", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(1));
  EXPECT_EQ(r.slot(1), d8(2));
  EXPECT_EQ(r.slot(2), miss8());
  EXPECT_TRUE(r.partial);
  EXPECT_EQ(r.line(), 2);
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(7));
  EXPECT_EQ(r.slot(2), d8(9));
}

TEST(LinePerRowLayout, LongLineIsUnexpectedDelimiter) {
  LinePerRow r("1,2,3,4\n", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_EQ(r.t.out_text(),
            "Unexpected delimiter - file /data/in.asc,  line 1,  file offset 5 hex,  5 decimal:\n"
            "   Hex:    2c 34 0a \n"
            "   ASCII: \",4\x04\"\n");
}

TEST(LinePerRowLayout, EmptyLineIsARowOfMissingValues) {
  LinePerRow r("\n", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), miss8());
  EXPECT_EQ(r.slot(1), miss8());
  EXPECT_EQ(r.slot(2), miss8());
  EXPECT_TRUE(r.partial);
  EXPECT_EQ(r.at(), '\0');
}

TEST(LinePerRowLayout, EmptyLineOfWidthOneIsNotPartial) {
  LinePerRow r("\n", "n");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), miss8());
  EXPECT_FALSE(r.partial);
}

TEST(LinePerRowLayout, LastLineWithoutLineEnd) {
  LinePerRow r("1,2,3", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(2), d8(3));
  EXPECT_FALSE(r.partial);
  EXPECT_EQ(r.at(), '\0');
}

TEST(LinePerRowLayout, EndBeforeTheLastFieldIsPartial) {
  LinePerRow r("1,2", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(2), miss8());
  EXPECT_TRUE(r.partial);
}

TEST(LinePerRowLayout, EmptyFieldsAndBlanks) {
  LinePerRow r(" 1 ,, 3\r\n", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(1));
  EXPECT_EQ(r.slot(1), miss8());
  EXPECT_EQ(r.slot(2), d8(3));
  EXPECT_FALSE(r.partial);
  EXPECT_EQ(r.line(), 2);
}

TEST(LinePerRowLayout, OtherByteIsMissingDelimiter) {
  LinePerRow r("1 2,3\n", "nnn");
  EXPECT_EQ(r.next(), RowEnd::kRejected);
  EXPECT_NE(
      r.t.out_text().find("Missing delimiter - file /data/in.asc,  line 1,  file offset 2 hex"),
      std::string::npos);
}

TEST(LinePerRowLayout, NOptionPlaysNoPart) {
  LinePerRow r("1,2,3\n", "nnn", ',', 1);
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(2), d8(3));
}

// ---- refills inside rows -----------------------------------------------------------

TEST(RowRefills, FieldsSplitAcrossManyReads) {
  Soft r("100 200\n300 400 500 600", "nn", ',', 0, 5);
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(100));
  EXPECT_EQ(r.slot(1), d8(200));
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(300));
  EXPECT_EQ(r.slot(1), d8(400));
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(500));
  EXPECT_EQ(r.slot(1), d8(600));
  EXPECT_EQ(r.at(), '\0');
  EXPECT_EQ(r.line(), 2);
}

TEST(RowRefills, HardStreamAcrossReads) {
  Stream r("11,,33,\n44,55,66", "nnn", ',', 0, 4);
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(11));
  EXPECT_EQ(r.slot(1), miss8());
  EXPECT_EQ(r.slot(2), d8(33));
  EXPECT_EQ(r.next(), RowEnd::kRow);
  EXPECT_EQ(r.slot(0), d8(44));
  EXPECT_EQ(r.slot(2), d8(66));
}

}  // namespace
