// parse_double on the edge forms of a numeric field. Each case states the value
// and the number of bytes a C-locale strtod gives for the text, and checks that
// parse_double and strtod itself both give exactly that.
#include "base/numparse.hpp"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

namespace {

// Holds a text so that its terminating zero byte is the last readable byte:
// the next page is inaccessible, so any read past the end faults.
class GuardedText {
 public:
  explicit GuardedText(const std::string& text) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    data_pages_ = (text.size() + 1 + page - 1) / page * page;
    size_ = data_pages_ + page;
    void* m = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) std::abort();
    base_ = static_cast<char*>(m);
    if (mprotect(base_ + data_pages_, page, PROT_NONE) != 0) std::abort();
    ptr_ = base_ + data_pages_ - (text.size() + 1);
    std::memcpy(ptr_, text.c_str(), text.size() + 1);
  }
  ~GuardedText() { munmap(base_, size_); }
  GuardedText(const GuardedText&) = delete;
  GuardedText& operator=(const GuardedText&) = delete;
  const char* c_str() const { return ptr_; }

 private:
  char* base_ = nullptr;
  char* ptr_ = nullptr;
  size_t data_pages_ = 0;
  size_t size_ = 0;
};

struct Parsed {
  uint64_t bits;
  long consumed;
};

Parsed with_parse_double(const std::string& text) {
  GuardedText g(text);
  double v = 12345.0;  // must be overwritten in every case
  const char* end = kolv::parse_double(g.c_str(), &v);
  return {std::bit_cast<uint64_t>(v), static_cast<long>(end - g.c_str())};
}

Parsed with_strtod(const std::string& text) {
  GuardedText g(text);
  char* end;
  const double v = std::strtod(g.c_str(), &end);
  return {std::bit_cast<uint64_t>(v), static_cast<long>(end - g.c_str())};
}

std::string shown(const std::string& text) {
  std::string s;
  for (char ch : text) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (c >= 32 && c < 127) {
      s += static_cast<char>(c);
    } else {
      char b[8];
      std::snprintf(b, sizeof b, "\\x%02x", c);
      s += b;
    }
  }
  return s.size() > 120 ? s.substr(0, 60) + "..." + s.substr(s.size() - 40) : s;
}

// The text converts to exactly `value` and ends after `consumed` bytes.
void expect_parse(const std::string& text, double value, long consumed) {
  SCOPED_TRACE("text \"" + shown(text) + "\"");
  const uint64_t want = std::bit_cast<uint64_t>(value);
  const Parsed libc = with_strtod(text);
  EXPECT_EQ(libc.bits, want) << "strtod itself disagrees with the expected value";
  EXPECT_EQ(libc.consumed, consumed) << "strtod itself disagrees with the expected end";
  const Parsed ours = with_parse_double(text);
  EXPECT_EQ(ours.bits, want) << std::hexfloat << "got " << std::bit_cast<double>(ours.bits)
                             << " want " << value;
  EXPECT_EQ(ours.consumed, consumed);
}

// NaN payloads are the C library's own choice: the sign must be as written
// and the bits the same as strtod's.
void expect_nan(const std::string& text, bool negative, long consumed) {
  SCOPED_TRACE("text \"" + shown(text) + "\"");
  const Parsed ours = with_parse_double(text);
  const Parsed libc = with_strtod(text);
  const double v = std::bit_cast<double>(ours.bits);
  EXPECT_TRUE(std::isnan(v));
  EXPECT_EQ(std::signbit(v), negative);
  EXPECT_EQ(ours.consumed, consumed);
  EXPECT_EQ(ours.bits, libc.bits);
  EXPECT_EQ(libc.consumed, consumed);
}

const double kInf = std::numeric_limits<double>::infinity();
const double kDenormMin = std::numeric_limits<double>::denorm_min();

std::string repeat(const std::string& piece, int times) {
  std::string s;
  for (int i = 0; i < times; ++i) s += piece;
  return s;
}

TEST(ParseDouble, NothingToConvertGivesZeroAtTheStart) {
  for (const char* t : {"", ".", "-.", "+", "-", "+.", "e5", ".e5", "-e1", "x", ",", "+-1", "--1"})
    expect_parse(t, 0.0, 0);
}

