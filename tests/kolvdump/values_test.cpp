// Element values as kolvdump reads them: the shortest round-trip text of
// numbers, the missing patterns of each width, and character data found in
// numeric elements.
#include "kolvdump/values.hpp"

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

namespace {

using kolvdump::CellKind;

struct Element {
  uint8_t bytes[8] = {};
};

Element of_bits(uint64_t bits, int width) {
  Element e;
  for (int i = 0; i < width; ++i) e.bytes[i] = static_cast<uint8_t>(bits >> (8 * i));
  return e;
}

Element of_double(double d) {
  uint64_t bits;
  std::memcpy(&bits, &d, sizeof bits);
  return of_bits(bits, 8);
}

Element of_float(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  return of_bits(bits, 4);
}

Element of_text(const char* text) {
  Element e;
  std::memcpy(e.bytes, text, std::strlen(text));
  return e;
}

std::string number(const Element& e, uint32_t width) {
  char text[kolvdump::kCellRoom];
  char* end = kolvdump::format_number(e.bytes, width, text);
  return std::string(text, end);
}

TEST(KolvdumpValues, DoublesInTheirShortestRoundTripForm) {
  EXPECT_EQ(number(of_double(68.2), 8), "68.2");
  EXPECT_EQ(number(of_double(0.1), 8), "0.1");
  EXPECT_EQ(number(of_double(1e300), 8), "1e+300");
  EXPECT_EQ(number(of_double(-1e300), 8), "-1e+300");
  EXPECT_EQ(number(of_double(-0.0), 8), "-0");
  EXPECT_EQ(number(of_double(0.0), 8), "0");
  EXPECT_EQ(number(of_double(172.5), 8), "172.5");
  EXPECT_EQ(number(of_double(2024), 8), "2024");
  // Plain digits from 0.00001 up to below 1e16, an exponent outside.
  EXPECT_EQ(number(of_double(100000), 8), "100000");
  EXPECT_EQ(number(of_double(300000), 8), "300000");
  EXPECT_EQ(number(of_double(9999999999999998.0), 8), "9999999999999998");
  EXPECT_EQ(number(of_double(1e16), 8), "1e+16");
  EXPECT_EQ(number(of_double(-1.25e17), 8), "-1.25e+17");
  EXPECT_EQ(number(of_double(0.00001), 8), "0.00001");
  EXPECT_EQ(number(of_double(1.5e-5), 8), "0.000015");
  EXPECT_EQ(number(of_double(-1.5e-5), 8), "-0.000015");
  EXPECT_EQ(number(of_double(1.5e-6), 8), "1.5e-06");
  EXPECT_EQ(number(of_double(5e-324), 8), "5e-324");
  EXPECT_EQ(number(of_double(0.30000000000000004), 8), "0.30000000000000004");
  EXPECT_EQ(number(of_bits(0x7FF0000000000000ULL, 8), 8), "inf");
  EXPECT_EQ(number(of_bits(0xFFF0000000000000ULL, 8), 8), "-inf");
}

TEST(KolvdumpValues, FloatsAsTheShortestFloat) {
  // 1.1f is 1.10000002384185791015625; "1.1" reads back to the same float.
  EXPECT_EQ(number(of_float(1.1f), 4), "1.1");
  EXPECT_EQ(number(of_float(68.2f), 4), "68.2");
  EXPECT_EQ(number(of_float(-2.5f), 4), "-2.5");
  EXPECT_EQ(number(of_float(1e10f), 4), "10000000000");
  EXPECT_EQ(number(of_float(1e20f), 4), "1e+20");
  EXPECT_EQ(number(of_float(2.5e-6f), 4), "2.5e-06");
  EXPECT_EQ(number(of_bits(0x7F800000u, 4), 4), "inf");
}

TEST(KolvdumpValues, TwoByteElementsAsIntegers) {
  EXPECT_EQ(number(of_bits(0xFFFF, 2), 2), "-1");
  EXPECT_EQ(number(of_bits(0x7FFF, 2), 2), "32767");
  EXPECT_EQ(number(of_bits(0x8001, 2), 2), "-32767");
  EXPECT_EQ(number(of_bits(0x9C40, 2), 2), "-25536");  // 40000 wrapped
  EXPECT_EQ(number(of_bits(0, 2), 2), "0");
}

TEST(KolvdumpValues, MissingInEachWidth) {
  // 2 bytes: 00 80; 4 bytes: F8 FF FF 7F; 8 bytes: 00 00 00 00 FF FF FF 7F.
  EXPECT_EQ(kolvdump::classify(of_bits(0x8000, 2).bytes, 2, false), CellKind::kMissing);
  EXPECT_EQ(kolvdump::classify(of_bits(0x7FFFFFF8u, 4).bytes, 4, false), CellKind::kMissing);
  EXPECT_EQ(kolvdump::classify(of_bits(0x7FFFFFFF00000000ULL, 8).bytes, 8, false),
            CellKind::kMissing);
  EXPECT_EQ(kolvdump::classify(of_bits(0x7FFFFFFF00000000ULL, 8).bytes, 8, true),
            CellKind::kMissing);
  // Only the one pattern in 4 bytes; any NaN with high bits above 0x7FF0 in 8.
  EXPECT_EQ(kolvdump::classify(of_bits(0x7FC00000u, 4).bytes, 4, false), CellKind::kNumber);
  EXPECT_EQ(kolvdump::classify(of_bits(0x7FFFFFF9u, 4).bytes, 4, false), CellKind::kNumber);
  EXPECT_EQ(kolvdump::classify(of_bits(0x7FF1000000000000ULL, 8).bytes, 8, false),
            CellKind::kMissing);
  EXPECT_EQ(kolvdump::classify(of_bits(0xFFFF000000000000ULL, 8).bytes, 8, false),
            CellKind::kMissing);
  EXPECT_EQ(kolvdump::classify(of_bits(0x7FF0000000000000ULL, 8).bytes, 8, false),
            CellKind::kNumber);  // +infinity
  EXPECT_EQ(kolvdump::classify(of_bits(0x7FF0FFFFFFFFFFFFULL, 8).bytes, 8, false),
            CellKind::kNumber);  // a NaN whose top fraction bits are zero
  EXPECT_EQ(kolvdump::classify(of_bits(0x7FFF, 2).bytes, 2, false), CellKind::kNumber);
}

TEST(KolvdumpValues, ShortTextInANumericElement) {
  // "N/A" as kolv stores it: 4E 2F 41 00 00 00 00 00, which read as a double
  // is a subnormal near 2.1e-317.
  EXPECT_EQ(kolvdump::classify(of_text("N/A").bytes, 8, false), CellKind::kText);
  EXPECT_EQ(kolvdump::classify(of_text("A").bytes, 8, false), CellKind::kText);
  EXPECT_EQ(kolvdump::classify(of_text("missing").bytes, 8, false), CellKind::kText);
  EXPECT_EQ(kolvdump::classify(of_text("Z\xC3\xBCrich").bytes, 8, false), CellKind::kText);
  // A control byte is not text; nor are zero bytes before the end.
  EXPECT_EQ(kolvdump::classify(of_text("\x01").bytes, 8, false), CellKind::kNumber);
  Element gap = of_text("AB");
  gap.bytes[3] = 'C';
  EXPECT_EQ(kolvdump::classify(gap.bytes, 8, false), CellKind::kNumber);
  // The smallest subnormal, 00...01, is a number.
  EXPECT_EQ(kolvdump::classify(of_bits(1, 8).bytes, 8, false), CellKind::kNumber);
  EXPECT_EQ(kolvdump::classify(of_double(0.0).bytes, 8, false), CellKind::kNumber);
}

TEST(KolvdumpValues, EightTextBytesOnlyWhenNoShortNumberReadsSo) {
  // 9.6 is 0x4023333333333333: bytes 33 33 33 33 33 33 23 40, "333333#@",
  // all printable; it is a number because "9.6" reads back to it.
  Element nine_six = of_double(9.6);
  EXPECT_EQ(std::memcmp(nine_six.bytes, "333333#@", 8), 0);
  EXPECT_EQ(kolvdump::classify(nine_six.bytes, 8, false), CellKind::kNumber);
  EXPECT_EQ(number(nine_six, 8), "9.6");

  // "NOTAVAIL" read as a double needs more than 15 digits to read back:
  // checked here with the C library alone. It is text.
  Element text = of_text("NOTAVAIL");
  double d;
  std::memcpy(&d, text.bytes, sizeof d);
  char fifteen[64];
  std::snprintf(fifteen, sizeof fifteen, "%.15g", d);
  ASSERT_NE(std::strtod(fifteen, nullptr), d);
  EXPECT_EQ(kolvdump::classify(text.bytes, 8, false), CellKind::kText);

  // "LONGTEXT" happens to be a double that 15 digits give back
  // (2.07368603890088e+98): it cannot be told from a number and shows as one.
  Element longtext = of_text("LONGTEXT");
  std::memcpy(&d, longtext.bytes, sizeof d);
  std::snprintf(fifteen, sizeof fifteen, "%.15g", d);
  ASSERT_EQ(std::strtod(fifteen, nullptr), d);
  EXPECT_EQ(kolvdump::classify(longtext.bytes, 8, false), CellKind::kNumber);
}

TEST(KolvdumpValues, CharacterVariablesAreAlwaysText) {
  EXPECT_EQ(kolvdump::classify(of_double(1.5).bytes, 8, true), CellKind::kText);
  EXPECT_EQ(kolvdump::text_length(of_text("ABC").bytes), 3u);
  EXPECT_EQ(kolvdump::text_length(of_text("ABCDEFGH").bytes), 8u);
  EXPECT_EQ(kolvdump::text_length(Element{}.bytes), 0u);
}

TEST(KolvdumpValues, EscapingForTheTextView) {
  EXPECT_EQ(kolvdump::escape_text("ABC"), "ABC");
  EXPECT_EQ(kolvdump::escape_text("a\tb"), "a\\x09b");
  EXPECT_EQ(kolvdump::escape_text("back\\"), "back\\x5C");
  EXPECT_EQ(kolvdump::escape_text("\x7F"), "\\x7F");
  // Well-formed UTF-8 passes; a lone lead byte or continuation byte does not.
  EXPECT_EQ(kolvdump::escape_text("Z\xC3\xBCrich"), "Z\xC3\xBCrich");
  EXPECT_EQ(kolvdump::escape_text("Z\xC3"), "Z\\xC3");
  EXPECT_EQ(kolvdump::escape_text("\xBC"), "\\xBC");
  EXPECT_EQ(kolvdump::escape_text("\xE9t\xE9"), "\\xE9t\\xE9");  // Latin-1
  EXPECT_EQ(kolvdump::escape_text("\xC0\x80"), "\\xC0\\x80");    // overlong
  EXPECT_EQ(kolvdump::shown_width("Z\xC3\xBCrich"), 6u);
}

}  // namespace

