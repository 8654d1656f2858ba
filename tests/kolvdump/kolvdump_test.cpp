#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kolvdump/dump.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

void put32(Bytes& b, size_t at, uint32_t v) {
  if (b.size() < at + 4) b.resize(at + 4, 0);
  for (int i = 0; i < 4; ++i) b[at + static_cast<size_t>(i)] = static_cast<uint8_t>((v >> (8 * i)) & 0xFF);
}

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
  void SetUp() override {
    char templ[] = "/tmp/kolvdump_test_XXXXXX";
    ASSERT_NE(mkdtemp(templ), nullptr);
    dir_ = templ;
  }
  void TearDown() override {
    for (const std::string& f : files_) unlink(f.c_str());
    rmdir(dir_.c_str());
  }

  std::string write(const std::string& name, const Bytes& bytes) {
    std::string path = dir_ + "/" + name;
    FILE* fp = std::fopen(path.c_str(), "wb");
    EXPECT_NE(fp, nullptr);
    if (fp == nullptr) return path;
    if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), fp);
    std::fclose(fp);
    files_.push_back(path);
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

  std::string dir_;
  std::vector<std::string> files_;
};

std::string sp(size_t n) {
  return std::string(n, ' ');
}

const char* const kUsage = "usage: kolvdump [--csv] [--header-only] FILE\n";

}  // namespace

// ---- element formatting ----

TEST(KolvdumpFormat, DoublesUseSeventeenDigits) {
  Bytes b;
  append_double(b, 1.5);
  EXPECT_EQ(kolvdump::format_element(b.data(), 8, false), "1.5");
  b.clear();
  append_double(b, 0.1);
  EXPECT_EQ(kolvdump::format_element(b.data(), 8, false), "0.10000000000000001");
  b.clear();
  append_double(b, -1e300);
  EXPECT_EQ(kolvdump::format_element(b.data(), 8, false), "-1.0000000000000001e+300");
  b.clear();
  append_double(b, 0.0);
  EXPECT_EQ(kolvdump::format_element(b.data(), 8, false), "0");
}

TEST(KolvdumpFormat, DoubleMissingTestOnTopSixteenBits) {
  Bytes b;
  append64(b, kMissval);  // 00 00 00 00 FF FF FF 7F
  EXPECT_EQ(kolvdump::format_element(b.data(), 8, false), ".");
  EXPECT_TRUE(kolvdump::double_is_missing(0x7FF1000000000000ULL));
  EXPECT_TRUE(kolvdump::double_is_missing(0x7FF8000000000000ULL));
  EXPECT_TRUE(kolvdump::double_is_missing(0xFFFF000000000000ULL));   // sign bit cleared first
  EXPECT_FALSE(kolvdump::double_is_missing(0x7FF0000000000000ULL));  // +infinity
  EXPECT_FALSE(kolvdump::double_is_missing(0xFFF0000000000000ULL));  // -infinity
  EXPECT_FALSE(kolvdump::double_is_missing(0x7FF0FFFFFFFFFFFFULL));  // NaN, top fraction bits 0
  EXPECT_FALSE(kolvdump::double_is_missing(0x3FF0000000000000ULL));
  b.clear();
  append64(b, 0x7FF0000000000000ULL);
  EXPECT_EQ(kolvdump::format_element(b.data(), 8, false), "inf");
  b.clear();
  append64(b, 0xFFF0000000000000ULL);
  EXPECT_EQ(kolvdump::format_element(b.data(), 8, false), "-inf");
  b.clear();
  append64(b, 0x7FF0000000000001ULL);
  EXPECT_EQ(kolvdump::format_element(b.data(), 8, false), "nan");
}

