// kolvdump's whole run in-process: arguments, reading, every view and the
// messages and exit statuses, on data sets written byte by byte.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kolvdump/cli.hpp"
#include "support/dataset.hpp"
#include "support/files.hpp"
#include "support/scratch.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

using kolv_support::put32;

void append16(Bytes& b, uint16_t v) {
  b.push_back(static_cast<uint8_t>(v & 0xFF));
  b.push_back(static_cast<uint8_t>(v >> 8));
}

void append32(Bytes& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>((v >> (8 * i)) & 0xFF));
}

void append64(Bytes& b, uint64_t v) {
  for (int i = 0; i < 8; ++i) b.push_back(static_cast<uint8_t>((v >> (8 * i)) & 0xFF));
}

void append_double(Bytes& b, double d) {
  uint64_t bits;
  std::memcpy(&bits, &d, sizeof bits);
  append64(b, bits);
}

void append_float(Bytes& b, float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  append32(b, bits);
}

void append_text(Bytes& b, const char* text) {
  uint8_t slot[8] = {};
  std::memcpy(slot, text, std::min<size_t>(8, std::strlen(text)));
  b.insert(b.end(), slot, slot + 8);
}

constexpr uint64_t kMissval = 0x7FFFFFFF00000000ULL;

struct Var {
  std::string name;
  uint8_t type;  // 1 numeric, 0 character
};

// Header and variable block laid out field by field: signature words, check
// word, fixed words, element type, complex flag, data offset, rows, columns;
// then 32-byte names, type bytes and pad to a multiple of 8.
Bytes data_set(uint32_t code, uint32_t size, uint32_t complex_flag, uint32_t rows,
               const std::vector<Var>& vars) {
  uint32_t n = static_cast<uint32_t>(vars.size());
  uint32_t pad = n % 8 == 0 ? 0 : 8 - n % 8;
  Bytes b(128, 0);
  put32(b, 0, 0xFFFFFFFF);
  put32(b, 8, 0xFFFFFFFF);
  put32(b, 16, 0xFFFFFFFF);
  put32(b, 28, 0xABCDEF02);
  put32(b, 32, 1);
  put32(b, 40, 1);
  put32(b, 44, code);
  put32(b, 48, size);
  put32(b, 52, complex_flag);
  put32(b, 56, 1);
  put32(b, 60, 2);
  put32(b, 64, 1);
  put32(b, 72, 128 + 33 * n + pad);
  put32(b, 80, rows);
  put32(b, 84, n);
  for (const Var& v : vars) {
    uint8_t field[32] = {};
    std::memcpy(field, v.name.data(), std::min<size_t>(32, v.name.size()));
    b.insert(b.end(), field, field + 32);
  }
  for (const Var& v : vars) b.push_back(v.type);
  b.insert(b.end(), pad, 0);
  return b;
}

// The sample of doubles: X numeric, NAME character, Y numeric (data at 232).
Bytes doubles_sample(uint32_t header_rows) {
  Bytes b = data_set(1008, 8, 0, header_rows, {{"X", 1}, {"NAME", 0}, {"Y", 1}});
  append_double(b, 1.5);
  append_text(b, "ABC");
  append64(b, kMissval);
  append_double(b, -0.1);
  append_text(b, "LONGTEXT");
  append_double(b, 2.0);
  return b;
}

struct Outcome {
  int status = -100;
  std::string out;
  std::string err;
};

class KolvdumpRun : public ::testing::Test {
 protected:
  std::string write(const std::string& name, const Bytes& bytes) {
    std::string path = dir_ + "/" + name;
    EXPECT_TRUE(kolv_support::write_file(
        path, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size())))
        << path;
    return path;
  }

  static Outcome run(std::vector<std::string> args) {
    args.insert(args.begin(), "kolvdump");
    std::vector<const char*> argv;
    for (const std::string& a : args) argv.push_back(a.c_str());
    argv.push_back(nullptr);
    char* out_buf = nullptr;
    size_t out_len = 0;
    char* err_buf = nullptr;
    size_t err_len = 0;
    FILE* out = open_memstream(&out_buf, &out_len);
    FILE* err = open_memstream(&err_buf, &err_len);
    Outcome o;
    o.status = kolvdump::run(static_cast<int>(args.size()), argv.data(), out, err);
    std::fclose(out);
    std::fclose(err);
    o.out.assign(out_buf, out_len);
    o.err.assign(err_buf, err_len);
    std::free(out_buf);
    std::free(err_buf);
    return o;
  }

  kolv_support::ScratchDir scratch_{"kolvdump_test"};
  std::string dir_ = scratch_.path();
};

