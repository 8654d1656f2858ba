#include "format/dataset.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/state.hpp"
#include "support/dataset.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

// An anonymous file holding the given bytes, opened for update like an
// append target.
struct TempFile {
  FILE* fp = std::tmpfile();
  explicit TempFile(const Bytes& bytes) {
    if (fp != nullptr && !bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), fp);
    if (fp != nullptr) std::fflush(fp);
  }
  ~TempFile() {
    if (fp != nullptr) std::fclose(fp);
  }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
};

using kolv_support::put32;

// A finished header of `rows` rows of `columns` doubles, set field by field
// from the layout table.
Bytes table_header(uint32_t rows, uint32_t columns, uint32_t offset) {
  Bytes b(128, 0);
  put32(b, 0, 0xFFFFFFFF);
  put32(b, 8, 0xFFFFFFFF);
  put32(b, 16, 0xFFFFFFFF);
  put32(b, 28, 0xABCDEF02);
  put32(b, 32, 1);
  put32(b, 40, 1);
  put32(b, 44, 1008);
  put32(b, 48, 8);
  put32(b, 56, 1);
  put32(b, 60, 2);
  put32(b, 64, 1);
  put32(b, 72, offset);
  put32(b, 80, rows);
  put32(b, 84, columns);
  return b;
}

// Runs ReadFileHeader and names what it found.
std::string validate(const Bytes& file, uint8_t uhout[128]) {
  TempFile t(file);
  if (t.fp == nullptr) return "no temporary file";
  switch (kolv::ReadFileHeader(t.fp, uhout)) {
    case kolv::HeaderCheck::kVersion96:
      return "version 96";
    case kolv::HeaderCheck::kVersion92:
      return "version 92";
    case kolv::HeaderCheck::kReversed:
      return "reversed";
    case kolv::HeaderCheck::kUnrecognised:
      return "unrecognised";
  }
  return "no such outcome";
}

std::string validate(const Bytes& file) {
  uint8_t uhout[128];
  return validate(file, uhout);
}

const char* const kUnrecognised = "unrecognised";
const char* const kReversed = "reversed";
const char* const kV92 = "version 92";

}  // namespace

// ---- layout arithmetic ----

TEST(DataOffset, EightColumnsNeedNoPad) {
  EXPECT_EQ(kolv::variable_pad(8), 0u);
  EXPECT_EQ(kolv::data_offset(8), 392u);
}

TEST(DataOffset, ThreeColumnsTakeFivePadBytes) {
  EXPECT_EQ(kolv::variable_pad(3), 5u);
  EXPECT_EQ(kolv::data_offset(3), 232u);
}

TEST(DataOffset, OtherCounts) {
  EXPECT_EQ(kolv::data_offset(0), 128u);
  EXPECT_EQ(kolv::data_offset(1), 128u + 32u + 1u + 7u);
  EXPECT_EQ(kolv::data_offset(9), 128u + 288u + 9u + 7u);
  EXPECT_EQ(kolv::data_offset(16), 128u + 512u + 16u);
  for (uint32_t n = 0; n < 40; ++n) EXPECT_EQ(kolv::data_offset(n) % 8, 0u) << n;
}

// ---- header image ----

TEST(BuildHeader, MatchesGoldenImageByteForByte) {
  // Doubles, not complex, 10 rows, 3 columns: data at 232 (0xE8).
  const std::array<uint8_t, 128> golden = {
      0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00,  // 0: signature 1, 2
      0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00,  // 8: signature 3, 4
      0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00,  // 16: signature 5, byte-order flag
      0x00, 0x00, 0x00, 0x00, 0x02, 0xEF, 0xCD, 0xAB,  // 24: reserved, check word
      0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 32: 1, reserved
      0x01, 0x00, 0x00, 0x00, 0xF0, 0x03, 0x00, 0x00,  // 40: 1, type code 1008
      0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 48: size 8, complex 0
      0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00,  // 56: 1, 2
      0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 64: 1, reserved
      0xE8, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 72: data offset 232, reserved
      0x0A, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00,  // 80: rows 10, columns 3
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 88: reserved
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 96
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 104
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 112
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 120
  };
  uint8_t uhout[128];
  std::memset(uhout, 0x5A, sizeof uhout);  // stale bytes must not survive
  kolv::build_header(uhout, 8, 1, 10, 3);
  for (size_t i = 0; i < 128; ++i) EXPECT_EQ(uhout[i], golden[i]) << "byte " << i;
}