namespace {

// What std::to_chars gives for a double, in the notation kolvdump uses for
// its magnitude: plain digits from 0.00001 up to below 1e16, else exponent.
std::string reference(double d) {
  char text[64];
  double m = d < 0 ? -d : d;
  auto format =
      m == 0 || (m >= 1e-5 && m < 1e16) ? std::chars_format::fixed : std::chars_format::scientific;
  return std::string(text, std::to_chars(text, text + sizeof text, d, format).ptr);
}

TEST(KolvdumpValues, QuickDigitsAgreeWithToCharsOnDecimalsAndRandomBits) {
  // Decimals of 1 to 17 digits at every scale kolvdump writes plainly, read
  // as kolv reads them (strtod), and random bit patterns of every magnitude.
  std::mt19937_64 random(20261124);
  int checked = 0;
  for (int i = 0; i < 400000; ++i) {
    int digits = 1 + static_cast<int>(random() % 17);
    uint64_t mantissa = random() % 100000000000000000ULL;
    char text[64];
    std::snprintf(
        text, sizeof text, "%s%llue%d", i % 2 ? "-" : "",
        static_cast<unsigned long long>(mantissa % static_cast<uint64_t>(std::pow(10.0, digits))),
        static_cast<int>(random() % 28) - 22);
    double d = std::strtod(text, nullptr);
    ASSERT_EQ(number(of_double(d), 8), reference(d)) << text;
    ++checked;
  }
  for (int i = 0; i < 400000; ++i) {
    uint64_t bits = random();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    if (d != d) continue;
    ASSERT_EQ(number(of_bits(bits, 8), 8), reference(d)) << std::hex << bits;
    ++checked;
  }
  // Edges of the quick way: powers of ten and their neighbours.
  for (int e = -7; e <= 17; ++e) {
    double p = std::pow(10.0, e);
    for (double d :
         {p, std::nextafter(p, 0.0), std::nextafter(p, 1e300), 9.5 * p, 0.99999999999999 * p}) {
      ASSERT_EQ(number(of_double(d), 8), reference(d)) << d;
      ++checked;
    }
  }
  EXPECT_GT(checked, 700000);
}

}  // namespace