TEST(ParseDouble, ExponentNeedsAtLeastOneDigit) {
  expect_parse("1e", 1.0, 1);
  expect_parse("1e+", 1.0, 1);
  expect_parse("1E-", 1.0, 1);
  expect_parse("1e-x", 1.0, 1);
  expect_parse("1e5x", 1e5, 3);
  expect_parse("2.5e-3,", 0.0025, 6);
  expect_parse("7E+02", 700.0, 5);
  expect_parse("3e0009", 3e9, 6);
}

TEST(ParseDouble, PointWithDigitsOnOneSideOnly) {
  expect_parse(".5", 0.5, 2);
  expect_parse("5.", 5.0, 2);
  expect_parse("-.25", -0.25, 4);
  expect_parse("+5.", 5.0, 3);
  expect_parse("5.e2", 500.0, 4);
  expect_parse(".5e1", 5.0, 4);
}

TEST(ParseDouble, SignOfZeroIsKept) {
  expect_parse("-0", -0.0, 2);
  expect_parse("+0.0e-0", 0.0, 7);
  expect_parse("0", 0.0, 1);
  expect_parse("-0.000e99999", -0.0, 12);
  expect_parse("0e-400", 0.0, 6);
  expect_parse("-00000000000000000000000000", -0.0, 27);
}

TEST(ParseDouble, HexadecimalFloats) {
  expect_parse("0x1p3", 8.0, 5);
  expect_parse("-0X1.8p1", -3.0, 8);
  expect_parse("0x.8", 0.5, 4);
  expect_parse("+0xffp-4", 15.9375, 8);
  expect_parse("0x1p", 1.0, 3);
  // "0x" without a hexadecimal digit is the number 0 followed by an 'x'.
  expect_parse("0x", 0.0, 1);
  expect_parse("0xg", 0.0, 1);
  // Only a single leading zero introduces the hexadecimal form.
  expect_parse("00x1", 0.0, 2);
  expect_parse("1x1", 1.0, 1);
}

TEST(ParseDouble, InfinityAndNan) {
  expect_parse("-inf", -kInf, 4);
  expect_parse("INF", kInf, 3);
  expect_parse("+Inf", kInf, 4);
  expect_parse("infinity", kInf, 8);
  expect_parse("-InFiNiTy,", -kInf, 9);
  expect_parse("infinit", kInf, 3);
  expect_parse("in", 0.0, 0);
  expect_nan("nan", false, 3);
  expect_nan("NaN", false, 3);
  expect_nan("-nan", true, 4);
  expect_nan("nan(123abc)", false, 11);
  expect_nan("nan(", false, 3);
  expect_nan("nan(1 2)", false, 3);
  expect_parse("na", 0.0, 0);
}

TEST(ParseDouble, LeadingWhiteSpaceIsSkipped) {
  expect_parse("  \t\v\f12", 12.0, 7);
  expect_parse("\n\r-3.5", -3.5, 6);
  expect_parse(" +1e2", 100.0, 5);
  // White space and nothing to convert: the end stays at the start.
  expect_parse("   ", 0.0, 0);
  expect_parse(" .", 0.0, 0);
  expect_parse(" - 1", 0.0, 0);
}

TEST(ParseDouble, OutOfRange) {
  expect_parse("1e400", kInf, 5);
  expect_parse("-1e400", -kInf, 6);
  expect_parse("1e-400", 0.0, 6);
  expect_parse("-1e-400", -0.0, 7);
  expect_parse("1.7976931348623157e308", DBL_MAX, 22);
  expect_parse("1.7976931348623159e308", kInf, 22);
  expect_parse("1e99999999999999999999", kInf, 22);
  expect_parse("-1e-99999999999999999999", -0.0, 24);
  expect_parse("0e99999999999999999999", 0.0, 22);
  expect_parse("1e0000000000000000000000000000308", 1e308, 33);
  expect_parse("0.0000000000000000000000000000001e330", 1e299, 37);
}

TEST(ParseDouble, Subnormals) {
  expect_parse("4.9e-324", kDenormMin, 8);
  expect_parse("-4.9e-324", -kDenormMin, 9);
  // The halfway point between 0 and the smallest subnormal is
  // 2.4703282292062327208...e-324: below it rounds to zero, above it does not.
  expect_parse("2.4703282292062327e-324", 0.0, 23);
  expect_parse("2.4703282292062328e-324", kDenormMin, 23);
  expect_parse("2.2250738585072011e-308", 2.2250738585072011e-308, 23);
  expect_parse("2.2250738585072012e-308", DBL_MIN, 23);
  expect_parse("2.2250738585072014e-308", DBL_MIN, 23);
  expect_parse("1e-310", 1e-310, 6);
}