TEST(BuildHeader, ElementTypeCodes) {
  uint8_t uhout[128];
  kolv::build_header(uhout, 2, 1, 0, 1);
  EXPECT_EQ(uhout[44], 0x0C);  // 12
  EXPECT_EQ(uhout[45], 0x00);
  EXPECT_EQ(uhout[48], 2);
  kolv::build_header(uhout, 4, 1, 0, 1);
  EXPECT_EQ(uhout[44], 0xEC);  // 1004 = 0x03EC
  EXPECT_EQ(uhout[45], 0x03);
  EXPECT_EQ(uhout[48], 4);
  kolv::build_header(uhout, 8, 1, 0, 1);
  EXPECT_EQ(uhout[44], 0xF0);  // 1008 = 0x03F0
  EXPECT_EQ(uhout[45], 0x03);
  EXPECT_EQ(uhout[48], 8);
}

TEST(BuildHeader, UnknownElementSizeLeavesTypeWordsZero) {
  for (int otyp : {0, 1, 3, 16}) {
    uint8_t uhout[128];
    std::memset(uhout, 0x5A, sizeof uhout);
    kolv::build_header(uhout, otyp, 1, 4, 2);
    for (int i = 44; i < 52; ++i) EXPECT_EQ(uhout[i], 0) << "otyp " << otyp << " byte " << i;
    EXPECT_EQ(uhout[80], 4);  // the rest is still built
    EXPECT_EQ(uhout[84], 2);
    EXPECT_EQ(uhout[72], 128 + 64 + 2 + 6);
  }
}

TEST(BuildHeader, ComplexFlag) {
  uint8_t uhout[128];
  kolv::build_header(uhout, 4, 2, 0, 1);
  EXPECT_EQ(uhout[52], 1);
  EXPECT_EQ(uhout[53], 0);
  kolv::build_header(uhout, 4, 1, 0, 1);
  EXPECT_EQ(uhout[52], 0);
}

TEST(BuildHeader, LargeCountsAreLittleEndian) {
  uint8_t uhout[128];
  kolv::build_header(uhout, 2, 1, 0x01020304u, 1000);
  EXPECT_EQ(uhout[80], 0x04);
  EXPECT_EQ(uhout[81], 0x03);
  EXPECT_EQ(uhout[82], 0x02);
  EXPECT_EQ(uhout[83], 0x01);
  EXPECT_EQ(uhout[84], 0xE8);  // 1000 = 0x03E8
  EXPECT_EQ(uhout[85], 0x03);
  // 128 + 33000, pad 0: 33128 = 0x8168
  EXPECT_EQ(uhout[72], 0x68);
  EXPECT_EQ(uhout[73], 0x81);
  EXPECT_EQ(kolv::header_rows(uhout), 0x01020304u);
}

// ---- append validation ----

TEST(ReadFileHeader, AcceptsFinishedFileAndLeavesHeader) {
  Bytes file = table_header(10, 3, 232);
  file.resize(232 + 10 * 3 * 8, 0);
  uint8_t uhout[128];
  EXPECT_EQ(validate(file, uhout), "version 96");
  EXPECT_EQ(kolv::header_rows(uhout), 10u);
  EXPECT_EQ(std::memcmp(uhout, file.data(), 128), 0);
}

TEST(ReadFileHeader, RowCountOfOwnHeaderReadsBack) {
  uint8_t built[128];
  kolv::build_header(built, 8, 1, 10, 2);
  Bytes file(built, built + 128);
  file.resize(kolv::data_offset(2) + 10 * 2 * 8, 0);
  uint8_t uhout[128];
  EXPECT_EQ(validate(file, uhout), "version 96");
  EXPECT_EQ(kolv::header_rows(uhout), 10u);
  // Appending 5 rows: the rebuilt header counts old and new rows together.
  kolv::build_header(built, 8, 1, kolv::header_rows(uhout) + 5, 2);
  EXPECT_EQ(built[80], 15);
  EXPECT_EQ(kolv::header_rows(built), 15u);
}