std::string sp(size_t n) {
  return std::string(n, ' ');
}

const char* const kUsage = "usage: kolvdump [OPTION]... FILE\n";

}  // namespace

// ---- the text view ----

// The header and variable list kolvdump prints for doubles_sample(2) at
// `path`, before its rows.
std::string doubles_sample_header(const std::string& path) {
  // clang-format off
  return
      "data set:      " + path + "\n" +
      "version:       96\n"
      "element type:  1008 (8-byte double)\n"
      "element size:  8\n"
      "complex:       0 (no)\n"
      "rows:          2\n"
      "columns:       3\n"
      "data offset:   232\n"
      "\n"
      "variables:\n"
      "  1  X     numeric\n"
      "  2  NAME  character\n"
      "  3  Y     numeric\n";
  // clang-format on
}

TEST_F(KolvdumpRun, TextLayoutOfDoubles) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  // X is as wide as "-0.1", NAME as "LONGTEXT", Y as its label.
  // clang-format off
  std::string expected =
      doubles_sample_header(path) +
      "\n"
      "data:\n"
      "  row     X  NAME      Y\n"
      "    1   1.5  ABC       .\n"
      "    2  -0.1  LONGTEXT  2\n";
  // clang-format on
  EXPECT_EQ(o.out, expected);
}

TEST(KolvdumpPipe, APipeReadsLikeAFile) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  Bytes b = doubles_sample(2);
  ASSERT_EQ(::write(fds[1], b.data(), b.size()), static_cast<ssize_t>(b.size()));
  close(fds[1]);
  FILE* in = fdopen(fds[0], "rb");
  ASSERT_NE(in, nullptr);
  char* out_buf = nullptr;
  size_t out_len = 0;
  char* err_buf = nullptr;
  size_t err_len = 0;
  FILE* out = open_memstream(&out_buf, &out_len);
  FILE* err = open_memstream(&err_buf, &err_len);
  kolvdump::Options options;
  options.first = 2;  // found by reading past row 1
  int status = kolvdump::dump(in, "pipe", options, out, err);
  std::fclose(in);
  std::fclose(out);
  std::fclose(err);
  std::string text(out_buf, out_len);
  std::string errors(err_buf, err_len);
  std::free(out_buf);
  std::free(err_buf);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(errors, "");
  std::string data =
      "data:\n"
      "  row     X  NAME      Y\n"
      "    2  -0.1  LONGTEXT  2\n";
  ASSERT_GE(text.size(), data.size());
  EXPECT_EQ(text.substr(text.size() - data.size()), data);
  EXPECT_EQ(text.substr(0, 20), "data set:      pipe\n");
}

