// Output elements: a scanned 8-byte slot as a 2-byte integer, a 4-byte single
// or an 8-byte double; rounding, wrap-around, infinities and missing values.
#include "engine/elements.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "test_run.hpp"

namespace {

using kolv_test::bits8;
using kolv_test::d8;

constexpr double kInf = std::numeric_limits<double>::infinity();

template <int W>
std::string element(const std::string& slot) {
  char out[static_cast<size_t>(W) + 1];
  std::memset(out, 0x55, sizeof out);
  kolv::put_element<W>(out, slot.data());
  EXPECT_EQ(out[W], 0x55) << "an element must not spill over its width";
  return std::string(out, W);
}

std::string e2(double x) {
  return element<2>(d8(x));
}
std::string e4(double x) {
  return element<4>(d8(x));
}

std::string le16(uint16_t v) {
  return std::string{static_cast<char>(v & 0xFF), static_cast<char>(v >> 8)};
}
std::string le32(uint32_t v) {
  std::string s;
  for (int i = 0; i < 4; ++i) s.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
  return s;
}

const std::string kMissval = std::string("\0\0\0\0\xFF\xFF\xFF\x7F", 8);

// ---- 2-byte elements -----------------------------------------------------------

TEST(Element2, HalvesRoundUpward) {
  EXPECT_EQ(e2(2.5), le16(3));
  EXPECT_EQ(e2(-2.5), le16(static_cast<uint16_t>(-2)));
  EXPECT_EQ(e2(1.4999), le16(1));
  EXPECT_EQ(e2(-1.5), le16(static_cast<uint16_t>(-1)));
  EXPECT_EQ(e2(-0.5), le16(0));
  EXPECT_EQ(e2(0.5), le16(1));
  EXPECT_EQ(e2(-0.0), le16(0));
  EXPECT_EQ(e2(7.0), le16(7));
  EXPECT_EQ(e2(-7.6), le16(static_cast<uint16_t>(-8)));
}

TEST(Element2, RoundingAddsHalfInDoublePrecision) {
  // The largest double below 0.5, plus 0.5, rounds to 1.0 before the floor.
  EXPECT_EQ(e2(0.49999999999999994), le16(1));
}

TEST(Element2, LittleEndianBytes) {
  EXPECT_EQ(e2(258.0), std::string("\x02\x01", 2));
  EXPECT_EQ(e2(-2.0), std::string("\xFE\xFF", 2));
}

TEST(Element2, NoRangeCheckLowSixteenBitsAreKept) {
  EXPECT_EQ(e2(32767.0), le16(0x7FFF));
  EXPECT_EQ(e2(32767.5), le16(0x8000));  // reads back as missing
  EXPECT_EQ(e2(32768.0), le16(0x8000));
  EXPECT_EQ(e2(-32768.0), le16(0x8000));
  EXPECT_EQ(e2(40000.0), le16(static_cast<uint16_t>(-25536)));
  EXPECT_EQ(e2(65536.0), le16(0));
  EXPECT_EQ(e2(65537.0), le16(1));
  EXPECT_EQ(e2(2147483647.4), le16(0xFFFF));
}

TEST(Element2, BeyondThirtyTwoBitsIsZero) {
  EXPECT_EQ(e2(1e10), le16(0));
  EXPECT_EQ(e2(-1e10), le16(0));
  EXPECT_EQ(e2(2147483647.5), le16(0));   // rounds to 2^31: out of range
  EXPECT_EQ(e2(-2147483648.0), le16(0));  // in range: 0x80000000, low half 0
  EXPECT_EQ(e2(kInf), le16(0));
  EXPECT_EQ(e2(-kInf), le16(0));
}

TEST(Element2, MissingValue) {
  EXPECT_EQ(element<2>(kMissval), std::string("\x00\x80", 2));
}

TEST(Element2, CharacterDataIsReadAsADouble) {
  // "ABC" padded with zero bytes is a tiny positive number: it rounds to 0.
  EXPECT_EQ(element<2>(kolv_test::text8("ABC")), le16(0));
}

// ---- 4-byte elements -----------------------------------------------------------

TEST(Element4, NearestSingle) {
  EXPECT_EQ(e4(1.5), le32(0x3FC00000));
  EXPECT_EQ(e4(-2.0), le32(0xC0000000));
  EXPECT_EQ(e4(0.1), kolv_test::f4(0.1f));
  EXPECT_EQ(e4(1e10), kolv_test::f4(1e10f));
}

TEST(Element4, TiesGoToEven) {
  // 1 + 2^-24 lies halfway between 1 and the next single: even is 1.
  EXPECT_EQ(e4(1.0 + std::ldexp(1.0, -24)), le32(0x3F800000));
  // 1 + 3 * 2^-24 lies halfway between 1 + 2^-23 and 1 + 2^-22: even is the latter.
  EXPECT_EQ(e4(1.0 + 3 * std::ldexp(1.0, -24)), le32(0x3F800002));
}

TEST(Element4, BeyondTheSingleRangeIsInfinity) {
  EXPECT_EQ(e4(1e300), le32(0x7F800000));
  EXPECT_EQ(e4(-1e300), le32(0xFF800000));
  EXPECT_EQ(e4(kInf), le32(0x7F800000));
  EXPECT_EQ(e4(-kInf), le32(0xFF800000));
}

TEST(Element4, MissingValue) {
  EXPECT_EQ(element<4>(kMissval), std::string("\xF8\xFF\xFF\x7F", 4));
}

TEST(Element4, CharacterDataIsReadAsADouble) {
  EXPECT_EQ(element<4>(kolv_test::text8("ABC")), le32(0));
}

// ---- 8-byte elements -----------------------------------------------------------

TEST(Element8, SlotIsCopiedUnchanged) {
  EXPECT_EQ(element<8>(d8(-1234.5678)), d8(-1234.5678));
  EXPECT_EQ(element<8>(kMissval), kMissval);
  EXPECT_EQ(element<8>(kolv_test::text8("ABC")), std::string("ABC\0\0\0\0\0", 8));
  EXPECT_EQ(element<8>(bits8(0x7FF0000000000001ULL)), bits8(0x7FF0000000000001ULL));
}

// ---- the missing test ----------------------------------------------------------

TEST(MissingTest, ExponentAllOnesAndTopNibbleNotZero) {
  EXPECT_TRUE(kolv::slot_is_missing(0x7FFFFFFF00000000ULL));
  EXPECT_TRUE(kolv::slot_is_missing(0x7FF1000000000000ULL));
  EXPECT_TRUE(kolv::slot_is_missing(0x7FF8000000000000ULL));  // the usual quiet NaN
  EXPECT_TRUE(kolv::slot_is_missing(0xFFF8000000000000ULL));  // sign bit cleared first
  EXPECT_TRUE(kolv::slot_is_missing(0xFFFFFFFFFFFFFFFFULL));
}

TEST(MissingTest, InfinitiesAndLowNaNsAreValues) {
  EXPECT_FALSE(kolv::slot_is_missing(0x7FF0000000000000ULL));
  EXPECT_FALSE(kolv::slot_is_missing(0xFFF0000000000000ULL));
  EXPECT_FALSE(kolv::slot_is_missing(0x7FF0FFFFFFFFFFFFULL));
  EXPECT_FALSE(kolv::slot_is_missing(0x7FEFFFFFFFFFFFFFULL));
  EXPECT_FALSE(kolv::slot_is_missing(0));
}

TEST(MissingTest, LowNaNIsConvertedNotMissing) {
  const std::string low_nan = bits8(0x7FF0000000000001ULL);
  // Not missing: floor(NaN + 0.5) is out of the 32-bit range, so 0.
  EXPECT_EQ(element<2>(low_nan), le16(0));
  // Not missing: converted to a single NaN, not the missing pattern.
  std::string e = element<4>(low_nan);
  EXPECT_NE(e, le32(0x7FFFFFF8));
  float f;
  std::memcpy(&f, e.data(), 4);
  EXPECT_TRUE(std::isnan(f));
}

TEST(MissingTest, AnyMissingPatternGivesTheMissingCode) {
  const std::string quiet_nan = bits8(0x7FF8000000000000ULL);
  EXPECT_EQ(element<2>(quiet_nan), le16(0x8000));
  EXPECT_EQ(element<4>(quiet_nan), le32(0x7FFFFFF8));
}

}  // namespace
