// The byte language itself, checked against bytes worked out by hand.
#include "byte_language.hpp"

#include <gtest/gtest.h>

#include "difference.hpp"
#include "golden_case.hpp"

namespace kolv::e2e {
namespace {

Bytes B(std::initializer_list<int> values) {
  Bytes out;
  for (int v : values) out.push_back(static_cast<std::uint8_t>(v));
  return out;
}

std::uint32_t word_at(const Bytes& bytes, size_t offset) {
  std::uint32_t word = 0;
  for (size_t i = 4; i-- > 0;) word = word << 8 | bytes[offset + i];
  return word;
}

TEST(ByteLanguage, HexBytes) {
  EXPECT_EQ(assemble_bytes("hex 00 ff 7f A 0b"), B({0x00, 0xff, 0x7f, 0x0a, 0x0b}));
}

TEST(ByteLanguage, UnsignedLittleEndian) {
  EXPECT_EQ(assemble_bytes("u8 255 0x10"), B({0xff, 0x10}));
  EXPECT_EQ(assemble_bytes("u16 258"), B({0x02, 0x01}));
  EXPECT_EQ(assemble_bytes("u32 0x01020304 4294967295"), B({4, 3, 2, 1, 0xff, 0xff, 0xff, 0xff}));
  EXPECT_EQ(assemble_bytes("u16 010"), B({10, 0}));  // leading zero is still decimal
}

TEST(ByteLanguage, SignedLittleEndian) {
  EXPECT_EQ(assemble_bytes("i16 -1 -32768 32767"), B({0xff, 0xff, 0x00, 0x80, 0xff, 0x7f}));
  EXPECT_EQ(assemble_bytes("i32 -2 +3"), B({0xfe, 0xff, 0xff, 0xff, 3, 0, 0, 0}));
  EXPECT_EQ(assemble_bytes("i16 0x8000"), B({0x00, 0x80}));
}

TEST(ByteLanguage, FloatsFromLiterals) {
  EXPECT_EQ(assemble_bytes("f32 1"), B({0x00, 0x00, 0x80, 0x3f}));
  EXPECT_EQ(assemble_bytes("f32 0.1"),
            B({0xcd, 0xcc, 0xcc, 0x3d}));  // 0x3DCCCCCD, rounded to nearest
  EXPECT_EQ(assemble_bytes("f32 -inf"), B({0x00, 0x00, 0x80, 0xff}));
  EXPECT_EQ(assemble_bytes("f32 1e300"), B({0x00, 0x00, 0x80, 0x7f}));
  EXPECT_EQ(assemble_bytes("f64 1"), B({0, 0, 0, 0, 0, 0, 0xf0, 0x3f}));
  EXPECT_EQ(assemble_bytes("f64 0x1p-1"), B({0, 0, 0, 0, 0, 0, 0xe0, 0x3f}));
  EXPECT_EQ(assemble_bytes("f64 -2.5"), B({0, 0, 0, 0, 0, 0, 0x04, 0xc0}));
}

TEST(ByteLanguage, RawBitsAndMissingValues) {
  EXPECT_EQ(assemble_bytes("f32bits 0x7FFFFFF8"), B({0xf8, 0xff, 0xff, 0x7f}));
  EXPECT_EQ(assemble_bytes("f64bits 0x7FFFFFFF00000000"), B({0, 0, 0, 0, 0xff, 0xff, 0xff, 0x7f}));
  EXPECT_EQ(assemble_bytes("miss16\nmiss32\nmiss64"),
            B({0x00, 0x80, 0xf8, 0xff, 0xff, 0x7f, 0, 0, 0, 0, 0xff, 0xff, 0xff, 0x7f}));
}

TEST(ByteLanguage, PaddedTexts) {
  EXPECT_EQ(assemble_bytes("text8 \"abc\""), B({'a', 'b', 'c', 0, 0, 0, 0, 0}));
  EXPECT_EQ(assemble_bytes("text8 \"a#b\\x01\" # comment"), B({'a', '#', 'b', 1, 0, 0, 0, 0}));
  Bytes name = assemble_bytes("name \"AGE\"");
  ASSERT_EQ(name.size(), 32u);
  EXPECT_EQ(name[0], 'A');
  EXPECT_EQ(name[2], 'E');
  for (size_t i = 3; i < 32; ++i) EXPECT_EQ(name[i], 0) << i;
  EXPECT_EQ(assemble_bytes("name \"ABCDEFGHIJKLMNOPQRSTUVWXYZ012345\"").size(), 32u);
}

TEST(ByteLanguage, ZerosAndTypes) {
  EXPECT_EQ(assemble_bytes("zeros 3"), B({0, 0, 0}));
  EXPECT_EQ(assemble_bytes("types 1 0 1"), B({1, 0, 1, 0, 0, 0, 0, 0}));
  EXPECT_EQ(assemble_bytes("types 1 1 1 1 1 1 1 1").size(), 8u);  // a multiple of 8: no pad
  EXPECT_EQ(assemble_bytes("types 1 1 1 1 1 1 1 1 0").size(), 16u);
}

TEST(ByteLanguage, HeaderFields) {
  Bytes h = assemble_bytes("header otyp=8 complex=0 rows=3 cols=2");
  ASSERT_EQ(h.size(), 128u);
  const std::uint32_t words[] = {0xFFFFFFFF, 0, 0xFFFFFFFF, 0,    0xFFFFFFFF, 0, 0, 0xABCDEF02,
                                 1,          0, 1,          1008, 8,          0, 1, 2,
                                 1,          0, 200,        0,    3,          2};
  for (size_t i = 0; i < 22; ++i) EXPECT_EQ(word_at(h, 4 * i), words[i]) << "word at " << 4 * i;
  for (size_t i = 88; i < 128; ++i) EXPECT_EQ(h[i], 0) << i;
  EXPECT_EQ(h[28], 0x02);  // the check word in little-endian order
  EXPECT_EQ(h[31], 0xAB);

  Bytes i2 = assemble_bytes("header cols=8 rows=0 otyp=2 complex=1");
  EXPECT_EQ(word_at(i2, 44), 12u);
  EXPECT_EQ(word_at(i2, 48), 2u);
  EXPECT_EQ(word_at(i2, 52), 1u);
  EXPECT_EQ(word_at(i2, 72), 392u);  // 128 + 8 * 33, no pad
  Bytes f4 = assemble_bytes("header otyp=4 complex=0 rows=1 cols=3");
  EXPECT_EQ(word_at(f4, 44), 1004u);
  EXPECT_EQ(word_at(f4, 72), 232u);  // 128 + 99 + 5 pad
}

TEST(ByteLanguage, NestedRepeatAndComments) {
  EXPECT_EQ(assemble_bytes(
                "# leading comment\n\nrepeat 2\n  u8 1\n  repeat 2 # inner\n    u8 2\n  end\nend\n"
                "u8 9\n"),
            B({1, 2, 2, 1, 2, 2, 9}));
  EXPECT_EQ(assemble_bytes("repeat 0\nu8 1\nend"), B({}));
  EXPECT_EQ(assemble_bytes(""), B({}));
}

TEST(ByteLanguage, MistakesAreReportedWithTheirLine) {
  const char* bad[] = {"u8 256",
                       "i16 32768",
                       "i16 -32769",
                       "hex 100",
                       "hex zz",
                       "f32 nan",
                       "f64 1.5x",
                       "miss16 1",
                       "text8 \"abcdefghi\"",
                       "text8 abc",
                       "name \"x",
                       "zeros",
                       "header otyp=3 complex=0 rows=1 cols=1",
                       "header otyp=8 rows=1 cols=1",
                       "repeat 2\nu8 1",
                       "end",
                       "bogus 1",
                       "u16 -1"};
  for (const char* text : bad) EXPECT_THROW(assemble_bytes(text), ByteLanguageError) << text;
  try {
    assemble_bytes("u8 1\n\nu8 300\n");
    FAIL() << "no error";
  } catch (const ByteLanguageError& e) {
    EXPECT_EQ(std::string(e.what()).rfind("line 3: ", 0), 0u) << e.what();
  }
}

TEST(RunnerText, PlaceholdersAndDifferences) {
  EXPECT_EQ(replace_all("a @DIR@/x @DIR@", "@DIR@", "/tmp/w"), "a /tmp/w/x /tmp/w");
  EXPECT_EQ(replace_all("aaa", "a", "aa"), "aaaaaa");
  EXPECT_EQ(describe_text_difference("same\n", "same\n"), "");
  std::string d = describe_text_difference("one\ntwo\n", "one\ntwo!\n");
  EXPECT_NE(d.find("line 2"), std::string::npos) << d;
  EXPECT_NE(d.find("two!\\n"), std::string::npos) << d;
  std::string b =
      describe_byte_difference(std::string("\x01\x02\x03", 3), std::string("\x01\x02\x04", 3));
  EXPECT_NE(b.find("offset 2"), std::string::npos) << b;
  EXPECT_NE(b.find(">04"), std::string::npos) << b;
  EXPECT_EQ(test_name_for("front_a-b.c"), "front_a_b_c");
}

}  // namespace
}  // namespace kolv::e2e