TEST_F(KolvdumpRun, TextInANumericColumnIsQuoted) {
  Bytes b = data_set(1008, 8, 0, 3, {{"city", 0}, {"POP", 1}});
  append_text(b, "Zurich");
  append_double(b, 68.2);
  append_text(b, "Z\xC3\xBCrich");
  append_text(b, "N/A");
  append_text(b, "Bern");
  append64(b, kMissval);
  std::string path = write("text.dat", b);
  Outcome o = run({path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  // city is 6 characters wide ("Zürich" shows 6), POP 5 ("N/A" in quotes).
  std::string data =
      "data:\n"
      "  row  city      POP\n"
      "    1  Zurich   68.2\n"
      "    2  Z\xC3\xBCrich  \"N/A\"\n"
      "    3  Bern        .\n";
  ASSERT_GE(o.out.size(), data.size());
  EXPECT_EQ(o.out.substr(o.out.size() - data.size()), data);

  Outcome csv = run({"--csv", path});
  EXPECT_EQ(csv.status, 0);
  EXPECT_EQ(csv.out, "city,POP\nZurich,68.2\nZ\xC3\xBCrich,N/A\nBern,\n");
}

TEST_F(KolvdumpRun, ComplexFloatsTakeTwoColumnsPerVariable) {
  Bytes b = data_set(1004, 4, 1, 2, {{"A", 1}, {"B", 1}});
  append_float(b, 1.1f);
  append32(b, 0x7FFFFFF8u);
  append_float(b, 3.0f);
  append_float(b, 4.0f);
  append32(b, 0x7FC00000u);
  append_float(b, -2.5f);
  append_float(b, 0.0f);
  append_float(b, 1e10f);
  std::string path = write("complex.dat", b);

  Outcome csv = run({"--csv", path});
  EXPECT_EQ(csv.status, 0);
  EXPECT_EQ(csv.err, "");
  EXPECT_EQ(csv.out,
            "A.re,A.im,B.re,B.im\n"
            "1.1,,3,4\n"
            "nan,-2.5,0,10000000000\n");

  Outcome text = run({path});
  EXPECT_EQ(text.status, 0);
  EXPECT_EQ(text.err, "");
  // clang-format off
  std::string expected =
      "data set:      " + path + "\n" +
      "version:       96\n"
      "element type:  1004 (4-byte float)\n"
      "element size:  4\n"
      "complex:       1 (yes, a real and an imaginary element per variable)\n"
      "rows:          2\n"
      "columns:       2\n"
      "data offset:   200\n"
      "\n"
      "variables:\n"
      "  1  A  numeric\n"
      "  2  B  numeric\n"
      "\n"
      "data:\n"
      "  row  A.re  A.im  B.re         B.im\n"
      "    1   1.1     .     3            4\n"
      "    2   nan  -2.5     0  10000000000\n";
  // clang-format on
  EXPECT_EQ(text.out, expected);

  Outcome b_only = run({"--csv", "--columns", "b", path});
  EXPECT_EQ(b_only.out, "B.re,B.im\n3,4\n0,10000000000\n");
}

TEST_F(KolvdumpRun, TwoByteIntegersAndCharacterVariableAsNumber) {
  // A character variable in 2-byte output holds numbers; its text is gone.
  Bytes b = data_set(12, 2, 0, 2, {{"I", 1}, {"C", 0}});
  append16(b, 0x8000);
  append16(b, 0x0041);
  append16(b, 0x7FFF);
  append16(b, 0xFFFE);
  std::string path = write("ints.dat", b);
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out, "I,C\n,65\n32767,-2\n");

  Outcome text = run({path});
  EXPECT_EQ(text.status, 0);
  // clang-format off
  std::string tail =
      "variables:\n"
      "  1  I  numeric\n"
      "  2  C  character\n"
      "\n"
      "data:\n"
      "  row      I   C\n"
      "    1      .  65\n"
      "    2  32767  -2\n";
  // clang-format on
  ASSERT_GE(text.out.size(), tail.size());
  EXPECT_EQ(text.out.substr(text.out.size() - tail.size()), tail);
  EXPECT_NE(text.out.find("element type:  12 (2-byte integer)\n"), std::string::npos);
}

TEST_F(KolvdumpRun, NamesEscapedInTheTextViewAndAsTheyAreInCsv) {
  std::string long_name(32, 'N');
  Bytes b = data_set(1008, 8, 0, 0, {{long_name, 1}, {std::string("a\x01z"), 1}, {"q,r", 0}});
  std::string path = write("names.dat", b);
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out, long_name + ",a\x01z,\"q,r\"\n");

  Outcome text = run({"--header-only", path});
  EXPECT_EQ(text.status, 0);
  EXPECT_NE(text.out.find("  1  " + long_name + "  numeric\n"), std::string::npos);
  EXPECT_NE(text.out.find("  2  a\\x01z" + sp(32 - 6) + "  numeric\n"), std::string::npos);
  EXPECT_NE(text.out.find("  3  q,r" + sp(32 - 3) + "  character\n"), std::string::npos);
}

TEST_F(KolvdumpRun, HeaderOnly) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({"--header-only", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  // clang-format off
  std::string expected =
      doubles_sample_header(path);
  // clang-format on
  EXPECT_EQ(o.out, expected);

  Outcome csv = run({"--csv", "--header-only", path});
  EXPECT_EQ(csv.status, 0);
  EXPECT_EQ(csv.out, "X,NAME,Y\n");
}

TEST_F(KolvdumpRun, NoVariables) {
  std::string path = write("none.dat", data_set(1008, 8, 0, 0, {}));
  Outcome o = run({path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  std::string tail = "variables:\n  none\n\ndata:\n  row\n";
  ASSERT_GE(o.out.size(), tail.size());
  EXPECT_EQ(o.out.substr(o.out.size() - tail.size()), tail);
}

// ---- CSV ----

TEST_F(KolvdumpRun, CsvOfDoubles) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out,
            "X,NAME,Y\n"
            "1.5,ABC,\n"
            "-0.1,LONGTEXT,2\n");
}

TEST_F(KolvdumpRun, CsvMissingTextAndNoHeader) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({"--csv", "--na", "NA", "--no-header", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "1.5,ABC,NA\n-0.1,LONGTEXT,2\n");
  o = run({"--csv", "--na=n,a", path});
  EXPECT_EQ(o.out, "X,NAME,Y\n1.5,ABC,\"n,a\"\n-0.1,LONGTEXT,2\n");
  // --na in the text view.
  o = run({"--na", "NA", "--columns", "y", path});
  EXPECT_NE(o.out.find("  row   Y\n    1  NA\n    2   2\n"), std::string::npos) << o.out;
}

TEST_F(KolvdumpRun, CsvQuotesTextWithCommasAndQuotes) {
  Bytes b = data_set(1008, 8, 0, 1, {{"T", 0}, {"U", 0}});
  append_text(b, "a,b");
  append_text(b, "say \"hi");
  std::string path = write("quotes.dat", b);
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "T,U\n\"a,b\",\"say \"\"hi\"\n");
}