TEST(KolvdumpFormat, FloatsUseNineDigits) {
  Bytes b;
  append_float(b, 1.1f);  // 1.10000002384185791015625
  EXPECT_EQ(kolvdump::format_element(b.data(), 4, false), "1.10000002");
  b.clear();
  append_float(b, -2.5f);
  EXPECT_EQ(kolvdump::format_element(b.data(), 4, false), "-2.5");
  b.clear();
  append_float(b, 1e10f);  // 10000000000 exactly as a single
  EXPECT_EQ(kolvdump::format_element(b.data(), 4, false), "1e+10");
  b.clear();
  append32(b, 0x7F800000u);
  EXPECT_EQ(kolvdump::format_element(b.data(), 4, false), "inf");
}

TEST(KolvdumpFormat, FloatMissingIsOnePattern) {
  Bytes b;
  append32(b, 0x7FFFFFF8u);  // F8 FF FF 7F
  EXPECT_EQ(b[0], 0xF8);
  EXPECT_EQ(kolvdump::format_element(b.data(), 4, false), ".");
  b.clear();
  append32(b, 0x7FC00000u);  // another NaN
  EXPECT_EQ(kolvdump::format_element(b.data(), 4, false), "nan");
  EXPECT_FALSE(kolvdump::float_is_missing(0x7FFFFFF9u));
  EXPECT_FALSE(kolvdump::float_is_missing(0xFFFFFFF8u));
}

TEST(KolvdumpFormat, TwoByteIntegers) {
  Bytes b;
  append16(b, 0x8000);
  EXPECT_EQ(kolvdump::format_element(b.data(), 2, false), ".");
  b.clear();
  append16(b, 0xFFFF);
  EXPECT_EQ(kolvdump::format_element(b.data(), 2, false), "-1");
  b.clear();
  append16(b, 0x7FFF);
  EXPECT_EQ(kolvdump::format_element(b.data(), 2, false), "32767");
  b.clear();
  append16(b, 0x8001);
  EXPECT_EQ(kolvdump::format_element(b.data(), 2, false), "-32767");
  b.clear();
  append16(b, 0x9C40);  // 40000 wrapped: -25536
  EXPECT_EQ(kolvdump::format_element(b.data(), 2, false), "-25536");
  b.clear();
  append16(b, 0);
  EXPECT_EQ(kolvdump::format_element(b.data(), 2, false), "0");
}

TEST(KolvdumpFormat, CharacterElements) {
  const uint8_t abc[8] = {0x41, 0x42, 0x43, 0, 0, 0, 0, 0};
  EXPECT_EQ(kolvdump::format_element(abc, 8, true), "ABC");
  const uint8_t full[8] = {'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H'};
  EXPECT_EQ(kolvdump::format_element(full, 8, true), "ABCDEFGH");
  const uint8_t stop[8] = {'A', 'B', 0, 'C', 'D', 0, 0, 0};
  EXPECT_EQ(kolvdump::format_element(stop, 8, true), "AB");
  const uint8_t odd[8] = {'a', '\t', 0xE9, '\\', 0x7F, ' ', 0, 0};
  EXPECT_EQ(kolvdump::format_element(odd, 8, true), "a\\x09\\xE9\\x5C\\x7F ");
  const uint8_t empty[8] = {};
  EXPECT_EQ(kolvdump::format_element(empty, 8, true), "");
  Bytes missing;
  append64(missing, kMissval);
  EXPECT_EQ(kolvdump::format_element(missing.data(), 8, true), ".");
  // The same bytes in a numeric column read as a number.
  EXPECT_EQ(kolvdump::format_element(full, 8, false), "1.5839800103804824e+40");
}

TEST(KolvdumpFormat, EscapeTextStopsAtMax) {
  const uint8_t name[4] = {'N', 'A', 'M', 'E'};
  EXPECT_EQ(kolvdump::escape_text(name, 3), "NAM");
  EXPECT_EQ(kolvdump::escape_text(name, 4), "NAME");
  const uint8_t ctl[2] = {0x01, 0x0A};
  EXPECT_EQ(kolvdump::escape_text(ctl, 2), "\\x01\\x0A");
}