TEST(ParseDouble, ExactIntegersAroundTwoToThe53) {
  expect_parse("9007199254740992", 9007199254740992.0, 16);
  // 2^53 + 1 lies halfway between 2^53 and 2^53 + 2: ties go to the even mantissa.
  expect_parse("9007199254740993", 9007199254740992.0, 16);
  expect_parse("9007199254740995", 9007199254740996.0, 16);
  expect_parse("-9007199254740993", -9007199254740992.0, 17);
  // Just above halfway rounds up.
  expect_parse("9007199254740993.0000000000000000001", 9007199254740994.0, 36);
  expect_parse("90071992547409930000000000000000001e-19", 9007199254740994.0, 39);
  expect_parse("9007199254740993e-16", 0.9007199254740993, 20);
}

TEST(ParseDouble, EdgesOfTheExactPowersOfTen) {
  expect_parse("1e22", 1e22, 4);
  expect_parse("1e23", 1e23, 4);
  expect_parse("1e-22", 1e-22, 5);
  expect_parse("1e-23", 1e-23, 5);
  expect_parse("9007199254740992e22", 9007199254740992e22, 19);
  expect_parse("9007199254740992e-22", 9007199254740992e-22, 20);
  expect_parse("9007199254740993e22", 9007199254740993e22, 19);
  expect_parse("123456.7890123456789012", 123456.7890123456789012, 23);
  expect_parse("0.1", 0.1, 3);
  expect_parse("-123.456789", -123.456789, 11);
  expect_parse("3.141592653589793", 3.141592653589793, 17);
  expect_parse("1234567890123456789", 1234567890123456789.0, 19);
  expect_parse("18446744073709551616", 18446744073709551616.0, 20);
}

TEST(ParseDouble, LongMantissas) {
  expect_parse("12345678901234567890", 12345678901234567890.0, 20);
  expect_parse("-1234567890123456789012345678901234567890",
               -1234567890123456789012345678901234567890.0, 41);
  expect_parse("12345678901234567890.12345678901234567890",
               12345678901234567890.12345678901234567890, 41);
  expect_parse("0.0000000000000000000000000000000000001234", 1.234e-37, 42);

  const std::string d800 = repeat("1234567890", 80);
  expect_parse(std::string("0.") + d800, 0.12345678901234567890123456789, 802);
  expect_parse(d800 + "e-799", 1.2345678901234567890123456789, 805);
  expect_parse(std::string("0.") + repeat("9", 800), 1.0, 802);
  expect_parse(std::string("1") + repeat("0", 799) + "e-799", 1.0, 805);
  // 2^53 + 1 written with 800 digits is still exactly halfway: ties to even;
  // one more nonzero digit far out puts it above halfway.
  const std::string half = std::string("9007199254740993") + repeat("0", 784);
  expect_parse(half + "e-784", 9007199254740992.0, 805);
  expect_parse(half + "1e-785", 9007199254740994.0, 806);
  expect_parse(std::string("-") + d800 + "e-1000", -1.2345678901234567890123456789e-201, 807);
}

TEST(ParseDouble, StopsAtTheFirstByteThatIsNotPartOfTheNumber) {
  expect_parse("1,5", 1.0, 1);
  expect_parse("12abc", 12.0, 2);
  expect_parse("1.2.3", 1.2, 3);
  expect_parse("-12.5e3e4", -12500.0, 7);
  expect_parse("1_000", 1.0, 1);
  expect_parse("7 8", 7.0, 1);
  expect_parse("42\n", 42.0, 2);
  expect_parse("42\r\n", 42.0, 2);
  expect_parse("3.0}", 3.0, 3);
  expect_parse("5\x80", 5.0, 1);
  expect_parse("6\xff", 6.0, 1);
}

TEST(ParseDouble, StopsAtTheTerminatingZeroByte) {
  // The buffer's own end: the digits after the zero byte are never seen.
  const char text[] =
      "123\0"
      "456";
  double v = 0;
  const char* end = kolv::parse_double(text, &v);
  EXPECT_EQ(end, text + 3);
  EXPECT_EQ(v, 123.0);
}

}  // namespace