TEST_F(KolvdumpRun, OptionsAfterTheFile) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({path, "--csv"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out.substr(0, 9), "X,NAME,Y\n");
}

TEST_F(KolvdumpRun, EmptyDataSet) {
  std::string path = write("empty_rows.dat", data_set(1008, 8, 0, 0, {{"X", 1}}));
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out, "X\n");
}

// ---- rows and columns ----

// Rows 1 to 12 of one variable N holding 10 * the row number.
Bytes counted_rows(uint32_t header_rows = 12) {
  Bytes b = data_set(1008, 8, 0, header_rows, {{"N", 1}, {"s", 0}});
  for (int r = 1; r <= 12; ++r) {
    append_double(b, 10.0 * r);
    char name[8];
    std::snprintf(name, sizeof name, "r%d", r);
    append_text(b, name);
  }
  return b;
}

TEST_F(KolvdumpRun, RowsAndHead) {
  std::string path = write("rows.dat", counted_rows());
  Outcome o = run({"--csv", "--rows", "3:5", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "N,s\n30,r3\n40,r4\n50,r5\n");
  o = run({"--csv", "--rows=11:", path});
  EXPECT_EQ(o.out, "N,s\n110,r11\n120,r12\n");
  o = run({"--csv", "--head", "2", path});
  EXPECT_EQ(o.out, "N,s\n10,r1\n20,r2\n");
  o = run({"--csv", "--rows", "4:9", "--head", "2", path});
  EXPECT_EQ(o.out, "N,s\n40,r4\n50,r5\n");
  o = run({"--csv", "--head", "0", path});
  EXPECT_EQ(o.out, "N,s\n");
  // Past the last row: nothing, and no complaint.
  o = run({"--csv", "--rows", "20:30", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "N,s\n");
  EXPECT_EQ(o.err, "");
  // The text view numbers rows as in the file; 12 rows take 3 digits anyway.
  o = run({"--rows", "10:11", path});
  EXPECT_NE(o.out.find("data:\n  row    N  s\n   10  100  r10\n   11  110  r11\n"),
            std::string::npos)
      << o.out;
}

TEST_F(KolvdumpRun, ColumnsByNameAndNumber) {
  std::string path = write("rows.dat", counted_rows());
  Outcome o = run({"--csv", "--columns", "S,1", "--head", "1", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "s,N\nr1,10\n");
  o = run({"--csv", "--columns=n", "--head=1", path});
  EXPECT_EQ(o.out, "N\n10\n");
}

TEST_F(KolvdumpRun, WrongColumnLists) {
  std::string path = write("rows.dat", counted_rows());
  Outcome o = run({"--columns", "n,x", path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: " + path + " has no variable named x\n");
  o = run({"--columns", "3", path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err,
            "kolvdump: " + path + " has no variable 3 (its variables are numbered 1 to 2)\n");
  o = run({"--columns", "n,,s", path});
  EXPECT_EQ(o.err, "kolvdump: --columns has an empty item: n,,s\n");
  o = run({"--columns", "n,1", path});
  EXPECT_EQ(o.err, "kolvdump: --columns names variable 1 twice\n");
}

TEST_F(KolvdumpRun, BadRowOptions) {
  std::string path = write("rows.dat", counted_rows());
  Outcome o = run({"--rows", "5:2", path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, "kolvdump: --rows needs FIRST:LAST, rows from 1 with FIRST <= LAST, not 5:2\n" +
                       std::string(kUsage));
  o = run({"--head", "x", path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, "kolvdump: --head needs a number of rows, not x\n" + std::string(kUsage));
  o = run({path, "--head"});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, "kolvdump: --head needs a value\n" + std::string(kUsage));
}

// ---- rows that disagree with the header ----

TEST_F(KolvdumpRun, FewerRowsThanTheHeaderClaims) {
  std::string path = write("short.dat", doubles_sample(3));
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.out,
            "X,NAME,Y\n"
            "1.5,ABC,\n"
            "-0.1,LONGTEXT,2\n");
  EXPECT_EQ(o.err, "kolvdump: header claims 3 rows but the file holds 2\n");

  Outcome text = run({path});
  EXPECT_EQ(text.status, 1);
  EXPECT_NE(text.out.find("rows:          3\n"), std::string::npos);
  EXPECT_NE(text.out.find("    2  -0.1  LONGTEXT  2\n"), std::string::npos);
  EXPECT_EQ(text.err, "kolvdump: header claims 3 rows but the file holds 2\n");

  Outcome header = run({"--header-only", path});
  EXPECT_EQ(header.status, 1);
  EXPECT_EQ(header.err, "kolvdump: header claims 3 rows but the file holds 2\n");

  Outcome check = run({"--check", path});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.out, "");
  EXPECT_EQ(check.err, "kolvdump: header claims 3 rows but the file holds 2\n");
}

TEST_F(KolvdumpRun, MoreRowsThanTheHeaderClaims) {
  std::string path = write("long.dat", doubles_sample(1));
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.out,
            "X,NAME,Y\n"
            "1.5,ABC,\n"
            "-0.1,LONGTEXT,2\n");
  EXPECT_EQ(o.err, "kolvdump: header claims 1 rows but the file holds 2\n");
  Outcome check = run({"--check", path});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.err, "kolvdump: header claims 1 rows but the file holds 2\n");
}

TEST_F(KolvdumpRun, PartialRowAtTheEnd) {
  Bytes b = doubles_sample(2);
  b.insert(b.end(), {1, 2, 3, 4, 5});
  std::string path = write("tail.dat", b);
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.out,
            "X,NAME,Y\n"
            "1.5,ABC,\n"
            "-0.1,LONGTEXT,2\n");
  EXPECT_EQ(o.err, "kolvdump: " + path + " ends with 5 bytes that do not make a whole row\n");
  Outcome check = run({"--check", path});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.err, o.err);
}

TEST_F(KolvdumpRun, CheckSaysOneThingOnly) {
  // Fewer rows and a partial one: --check names the row count alone, the
  // views both.
  Bytes b = doubles_sample(3);
  b.insert(b.end(), {1, 2, 3});
  std::string path = write("both.dat", b);
  Outcome check = run({"--check", path});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.err, "kolvdump: header claims 3 rows but the file holds 2\n");
  Outcome csv = run({"--csv", path});
  EXPECT_EQ(csv.status, 1);
  EXPECT_EQ(csv.err,
            "kolvdump: header claims 3 rows but the file holds 2\n"
            "kolvdump: " +
                path + " ends with 3 bytes that do not make a whole row\n");
}