// ---- whole dumps ----

TEST_F(KolvdumpRun, TextLayoutOfDoubles) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  // clang-format off
  std::string expected =
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
      "  3  Y     numeric\n"
      "\n"
      "data:\n"
      "  row  " + sp(19) + "X  NAME" + sp(6) + "Y\n" +
      "    1  " + sp(17) + "1.5  ABC" + sp(7) + ".\n" +
      "    2  -0.10000000000000001  LONGTEXT  2\n";
  // clang-format on
  EXPECT_EQ(o.out, expected);
}

TEST(KolvdumpPipe, FixedWidthsWhenRowsCannotBeReadTwice) {
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
  int status = kolvdump::dump(in, "pipe", kolvdump::Options{}, out, err);
  std::fclose(in);
  std::fclose(out);
  std::fclose(err);
  std::string text(out_buf, out_len);
  std::string errors(err_buf, err_len);
  std::free(out_buf);
  std::free(err_buf);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(errors, "");
  // Doubles take 24 characters, character values 8.
  // clang-format off
  std::string data =
      "data:\n"
      "  row  " + sp(23) + "X  NAME      " + sp(23) + "Y\n" +
      "    1  " + sp(21) + "1.5  ABC       " + sp(23) + ".\n" +
      "    2  " + sp(4) + "-0.10000000000000001  LONGTEXT  " + sp(23) + "2\n";
  // clang-format on
  ASSERT_GE(text.size(), data.size());
  EXPECT_EQ(text.substr(text.size() - data.size()), data);
  EXPECT_EQ(text.substr(0, 20), "data set:      pipe\n");
}

TEST_F(KolvdumpRun, CsvOfDoubles) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out,
            "X,NAME,Y\n"
            "1.5,ABC,.\n"
            "-0.10000000000000001,LONGTEXT,2\n");
}

TEST_F(KolvdumpRun, OptionsAfterTheFile) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({path, "--csv"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out.substr(0, 9), "X,NAME,Y\n");
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
            "1.10000002,.,3,4\n"
            "nan,-2.5,0,1e+10\n");

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
      "  row  " + sp(6) + "A.re  A.im  B.re" + sp(3) + "B.im\n" +
      "    1  1.10000002  " + sp(3) + ".  " + sp(3) + "3  " + sp(4) + "4\n" +
      "    2  " + sp(7) + "nan  -2.5  " + sp(3) + "0  1e+10\n";
  // clang-format on
  EXPECT_EQ(text.out, expected);
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
  EXPECT_EQ(o.out, "I,C\n.,65\n32767,-2\n");

  Outcome text = run({path});
  EXPECT_EQ(text.status, 0);
  // clang-format off
  std::string tail =
      "variables:\n"
      "  1  I  numeric\n"
      "  2  C  character\n"
      "\n"
      "data:\n"
      "  row  " + sp(4) + "I  " + sp(1) + "C\n" +
      "    1  " + sp(4) + ".  65\n" +
      "    2  32767  -2\n";
  // clang-format on
  ASSERT_GE(text.out.size(), tail.size());
  EXPECT_EQ(text.out.substr(text.out.size() - tail.size()), tail);
  EXPECT_NE(text.out.find("element type:  12 (2-byte integer)\n"), std::string::npos);
}

TEST_F(KolvdumpRun, NamesAreEscapedAndMayFillTheirField) {
  std::string long_name(32, 'N');
  Bytes b = data_set(1008, 8, 0, 0, {{long_name, 1}, {std::string("a\x01z"), 1}, {"q,r", 0}});
  std::string path = write("names.dat", b);
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out, long_name + ",a\\x01z,\"q,r\"\n");

  Outcome text = run({"--header-only", path});
  EXPECT_EQ(text.status, 0);
  EXPECT_NE(text.out.find("  1  " + long_name + "  numeric\n"), std::string::npos);
  EXPECT_NE(text.out.find("  2  a\\x01z" + sp(32 - 6) + "  numeric\n"), std::string::npos);
  EXPECT_NE(text.out.find("  3  q,r" + sp(32 - 3) + "  character\n"), std::string::npos);
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

