// The read buffer (first fill and fillbuff) and the field scanners scandbl and
// scanstr: the syntax of a field, missing values, words in numeric fields,
// the character flags, and every refill point.
#include "engine/scanners.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "engine/readbuf.hpp"
#include "test_run.hpp"

namespace {

using namespace std::string_literals;
using kolv_test::d8;
using kolv_test::miss8;
using kolv_test::TestRun;
using kolv_test::text8;

struct Scanned {
  long next;  // offset of the returned position within the buffer
  std::string slot;
  uint32_t status;
};

Scanned scan_dbl(TestRun& t, long offset, int field = 0) {
  char slot[8];
  std::memset(slot, 0x55, sizeof slot);
  uint32_t status = 99;
  char* next = kolv::scandbl(t.engine, t.buffer() + offset, slot, field, status);
  return {static_cast<long>(next - t.buffer()), std::string(slot, 8), status};
}

Scanned scan_str(TestRun& t, long offset, int field = 0) {
  char slot[8];
  std::memset(slot, 0x55, sizeof slot);
  uint32_t status = 99;
  char* next = kolv::scanstr(t.engine, t.buffer() + offset, slot, field, status);
  return {static_cast<long>(next - t.buffer()), std::string(slot, 8), status};
}

std::string buffered(TestRun& t) {
  return std::string(t.buffer());
}

// ---- the read buffer -------------------------------------------------------------

TEST(ReadBuffer, ShortFirstReadEndsTheInput) {
  TestRun t;
  t.feed("abc", 8);
  EXPECT_EQ(buffered(t), "abc");
  EXPECT_EQ(t.engine.rb.readbytes, 3);
  EXPECT_EQ(t.engine.rb.theresmore, 0);
}

TEST(ReadBuffer, FullFirstReadLeavesMoreToCome) {
  TestRun t;
  t.feed("abcdefgh", 8);
  EXPECT_EQ(buffered(t), "abcdefgh");
  EXPECT_EQ(t.engine.rb.readbytes, 8);
  EXPECT_EQ(t.engine.rb.theresmore, 1);
  // The next read finds nothing and ends the input.
  char* start = kolv::fillbuff(t.engine.rb, t.buffer() + 8);
  EXPECT_EQ(start, t.buffer());
  EXPECT_EQ(buffered(t), "");
  EXPECT_EQ(t.engine.rb.readbytes, 0);
  EXPECT_EQ(t.engine.rb.theresmore, 0);
}

TEST(ReadBuffer, EmptyInputIsAZeroByte) {
  TestRun t;
  t.feed("", 8);
  EXPECT_EQ(t.buffer()[0], '\0');
  EXPECT_EQ(t.engine.rb.theresmore, 0);
}

TEST(ReadBuffer, RefillMovesTheTailAndReadsTheRest) {
  TestRun t;
  t.feed("abcdefghijklmnopqr", 8);
  char* start = kolv::fillbuff(t.engine.rb, t.buffer() + 5);
  EXPECT_EQ(start, t.buffer());
  EXPECT_EQ(buffered(t), "fghijklm");  // 3 bytes kept, 5 read
  EXPECT_EQ(t.engine.rb.readbytes, 5);
  EXPECT_EQ(t.engine.rb.theresmore, 1);
  kolv::fillbuff(t.engine.rb, t.buffer() + 8);
  EXPECT_EQ(buffered(t), "nopqr");
  EXPECT_EQ(t.engine.rb.readbytes, 5);
  EXPECT_EQ(t.engine.rb.theresmore, 0);
}

TEST(ReadBuffer, RefillAfterTheEndOnlyMovesTheTail) {
  TestRun t;
  t.feed("abcdef", 8);
  ASSERT_EQ(t.engine.rb.theresmore, 0);
  kolv::fillbuff(t.engine.rb, t.buffer() + 3);
  EXPECT_EQ(buffered(t), "def");
  EXPECT_EQ(t.engine.rb.readbytes, 6);  // no read was made
}

TEST(ReadBuffer, ZeroByteInsideTheInputEndsTheBufferedText) {
  TestRun t;
  t.feed("ab\0xyzwvu"s + "123", 8);
  EXPECT_EQ(buffered(t), "ab");
  // The tail is measured up to the zero byte: "xyzwv" is lost.
  kolv::fillbuff(t.engine.rb, t.buffer() + 1);
  EXPECT_EQ(buffered(t), "bu123");
}

// ---- scandbl: numbers ------------------------------------------------------------

TEST(Scandbl, PlainNumbers) {
  TestRun t;
  t.feed("12.5 -2E-2,+4\t1.5e3\n0x10 -inf ");
  Scanned s = scan_dbl(t, 0);
  EXPECT_EQ(s.status, 1u);
  EXPECT_EQ(s.slot, d8(12.5));
  EXPECT_EQ(s.next, 4);
  s = scan_dbl(t, 5);
  EXPECT_EQ(s.slot, d8(-0.02));
  EXPECT_EQ(s.next, 10);
  s = scan_dbl(t, 11);
  EXPECT_EQ(s.slot, d8(4.0));
  EXPECT_EQ(s.next, 13);
  s = scan_dbl(t, 14);
  EXPECT_EQ(s.slot, d8(1500.0));
  EXPECT_EQ(s.next, 19);
  s = scan_dbl(t, 20);
  EXPECT_EQ(s.slot, d8(16.0));
  EXPECT_EQ(s.next, 24);
  s = scan_dbl(t, 25);
  EXPECT_EQ(s.slot, d8(-std::numeric_limits<double>::infinity()));
  EXPECT_EQ(s.next, 29);
}

TEST(Scandbl, LeadingBlanksAreSkippedAndTheStartRecorded) {
  TestRun t;
  t.feed("x   7,");
  Scanned s = scan_dbl(t, 1);
  EXPECT_EQ(s.slot, d8(7.0));
  EXPECT_EQ(s.next, 5);
  EXPECT_EQ(t.engine.rb.cperr, t.buffer() + 1);
}

TEST(Scandbl, WhatFollowsTheNumberIsNotLookedAt) {
  TestRun t;
  t.feed("12abc");
  Scanned s = scan_dbl(t, 0);
  EXPECT_EQ(s.status, 1u);
  EXPECT_EQ(s.slot, d8(12.0));
  EXPECT_EQ(s.next, 2);
}

TEST(Scandbl, LoneSignIsBadData) {
  TestRun t;
  t.feed("+ -,");
  Scanned s = scan_dbl(t, 0);
  EXPECT_EQ(s.status, 0u);
  EXPECT_EQ(s.next, 0);
  s = scan_dbl(t, 2);
  EXPECT_EQ(s.status, 0u);
  EXPECT_EQ(s.next, 2);
}

TEST(Scandbl, PointBeforeOtherByteIsBadData) {
  TestRun t;
  t.feed(".x 3");
  Scanned s = scan_dbl(t, 0);
  EXPECT_EQ(s.status, 0u);
  EXPECT_EQ(s.next, 0);
}

// ---- scandbl: missing values ---------------------------------------------------------

TEST(Scandbl, PointBeforeATerminatorIsMissing) {
  TestRun t;
  t.feed(". .,.\t.\r.\n.");
  for (long at : {0L, 2L, 4L, 6L, 8L, 10L}) {
    Scanned s = scan_dbl(t, at);
    EXPECT_EQ(s.status, 1u) << "at " << at;
    EXPECT_EQ(s.slot, miss8()) << "at " << at;
    EXPECT_EQ(s.next, at + 1) << "at " << at;
  }
}

TEST(Scandbl, PointBeforeIOrBraceLeavesTheLetter) {
  TestRun t;
  t.feed(".I .}");
  Scanned s = scan_dbl(t, 0);
  EXPECT_EQ(s.status, 1u);
  EXPECT_EQ(s.slot, miss8());
  EXPECT_EQ(s.next, 1);
  s = scan_dbl(t, 3);
  EXPECT_EQ(s.slot, miss8());
  EXPECT_EQ(s.next, 4);
}

TEST(Scandbl, PointBeforeADigitIsANumber) {
  TestRun t;
  t.feed(".5 ");
  Scanned s = scan_dbl(t, 0);
  EXPECT_EQ(s.slot, d8(0.5));
  EXPECT_EQ(s.next, 2);
}

TEST(Scandbl, MissingValueSymbolAndPointBothCount) {
  TestRun t;
  t.plan.missing_symbol = '*';
  t.feed("* . *I *5");
  EXPECT_EQ(scan_dbl(t, 0).slot, miss8());
  EXPECT_EQ(scan_dbl(t, 2).slot, miss8());
  Scanned s = scan_dbl(t, 4);
  EXPECT_EQ(s.slot, miss8());
  EXPECT_EQ(s.next, 5);
  s = scan_dbl(t, 7);  // "*5" is converted from the "*": nothing converts
  EXPECT_EQ(s.status, 0u);
  EXPECT_EQ(s.next, 7);
}

TEST(Scandbl, MinusAsSymbolStillAllowsNegativeNumbers) {
  TestRun t;
  t.plan.missing_symbol = '-';
  t.feed("- -5 ");
  EXPECT_EQ(scan_dbl(t, 0).slot, miss8());
  Scanned s = scan_dbl(t, 2);
  EXPECT_EQ(s.slot, d8(-5.0));
  EXPECT_EQ(s.next, 4);
}

TEST(Scandbl, MissingValueRecordsItsPosition) {
  TestRun t;
  t.feed("  . ");
  scan_dbl(t, 0);
  EXPECT_EQ(t.engine.rb.cperr, t.buffer() + 2);
}

// ---- scandbl: words in numeric fields -----------------------------------------------

TEST(Scandbl, ShortWordIsStoredAsText) {
  TestRun t;
  t.feed("abc 1");
  Scanned s = scan_dbl(t, 0, 2);
  EXPECT_EQ(s.status, 1u);
  EXPECT_EQ(s.slot, text8("abc"));
  EXPECT_EQ(s.next, 3);
  EXPECT_EQ(t.engine.vrec[2], 1);
  EXPECT_EQ(t.engine.vrec[0], 0);
}

TEST(Scandbl, LongWordIsCutToEightBytes) {
  TestRun t;
  t.feed("abcdefghij,");
  Scanned s = scan_dbl(t, 0, 1);
  EXPECT_EQ(s.slot, text8("abcdefgh"));
  EXPECT_EQ(s.next, 10);
  EXPECT_EQ(t.engine.vrec[1], 255);
}

TEST(Scandbl, UnderscoreStartsText) {
  TestRun t;
  t.feed("_x9 ");
  Scanned s = scan_dbl(t, 0);
  EXPECT_EQ(s.slot, text8("_x9"));
  EXPECT_EQ(t.engine.vrec[0], 1);
}

TEST(Scandbl, UnsignedInfinityAndNanAreWords) {
  TestRun t;
  t.feed("inf nan");
  EXPECT_EQ(scan_dbl(t, 0).slot, text8("inf"));
  EXPECT_EQ(scan_dbl(t, 4).slot, text8("nan"));
}

// ---- scanstr ---------------------------------------------------------------------

TEST(Scanstr, TextUpToATerminator) {
  TestRun t;
  t.feed("ab|cd\"e f");
  Scanned s = scan_str(t, 0);
  EXPECT_EQ(s.status, 1u);
  EXPECT_EQ(s.slot, text8("ab|cd\"e"));
  EXPECT_EQ(s.next, 7);
  EXPECT_EQ(t.engine.vrec[0], 1);
}

TEST(Scanstr, DigitsAreText) {
  TestRun t;
  t.feed("12\t");
  EXPECT_EQ(scan_str(t, 0).slot, text8("12"));
}

TEST(Scanstr, HighBytesAreCopied) {
  TestRun t;
  t.feed("\xE9t\xE9\xFF,");
  Scanned s = scan_str(t, 0);
  EXPECT_EQ(s.slot, text8("\xE9t\xE9\xFF"));
  EXPECT_EQ(s.next, 4);
}

TEST(Scanstr, PointAloneIsMissing) {
  TestRun t;
  t.feed(". .");
  Scanned s = scan_str(t, 0);
  EXPECT_EQ(s.slot, miss8());
  EXPECT_EQ(s.status, 1u);
  EXPECT_EQ(s.next, 1);
  s = scan_str(t, 2);
  EXPECT_EQ(s.slot, miss8());
  EXPECT_EQ(s.next, 3);
}

TEST(Scanstr, PointBeforeOtherBytesIsText) {
  TestRun t;
  t.plan.missing_symbol = '*';
  t.feed(".I .abc *x * ");
  EXPECT_EQ(scan_str(t, 0).slot, text8(".I"));
  EXPECT_EQ(scan_str(t, 3).slot, text8(".abc"));
  EXPECT_EQ(scan_str(t, 8).slot, text8("*x"));
  EXPECT_EQ(scan_str(t, 11).slot, miss8());
}

TEST(Scanstr, FlagIsKeptPerVariableUnderComplex) {
  TestRun t;
  t.plan.complex = true;
  t.feed("ab cdefghijkl");
  scan_str(t, 0, 3);  // field 3 is the imaginary part of variable 1
  EXPECT_EQ(t.engine.vrec[1], 1);
  EXPECT_EQ(t.engine.vrec[3], 0);
  scan_str(t, 3, 2);  // the real part of variable 1, cut to 8 bytes
  EXPECT_EQ(t.engine.vrec[1], 255);
  EXPECT_EQ(t.engine.vrec[2], 0);
}

TEST(Scanstr, TruncationFlagIsKeptOnceSet) {
  TestRun t;
  t.feed("abcdefghijk ab");
  scan_str(t, 0, 0);
  EXPECT_EQ(t.engine.vrec[0], 255);
  scan_str(t, 12, 0);
  EXPECT_EQ(t.engine.vrec[0], 255);
}

// ---- refills ---------------------------------------------------------------------

TEST(Refill, NumberSplitAcrossTwoReads) {
  TestRun t;
  t.feed(
      "   123"
      "45 6",
      6);
  ASSERT_EQ(buffered(t), "   123");
  Scanned s = scan_dbl(t, 0);
  EXPECT_EQ(s.status, 1u);
  EXPECT_EQ(s.slot, d8(12345.0));
  EXPECT_EQ(s.next, 5);  // the field now stands at the buffer's start
  EXPECT_EQ(buffered(t), "12345 ");
}

TEST(Refill, ZeroByteInTheInputJoinsTheNumberToTheNextRead) {
  TestRun t;
  t.feed("1 2\0xyzw"s + "5 6", 8);
  Scanned s = scan_dbl(t, 2);
  EXPECT_EQ(s.slot, d8(25.0));
  EXPECT_EQ(s.next, 2);
  EXPECT_EQ(buffered(t), "25 6");
}

TEST(Refill, BlanksRunningIntoTheBufferEnd) {
  TestRun t;
  t.feed(
      "12345   "
      "9 ",
      8);
  Scanned s = scan_dbl(t, 5);
  EXPECT_EQ(s.slot, d8(9.0));
  EXPECT_EQ(s.next, 4);
  EXPECT_EQ(buffered(t), "   9 ");
  EXPECT_EQ(t.engine.rb.cperr, t.buffer());
}

TEST(Refill, SignAtTheBufferEndWaitsForItsDigits) {
  TestRun t;
  t.feed(
      "1 -"
      "5 ",
      3);
  Scanned s = scan_dbl(t, 2);
  EXPECT_EQ(s.status, 1u);
  EXPECT_EQ(s.slot, d8(-5.0));
  EXPECT_EQ(s.next, 2);
}

TEST(Refill, DecimalPointAtTheBufferEndWaitsForItsDigits) {
  TestRun t;
  t.feed(
      "777 1."
      "25 ",
      6);
  Scanned s = scan_dbl(t, 4);
  EXPECT_EQ(s.slot, d8(1.25));
  EXPECT_EQ(s.next, 4);
}

TEST(Refill, PointAtBufferEndWithMoreInputRefills) {
  TestRun t;
  t.feed(
      "12 ."
      "5 ",
      4);
  Scanned s = scan_dbl(t, 3);
  EXPECT_EQ(s.slot, d8(0.5));
  EXPECT_EQ(s.next, 2);
  EXPECT_EQ(buffered(t), ".5 ");
}

TEST(Refill, PointAtBufferEndBeforeMoreTextOfAWord) {
  TestRun t;
  t.feed(
      "12 ."
      "ab ",
      4);
  Scanned s = scan_str(t, 3);
  EXPECT_EQ(s.slot, text8(".ab"));
  EXPECT_EQ(s.next, 3);
}

TEST(Refill, PointAsLastByteOfTheInputDoesNotRefill) {
  TestRun t;
  t.feed("12 .", 8);
  ASSERT_EQ(t.engine.rb.theresmore, 0);
  uint64_t fills = t.engine.rb.fills;
  Scanned s = scan_dbl(t, 3);
  EXPECT_EQ(s.slot, miss8());
  EXPECT_EQ(s.next, 4);
  EXPECT_EQ(t.engine.rb.fills, fills);
  EXPECT_EQ(buffered(t), "12 .");  // nothing moved
  s = scan_str(t, 3);
  EXPECT_EQ(s.slot, miss8());
  EXPECT_EQ(s.next, 4);
  EXPECT_EQ(buffered(t), "12 .");
}

TEST(Refill, PointAsLastByteOfAFullReadIsMissing) {
  TestRun t;
  t.feed("12 .", 4);  // a full read: the end is not known yet
  Scanned s = scan_dbl(t, 3);
  EXPECT_EQ(s.slot, miss8());
  EXPECT_EQ(s.next, 1);
  EXPECT_EQ(t.engine.rb.theresmore, 0);
}

TEST(Refill, WordSplitAcrossReads) {
  TestRun t;
  t.feed(
      "abcd"
      "efgh"
      "ijk lm",
      4);
  Scanned s = scan_str(t, 0, 0);
  EXPECT_EQ(s.slot, text8("abcdefgh"));
  EXPECT_EQ(t.engine.vrec[0], 255);
  EXPECT_EQ(s.next, 3);
  EXPECT_EQ(buffered(t), "ijk ");
}

TEST(Refill, NothingConvertedCausesOneRefillBeforeGivingUp) {
  TestRun t;
  t.feed(
      "1 + "
      "2 3 4",
      4);
  Scanned s = scan_dbl(t, 2);
  EXPECT_EQ(s.status, 0u);
  EXPECT_EQ(s.next, 0);  // the field was moved to the buffer's start
  EXPECT_EQ(buffered(t), "+ 2 ");
}

TEST(Refill, EarlyRefillNearTheBufferEnd) {
  TestRun t;
  const long at = 131072 - 79;  // fewer than 80 bytes to the end
  std::string input(static_cast<size_t>(at), 'x');
  input += "42 ";
  input += std::string(200, ' ');
  t.feed(input);
  ASSERT_EQ(t.engine.rb.theresmore, 1);
  Scanned s = scan_dbl(t, at);
  EXPECT_EQ(s.slot, d8(42.0));
  EXPECT_EQ(s.next, 2);
  EXPECT_EQ(t.engine.rb.cperr, t.buffer());
}

TEST(Refill, NoEarlyRefillAtEightyBytes) {
  TestRun t;
  const long at = 131072 - 80;
  std::string input(static_cast<size_t>(at), 'x');
  input += "42 ";
  input += std::string(200, ' ');
  t.feed(input);
  Scanned s = scan_dbl(t, at);
  EXPECT_EQ(s.slot, d8(42.0));
  EXPECT_EQ(s.next, at + 2);
  EXPECT_EQ(t.engine.rb.fills, 0u);
}

TEST(Refill, NoEarlyRefillAtTheEndOfTheInput) {
  TestRun t;
  const long at = 131072 - 79;
  std::string input(static_cast<size_t>(at), 'x');
  input += "42";
  t.feed(input);  // shorter than one read
  ASSERT_EQ(t.engine.rb.theresmore, 0);
  Scanned s = scan_dbl(t, at);
  EXPECT_EQ(s.slot, d8(42.0));
  EXPECT_EQ(s.next, at + 2);
}

}  // namespace
