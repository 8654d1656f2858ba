// Bad-data reports: the four kinds, the offset within the buffer, and the
// dump of the bytes found at the fault.
#include "engine/sourcerr.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "test_run.hpp"

namespace {

using namespace std::string_literals;
using kolv::FatalError;
using kolv_test::TestRun;

// Puts bytes (and a terminating zero) at the start of the buffer.
void hold(TestRun& t, const std::string& bytes) {
  std::memcpy(t.buffer(), bytes.data(), bytes.size());
  t.buffer()[bytes.size()] = '\0';
}

TEST(Sourcerr, BadData) {
  TestRun t;
  hold(t, "abc,def");
  EXPECT_EQ(kolv::sourcerr(t.engine, 3, t.buffer() + 4, 7), 3);
  EXPECT_EQ(t.out_text(),
            "Bad data - file /data/in.asc,  line 7,  file offset 4 hex,  4 decimal:\n"
            "   Hex:    64 65 66 \n"
            "   ASCII: \"def\"\n");
  EXPECT_EQ(t.err_text(), "");
}

TEST(Sourcerr, MissingDelimiter) {
  TestRun t;
  hold(t, "1 2\n");
  EXPECT_EQ(kolv::sourcerr(t.engine, 1, t.buffer() + 2, 1), 1);
  EXPECT_EQ(t.out_text(),
            "Missing delimiter - file /data/in.asc,  line 1,  file offset 2 hex,  2 decimal:\n"
            "   Hex:    32 0a \n"
            "   ASCII: \"2\x04\"\n");
}

TEST(Sourcerr, UnexpectedDelimiter) {
  TestRun t;
  hold(t, "1,2,3,");
  EXPECT_EQ(kolv::sourcerr(t.engine, 4, t.buffer() + 5, 12), 4);
  EXPECT_EQ(t.out_text(),
            "Unexpected delimiter - file /data/in.asc,  line 12,  file offset 5 hex,  5 decimal:\n"
            "   Hex:    2c \n"
            "   ASCII: \",\"\n");
}

TEST(Sourcerr, LastRowIncompleteHasNoDump) {
  TestRun t;
  hold(t, "1 2 3");
  EXPECT_EQ(kolv::sourcerr(t.engine, 2, t.buffer() + 5, 3), 2);
  EXPECT_EQ(t.out_text(),
            "End of file /data/in.asc\n"
            "Last row incomplete - line 3,  file offset 5 hex,  5 decimal\n");
}

TEST(Sourcerr, AtMostSixteenBytesAreDumped) {
  TestRun t;
  hold(t, "0123456789abcdefghij");
  kolv::sourcerr(t.engine, 3, t.buffer(), 1);
  EXPECT_EQ(t.out_text(),
            "Bad data - file /data/in.asc,  line 1,  file offset 0 hex,  0 decimal:\n"
            "   Hex:    30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 \n"
            "   ASCII: \"0123456789abcdef\"\n");
}

TEST(Sourcerr, FaultAtTheLastByteDumpsOneByte) {
  TestRun t;
  hold(t, "12x");
  kolv::sourcerr(t.engine, 3, t.buffer() + 2, 1);
  EXPECT_EQ(t.out_text(),
            "Bad data - file /data/in.asc,  line 1,  file offset 2 hex,  2 decimal:\n"
            "   Hex:    78 \n"
            "   ASCII: \"x\"\n");
}

TEST(Sourcerr, FaultAtTheZeroByteDumpsNothing) {
  TestRun t;
  hold(t, "12");
  kolv::sourcerr(t.engine, 1, t.buffer() + 2, 4);
  EXPECT_EQ(t.out_text(),
            "Missing delimiter - file /data/in.asc,  line 4,  file offset 2 hex,  2 decimal:\n"
            "   Hex:    \n"
            "   ASCII: \"\"\n");
}

TEST(Sourcerr, ControlBytesShowAsHexAndAsByteFour) {
  TestRun t;
  hold(t, "a\tb\nc\r");
  kolv::sourcerr(t.engine, 3, t.buffer(), 1);
  EXPECT_EQ(t.out_text(),
            "Bad data - file /data/in.asc,  line 1,  file offset 0 hex,  0 decimal:\n"
            "   Hex:    61 09 62 0a 63 0d \n"
            "   ASCII: \"a\x04"
            "b\x04"
            "c\x04\"\n");
}

TEST(Sourcerr, HighBytesAreWidenedAsSignedChars) {
  TestRun t;
  hold(t,
       "\x80\xFF\x7F"
       "A");
  kolv::sourcerr(t.engine, 3, t.buffer(), 1);
  EXPECT_EQ(t.out_text(),
            "Bad data - file /data/in.asc,  line 1,  file offset 0 hex,  0 decimal:\n"
            "   Hex:    ffffff80 ffffffff 7f 41 \n"
            "   ASCII: \"\x04\x04\x04"
            "A\"\n");
}

TEST(Sourcerr, LargeOffsetsAndLinesPrintWhole) {
  TestRun t;
  std::memset(t.buffer(), ' ', 131072);
  t.buffer()[131071] = 'q';
  t.buffer()[131072] = '\0';
  kolv::sourcerr(t.engine, 3, t.buffer() + 131071, 2000000);
  EXPECT_EQ(t.out_text(),
            "Bad data - file /data/in.asc,  line 2000000,  file offset 131071 hex,  131071 "
            "decimal:\n"
            "   Hex:    71 \n"
            "   ASCII: \"q\"\n");
}

TEST(Sourcerr, FileNameIsTheInputPath) {
  TestRun t;
  t.engine.input_name = "/home/u/my data.asc";
  hold(t, "z");
  kolv::sourcerr(t.engine, 2, t.buffer(), 1);
  EXPECT_EQ(t.out_text(),
            "End of file /home/u/my data.asc\n"
            "Last row incomplete - line 1,  file offset 0 hex,  0 decimal\n");
}

class SourcerrInvalidKind : public ::testing::TestWithParam<int> {};

TEST_P(SourcerrInvalidKind, EndsTheRunBeforePrintingAnything) {
  TestRun t;
  hold(t, "abc");
  try {
    kolv::sourcerr(t.engine, GetParam(), t.buffer(), 1);
    FAIL() << "kind " << GetParam() << " must end the run";
  } catch (const FatalError& e) {
    EXPECT_EQ(e.message, "KOLV - Internal error 303\n");
  }
  EXPECT_EQ(t.out_text(), "");
}

INSTANTIATE_TEST_SUITE_P(Kinds, SourcerrInvalidKind, ::testing::Values(0, 5, -1, 100));

}  // namespace