TEST_F(KolvdumpRun, CheckOfAWholeDataSet) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({"--check", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "");
}

TEST_F(KolvdumpRun, HeaderClaimsRowsOfAnEmptyFile) {
  // A run stopped by bad data may count rows it never wrote.
  std::string path = write("none.dat", data_set(12, 2, 0, 4, {{"I", 1}}));
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.out, "I\n");
  EXPECT_EQ(o.err, "kolvdump: header claims 4 rows but the file holds 0\n");
}

// ---- files that are not finished version-96 data sets ----

TEST_F(KolvdumpRun, UnfinishedFile) {
  Bytes b(128, 0);  // the placeholder header of a run in progress
  Bytes block = data_set(1008, 8, 0, 0, {{"X", 1}});
  b.insert(b.end(), block.begin() + 128, block.end());
  append_double(b, 1.0);
  std::string path = write("unfinished.dat", b);
  std::string message =
      "kolvdump: " + path + " is an unfinished data set: its header was never written\n";
  Outcome o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, message);
  Outcome check = run({"--check", path});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.out, "");
  EXPECT_EQ(check.err, message);
}

TEST_F(KolvdumpRun, NotADataSet) {
  Bytes b(200, 'x');
  std::string path = write("text.dat", b);
  Outcome o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: " + path + " is not a data set\n");
  Outcome check = run({"--check", path});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.err, o.err);
}

TEST_F(KolvdumpRun, TooShortFiles) {
  std::string empty = write("empty.dat", Bytes{});
  Outcome o = run({empty});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: " + empty + " is too short for a data set header (0 bytes)\n");

  Bytes cut = doubles_sample(2);
  cut.resize(60);
  std::string path = write("cut.dat", cut);
  o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: " + path + " is too short for a data set header (60 bytes)\n");
}

