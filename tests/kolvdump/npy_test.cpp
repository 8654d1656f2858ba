// The .npy header, byte by byte, as the version 1.0 format lays it out.
#include "kolvdump/npy.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

kolvdump::DataSet data_set(std::vector<kolvdump::Variable> vars, uint32_t width) {
  kolvdump::DataSet ds;
  ds.width = width;
  ds.variables = std::move(vars);
  for (uint32_t v = 0; v < ds.variables.size(); ++v) {
    const auto& var = ds.variables[v];
    ds.columns.push_back({var.name, v, !var.numeric && width == 8});
  }
  ds.row_bytes = ds.columns.size() * width;
  return ds;
}

std::string preamble(uint16_t header_length) {
  std::string p = "\x93NUMPY";
  p += '\x01';
  p += '\x00';
  p += static_cast<char>(header_length & 0xFF);
  p += static_cast<char>(header_length >> 8);
  return p;
}

TEST(KolvdumpNpy, TwoDimensionalDoubles) {
  auto ds = data_set({{"X", true}, {"Y", true}}, 8);
  // The dictionary is 59 characters; 10 + 59 + the line feed = 70 bytes,
  // so the header fills 128: its length word is 118 (0x76) and 58 blanks
  // come before the line feed.
  const std::string dict = "{'descr': '<f8', 'fortran_order': False, 'shape': (3, 2), }";
  ASSERT_EQ(dict.size(), 59u);
  EXPECT_EQ(kolvdump::npy_header(ds, {0, 1}, 3),
            preamble(118) + dict + std::string(58, ' ') + "\n");
  EXPECT_FALSE(kolvdump::npy_structured(ds, {0, 1}));
}

TEST(KolvdumpNpy, ElementWidthsGiveTheirTypes) {
  auto floats = data_set({{"A", true}}, 4);
  std::string dict = "{'descr': '<f4', 'fortran_order': False, 'shape': (0, 1), }";
  EXPECT_EQ(kolvdump::npy_header(floats, {0}, 0),
            preamble(118) + dict + std::string(58, ' ') + "\n");
  // A character variable of a 2-byte data set holds numbers.
  auto ints = data_set({{"I", true}, {"c", false}}, 2);
  dict = "{'descr': '<i2', 'fortran_order': False, 'shape': (12345, 2), }";
  ASSERT_EQ(dict.size(), 63u);  // 10 + 63 + 1 = 74: still 128 bytes
  EXPECT_EQ(kolvdump::npy_header(ints, {0, 1}, 12345),
            preamble(118) + dict + std::string(54, ' ') + "\n");
}

TEST(KolvdumpNpy, StructuredWithACharacterColumn) {
  auto ds = data_set({{"X", true}, {"NAME", false}}, 8);
  ASSERT_TRUE(kolvdump::npy_structured(ds, {0, 1}));
  const std::string dict =
      "{'descr': [('X', '<f8'), ('NAME', '|S8')], 'fortran_order': False, 'shape': (2,), }";
  ASSERT_EQ(dict.size(), 83u);  // 10 + 83 + 1 = 94: 128 bytes, 34 blanks
  EXPECT_EQ(kolvdump::npy_header(ds, {0, 1}, 2),
            preamble(118) + dict + std::string(34, ' ') + "\n");
  // Without the character column the array is 2-D again.
  EXPECT_FALSE(kolvdump::npy_structured(ds, {0}));
}

TEST(KolvdumpNpy, NamesAsPythonLiterals) {
  auto ds = data_set({{"it's", false}, {"a\\b\x01", true}}, 8);
  const std::string dict =
      "{'descr': [('it\\'s', '|S8'), ('a\\\\b\\x01', '<f8')], 'fortran_order': False, "
      "'shape': (1,), }";
  std::string header = kolvdump::npy_header(ds, {0, 1}, 1);
  EXPECT_EQ(header.substr(10, dict.size()), dict);
  EXPECT_EQ(header.size() % 64, 0u);
}

TEST(KolvdumpNpy, LongerHeadersGrowBySixtyFourAndMayBePadded) {
  std::vector<kolvdump::Variable> vars;
  for (int i = 0; i < 10; ++i) vars.push_back({"VARIABLE" + std::to_string(i), i != 3});
  auto ds = data_set(vars, 8);
  std::vector<uint32_t> all;
  for (uint32_t c = 0; c < 10; ++c) all.push_back(c);
  std::string header = kolvdump::npy_header(ds, all, 5);
  // Each field is "('VARIABLEn', '<f8')" (20 characters) and ", " between:
  // 10 * 20 + 9 * 2 + 2 brackets = 220; with the 10 + 42 characters of the
  // rest of the dictionary ("{'descr': " and ", 'fortran_order': False,
  // 'shape': (5,), }"), the 10-byte preamble and the line feed, 283 bytes:
  // 320 in all, and a header length of 310.
  EXPECT_EQ(header.size(), 320u);
  EXPECT_EQ(static_cast<uint8_t>(header[8]), 310 & 0xFF);
  EXPECT_EQ(static_cast<uint8_t>(header[9]), 310 >> 8);
  EXPECT_EQ(header.back(), '\n');
  // Rewritten with another row count in the same room.
  std::string again = kolvdump::npy_header(ds, all, 123456789, header.size());
  EXPECT_EQ(again.size(), 320u);
  EXPECT_NE(again.find("'shape': (123456789,), }"), std::string::npos);
}

}  // namespace
