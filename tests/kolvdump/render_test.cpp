// Rendering pieces: CSV fields, the text view's cells, and the choice of
// columns and rows from the command line.
#include "kolvdump/render.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "kolvdump/cli.hpp"
#include "support/scratch.hpp"

namespace {

using kolvdump::ColumnChoice;

std::string csv_field(std::string_view field) {
  char* buf = nullptr;
  size_t len = 0;
  FILE* f = open_memstream(&buf, &len);
  {
    kolvdump::Output out(f);
    kolvdump::put_csv_field(field, out);
  }
  std::fclose(f);
  std::string s(buf, len);
  std::free(buf);
  return s;
}

TEST(KolvdumpCsv, FieldsQuotedOnlyWhenTheyMustBe) {
  EXPECT_EQ(csv_field("plain"), "plain");
  EXPECT_EQ(csv_field(""), "");
  EXPECT_EQ(csv_field("a,b"), "\"a,b\"");
  EXPECT_EQ(csv_field("say \"hi"), "\"say \"\"hi\"");
  EXPECT_EQ(csv_field("two\nlines"), "\"two\nlines\"");
  EXPECT_EQ(csv_field("cr\r"), "\"cr\r\"");
  EXPECT_EQ(csv_field("Z\xC3\xBCrich"), "Z\xC3\xBCrich");  // UTF-8 as it is
  EXPECT_EQ(csv_field(" lead"), " lead");
}

TEST(KolvdumpCsv, MissingTextIsQuotedOnceWhenItNeedsIt) {
  EXPECT_EQ(kolvdump::plan_csv({}, "").na, "");
  EXPECT_EQ(kolvdump::plan_csv({}, "NA").na, "NA");
  EXPECT_EQ(kolvdump::plan_csv({}, "n,a").na, "\"n,a\"");
  EXPECT_EQ(kolvdump::plan_csv({}, "\"").na, "\"\"\"\"");
}

std::string cell(const uint8_t* element, uint32_t width, bool character, size_t* shown = nullptr) {
  char text[64];
  char* end;
  size_t n = kolvdump::text_cell(element, width, character, ".", text, &end);
  if (shown != nullptr) *shown = n;
  return std::string(text, end);
}

TEST(KolvdumpTextCell, MarksTextInANumericColumn) {
  const uint8_t na[8] = {'N', '/', 'A', 0, 0, 0, 0, 0};
  size_t shown = 0;
  EXPECT_EQ(cell(na, 8, false, &shown), "\"N/A\"");
  EXPECT_EQ(shown, 5u);
  // The same bytes in a character column are shown bare.
  EXPECT_EQ(cell(na, 8, true, &shown), "N/A");
  EXPECT_EQ(shown, 3u);
  const uint8_t tab[8] = {'a', '\t', 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(cell(tab, 8, true), "a\\x09");
  const uint8_t missing[8] = {0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0x7F};
  EXPECT_EQ(cell(missing, 8, false), ".");
  EXPECT_EQ(cell(missing, 8, true), ".");
  const uint8_t missing16[2] = {0x00, 0x80};
  EXPECT_EQ(cell(missing16, 2, false), ".");
  const uint8_t missing32[4] = {0xF8, 0xFF, 0xFF, 0x7F};
  EXPECT_EQ(cell(missing32, 4, false), ".");
  const uint8_t utf8[8] = {'Z', 0xC3, 0xBC, 'r', 'i', 'c', 'h', 0};
  EXPECT_EQ(cell(utf8, 8, true, &shown), "Z\xC3\xBCrich");
  EXPECT_EQ(shown, 6u);
}

// A data set description with the given variables, as open_data_set leaves it.
kolvdump::DataSet data_set(std::vector<kolvdump::Variable> vars, bool complex, uint32_t width = 8) {
  kolvdump::DataSet ds;
  ds.width = width;
  ds.complex = complex;
  ds.variables = std::move(vars);
  for (uint32_t v = 0; v < ds.variables.size(); ++v) {
    const auto& var = ds.variables[v];
    bool character = !var.numeric && width == 8;
    if (complex) {
      ds.columns.push_back({var.name + ".re", v, character});
      ds.columns.push_back({var.name + ".im", v, character});
    } else {
      ds.columns.push_back({var.name, v, character});
    }
  }
  ds.row_bytes = ds.columns.size() * width;
  return ds;
}

TEST(KolvdumpColumns, NamesInAnyCaseAndNumbersInTheGivenOrder) {
  auto ds = data_set({{"lake", false}, {"SAMPLE", true}, {"TEMP1", true}, {"PH", true}}, false);
  ColumnChoice c = kolvdump::choose_columns(ds, "ph,Lake,2");
  EXPECT_EQ(c.error, ColumnChoice::Error::kNone);
  EXPECT_EQ(c.columns, (std::vector<uint32_t>{3, 0, 1}));
  c = kolvdump::choose_columns(ds, "4");
  EXPECT_EQ(c.columns, (std::vector<uint32_t>{3}));
}

TEST(KolvdumpColumns, ComplexVariablesGiveBothParts) {
  auto ds = data_set({{"A", true}, {"B", true}}, true);
  ColumnChoice c = kolvdump::choose_columns(ds, "b,1");
  EXPECT_EQ(c.error, ColumnChoice::Error::kNone);
  EXPECT_EQ(c.columns, (std::vector<uint32_t>{2, 3, 0, 1}));
}

TEST(KolvdumpColumns, WrongLists) {
  auto ds = data_set({{"X", true}, {"Y", true}}, false);
  ColumnChoice c = kolvdump::choose_columns(ds, "x,,y");
  EXPECT_EQ(c.error, ColumnChoice::Error::kEmptyItem);
  EXPECT_EQ(c.item, "x,,y");
  EXPECT_EQ(kolvdump::choose_columns(ds, "").error, ColumnChoice::Error::kEmptyItem);
  EXPECT_EQ(kolvdump::choose_columns(ds, "x,").error, ColumnChoice::Error::kEmptyItem);
  c = kolvdump::choose_columns(ds, "x,z");
  EXPECT_EQ(c.error, ColumnChoice::Error::kNoSuchName);
  EXPECT_EQ(c.item, "z");
  c = kolvdump::choose_columns(ds, "3");
  EXPECT_EQ(c.error, ColumnChoice::Error::kNumberOutOfRange);
  EXPECT_EQ(c.item, "3");
  EXPECT_EQ(kolvdump::choose_columns(ds, "0").error, ColumnChoice::Error::kNumberOutOfRange);
  EXPECT_EQ(kolvdump::choose_columns(ds, "99999999999999999999999").error,
            ColumnChoice::Error::kNumberOutOfRange);
  c = kolvdump::choose_columns(ds, "y,2");
  EXPECT_EQ(c.error, ColumnChoice::Error::kTwice);
  EXPECT_EQ(c.item, "2");
  // " x" is not a name of the data set: blanks are part of an item.
  EXPECT_EQ(kolvdump::choose_columns(ds, " x").error, ColumnChoice::Error::kNoSuchName);
}

TEST(KolvdumpRows, RangeFirstToLast) {
  uint64_t first = 0, last = 0;
  EXPECT_TRUE(kolvdump::parse_row_range("2:5", first, last));
  EXPECT_EQ(first, 2u);
  EXPECT_EQ(last, 5u);
  EXPECT_TRUE(kolvdump::parse_row_range("7:7", first, last));
  EXPECT_EQ(first, 7u);
  EXPECT_EQ(last, 7u);
  EXPECT_TRUE(kolvdump::parse_row_range("3:", first, last));
  EXPECT_EQ(first, 3u);
  EXPECT_EQ(last, UINT64_MAX);
  EXPECT_FALSE(kolvdump::parse_row_range("0:5", first, last));
  EXPECT_FALSE(kolvdump::parse_row_range("5:4", first, last));
  EXPECT_FALSE(kolvdump::parse_row_range(":4", first, last));
  EXPECT_FALSE(kolvdump::parse_row_range("4", first, last));
  EXPECT_FALSE(kolvdump::parse_row_range("a:b", first, last));
  EXPECT_FALSE(kolvdump::parse_row_range("-1:4", first, last));
}

TEST(KolvdumpPath, DatAddedToANameWithoutExtension) {
  const kolv_support::ScratchDir scratch("kolvdump_path");
  const std::string dir = scratch.path();
  // Neither file: the name kolv would have written.
  EXPECT_EQ(kolvdump::data_set_path(dir + "/lakes"), dir + "/lakes.dat");
  // Only the bare name exists (a device, a file without extension).
  std::fclose(std::fopen((dir + "/lakes").c_str(), "w"));
  EXPECT_EQ(kolvdump::data_set_path(dir + "/lakes"), dir + "/lakes");
  std::fclose(std::fopen((dir + "/lakes.dat").c_str(), "w"));
  EXPECT_EQ(kolvdump::data_set_path(dir + "/lakes"), dir + "/lakes.dat");
  // A name with an extension is taken as it is.
  EXPECT_EQ(kolvdump::data_set_path(dir + "/lakes.bin"), dir + "/lakes.bin");
  // A dot in a folder name is no extension.
  EXPECT_EQ(kolvdump::data_set_path("./x.d/lakes"), "./x.d/lakes.dat");
}

}  // namespace