TEST(ReadFileHeader, RewindsBeforeReading) {
  Bytes file = table_header(7, 1, 168);
  TempFile t(file);
  ASSERT_NE(t.fp, nullptr);
  std::fseek(t.fp, 0, SEEK_END);  // the stream is at the end, as after writing
  uint8_t uhout[128];
  EXPECT_EQ(kolv::ReadFileHeader(t.fp, uhout), kolv::HeaderCheck::kVersion96);
  EXPECT_EQ(kolv::header_rows(uhout), 7u);
}

TEST(ReadFileHeader, ReversedOrderWithSwappedCheckWord) {
  Bytes file = table_header(10, 3, 232);
  put32(file, 20, 1);            // byte-order flag set
  put32(file, 28, 0x02EFCDABu);  // the check word as the other order reads it
  uint8_t uhout[128];
  EXPECT_EQ(validate(file, uhout), kReversed);
  // The check word was reversed in place before the comparison.
  EXPECT_EQ(kolv::load_le32(uhout + 28), 0xABCDEF02u);
}

TEST(ReadFileHeader, ReversedOrderFlagWithOtherCheckWord) {
  Bytes file = table_header(10, 3, 232);
  put32(file, 20, 0x01000000u);
  put32(file, 28, 0xABCDEF02u);  // reversed, this reads 0x02EFCDAB
  EXPECT_EQ(validate(file), kUnrecognised);
  put32(file, 28, 0x12345678u);
  EXPECT_EQ(validate(file), kUnrecognised);
}

TEST(ReadFileHeader, WrongCheckWordInOwnOrder) {
  Bytes file = table_header(10, 3, 232);
  put32(file, 28, 0x02EFCDABu);
  EXPECT_EQ(validate(file), kUnrecognised);
  put32(file, 28, 0);
  EXPECT_EQ(validate(file), kUnrecognised);
}

TEST(ReadFileHeader, EachSignatureWordIsChecked) {
  for (size_t at : {0u, 4u, 8u, 12u, 16u}) {
    Bytes file = table_header(1, 1, 168);
    file[at + 1] ^= 0x10;
    EXPECT_EQ(validate(file), kUnrecognised) << "word at " << at;
  }
}

TEST(ReadFileHeader, EmptyFileIsUnrecognised) {
  EXPECT_EQ(validate(Bytes{}), kUnrecognised);
}

TEST(ReadFileHeader, UnfinishedFileIsUnrecognised) {
  // A run's placeholder: 128 zero bytes and a variable block.
  Bytes file(168, 0);
  EXPECT_EQ(validate(file), kUnrecognised);
}

TEST(ReadFileHeader, ShortFileIsUnrecognised) {
  Bytes file = table_header(1, 1, 168);
  file.resize(27);  // signature complete, check word cut off
  EXPECT_EQ(validate(file), kUnrecognised);
  file.resize(10);
  EXPECT_EQ(validate(file), kUnrecognised);
}

TEST(ReadFileHeader, ShortFileWithVersion92MarkIsVersion92) {
  Bytes file(12, 0);
  put32(file, 4, 0xEECACACAu);
  EXPECT_EQ(validate(file), kV92);
  file.resize(8);
  EXPECT_EQ(validate(file), kV92);
}

TEST(ReadFileHeader, Version92Header) {
  Bytes file(40 + 64, 0);
  put32(file, 0, 0x00000001u);
  put32(file, 4, 0xEECACACAu);
  EXPECT_EQ(validate(file), kV92);
}

TEST(ReadFileHeader, Version92MarkElsewhereIsUnrecognised) {
  Bytes file(40, 0);
  put32(file, 0, 0xEECACACAu);
  put32(file, 8, 0xEECACACAu);
  EXPECT_EQ(validate(file), kUnrecognised);
}

TEST(HeaderRows, ReadsWordAt80) {
  uint8_t uhout[128] = {};
  uhout[80] = 0x0F;
  uhout[83] = 0x80;
  EXPECT_EQ(kolv::header_rows(uhout), 0x8000000Fu);
}