TEST_F(KolvdumpRun, VariableBlockCutShort) {
  Bytes b = doubles_sample(2);
  b.resize(200);  // data would start at 232
  std::string path = write("block.dat", b);
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: " + path + " is too short for its block of 3 variables\n");
}

TEST_F(KolvdumpRun, OtherByteOrder) {
  Bytes b = doubles_sample(2);
  put32(b, 20, 1);
  put32(b, 28, 0x02EFCDABu);
  std::string path = write("swapped.dat", b);
  Outcome o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: " + path + " was written in the other byte order\n");
}

TEST_F(KolvdumpRun, UnrecognisedByteOrderMark) {
  Bytes b = doubles_sample(2);
  put32(b, 20, 1);  // flag set, check word in the writer's order
  std::string flagged = write("flagged.dat", b);
  Outcome o = run({flagged});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, "kolvdump: " + flagged + " has an unrecognised byte-order mark\n");

  Bytes c = doubles_sample(2);
  put32(c, 28, 0x12345678u);
  std::string checked = write("checked.dat", c);
  o = run({checked});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: " + checked + " has an unrecognised byte-order mark\n");
}

TEST_F(KolvdumpRun, Version92File) {
  Bytes b(40 + 100, 0);
  put32(b, 4, 0xEECACACAu);
  std::string path = write("old.dat", b);
  Outcome o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: " + path + " is a version-92 data set, not version 96\n");
}

TEST_F(KolvdumpRun, UnknownElementType) {
  Bytes b = doubles_sample(2);
  put32(b, 48, 4);  // code 1008 with size 4
  std::string mixed = write("mixed.dat", b);
  Outcome o = run({mixed});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: " + mixed + " has an unknown element type (code 1008, size 4)\n");

  put32(b, 44, 0);
  put32(b, 48, 0);  // a header built with no known element size
  std::string zero = write("zero.dat", b);
  o = run({zero});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, "kolvdump: " + zero + " has an unknown element type (code 0, size 0)\n");
}

TEST_F(KolvdumpRun, UnknownComplexFlag) {
  Bytes b = doubles_sample(2);
  put32(b, 52, 2);
  std::string path = write("cplx.dat", b);
  Outcome o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, "kolvdump: " + path + " has an unknown complex flag (2)\n");
}

TEST_F(KolvdumpRun, DataOffsetDisagreesWithColumns) {
  Bytes b = doubles_sample(2);
  put32(b, 72, 224);
  std::string path = write("offset.dat", b);
  Outcome o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err,
            "kolvdump: " + path + " gives data offset 224, but 3 columns put the data at 232\n");
}

TEST_F(KolvdumpRun, HugeColumnCountDoesNotWrap) {
  Bytes b = doubles_sample(2);
  put32(b, 84, 0xFFFFFFFFu);  // 128 + 33 * n + 1 is far beyond 32 bits
  put32(b, 72, 232);
  std::string path = write("huge.dat", b);
  Outcome o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, "kolvdump: " + path +
                       " gives data offset 232, but 4294967295 columns put the data at "
                       "141733920864\n");
}

TEST_F(KolvdumpRun, UnknownTypeByte) {
  Bytes b = doubles_sample(2);
  b[128 + 3 * 32 + 1] = 2;
  std::string path = write("type.dat", b);
  Outcome o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: " + path + " gives type byte 2 to variable 2\n");
}

// ---- npy ----

