// The row loops, run in-process: rows read by each layout's rules, converted
// to elements, written in blocks; their statuses, counters, messages and the
// exact bytes and writes they leave in the output.
#include "engine/loops.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "test_run.hpp"

namespace {

using namespace std::string_literals;
using kolv_test::d8;
using kolv_test::f4;
using kolv_test::i16;
using kolv_test::miss2;
using kolv_test::miss4;
using kolv_test::miss8;
using kolv_test::TestRun;
using kolv_test::text8;

// The row loops by their old names: a layout and whether every input
// variable is output ("ALL") or the selected ones ("SOME"). The "shfl" (2-
// and 4-byte) and "dbl" (8-byte) members differ only in the element type,
// which the plan carries.
struct Loop {
  kolv::RowLayout layout;
  bool all;
};
using kolv::RowLayout;
constexpr Loop loop_SD_SL_SOME{RowLayout::kSoft, false};
constexpr Loop loop_HD_NL_SOME{RowLayout::kNewline, false};
constexpr Loop loop_HD_SL_SOME{RowLayout::kHardStream, false};
constexpr Loop loop_HD_HL_SOME{RowLayout::kLinePerRow, false};
constexpr Loop loop_SD_SL_ALL{RowLayout::kSoft, true};
constexpr Loop loop_HD_NL_ALL{RowLayout::kNewline, true};
constexpr Loop loop_HD_SL_ALL{RowLayout::kHardStream, true};
constexpr Loop loop_HD_HL_ALL{RowLayout::kLinePerRow, true};
constexpr Loop loop_shfl_SD_SL_ALL = loop_SD_SL_ALL;
constexpr Loop loop_dbl_SD_SL_ALL = loop_SD_SL_ALL;
constexpr Loop loop_shfl_HD_NL_ALL = loop_HD_NL_ALL;
constexpr Loop loop_dbl_HD_NL_ALL = loop_HD_NL_ALL;
constexpr Loop loop_shfl_HD_SL_ALL = loop_HD_SL_ALL;
constexpr Loop loop_dbl_HD_SL_ALL = loop_HD_SL_ALL;
constexpr Loop loop_shfl_HD_HL_ALL = loop_HD_HL_ALL;
constexpr Loop loop_dbl_HD_HL_ALL = loop_HD_HL_ALL;
using Sizes = std::vector<size_t>;

const std::string kPartialWarning =
    "WARNING:  Partial record(s) found, completed with missing values.\n";

// A loop's run: input variables, settings, the input and an output.
struct LoopRun {
  TestRun t;
  LoopRun(const std::string& types, int otyp, char delimiter = ',', int ndels = 0) {
    t.declare(types);
    t.plan.element = static_cast<kolv::ElementType>(otyp);
    t.plan.delimiter = delimiter;
    t.plan.delimiter_after_last = ndels != 0;
  }
  int run(Loop loop, const std::string& input, int read_size = kolv::kReadSize) {
    t.feed(input, read_size);
    if (t.output == nullptr) t.output_to_log();
    t.plan.layout = loop.layout;
    t.plan.all_columns = loop.all;
    return kolv::run_delimited(t.engine);
  }
  std::string written() { return t.written(); }
  Sizes writes() const { return t.log.sizes; }
  uint32_t rows() const { return t.engine.rows; }
  std::string out() { return t.out_text(); }
  std::string err() { return t.err_text(); }
};

std::string repeat(const std::string& s, int n) {
  std::string r;
  r.reserve(s.size() * static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) r += s;
  return r;
}

std::string incomplete_report(int line, long offset) {
  return "End of file /data/in.asc\nLast row incomplete - line " + std::to_string(line) +
         ",  file offset " + std::to_string(offset) + " hex,  " + std::to_string(offset) +
         " decimal\n";
}

// ---- every member: empty input -----------------------------------------------------

struct Member {
  const char* name;
  Loop loop;
  int otyp;
  char delimiter;
};

// Names the case by the loop (the struct's padding bytes are never read).
void PrintTo(const Member& m, std::ostream* os) {
  *os << m.name;
}

const Member kMembers[] = {
    {"SD_SL_SOME_2", loop_SD_SL_SOME, 2, ','},
    {"SD_SL_SOME_4", loop_SD_SL_SOME, 4, ','},
    {"SD_SL_SOME_8", loop_SD_SL_SOME, 8, ','},
    {"HD_NL_SOME", loop_HD_NL_SOME, 8, '\n'},
    {"HD_SL_SOME", loop_HD_SL_SOME, 4, ','},
    {"HD_HL_SOME", loop_HD_HL_SOME, 2, ','},
    {"shfl_SD_SL_ALL_2", loop_shfl_SD_SL_ALL, 2, ','},
    {"shfl_SD_SL_ALL_4", loop_shfl_SD_SL_ALL, 4, ','},
    {"dbl_SD_SL_ALL", loop_dbl_SD_SL_ALL, 8, ','},
    {"shfl_HD_NL_ALL", loop_shfl_HD_NL_ALL, 2, '\n'},
    {"dbl_HD_NL_ALL", loop_dbl_HD_NL_ALL, 8, '\n'},
    {"shfl_HD_SL_ALL", loop_shfl_HD_SL_ALL, 4, '|'},
    {"dbl_HD_SL_ALL", loop_dbl_HD_SL_ALL, 8, '|'},
    {"shfl_HD_HL_ALL", loop_shfl_HD_HL_ALL, 2, ','},
    {"dbl_HD_HL_ALL", loop_dbl_HD_HL_ALL, 8, ','},
    {"SD_SL_ALL_2", loop_SD_SL_ALL, 2, ','},
    {"SD_SL_ALL_8", loop_SD_SL_ALL, 8, ','},
    {"HD_NL_ALL_4", loop_HD_NL_ALL, 4, '\n'},
    {"HD_NL_ALL_8", loop_HD_NL_ALL, 8, '\n'},
    {"HD_SL_ALL_2", loop_HD_SL_ALL, 2, ','},
    {"HD_SL_ALL_8", loop_HD_SL_ALL, 8, ','},
    {"HD_HL_ALL_4", loop_HD_HL_ALL, 4, ','},
    {"HD_HL_ALL_8", loop_HD_HL_ALL, 8, ','},
};

class EveryMember : public ::testing::TestWithParam<Member> {};

TEST_P(EveryMember, EmptyInputWritesNothing) {
  LoopRun r("nnn", GetParam().otyp, GetParam().delimiter);
  r.t.select({2, 0});
  EXPECT_EQ(r.run(GetParam().loop, ""), 0);
  EXPECT_EQ(r.rows(), 0u);
  EXPECT_TRUE(r.writes().empty());
  EXPECT_EQ(r.out(), "");
  EXPECT_EQ(r.err(), "");
}

TEST_P(EveryMember, InputStartingWithAZeroByteGivesNoRows) {
  LoopRun r("nnn", GetParam().otyp, GetParam().delimiter);
  r.t.select({2, 0});
  EXPECT_EQ(r.run(GetParam().loop, "\0 1 2 3\n4 5 6\n"s, 4), 0);
  EXPECT_EQ(r.rows(), 0u);
  EXPECT_TRUE(r.writes().empty());
  EXPECT_EQ(r.out(), "");
  EXPECT_EQ(r.err(), "");
}

TEST_P(EveryMember, OneRowIsWrittenWithOneWrite) {
  LoopRun r("nnn", GetParam().otyp, GetParam().delimiter);
  r.t.select({2, 0});
  const char d = GetParam().delimiter;
  std::string input = "1?2?3";
  input[1] = d;
  input[3] = d;
  EXPECT_EQ(r.run(GetParam().loop, input), 0);
  EXPECT_EQ(r.rows(), 1u);
  ASSERT_EQ(r.writes().size(), 1u);
  const bool all = std::string(GetParam().name).find("SOME") == std::string::npos;
  EXPECT_EQ(r.writes()[0], static_cast<size_t>(GetParam().otyp * (all ? 3 : 2)));
  EXPECT_EQ(r.out(), "");
}

INSTANTIATE_TEST_SUITE_P(Loops, EveryMember, ::testing::ValuesIn(kMembers),
                         [](const ::testing::TestParamInfo<Member>& param_info) {
                           return std::string(param_info.param.name);
                         });

TEST(SoftLoops, LeadingSeparatorsAloneGiveNoRows) {
  for (Loop loop : {loop_SD_SL_ALL, loop_SD_SL_SOME}) {
    LoopRun r("nn", 8);
    r.t.select({0});
    EXPECT_EQ(r.run(loop, " \n,\r\n\t \n"), 0);
    EXPECT_EQ(r.rows(), 0u);
    EXPECT_TRUE(r.writes().empty());
    EXPECT_EQ(r.out(), "");
    EXPECT_EQ(r.t.engine.srcrow, 4);
  }
}

// ---- dispatchers ---------------------------------------------------------------

TEST(Dispatchers, UnknownElementSizeGivesMinusOneAndTouchesNothing) {
  for (Loop loop : {loop_SD_SL_ALL, loop_HD_NL_ALL, loop_HD_SL_ALL, loop_HD_HL_ALL}) {
    for (int otyp : {0, 3, 16}) {
      LoopRun r("nn", otyp);
      EXPECT_EQ(r.run(loop, "1,2\n3,4\n"), -1);
      EXPECT_EQ(r.rows(), 0u);
      EXPECT_TRUE(r.writes().empty());
      EXPECT_EQ(r.t.engine.rb.fills, 0u);
      EXPECT_EQ(std::string(r.t.buffer()), "1,2\n3,4\n");
      EXPECT_EQ(r.out(), "");
    }
  }
}

TEST(Dispatchers, ChooseTheElementSize) {
  for (int otyp : {2, 4, 8}) {
    LoopRun r("nn", otyp);
    EXPECT_EQ(r.run(loop_SD_SL_ALL, "2.5 -1"), 0);
    std::string expected = otyp == 2   ? i16(3) + i16(-1)
                           : otyp == 4 ? f4(2.5f) + f4(-1.0f)
                                       : d8(2.5) + d8(-1);
    EXPECT_EQ(r.written(), expected) << "otyp " << otyp;
  }
}

// ---- soft-delimited stream -----------------------------------------------------------

TEST(SoftLoops, IncompleteLastRowIsReportedAndDropped) {
  for (int otyp : {2, 8}) {
    LoopRun r("nnn", otyp);
    EXPECT_EQ(r.run(loop_SD_SL_ALL, "1 2 3 4 5"), 0);
    EXPECT_EQ(r.rows(), 1u);
    EXPECT_EQ(r.out(), incomplete_report(1, 9));
    std::string expected = otyp == 2 ? i16(1) + i16(2) + i16(3) : d8(1) + d8(2) + d8(3);
    EXPECT_EQ(r.written(), expected);
    EXPECT_EQ(r.writes(), Sizes{expected.size()});
    EXPECT_EQ(r.err(), "");
  }
}

TEST(SoftLoops, IncompleteRowOffsetIsWithinTheCurrentBuffer) {
  LoopRun r("nnn", 8);
  EXPECT_EQ(r.run(loop_dbl_SD_SL_ALL, "1 2 3 4 5", 4), 0);
  EXPECT_EQ(r.rows(), 1u);
  EXPECT_EQ(r.out(), incomplete_report(1, 1));  // the file position would be 9
}

TEST(SoftLoops, IncompleteRowCountsLines) {
  LoopRun r("nn", 8);
  r.t.select({1});
  EXPECT_EQ(r.run(loop_SD_SL_SOME, "1 2\n3\n"), 0);
  EXPECT_EQ(r.written(), d8(2));
  EXPECT_EQ(r.out(), incomplete_report(3, 6));
}

TEST(SoftLoops, WordInANumericColumnIsText) {
  LoopRun r("nn", 8);
  EXPECT_EQ(r.run(loop_dbl_SD_SL_ALL, "abc 1\n2 abcdefghij"), 0);
  EXPECT_EQ(r.written(), text8("abc") + d8(1) + d8(2) + text8("abcdefgh"));
  EXPECT_EQ(r.t.engine.vrec[0], 1);
  EXPECT_EQ(r.t.engine.vrec[1], 255);
}

TEST(SoftLoops, ZeroByteInTheInputEndsTheBufferedText) {
  LoopRun r("n", 8);
  EXPECT_EQ(r.run(loop_dbl_SD_SL_ALL, "1 2\0xyzw"s + "5 6", 8), 0);
  EXPECT_EQ(r.written(), d8(1) + d8(25) + d8(6));
  EXPECT_EQ(r.rows(), 3u);
}

TEST(SoftLoops, NumbersAcrossManyReads) {
  std::string input;
  std::string expected;
  for (int i = 0; i < 300; ++i) {
    input += std::to_string(i * 7) + (i % 3 == 2 ? "\n" : " ");
    expected += d8(i * 7);
  }
  for (int read_size : {5, 7, 13, 64}) {
    LoopRun r("nnn", 8);
    EXPECT_EQ(r.run(loop_dbl_SD_SL_ALL, input, read_size), 0) << read_size;
    EXPECT_EQ(r.rows(), 100u);
    EXPECT_EQ(r.written(), expected) << "read size " << read_size;
    EXPECT_EQ(r.out(), "");
    EXPECT_EQ(r.t.engine.srcrow, 101);
  }
}

TEST(SoftLoops, BadDataAfterARefillIsReportedAtTheBufferOffset) {
  LoopRun r("n", 8);
  EXPECT_EQ(r.run(loop_dbl_SD_SL_ALL, "1 2 3 + 5 6 7 8 9 10 11 12", 16), 3);
  EXPECT_EQ(r.rows(), 3u);
  EXPECT_TRUE(r.writes().empty());  // buffered rows are not written
  EXPECT_EQ(r.out(),
            "Bad data - file /data/in.asc,  line 1,  file offset 0 hex,  0 decimal:\n"
            "   Hex:    2b 20 35 20 36 20 37 20 38 20 39 20 31 30 20 31 \n"
            "   ASCII: \"+ 5 6 7 8 9 10 1\"\n");
}

TEST(SoftLoops, BadDataWithoutRefill) {
  LoopRun r("n", 2);
  EXPECT_EQ(r.run(loop_shfl_SD_SL_ALL, "1\n2\n.x 3"), 3);
  EXPECT_EQ(r.rows(), 2u);
  EXPECT_TRUE(r.writes().empty());
  EXPECT_EQ(r.out(),
            "Bad data - file /data/in.asc,  line 3,  file offset 4 hex,  4 decimal:\n"
            "   Hex:    2e 78 20 33 \n"
            "   ASCII: \".x 3\"\n");
}

// ---- hard-delimited loops -----------------------------------------------------------

TEST(HardLoops, NewlineDelimiterRows) {
  LoopRun r("nn", 8, '\n');
  EXPECT_EQ(r.run(loop_HD_NL_ALL, "1\n\n3\n4"), 0);
  EXPECT_EQ(r.written(), d8(1) + miss8() + d8(3) + d8(4));
  EXPECT_EQ(r.t.engine.srcrow, 4);
}

TEST(HardLoops, NewlineDelimiterIncompleteLastRow) {
  LoopRun r("nnn", 4, '\n');
  EXPECT_EQ(r.run(loop_shfl_HD_NL_ALL, "1\n2\n3\n4"), 0);
  EXPECT_EQ(r.rows(), 1u);
  EXPECT_EQ(r.written(), f4(1) + f4(2) + f4(3));
  EXPECT_EQ(r.out(), incomplete_report(4, 7));
}

TEST(HardLoops, NewlineDelimiterTrailingLineEndWithoutN) {
  LoopRun r("nn", 8, '\n');
  EXPECT_EQ(r.run(loop_dbl_HD_NL_ALL, "1\n2\n3\n4\n"), 3);
  EXPECT_EQ(r.rows(), 1u);
  EXPECT_TRUE(r.writes().empty());
  EXPECT_EQ(r.out(),
            "Unexpected delimiter - file /data/in.asc,  line 5,  file offset 7 hex,  7 decimal:\n"
            "   Hex:    0a \n"
            "   ASCII: \"\x04\"\n");
}

TEST(HardLoops, NewlineDelimiterTrailingLineEndWithN) {
  LoopRun r("nn", 8, '\n', 1);
  EXPECT_EQ(r.run(loop_dbl_HD_NL_ALL, "1\n2\n3\n4\n"), 0);
  EXPECT_EQ(r.written(), d8(1) + d8(2) + d8(3) + d8(4));
  EXPECT_EQ(r.out(), "");
}

TEST(HardLoops, StreamRowsAndEmptyFields) {
  LoopRun r("nnn", 8);
  EXPECT_EQ(r.run(loop_HD_SL_ALL, "1,,3,\n4,5,"), 0);
  EXPECT_EQ(r.written(), d8(1) + miss8() + d8(3) + d8(4) + d8(5) + miss8());
  EXPECT_EQ(r.out(), "");
}

TEST(HardLoops, StreamIncompleteLastRow) {
  LoopRun r("nnn", 2);
  EXPECT_EQ(r.run(loop_shfl_HD_SL_ALL, "1,2,3,4,5"), 0);
  EXPECT_EQ(r.rows(), 1u);
  EXPECT_EQ(r.written(), i16(1) + i16(2) + i16(3));
  EXPECT_EQ(r.out(), incomplete_report(1, 9));
}

TEST(HardLoops, StreamWithNLastRowWithoutDelimiterIsIncomplete) {
  LoopRun r("nnn", 8, ',', 1);
  EXPECT_EQ(r.run(loop_dbl_HD_SL_ALL, "1,2,3,\n4,5,6"), 0);
  EXPECT_EQ(r.rows(), 1u);
  EXPECT_EQ(r.written(), d8(1) + d8(2) + d8(3));
  EXPECT_EQ(r.out(), incomplete_report(2, 12));
}

TEST(HardLoops, StreamTrailingDelimiterWithoutN) {
  LoopRun r("nnn", 8);
  EXPECT_EQ(r.run(loop_dbl_HD_SL_ALL, "1,2,3,"), 3);
  EXPECT_EQ(r.rows(), 0u);
  EXPECT_TRUE(r.writes().empty());
  EXPECT_EQ(r.out(),
            "Unexpected delimiter - file /data/in.asc,  line 1,  file offset 5 hex,  5 decimal:\n"
            "   Hex:    2c \n"
            "   ASCII: \",\"\n");
}

TEST(HardLoops, StreamMissingDelimiter) {
  LoopRun r("nnn", 8);
  EXPECT_EQ(r.run(loop_dbl_HD_SL_ALL, "1,2\n3"), 3);
  EXPECT_EQ(r.out(),
            "Missing delimiter - file /data/in.asc,  line 2,  file offset 4 hex,  4 decimal:\n"
            "   Hex:    33 \n"
            "   ASCII: \"3\"\n");
  EXPECT_EQ(r.err(), "");
}

TEST(HardLoops, OtherLayoutsNeverWarnOfPartialRecords) {
  LoopRun a("nnn", 8);
  EXPECT_EQ(a.run(loop_HD_SL_ALL, "1,2"), 0);
  EXPECT_EQ(a.err(), "");
  LoopRun b("nnn", 8, '\n');
  EXPECT_EQ(b.run(loop_HD_NL_ALL, "1\n2"), 0);
  EXPECT_EQ(b.err(), "");
  LoopRun c("nnn", 8);
  EXPECT_EQ(c.run(loop_SD_SL_ALL, "1 2"), 0);
  EXPECT_EQ(c.err(), "");
}

// ---- line per row ----------------------------------------------------------------

TEST(LinePerRowLoops, ShortLinesAreCompletedAndWarnedOnce) {
  LoopRun r("nnn", 8);
  EXPECT_EQ(r.run(loop_dbl_HD_HL_ALL, "1,2\n3\n4,5,6\n"), 0);
  EXPECT_EQ(r.rows(), 3u);
  EXPECT_EQ(r.written(),
            d8(1) + d8(2) + miss8() + d8(3) + miss8() + miss8() + d8(4) + d8(5) + d8(6));
  EXPECT_EQ(r.err(), kPartialWarning);
  EXPECT_EQ(r.out(), "");
  EXPECT_EQ(r.t.engine.srcrow, 4);
}

TEST(LinePerRowLoops, ConvertingLoopCompletesWithMissingCodes) {
  LoopRun r("nnn", 4);
  EXPECT_EQ(r.run(loop_shfl_HD_HL_ALL, "1,2\n"), 0);
  EXPECT_EQ(r.written(), f4(1) + f4(2) + miss4());
  EXPECT_EQ(r.err(), kPartialWarning);
}

TEST(LinePerRowLoops, BlankLineInTheMiddle) {
  LoopRun r("nnn", 2);
  EXPECT_EQ(r.run(loop_HD_HL_ALL, "1,2,3\n\n4,5,6\n"), 0);
  EXPECT_EQ(r.rows(), 3u);
  EXPECT_EQ(r.written(),
            i16(1) + i16(2) + i16(3) + miss2() + miss2() + miss2() + i16(4) + i16(5) + i16(6));
  EXPECT_EQ(r.err(), kPartialWarning);
}

TEST(LinePerRowLoops, BlankLineAfterTheLastRowAddsARow) {
  LoopRun r("nnn", 8);
  EXPECT_EQ(r.run(loop_HD_HL_ALL, "1,2,3\n\n"), 0);
  EXPECT_EQ(r.written(), d8(1) + d8(2) + d8(3) + miss8() + miss8() + miss8());
  EXPECT_EQ(r.err(), kPartialWarning);
}

TEST(LinePerRowLoops, BlankLineOfWidthOneIsNotPartial) {
  LoopRun r("n", 8);
  EXPECT_EQ(r.run(loop_HD_HL_ALL, "1\n\n"), 0);
  EXPECT_EQ(r.written(), d8(1) + miss8());
  EXPECT_EQ(r.err(), "");
}

TEST(LinePerRowLoops, LastLineWithoutLineEnd) {
  LoopRun r("nnn", 8);
  EXPECT_EQ(r.run(loop_HD_HL_ALL, "1,2,3\n4,5,6"), 0);
  EXPECT_EQ(r.rows(), 2u);
  EXPECT_EQ(r.err(), "");
  EXPECT_EQ(r.out(), "");
}

TEST(LinePerRowLoops, LongLineStopsTheConversion) {
  LoopRun r("nnn", 8);
  EXPECT_EQ(r.run(loop_HD_HL_ALL, "1,2,3\n1,2,3,4\n"), 3);
  EXPECT_EQ(r.rows(), 1u);
  EXPECT_TRUE(r.writes().empty());
  EXPECT_EQ(r.out(),
            "Unexpected delimiter - file /data/in.asc,  line 2,  file offset 11 hex,  11 decimal:\n"
            "   Hex:    2c 34 0a \n"
            "   ASCII: \",4\x04\"\n");
}

TEST(LinePerRowLoops, NoPartialWarningAfterABadDataStop) {
  LoopRun r("nnn", 8);
  EXPECT_EQ(r.run(loop_dbl_HD_HL_ALL, "1,2\n1,2,3,4\n"), 3);
  EXPECT_EQ(r.err(), "");
  LoopRun s("nnn", 8);
  s.t.select({0});
  EXPECT_EQ(s.run(loop_HD_HL_SOME, "1,2\n1,x y\n"), 3);
  EXPECT_NE(s.out().find("Missing delimiter"), std::string::npos);
  EXPECT_EQ(s.err(), "");
}

TEST(LinePerRowLoops, RowEndingAtTheEndOfAFullBufferGoesOn) {
  LoopRun r("nnn", 8);
  EXPECT_EQ(r.run(loop_HD_HL_ALL,
                  "1,2,3\n"
                  "4,5,6\n",
                  6),
            0);
  EXPECT_EQ(r.rows(), 2u);
  EXPECT_EQ(r.written(), d8(1) + d8(2) + d8(3) + d8(4) + d8(5) + d8(6));
}

TEST(LinePerRowLoops, RowEndingAtTheEndOfAFullBufferWithoutLineEnd) {
  LoopRun r("nn", 8);
  EXPECT_EQ(r.run(loop_HD_HL_ALL,
                  "1,2\n"
                  "3,4",
                  4),
            0);
  EXPECT_EQ(r.written(), d8(1) + d8(2) + d8(3) + d8(4));
}

// ---- element values in rows ---------------------------------------------------------

TEST(RowElements, MissingFieldsInEveryWidth) {
  for (int otyp : {2, 4, 8}) {
    LoopRun r("nnnn", otyp);
    r.t.plan.missing_symbol = '*';
    EXPECT_EQ(r.run(loop_HD_SL_ALL, "1,,.,*"), 0);
    std::string m = otyp == 2 ? miss2() : otyp == 4 ? miss4() : miss8();
    std::string one = otyp == 2 ? i16(1) : otyp == 4 ? f4(1) : d8(1);
    EXPECT_EQ(r.written(), one + m + m + m) << "otyp " << otyp;
  }
}

TEST(RowElements, MissingPatternBytes) {
  LoopRun a("n", 2);
  a.run(loop_SD_SL_ALL, ".");
  EXPECT_EQ(a.written(), std::string("\x00\x80", 2));
  LoopRun b("n", 4);
  b.run(loop_SD_SL_ALL, ".");
  EXPECT_EQ(b.written(), std::string("\xF8\xFF\xFF\x7F", 4));
  LoopRun c("n", 8);
  c.run(loop_SD_SL_ALL, ".");
  EXPECT_EQ(c.written(), std::string("\0\0\0\0\xFF\xFF\xFF\x7F", 8));
}

TEST(RowElements, RoundingAndWrapInTwoByteRows) {
  LoopRun r("nnnnnnnnn", 2);
  EXPECT_EQ(r.run(loop_SD_SL_ALL, "2.5 -2.5 1.4999 -1.5 32767.5 32768 -32768 1e10 40000"), 0);
  EXPECT_EQ(r.written(), i16(3) + i16(-2) + i16(1) + i16(-1) + miss2() + miss2() + miss2() +
                             i16(0) + i16(-25536));
}

TEST(RowElements, SinglesInFourByteRows) {
  LoopRun r("nnn", 4);
  EXPECT_EQ(r.run(loop_SD_SL_ALL, "1e10 1e300 -1e300"), 0);
  EXPECT_EQ(r.written(),
            f4(1e10f) + std::string("\x00\x00\x80\x7F", 4) + std::string("\x00\x00\x80\xFF", 4));
}

TEST(RowElements, CharacterFieldInEightByteRows) {
  LoopRun r("cn", 8);
  EXPECT_EQ(r.run(loop_SD_SL_ALL, "ABC 1"), 0);
  EXPECT_EQ(r.written(), std::string("\x41\x42\x43\0\0\0\0\0", 8) + d8(1));
  EXPECT_EQ(r.t.engine.vrec[0], 1);
  EXPECT_EQ(r.t.engine.vrec[1], 0);
}

TEST(RowElements, ComplexRowHasRealThenImaginaryPerVariable) {
  LoopRun r("nnn", 8);
  r.t.plan.complex = true;
  EXPECT_EQ(r.run(loop_HD_SL_ALL, "1,2,3,4,5,6"), 0);
  EXPECT_EQ(r.rows(), 1u);
  EXPECT_EQ(r.written(), d8(1) + d8(2) + d8(3) + d8(4) + d8(5) + d8(6));
}

TEST(RowElements, ComplexCharacterVariableScansBothFieldsAsText) {
  LoopRun r("cn", 8);
  r.t.plan.complex = true;
  EXPECT_EQ(r.run(loop_dbl_SD_SL_ALL, "ab cd 1 2\nef 12 3 4\n"), 0);
  EXPECT_EQ(r.rows(), 2u);
  EXPECT_EQ(r.written(),
            text8("ab") + text8("cd") + d8(1) + d8(2) + text8("ef") + text8("12") + d8(3) + d8(4));
  EXPECT_EQ(r.t.engine.vrec[0], 1);
  EXPECT_EQ(r.t.engine.vrec[1], 0);
}

TEST(RowElements, ComplexTwoByteRow) {
  LoopRun r("nn", 2);
  r.t.plan.complex = true;
  EXPECT_EQ(r.run(loop_shfl_SD_SL_ALL, "1 2 3 .\n"), 0);
  EXPECT_EQ(r.written(), i16(1) + i16(2) + i16(3) + miss2());
}

TEST(RowElements, RowCountContinuesFromItsStart) {
  LoopRun r("n", 8);
  r.t.engine.rows = 10;
  EXPECT_EQ(r.run(loop_SD_SL_ALL, "1 2"), 0);
  EXPECT_EQ(r.rows(), 12u);
}

// ---- blocks and writes ----------------------------------------------------------------

const std::string kEightDoubles = "1 2 3 4 5 6 7 8\n";

TEST(Blocks, TwoThousandFortyEightRowsOfEightDoublesFillOneBlock) {
  LoopRun r("nnnnnnnn", 8);
  EXPECT_EQ(r.run(loop_SD_SL_ALL, repeat(kEightDoubles, 2048)), 0);
  EXPECT_EQ(r.rows(), 2048u);
  EXPECT_EQ(r.writes(), (Sizes{131072}));
}

TEST(Blocks, OneRowMoreMakesASecondWriteOfOneRow) {
  LoopRun r("nnnnnnnn", 8);
  EXPECT_EQ(r.run(loop_SD_SL_ALL, repeat(kEightDoubles, 2049)), 0);
  EXPECT_EQ(r.rows(), 2049u);
  EXPECT_EQ(r.writes(), (Sizes{131072, 64}));
  std::string row;
  for (int i = 1; i <= 8; ++i) row += d8(i);
  EXPECT_EQ(r.written(), repeat(row, 2049));
}

TEST(Blocks, RowsPerBlockIsAnIntegerDivision) {
  // 3 singles make a 12-byte row: 10922 rows, 131064 bytes, to a block.
  LoopRun r("nnn", 4);
  EXPECT_EQ(r.run(loop_SD_SL_ALL, repeat("1 2 3\n", 10923)), 0);
  EXPECT_EQ(r.writes(), (Sizes{131064, 12}));
}

TEST(Blocks, SelectedVariablesMakeTheRowWidth) {
  LoopRun r("nnnnnnnn", 8);
  r.t.select({7, 0});  // 16-byte rows: 8192 to a block
  EXPECT_EQ(r.run(loop_SD_SL_SOME, repeat(kEightDoubles, 8192)), 0);
  EXPECT_EQ(r.writes(), (Sizes{131072}));
  LoopRun s("nnnnnnnn", 8);
  s.t.select({7, 0});
  EXPECT_EQ(s.run(loop_SD_SL_SOME, repeat(kEightDoubles, 8193)), 0);
  EXPECT_EQ(s.writes(), (Sizes{131072, 16}));
  EXPECT_EQ(s.written().substr(131072), d8(8) + d8(1));
}

TEST(Blocks, ComplexDoublesTheRowWidth) {
  LoopRun r("nnnn", 8);
  r.t.plan.complex = true;  // 64-byte rows: 2048 to a block
  EXPECT_EQ(r.run(loop_SD_SL_ALL, repeat(kEightDoubles, 2049)), 0);
  EXPECT_EQ(r.writes(), (Sizes{131072, 64}));
}

TEST(Blocks, WriteFailureAtTheEndGivesTwo) {
  LoopRun r("nn", 8);
  r.t.output_to_log();
  r.t.log.fail = true;
  EXPECT_EQ(r.run(loop_SD_SL_ALL, "1 2\n3 4\n"), 2);
  // A full disk leaves the header counting the rows actually written.
  EXPECT_EQ(r.rows(), 0u);
  EXPECT_EQ(r.out(), "");
}

TEST(Blocks, WriteFailureAtAFullBlockGivesTwoAtOnce) {
  LoopRun r("nnnnnnnn", 8);
  r.t.output_to_log();
  r.t.log.fail = true;
  // More input than one read: a loop that went on would refill the buffer.
  EXPECT_EQ(r.run(loop_SD_SL_ALL, repeat(kEightDoubles, 10000)), 2);
  EXPECT_EQ(r.t.engine.rb.fills, 0u);
  EXPECT_EQ(r.t.engine.rb.theresmore, 1);
  EXPECT_EQ(r.rows(), 0u);
}

TEST(Blocks, WriteFailureAfterAWrittenBlockCountsTheWrittenRows) {
  LoopRun r("nnnnnnnn", 8);
  r.t.output_to_log();
  r.t.log.fail_from = 1;  // the first block goes out, the second write fails
  EXPECT_EQ(r.run(loop_SD_SL_ALL, repeat(kEightDoubles, 2049)), 2);
  EXPECT_EQ(r.writes(), (Sizes{131072}));
  EXPECT_EQ(r.rows(), 2048u);
}

TEST(Blocks, WriteFailureCountsFromTheStartingRow) {
  LoopRun r("n", 8);
  r.t.engine.rows = 7;  // rows already in an appended-to data set
  r.t.output_to_log();
  r.t.log.fail = true;
  EXPECT_EQ(r.run(loop_SD_SL_ALL, "1 2 3"), 2);
  EXPECT_EQ(r.rows(), 7u);
}

TEST(Blocks, WriteFailureInSelectedVariableLoops) {
  LoopRun r("nn", 2);
  r.t.select({1});
  r.t.output_to_log();
  r.t.log.fail = true;
  EXPECT_EQ(r.run(loop_HD_SL_SOME, "1,2"), 2);
}

TEST(Blocks, WriteFailureAfterAnIncompleteRow) {
  LoopRun r("nnn", 8);
  r.t.output_to_log();
  r.t.log.fail = true;
  EXPECT_EQ(r.run(loop_SD_SL_ALL, "1 2 3 4"), 2);
}

TEST(Blocks, BadDataKeepsFlushedBlocksAndDropsTheRest) {
  LoopRun r("nnnnnnnn", 8);
  EXPECT_EQ(r.run(loop_SD_SL_ALL, repeat(kEightDoubles, 2049) + "1 2 + 4 5 6 7 8\n"), 3);
  EXPECT_EQ(r.writes(), (Sizes{131072}));
  EXPECT_EQ(r.rows(), 2049u);  // the row still in the block is counted
  EXPECT_NE(r.out().find("Bad data - file /data/in.asc,  line 2050,"), std::string::npos);
}

TEST(Blocks, OutputToAFileHoldsTheRows) {
  LoopRun s("nn", 8);
  s.t.output_to_file();
  s.t.select({1, 0});
  EXPECT_EQ(s.run(loop_HD_SL_SOME, "1,2,3,4"), 0);
  EXPECT_EQ(s.written(), d8(2) + d8(1) + d8(4) + d8(3));
}

// ---- selected variables -------------------------------------------------------------

TEST(SelectedLoops, SameVariableTwice) {
  LoopRun r("nnn", 8);
  r.t.select({2, 2, 0});
  EXPECT_EQ(r.run(loop_SD_SL_SOME, "1 2 3\n4 5 6\n"), 0);
  EXPECT_EQ(r.rows(), 2u);
  EXPECT_EQ(r.written(), d8(3) + d8(3) + d8(1) + d8(6) + d8(6) + d8(4));
}

TEST(SelectedLoops, ComplexTakesBothPartsAndLeavesOutvecAsItWas) {
  LoopRun r("nnn", 4);
  r.t.plan.complex = true;
  r.t.select({2, 0});
  EXPECT_EQ(r.run(loop_SD_SL_SOME, "1 2 3 4 5 6\n7 8 9 10 11 12\n"), 0);
  EXPECT_EQ(r.written(), f4(5) + f4(6) + f4(1) + f4(2) + f4(11) + f4(12) + f4(7) + f4(8));
  EXPECT_EQ(r.t.plan.columns[0], 2);
  EXPECT_EQ(r.t.plan.columns[1], 0);
}

TEST(SelectedLoops, TwoByteConversion) {
  LoopRun r("nnn", 2);
  r.t.select({2, 1, 0});
  EXPECT_EQ(r.run(loop_SD_SL_SOME, "2.5 -2.5 ."), 0);
  EXPECT_EQ(r.written(), miss2() + i16(-2) + i16(3));
}

TEST(SelectedLoops, CharacterPassesThroughInEightBytes) {
  LoopRun r("cn", 8);
  r.t.select({0});
  EXPECT_EQ(r.run(loop_SD_SL_SOME, "ABC 1 abcdefghijk 2"), 0);
  EXPECT_EQ(r.written(), text8("ABC") + text8("abcdefgh"));
  EXPECT_EQ(r.t.engine.vrec[0], 255);
}

TEST(SelectedLoops, NewlineDelimiter) {
  LoopRun r("nn", 8, '\n');
  r.t.select({1});
  EXPECT_EQ(r.run(loop_HD_NL_SOME, "1\n2\n3\n"), 0);
  EXPECT_EQ(r.written(), d8(2) + miss8());
}

TEST(SelectedLoops, HardStream) {
  LoopRun r("nnn", 8, ';');
  r.t.select({1});
  EXPECT_EQ(r.run(loop_HD_SL_SOME, "1;;3;4;5;6"), 0);
  EXPECT_EQ(r.written(), miss8() + d8(5));
}

TEST(SelectedLoops, LinePerRowWarnsOfPartialRecords) {
  LoopRun r("nnn", 8);
  r.t.select({2, 0});
  EXPECT_EQ(r.run(loop_HD_HL_SOME, "1,2\n4,5,6\n"), 0);
  EXPECT_EQ(r.written(), miss8() + d8(1) + d8(6) + d8(4));
  EXPECT_EQ(r.err(), kPartialWarning);
}

TEST(SelectedLoops, IncompleteLastRow) {
  LoopRun r("nnn", 8);
  r.t.select({0});
  EXPECT_EQ(r.run(loop_SD_SL_SOME, "1 2 3 4 5"), 0);
  EXPECT_EQ(r.rows(), 1u);
  EXPECT_EQ(r.written(), d8(1));
  EXPECT_EQ(r.out(), incomplete_report(1, 9));
}

TEST(SelectedLoops, BadDataStops) {
  LoopRun r("nn", 8);
  r.t.select({0});
  EXPECT_EQ(r.run(loop_SD_SL_SOME, "1 2 - 4"), 3);
  EXPECT_EQ(r.rows(), 1u);
  EXPECT_TRUE(r.writes().empty());
  EXPECT_EQ(r.out(),
            "Bad data - file /data/in.asc,  line 1,  file offset 4 hex,  4 decimal:\n"
            "   Hex:    2d 20 34 \n"
            "   ASCII: \"- 4\"\n");
}

// ---- the engine's entry: a plan, a source, a sink ---------------------------------

// The rows of one engine over its own input, read back from its sink.
struct EngineRun {
  kolv_test::Capture out;
  kolv_test::Capture err;
  FILE* in;
  FILE* rows = std::tmpfile();
  kolv::LoopStatus status = kolv::kLoopNoType;
  uint32_t rows_written = 0;
  explicit EngineRun(const std::string& input) : in(kolv_test::file_with(input)) {}
  ~EngineRun() {
    std::fclose(in);
    std::fclose(rows);
  }
  void convert(const kolv::Plan& plan) {
    kolv::Engine engine(plan, kolv::Console{out.file(), err.file()});
    kolv::Source source{in, "/data/in.asc"};
    kolv::RowSink sink{rows};
    status = engine.convert(source, sink);
    rows_written = engine.rows;
  }
  std::string written() { return kolv_test::read_all(rows); }
};

TEST(EngineEntry, TwoEnginesOnOnePlanRunAtOnce) {
  // Soft layout, three numbers, the second and the first output as doubles.
  // Enough rows for many blocks and refills each, so the two overlap.
  constexpr int kRows = 40000;
  kolv::Plan plan;
  plan.kinds.assign(3, kolv::FieldKind::kNumeric);
  plan.all_columns = false;
  plan.columns = {1, 0};
  std::string first_input, second_input, first_rows, second_rows;
  for (int i = 0; i < kRows; ++i) {
    const std::string n = std::to_string(i);
    first_input.append(n).append(" ").append(std::to_string(2 * i)).append(" 7\n");
    first_rows += d8(2 * i) + d8(i);
    second_input.append("-").append(n).append(",0.5,x\n");
    second_rows += d8(0.5) + d8(-static_cast<double>(i));  // "-0" is minus zero
  }
  EngineRun a(first_input), b(second_input);
  std::thread one([&] { a.convert(plan); });
  std::thread two([&] { b.convert(plan); });
  one.join();
  two.join();
  EXPECT_EQ(a.status, kolv::kLoopDone);
  EXPECT_EQ(a.rows_written, static_cast<uint32_t>(kRows));
  EXPECT_TRUE(a.written() == first_rows) << "the first engine's rows differ";
  EXPECT_EQ(a.out.text(), "");
  // "x" in a numeric field is character data, not an error: the row stands.
  EXPECT_EQ(b.status, kolv::kLoopDone);
  EXPECT_EQ(b.rows_written, static_cast<uint32_t>(kRows));
  EXPECT_TRUE(b.written() == second_rows) << "the second engine's rows differ";
  EXPECT_EQ(b.out.text(), "");
}

TEST(EngineEntry, PlanLayoutChoosesTheRowRules) {
  // The same bytes read by the soft layout and by the line-per-row layout.
  const std::string input = "1,2\n3\n";
  kolv::Plan plan;
  plan.kinds.assign(2, kolv::FieldKind::kNumeric);
  EngineRun soft(input);
  soft.convert(plan);
  EXPECT_EQ(soft.status, kolv::kLoopDone);
  // Soft: "3" then the end is an incomplete row, reported and not written.
  EXPECT_EQ(soft.written(), d8(1) + d8(2));
  EXPECT_EQ(soft.out.text(),
            "End of file /data/in.asc\nLast row incomplete - line 3,  file offset 6 hex,  6 "
            "decimal\n");
  plan.layout = kolv::RowLayout::kLinePerRow;
  EngineRun lines(input);
  lines.convert(plan);
  EXPECT_EQ(lines.status, kolv::kLoopDone);
  EXPECT_EQ(lines.written(), d8(1) + d8(2) + d8(3) + miss8());
  EXPECT_EQ(lines.err.text(), kPartialWarning);
}

// ---- the write log itself -----------------------------------------------------------

TEST(WriteLogStream, EachFwriteArrivesAsOneWrite) {
  kolv_test::WriteLog log;
  FILE* f = kolv_test::open_write_log(log);
  ASSERT_NE(f, nullptr);
  std::string big(131072, 'x');
  ASSERT_EQ(std::fwrite(big.data(), big.size(), 1, f), 1u);
  ASSERT_EQ(std::fwrite("abc", 3, 1, f), 1u);
  EXPECT_EQ(log.sizes, (Sizes{131072, 3}));
  log.fail = true;
  EXPECT_EQ(std::fwrite("abc", 3, 1, f), 0u);
  std::fclose(f);
}

}  // namespace