// ---- header reading shared with kolvdump ----

TEST(HeaderReading, SignatureWordsOneToFive) {
  Bytes file = table_header(10, 3, 232);
  EXPECT_TRUE(kolv::has_signature(file.data()));
  for (size_t at : {0u, 4u, 8u, 12u, 16u}) {
    Bytes broken = file;
    broken[at + 1] ^= 0x10;
    EXPECT_FALSE(kolv::has_signature(broken.data())) << "word at " << at;
  }
  Bytes zero(128, 0);
  EXPECT_FALSE(kolv::has_signature(zero.data()));
}

TEST(HeaderReading, Version92MarkInTheSecondWord) {
  Bytes file(40, 0);
  put32(file, 4, 0xEECACACAu);
  EXPECT_TRUE(kolv::is_version92(file.data()));
  put32(file, 4, 0xEECACACBu);
  EXPECT_FALSE(kolv::is_version92(file.data()));
}

TEST(HeaderReading, ByteOrder) {
  Bytes file = table_header(10, 3, 232);
  EXPECT_EQ(kolv::header_order(file.data()), kolv::HeaderOrder::kOwn);
  put32(file, 20, 1);
  EXPECT_EQ(kolv::header_order(file.data()), kolv::HeaderOrder::kUnrecognised);
  put32(file, 28, 0x02EFCDABu);  // the check word as the other order reads it
  EXPECT_EQ(kolv::header_order(file.data()), kolv::HeaderOrder::kReversed);
  put32(file, 20, 0);
  EXPECT_EQ(kolv::header_order(file.data()), kolv::HeaderOrder::kUnrecognised);
  // The image is only read.
  EXPECT_EQ(kolv::load_le32(file.data() + 28), 0x02EFCDABu);
}

TEST(HeaderReading, FieldsOfABuiltHeader) {
  uint8_t built[128];
  kolv::build_header(built, 4, 2, 0x01020304u, 9);
  kolv::HeaderFields f = kolv::header_fields(built);
  EXPECT_EQ(f.type_code, 1004u);
  EXPECT_EQ(f.element_size, 4u);
  EXPECT_EQ(f.complex_flag, 1u);
  EXPECT_EQ(f.data_offset, 128u + 9 * 33 + 7);
  EXPECT_EQ(f.rows, 0x01020304u);
  EXPECT_EQ(f.columns, 9u);
}

TEST(HeaderReading, ElementWidthsOfKnownTypes) {
  EXPECT_EQ(kolv::element_width(12, 2), 2u);
  EXPECT_EQ(kolv::element_width(1004, 4), 4u);
  EXPECT_EQ(kolv::element_width(1008, 8), 8u);
  EXPECT_EQ(kolv::element_width(1008, 4), 0u);
  EXPECT_EQ(kolv::element_width(12, 8), 0u);
  EXPECT_EQ(kolv::element_width(0, 0), 0u);
}

TEST(HeaderReading, WideDataOffsetAgreesAndDoesNotWrap) {
  for (uint32_t n : {0u, 1u, 3u, 8u, 9u, 1000u}) {
    EXPECT_EQ(kolv::data_offset_wide(n), kolv::data_offset(n)) << n;
  }
  // 128 + 33 * 4294967295 + 1 pad byte.
  EXPECT_EQ(kolv::data_offset_wide(0xFFFFFFFFu), 141733920864ull);
}

TEST(HeaderReading, MissingSlotTest) {
  EXPECT_TRUE(kolv::slot_is_missing(kolv::kMissvalBits));
  EXPECT_TRUE(kolv::slot_is_missing(0x7FF1000000000000ULL));
  EXPECT_TRUE(kolv::slot_is_missing(0xFFFF000000000000ULL));   // sign cleared first
  EXPECT_FALSE(kolv::slot_is_missing(0x7FF0000000000000ULL));  // +infinity
  EXPECT_FALSE(kolv::slot_is_missing(0x7FF0FFFFFFFFFFFFULL));  // NaN, top fraction bits 0
  EXPECT_FALSE(kolv::slot_is_missing(0x3FF0000000000000ULL));  // 1.0
}