TEST_F(KolvdumpRun, HeaderOnly) {
  std::string path = write("doubles.dat", doubles_sample(2));
  Outcome o = run({"--header-only", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  // clang-format off
  std::string expected =
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
  EXPECT_EQ(o.out, expected);

  Outcome csv = run({"--csv", "--header-only", path});
  EXPECT_EQ(csv.status, 0);
  EXPECT_EQ(csv.out, "X,NAME,Y\n");
}

TEST_F(KolvdumpRun, EmptyDataSet) {
  std::string path = write("empty_rows.dat", data_set(1008, 8, 0, 0, {{"X", 1}}));
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out, "X\n");
}

// ---- rows that disagree with the header ----

TEST_F(KolvdumpRun, FewerRowsThanTheHeaderClaims) {
  std::string path = write("short.dat", doubles_sample(3));
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.out,
            "X,NAME,Y\n"
            "1.5,ABC,.\n"
            "-0.10000000000000001,LONGTEXT,2\n");
  EXPECT_EQ(o.err, "kolvdump: header claims 3 rows but the file holds 2\n");

  Outcome text = run({path});
  EXPECT_EQ(text.status, 1);
  EXPECT_NE(text.out.find("rows:          3\n"), std::string::npos);
  EXPECT_NE(text.out.find("    2  -0.10000000000000001  LONGTEXT  2\n"), std::string::npos);
  EXPECT_EQ(text.err, "kolvdump: header claims 3 rows but the file holds 2\n");

  Outcome header = run({"--header-only", path});
  EXPECT_EQ(header.status, 1);
  EXPECT_EQ(header.err, "kolvdump: header claims 3 rows but the file holds 2\n");
}

TEST_F(KolvdumpRun, MoreRowsThanTheHeaderClaims) {
  std::string path = write("long.dat", doubles_sample(1));
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.out,
            "X,NAME,Y\n"
            "1.5,ABC,.\n"
            "-0.10000000000000001,LONGTEXT,2\n");
  EXPECT_EQ(o.err, "kolvdump: header claims 1 rows but the file holds 2\n");
}

TEST_F(KolvdumpRun, PartialRowAtTheEnd) {
  Bytes b = doubles_sample(2);
  b.insert(b.end(), {1, 2, 3, 4, 5});
  std::string path = write("tail.dat", b);
  Outcome o = run({"--csv", path});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.out,
            "X,NAME,Y\n"
            "1.5,ABC,.\n"
            "-0.10000000000000001,LONGTEXT,2\n");
  EXPECT_EQ(o.err, "kolvdump: " + path + " ends with 5 bytes that do not make a whole row\n");
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
  Outcome o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: " + path + " is not a finished data set\n");
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

// ---- command line ----

TEST_F(KolvdumpRun, NoArgumentsPrintsUsage) {
  Outcome o = run({});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, kUsage);
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
  Outcome o = run({path, path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, kUsage);
}

TEST_F(KolvdumpRun, OptionsOnlyPrintUsage) {
  Outcome o = run({"--csv", "--header-only"});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, kUsage);
}

TEST_F(KolvdumpRun, HelpGoesToStandardOutput) {
  Outcome o = run({"--help"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, kUsage);
  EXPECT_EQ(o.err, "");
}

TEST_F(KolvdumpRun, DoubleDashEndsOptions) {
  std::string path = write("-dash.dat", doubles_sample(2));
  Outcome o = run({"--csv", "--", path});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out.substr(0, 9), "X,NAME,Y\n");
}

TEST_F(KolvdumpRun, MissingFile) {
  std::string path = dir_ + "/absent.dat";
  Outcome o = run({path});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: cannot open " + path + ": No such file or directory\n");
}