TEST_F(KolvdumpRun, NpyOfNumericColumnsIsTwoDimensional) {
  std::string path = write("rows.dat", counted_rows());
  std::string npy = dir_ + "/out.npy";
  Outcome o = run({"--npy", npy, "--columns", "n", "--rows", "2:3", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "");
  // 59-character dictionary: a 128-byte header (length word 118), then 20.0
  // and 30.0 as little-endian doubles.
  std::string dict = "{'descr': '<f8', 'fortran_order': False, 'shape': (2, 1), }";
  Bytes want = {0x93, 'N', 'U', 'M', 'P', 'Y', 1, 0, 118, 0};
  want.insert(want.end(), dict.begin(), dict.end());
  want.insert(want.end(), 58, ' ');
  want.push_back('\n');
  append_double(want, 20.0);
  append_double(want, 30.0);
  FILE* f = std::fopen(npy.c_str(), "rb");
  ASSERT_NE(f, nullptr);
  Bytes got(4096);
  got.resize(std::fread(got.data(), 1, got.size(), f));
  std::fclose(f);
  EXPECT_EQ(got, want);
}

TEST_F(KolvdumpRun, NpyKeepsMissingPatternsAndText) {
  std::string path = write("doubles.dat", doubles_sample(2));
  std::string npy = dir_ + "/out.npy";
  Outcome o = run({"--npy=" + npy, path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  std::string dict =
      "{'descr': [('X', '<f8'), ('NAME', '|S8'), ('Y', '<f8')], 'fortran_order': False, "
      "'shape': (2,), }";
  // 10 + 97 + 1 = 108 bytes: 128 in all, 20 blanks.
  ASSERT_EQ(dict.size(), 97u);
  Bytes want = {0x93, 'N', 'U', 'M', 'P', 'Y', 1, 0, 118, 0};
  want.insert(want.end(), dict.begin(), dict.end());
  want.insert(want.end(), 20, ' ');
  want.push_back('\n');
  Bytes sample = doubles_sample(2);
  want.insert(want.end(), sample.begin() + 232, sample.end());  // rows as stored
  FILE* f = std::fopen(npy.c_str(), "rb");
  ASSERT_NE(f, nullptr);
  Bytes got(4096);
  got.resize(std::fread(got.data(), 1, got.size(), f));
  std::fclose(f);
  EXPECT_EQ(got, want);
}

TEST_F(KolvdumpRun, NpyFromAPipeCountsItsRowsAfterwards) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  Bytes b = counted_rows(99);  // the header is wrong: 12 rows follow
  ASSERT_EQ(::write(fds[1], b.data(), b.size()), static_cast<ssize_t>(b.size()));
  close(fds[1]);
  FILE* in = fdopen(fds[0], "rb");
  ASSERT_NE(in, nullptr);
  std::string npy = dir_ + "/pipe.npy";
  kolvdump::Options options;
  options.mode = kolvdump::Mode::kNpy;
  options.npy = npy;
  options.columns = "1";
  FILE* sink = std::fopen("/dev/null", "w");
  int status = kolvdump::dump(in, "pipe", options, sink, sink);
  std::fclose(sink);
  std::fclose(in);
  EXPECT_EQ(status, 1);  // the header's 99 rows
  FILE* f = std::fopen(npy.c_str(), "rb");
  ASSERT_NE(f, nullptr);
  Bytes got(4096);
  got.resize(std::fread(got.data(), 1, got.size(), f));
  std::fclose(f);
  // Room was made for a 20-digit row count: the dictionary with
  // "(18446744073709551615, 1)" is 78 characters, still one 128-byte header.
  std::string dict = "{'descr': '<f8', 'fortran_order': False, 'shape': (12, 1), }";
  ASSERT_EQ(got.size(), 128u + 12 * 8);
  EXPECT_EQ(std::string(got.begin() + 10, got.begin() + 10 + static_cast<long>(dict.size())), dict);
  EXPECT_EQ(got[127], '\n');
  EXPECT_EQ(got[8], 118);
}

TEST_F(KolvdumpRun, NpyCannotBeCreated) {
  std::string path = write("doubles.dat", doubles_sample(2));
  std::string npy = dir_ + "/no/such/dir/out.npy";
  Outcome o = run({"--npy", npy, path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, "kolvdump: cannot create " + npy + ": No such file or directory\n");
}

// ---- command line ----

TEST_F(KolvdumpRun, NoArgumentsPrintsUsage) {
  Outcome o = run({});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, std::string("kolvdump: no data set named\n") + kUsage);
}

TEST_F(KolvdumpRun, UnknownOptionPrintsUsage) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({"--xml", path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, std::string("kolvdump: unknown option --xml\n") + kUsage);
}

TEST_F(KolvdumpRun, TwoFilesPrintUsage) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({path, "b.dat"});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: one file only: " + path + " and b.dat\n" + kUsage);
}

TEST_F(KolvdumpRun, OptionsThatDoNotGoTogether) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({"--csv", "--check", path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, std::string("kolvdump: --check cannot be used with --csv\n") + kUsage);
  o = run({"--no-header", path});
  EXPECT_EQ(o.err, std::string("kolvdump: --no-header needs --csv\n") + kUsage);
  o = run({"--npy", "x.npy", "--na", "NA", path});
  EXPECT_EQ(o.err, std::string("kolvdump: --na cannot be used with --npy\n") + kUsage);
  o = run({"--check", "--head", "3", path});
  EXPECT_EQ(o.err,
            std::string("kolvdump: --check reads no rows out: --columns, --rows and --head do not "
                        "apply\n") +
                kUsage);
}

TEST_F(KolvdumpRun, HelpAndVersionGoToStandardOutput) {
  Outcome o = run({"--help"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out.rfind(kUsage, 0), 0u);
  for (const char* option : {"--csv", "--npy", "--check", "--columns", "--rows", "--head",
                             "--header-only", "--na", "--no-header", "--version"}) {
    EXPECT_NE(o.out.find(std::string("  ") + option + " "), std::string::npos) << option;
  }
  Outcome v = run({"--version"});
  EXPECT_EQ(v.status, 0);
  EXPECT_EQ(v.out.rfind("kolvdump (kolv) ", 0), 0u);
  EXPECT_EQ(v.out.back(), '\n');
}

TEST_F(KolvdumpRun, DoubleDashEndsOptions) {
  std::string path = write("-dash.dat", doubles_sample(2));
  Outcome o = run({"--csv", "--", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out.substr(0, 9), "X,NAME,Y\n");
}

TEST_F(KolvdumpRun, DatAddedToTheName) {
  std::string path = write("lakes.dat", doubles_sample(2));
  Outcome o = run({"--csv", dir_ + "/lakes"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out.substr(0, 9), "X,NAME,Y\n");
  o = run({dir_ + "/lakes"});
  EXPECT_EQ(o.out.substr(0, 15 + path.size() + 1), "data set:      " + path + "\n");
}

TEST_F(KolvdumpRun, MissingFile) {
  std::string path = dir_ + "/absent.dat";
  Outcome o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: cannot open " + path + ": No such file or directory\n");
  Outcome check = run({"--check", dir_ + "/absent"});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.err, "kolvdump: cannot open " + path + ": No such file or directory\n");
}

// ---- rows found by seeking ----

namespace {

// A read-only stream over bytes in memory that counts the bytes it hands
// out, to tell seeking from reading.
struct CountingSource {
  Bytes bytes;
  size_t at = 0;
  size_t handed_out = 0;
};

ssize_t counting_read(void* cookie, char* to, size_t size) {
  auto* s = static_cast<CountingSource*>(cookie);
  size_t n = std::min(size, s->bytes.size() - s->at);
  std::memcpy(to, s->bytes.data() + s->at, n);
  s->at += n;
  s->handed_out += n;
  return static_cast<ssize_t>(n);
}

int counting_seek(void* cookie, off64_t* offset, int whence) {
  auto* s = static_cast<CountingSource*>(cookie);
  off64_t base = whence == SEEK_SET   ? 0
                 : whence == SEEK_CUR ? static_cast<off64_t>(s->at)
                                      : static_cast<off64_t>(s->bytes.size());
  off64_t to = base + *offset;
  if (to < 0) return -1;
  s->at = std::min(static_cast<size_t>(to), s->bytes.size());
  *offset = to;
  return 0;
}

}  // namespace

TEST(KolvdumpSeek, RowsAreFoundBySeekingNotByReading) {
  // 100000 rows of three doubles: 2.4 MB of rows after the 232-byte head.
  CountingSource source;
  source.bytes = data_set(1008, 8, 0, 100000, {{"A", 1}, {"B", 1}, {"C", 1}});
  for (int r = 1; r <= 100000; ++r) {
    append_double(source.bytes, r);
    append_double(source.bytes, -r);
    append_double(source.bytes, r / 2.0);
  }
  cookie_io_functions_t io = {counting_read, nullptr, counting_seek, nullptr};
  FILE* in = fopencookie(&source, "r", io);
  ASSERT_NE(in, nullptr);
  char* out_buf = nullptr;
  size_t out_len = 0;
  FILE* out = open_memstream(&out_buf, &out_len);
  kolvdump::Options options;
  options.mode = kolvdump::Mode::kCsv;
  options.first = 99999;
  options.last = 99999;
  options.names = false;
  int status = kolvdump::dump(in, "cookie", options, out, stderr);
  std::fclose(in);
  std::fclose(out);
  std::string text(out_buf, out_len);
  std::free(out_buf);
  // The row count is not known from a size here, so the rest of the stream
  // is read to count it, but not the 99998 rows before the one asked for.
  EXPECT_EQ(status, 0);
  EXPECT_EQ(text, "99999,-99999,49999.5\n");
  EXPECT_LT(source.handed_out, 232u + 100000u * 24u - 99998u * 24u + 65536u);
}
