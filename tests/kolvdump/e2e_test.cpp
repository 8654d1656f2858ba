// kolvdump end to end: the real kolvdump binary (and kolv, to make data
// sets) run in a fresh temporary folder; each test checks exact standard
// output, standard error and exit status.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/files.hpp"
#include "support/scratch.hpp"

namespace {

const std::string kKolvdump = KOLVDUMP_E2E_KOLVDUMP;
const std::string kKolv = KOLVDUMP_E2E_KOLV;

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
  long peak_kib = 0;  // the largest resident size of the run, in KiB
};

using kolv_support::read_file;
using kolv_support::write_file;

class KolvdumpE2E : public ::testing::Test {
 protected:
  std::string path(const std::string& name) const { return dir_ + "/" + name; }

  // Runs `program` with `args` in the test's folder.
  Outcome run(const std::string& program, const std::vector<std::string>& args) const {
    const std::string out_path = path(".stdout"), err_path = path(".stderr");
    pid_t pid = fork();
    if (pid == 0) {
      if (chdir(dir_.c_str()) != 0) _exit(126);
      int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      int nul = open("/dev/null", O_RDONLY);
      if (out < 0 || err < 0 || nul < 0) _exit(126);
      dup2(nul, 0);
      dup2(out, 1);
      dup2(err, 2);
      std::vector<char*> argv;
      argv.push_back(const_cast<char*>(program.c_str()));
      for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      execv(program.c_str(), argv.data());
      _exit(127);
    }
    Outcome o;
    int status = 0;
    struct rusage usage {};
    if (pid < 0 || wait4(pid, &status, 0, &usage) != pid) return o;
    o.peak_kib = usage.ru_maxrss;
    o.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    o.out = read_file(out_path);
    o.err = read_file(err_path);
    return o;
  }

  Outcome kolvdump(const std::vector<std::string>& args) const { return run(kKolvdump, args); }

  // Converts `text` with kolv under the command file `cmd`.
  void convert(const std::string& cmd, const std::string& input_name, const std::string& text) {
    write_file(path(input_name), text);
    write_file(path("run.cmd"), cmd);
    Outcome o = run(kKolv, {"run.cmd"});
    ASSERT_EQ(o.status, 0) << o.out << o.err;
  }

  // The values data set: text in a numeric field, UTF-8 text, missing,
  // -0 and numbers that print long with 17 digits.
  void make_values() {
    convert("INPUT values.txt;\nOUTPUT values;\nINVAR $city #pop area;\n", "values.txt",
            "Zurich 68.2 0.1\n"
            "Bern 1e300 -0\n"
            "Basel N/A .\n"
            "Z\xC3\xBCrich 12 1.5e-5\n");
  }

  kolv_support::ScratchDir scratch_{"kolvdump_e2e"};
  std::string dir_ = scratch_.path();
};

const char* const kValuesText =
    "data set:      values.dat\n"
    "version:       96\n"
    "element type:  1008 (8-byte double)\n"
    "element size:  8\n"
    "complex:       0 (no)\n"
    "rows:          4\n"
    "columns:       3\n"
    "data offset:   232\n"
    "\n"
    "variables:\n"
    "  1  city  character\n"
    "  2  POP   numeric\n"
    "  3  AREA  numeric\n"
    "\n"
    "data:\n"
    "  row  city       POP      AREA\n"
    "    1  Zurich    68.2       0.1\n"
    "    2  Bern    1e+300        -0\n"
    "    3  Basel    \"N/A\"         .\n"
    "    4  Z\xC3\xBCrich      12  0.000015\n";

TEST_F(KolvdumpE2E, TextViewOfWhatKolvWrote) {
  make_values();
  // "values" names values.dat.
  Outcome o = kolvdump({"values"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out, kValuesText);
}

TEST_F(KolvdumpE2E, CsvOfWhatKolvWrote) {
  make_values();
  Outcome o = kolvdump({"--csv", "values.dat"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out,
            "city,POP,AREA\n"
            "Zurich,68.2,0.1\n"
            "Bern,1e+300,-0\n"
            "Basel,N/A,\n"
            "Z\xC3\xBCrich,12,0.000015\n");
  o = kolvdump({"--csv", "--no-header", "--na", "NA", "--columns", "AREA,city", "values"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "0.1,Zurich\n-0,Bern\nNA,Basel\n0.000015,Z\xC3\xBCrich\n");
  o = kolvdump({"--csv", "--rows", "2:3", "--columns", "2", "values"});
  EXPECT_EQ(o.out, "POP\n1e+300\nN/A\n");
  o = kolvdump({"--csv", "--head", "1", "values"});
  EXPECT_EQ(o.out, "city,POP,AREA\nZurich,68.2,0.1\n");
}

TEST_F(KolvdumpE2E, TextViewOptions) {
  make_values();
  Outcome o = kolvdump({"--header-only", "values"});
  EXPECT_EQ(o.status, 0);
  std::string header(kValuesText);
  EXPECT_EQ(o.out, header.substr(0, header.find("\ndata:\n")));
  o = kolvdump({"--rows", "3:4", "--columns", "pop", "--na", "-", "values"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out.substr(o.out.find("data:\n")),
            "data:\n"
            "  row    POP\n"
            "    3  \"N/A\"\n"
            "    4     12\n");
}

TEST_F(KolvdumpE2E, CheckOfWholeAndDamagedDataSets) {
  make_values();
  Outcome o = kolvdump({"--check", "values"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "");

  const std::string whole = read_file(path("values.dat"));
  ASSERT_EQ(whole.size(), 232u + 4 * 24);
  // Truncated at a row boundary: the last row gone.
  write_file(path("cut.dat"), whole.substr(0, 232 + 3 * 24));
  o = kolvdump({"--check", "cut"});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: header claims 4 rows but the file holds 3\n");
  // Truncated inside a row.
  write_file(path("mid.dat"), whole.substr(0, 232 + 4 * 24 - 5));
  o = kolvdump({"--check", "mid.dat"});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.err, "kolvdump: header claims 4 rows but the file holds 3\n");
  // Extended by a row.
  write_file(path("long.dat"), whole + whole.substr(232, 24));
  o = kolvdump({"--check", "long.dat"});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.err, "kolvdump: header claims 4 rows but the file holds 5\n");
  // Extended by bytes that make no row.
  write_file(path("odd.dat"), whole + "xyz");
  o = kolvdump({"--check", "odd.dat"});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.err, "kolvdump: odd.dat ends with 3 bytes that do not make a whole row\n");
  // Unfinished: the header still zero.
  write_file(path("open.dat"), std::string(128, '\0') + whole.substr(128));
  o = kolvdump({"--check", "open.dat"});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.err, "kolvdump: open.dat is an unfinished data set: its header was never written\n");
  // Not a data set at all, and a file too short to be one.
  write_file(path("notes.txt"), std::string(200, 'x'));
  o = kolvdump({"--check", "notes.txt"});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.err, "kolvdump: notes.txt is not a data set\n");
  o = kolvdump({"--check", "values.txt"});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.err, "kolvdump: values.txt is too short for a data set header (60 bytes)\n");
  // The views show what there is and say the same.
  o = kolvdump({"--csv", "cut.dat"});
  EXPECT_EQ(o.status, 1);
  EXPECT_EQ(o.out, "city,POP,AREA\nZurich,68.2,0.1\nBern,1e+300,-0\nBasel,N/A,\n");
  EXPECT_EQ(o.err, "kolvdump: header claims 4 rows but the file holds 3\n");
  o = kolvdump({"open.dat"});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
}

// A data set of `rows` rows of two doubles (row number, minus the row
// number), written byte by byte.
std::string two_columns(uint32_t rows) {
  auto le32 = [](std::string& s, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) s[at + static_cast<size_t>(i)] = static_cast<char>(v >> (8 * i));
  };
  std::string b(128 + 2 * 33 + 6, '\0');
  for (size_t at : {0u, 8u, 16u}) le32(b, at, 0xFFFFFFFFu);
  le32(b, 28, 0xABCDEF02u);
  le32(b, 32, 1);
  le32(b, 40, 1);
  le32(b, 44, 1008);
  le32(b, 48, 8);
  le32(b, 56, 1);
  le32(b, 60, 2);
  le32(b, 64, 1);
  le32(b, 72, 200);
  le32(b, 80, rows);
  le32(b, 84, 2);
  b[128] = 'A';
  b[160] = 'B';
  b[192] = 1;
  b[193] = 1;
  b.reserve(b.size() + rows * 16u);
  for (uint32_t r = 1; r <= rows; ++r) {
    for (double d : {static_cast<double>(r), -static_cast<double>(r)}) {
      char e[8];
      std::memcpy(e, &d, 8);
      b.append(e, 8);
    }
  }
  return b;
}

TEST_F(KolvdumpE2E, RowsFarIntoALargeFile) {
  write_file(path("big.dat"), two_columns(300000));
  Outcome o = kolvdump({"--rows", "299999:300000", "big"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  // Row numbers take 6 digits.
  EXPECT_EQ(o.out.substr(o.out.find("data:\n")),
            "data:\n"
            "     row       A        B\n"
            "  299999  299999  -299999\n"
            "  300000  300000  -300000\n");
  o = kolvdump({"--csv", "--rows", "150000:150001", "--columns", "b", "big"});
  EXPECT_EQ(o.out, "B\n-150000\n-150001\n");
}

TEST_F(KolvdumpE2E, ClosedPipeEndsQuietly) {
  write_file(path("big.dat"), two_columns(300000));
  // With pipefail the pipeline's status is kolvdump's when it fails.
  Outcome o = run("/bin/bash", {"-c", "set -o pipefail; \"$0\" --csv big | head -1", kKolvdump});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "A,B\n");
  EXPECT_EQ(o.err, "");
  o = run("/bin/bash", {"-c", "set -o pipefail; \"$0\" big.dat | head -1", kKolvdump});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "data set:      big.dat\n");
  EXPECT_EQ(o.err, "");
}

TEST_F(KolvdumpE2E, FromAPipe) {
  make_values();
  Outcome o =
      run("/bin/bash", {"-c", "\"$0\" --csv --rows 4:4 /dev/stdin < values.dat", kKolvdump});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out, "city,POP,AREA\nZ\xC3\xBCrich,12,0.000015\n");
  o = run("/bin/bash", {"-c", "cat values.dat | \"$0\" --check /dev/stdin", kKolvdump});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
}

TEST_F(KolvdumpE2E, NpyBytes) {
  make_values();
  Outcome o = kolvdump({"--npy", "v.npy", "--columns", "pop,area", "--rows", "1:2", "values"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "");
  // A 2-D array of doubles: the 59-character dictionary fills a 128-byte
  // header (length word 118, 58 blanks), then 68.2, 0.1, 1e300, -0.
  std::string want = "\x93NUMPY";
  want += std::string("\x01\x00\x76\x00", 4);
  want += "{'descr': '<f8', 'fortran_order': False, 'shape': (2, 2), }";
  want += std::string(58, ' ') + "\n";
  for (double d : {68.2, 0.1, 1e300, -0.0}) {
    char e[8];
    std::memcpy(e, &d, 8);
    want.append(e, 8);
  }
  EXPECT_EQ(read_file(path("v.npy")), want);
}

TEST_F(KolvdumpE2E, NumpyLoadsTheNpyFile) {
  // The first python3 that imports numpy: the one on PATH, else the
  // system's own.
  std::string python;
  for (const char* candidate : {"python3", "/usr/bin/python3"}) {
    std::string probe = std::string(candidate) + " -c 'import numpy' > /dev/null 2>&1";
    if (std::system(probe.c_str()) == 0) {
      python = candidate;
      break;
    }
  }
  if (python.empty()) {
    GTEST_SKIP() << "python3 with numpy is not installed (Debian: apt-get install python3-numpy); "
                    "the .npy bytes are checked by NpyBytes and the unit tests";
  }
  make_values();
  ASSERT_EQ(kolvdump({"--npy", "all.npy", "values"}).status, 0);
  ASSERT_EQ(kolvdump({"--npy", "num.npy", "--columns", "area,pop", "values"}).status, 0);
  write_file(path("load.py"),
             "import numpy\n"
             "a = numpy.load('all.npy')\n"
             "print(a.shape, a.dtype.names)\n"
             "print(a['city'].tolist())\n"
             "print(a['POP'][0] == 68.2, a['POP'][1] == 1e300, a['POP'][3] == 12)\n"
             "print(bytes(a['POP'][2:3].view('S8')[0]))\n"
             "print(numpy.isnan(a['AREA'][2]), numpy.signbit(a['AREA'][1]))\n"
             "n = numpy.load('num.npy')\n"
             "print(n.shape, n.dtype, n[0].tolist(), n[3].tolist())\n");
  Outcome o = run("/usr/bin/env", {python, "load.py"});
  EXPECT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(o.out,
            "(4,) ('city', 'POP', 'AREA')\n"
            "[b'Zurich', b'Bern', b'Basel', b'Z\\xc3\\xbcrich']\n"
            "True True True\n"
            "b'N/A'\n"
            "True True\n"
            "(4, 2) float64 [0.1, 68.2] [1.5e-05, 12.0]\n");
}

TEST_F(KolvdumpE2E, HelpVersionAndWrongArguments) {
  Outcome o = kolvdump({"--help"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out.rfind("usage: kolvdump [OPTION]... FILE\n", 0), 0u);
  o = kolvdump({"--version"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out.rfind("kolvdump (kolv) ", 0), 0u);
  EXPECT_EQ(o.err, "");
  o = kolvdump({});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.err, "kolvdump: no data set named\nusage: kolvdump [OPTION]... FILE\n");
  o = kolvdump({"--bogus", "x"});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, "kolvdump: unknown option --bogus\nusage: kolvdump [OPTION]... FILE\n");
  o = kolvdump({"nothing"});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, "kolvdump: cannot open nothing.dat: No such file or directory\n");
}

}  // namespace

// ---- --summary ----

// The fields of each line of CSV text (RFC 4180: quoted fields, doubled
// quotes inside them).
std::vector<std::vector<std::string>> parse_csv(const std::string& text) {
  std::vector<std::vector<std::string>> lines;
  std::vector<std::string> line;
  std::string field;
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (quoted) {
      if (c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
        field += '"';
        ++i;
      } else if (c == '"') {
        quoted = false;
      } else {
        field += c;
      }
    } else if (c == '"') {
      quoted = true;
    } else if (c == ',') {
      line.push_back(field);
      field.clear();
    } else if (c == '\n') {
      line.push_back(field);
      field.clear();
      lines.push_back(line);
      line.clear();
    } else {
      field += c;
    }
  }
  return lines;
}

// The histogram as kolvdump draws it, from counts worked out by the test:
// an empty step is a blank, else block ceil(8 * count / most) of 8.
std::string draw(const std::vector<uint64_t>& steps, bool ascii) {
  static const char* const kBlocks[] = {"\u2581", "\u2582", "\u2583", "\u2584",
                                        "\u2585", "\u2586", "\u2587", "\u2588"};
  static const char kAscii[] = "_.-:=+*#";
  uint64_t most = 0;
  for (uint64_t c : steps) most = std::max(most, c);
  std::string drawn;
  for (uint64_t c : steps) {
    if (c == 0) {
      drawn += ' ';
      continue;
    }
    size_t level = static_cast<size_t>((8 * c + most - 1) / most) - 1;
    if (ascii) {
      drawn += kAscii[level];
    } else {
      drawn += kBlocks[level];
    }
  }
  return drawn;
}

// Eleven rows whose numbers make clean figures:
//   X: 0 0 1 1 1 1 4 4 5 8 8: mean 33/11 = 3; squared deviations
//      9+9+4*4+1+1+4+25+25 = 90, so the sample variance is 90/10 = 9 and the
//      standard deviation 3. From 0 to 8 the 8 steps are one unit wide, 8
//      joins the last: counts 2 4 0 0 2 1 0 2, the most 4, so blocks
//      ceil(8*2/4) = 4, 8, -, -, 4, ceil(8/4) = 2, -, 4.
//   Y: the numbers 1 3 5 (mean 3, variance (4+0+4)/2 = 4, sd 2), four
//      missing, and text in four rows: "N/A" three times, "NA" once. From 1
//      to 5 a step is half a unit: 1 in step 0, 3 in step 4, 5 joins step 7.
//   name: a five times, b three, c two, d once.
TEST_F(KolvdumpE2E, SummaryOfKnownData) {
  convert("INPUT k.txt;\nOUTPUT k;\nINVAR $name #x y;\n", "k.txt",
          "a 0 1\nb 0 N/A\na 1 .\nc 1 3\na 1 N/A\nb 1 .\na 4 NA\nb 4 5\na 5 .\nc 8 N/A\nd 8 .\n");
  const std::string x_blocks = "\u2584\u2588  \u2584\u2582 \u2584";
  const std::string y_blocks = "\u2588   \u2588  \u2588";
  EXPECT_EQ(draw({2, 4, 0, 0, 2, 1, 0, 2}, false), x_blocks);
  const std::string want =
      "k.dat: 11 rows\n"
      "variable  kind       count  missing  text  min  max  mean  sd  histogram  distinct  values\n"
      "name      character     11        0                                              4  "
      "\"a\" 5, \"b\" 3, \"c\" 2\n"
      "X         numeric       11        0     0    0    8     3   3  " +
      x_blocks +
      "\n"
      "Y         numeric        3        4     4    1    5     3   2  " +
      y_blocks + "             text: \"N/A\" 3, \"NA\" 1\n";
  Outcome o = run("/usr/bin/env", {"LC_ALL=C.UTF-8", kKolvdump, "--summary", "k"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.out, want);
  // The same under a locale that names UTF-8 only in LANG.
  o = run("/usr/bin/env",
          {"-u", "LC_ALL", "-u", "LC_CTYPE", "LANG=en_GB.utf8", kKolvdump, "--summary", "k"});
  EXPECT_EQ(o.out, want);

  // ASCII: blocks 4 8 2 become ':' '#' '.'; under --ascii, and by itself
  // where the locale is not UTF-8.
  std::string ascii = want;
  ascii.replace(ascii.find(x_blocks), x_blocks.size(), ":#  :. :");
  ascii.replace(ascii.find(y_blocks), y_blocks.size(), "#   #  #");
  EXPECT_EQ(draw({2, 4, 0, 0, 2, 1, 0, 2}, true), ":#  :. :");
  o = run("/usr/bin/env", {"LC_ALL=C.UTF-8", kKolvdump, "--summary", "--ascii", "k"});
  EXPECT_EQ(o.out, ascii);
  o = run("/usr/bin/env", {"LC_ALL=C", "LANG=en_GB.UTF-8", kKolvdump, "--summary", "k"});
  EXPECT_EQ(o.out, ascii);
  o = run("/usr/bin/env",
          {"-u", "LC_ALL", "-u", "LC_CTYPE", "-u", "LANG", kKolvdump, "--summary", "k"});
  EXPECT_EQ(o.out, ascii);

  // CSV: the same fields; a field with quotes or commas quoted.
  o = run("/usr/bin/env", {"LC_ALL=C.UTF-8", kKolvdump, "--summary", "--csv", "k.dat"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out,
            "variable,kind,count,missing,text,min,max,mean,sd,histogram,distinct,values\n"
            "name,character,11,0,,,,,,,4,\"\"\"a\"\" 5, \"\"b\"\" 3, \"\"c\"\" 2\"\n"
            "X,numeric,11,0,0,0,8,3,3," +
                x_blocks +
                ",,\n"
                "Y,numeric,3,4,4,1,5,3,2," +
                y_blocks + ",,\"text: \"\"N/A\"\" 3, \"\"NA\"\" 1\"\n");

  // Rows 2 to 5 of Y and name: Y holds N/A . 3 N/A (one number: no sd, the
  // histogram of one value all in the first step); name b a c a.
  o = run("/usr/bin/env", {"LC_ALL=C.UTF-8", kKolvdump, "--summary", "--csv", "--no-header",
                           "--ascii", "--rows", "2:5", "--columns", "y,NAME", "k"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out,
            "Y,numeric,1,1,2,3,3,3,,#       ,,\"text: \"\"N/A\"\" 2\"\n"
            "name,character,4,0,,,,,,,3,\"\"\"a\"\" 2, \"\"b\"\" 1, \"\"c\"\" 1\"\n");

  // What does not go with --summary.
  o = kolvdump({"--summary", "--npy", "k.npy", "k"});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err,
            "kolvdump: --summary cannot be used with --npy\nusage: kolvdump [OPTION]... FILE\n");
  o = kolvdump({"--summary", "--na", "-", "k"});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err,
            "kolvdump: --summary cannot be used with --na\nusage: kolvdump [OPTION]... FILE\n");
  o = kolvdump({"--ascii", "k"});
  EXPECT_EQ(o.status, 2);
  EXPECT_EQ(o.err, "kolvdump: --ascii needs --summary\nusage: kolvdump [OPTION]... FILE\n");
}

// A pseudo-random sequence of its own (xorshift64), so the data are the
// same on every run.
struct Draws {
  uint64_t state = 0x9E3779B97F4A7C15ULL;
  uint64_t next() {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
  }
  int64_t in(int64_t low, int64_t high) {
    return low + static_cast<int64_t>(next() % static_cast<uint64_t>(high - low + 1));
  }
};

// Mean and sample standard deviation by two passes in long double.
void mean_sd(const std::vector<double>& v, double& mean, double& sd) {
  long double sum = 0;
  for (double x : v) sum += x;
  long double m = sum / static_cast<long double>(v.size());
  long double squares = 0;
  for (double x : v) squares += (x - m) * (x - m);
  mean = static_cast<double>(m);
  sd = static_cast<double>(std::sqrt(squares / static_cast<long double>(v.size() - 1)));
}

std::vector<uint64_t> steps_of(const std::vector<double>& v, double min, double max) {
  std::vector<uint64_t> steps(8, 0);
  for (double x : v) {
    double at = std::floor(8 * (x - min) / (max - min));
    steps[at >= 7 ? 7 : static_cast<size_t>(at)]++;
  }
  return steps;
}

TEST_F(KolvdumpE2E, SummaryAgreesWithItsOwnComputation) {
  // 20000 rows: a city drawn with uneven weights; X an integer from -500 to
  // 1500; Y a decimal of 3 places from -50 to 50. The first two rows hold
  // the ends of both ranges, so the histogram's step edges (-500 + 250k,
  // -50 + 12.5k) are known; about 1 row in 100 misses X, about 1 in 200
  // holds text in Y.
  const char* const cities[] = {"Bern", "Basel", "Chur", "Sion", "Aarau", "Thun", "Olten"};
  Draws d;
  std::string text;
  std::vector<double> xs, ys;
  std::map<std::string, uint64_t> city_count;
  uint64_t x_missing = 0, y_text = 0;
  for (int row = 0; row < 20000; ++row) {
    std::string city = cities[std::min<int64_t>(d.in(0, 9), 6)];
    std::string x, y;
    int64_t xv = row == 0 ? -500 : row == 1 ? 1500 : d.in(-500, 1500);
    int64_t yv = row == 0 ? -50000 : row == 1 ? 50000 : d.in(-50000, 50000);
    if (row > 1 && d.in(0, 99) == 0) {
      x = ".";
      ++x_missing;
    } else {
      x = std::to_string(xv);
      xs.push_back(static_cast<double>(xv));
    }
    if (row > 1 && d.in(0, 199) == 0) {
      y = "none";
      ++y_text;
    } else {
      char buf[32];
      std::snprintf(buf, sizeof buf, "%.3f", static_cast<double>(yv) / 1000);
      y = buf;
      ys.push_back(std::strtod(buf, nullptr));
    }
    city_count[city]++;
    text += city + " " + x + " " + y + "\n";
  }
  convert("INPUT r.txt;\nOUTPUT r;\nINVAR $city #x y;\n", "r.txt", text);
  Outcome o = run("/usr/bin/env", {"LC_ALL=C.UTF-8", kKolvdump, "--summary", "--csv", "r"});
  ASSERT_EQ(o.status, 0) << o.err;
  auto lines = parse_csv(o.out);
  ASSERT_EQ(lines.size(), 4u);
  for (const auto& line : lines) ASSERT_EQ(line.size(), 12u);

  // city: the distinct values and the three most frequent, ties by bytes.
  std::vector<std::pair<std::string, uint64_t>> ranked(city_count.begin(), city_count.end());
  std::stable_sort(ranked.begin(), ranked.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  std::string top;
  for (size_t i = 0; i < 3; ++i) {
    if (i > 0) top += ", ";
    top += "\"" + ranked[i].first + "\" " + std::to_string(ranked[i].second);
  }
  EXPECT_EQ(lines[1][0], "city");
  EXPECT_EQ(lines[1][2], "20000");
  EXPECT_EQ(lines[1][10], std::to_string(city_count.size()));
  EXPECT_EQ(lines[1][11], top);

  auto check_numeric = [&](const std::vector<std::string>& f, const std::vector<double>& v,
                           uint64_t missing, uint64_t texts, double min, double max) {
    SCOPED_TRACE(f[0]);
    double mean = 0, sd = 0;
    mean_sd(v, mean, sd);
    EXPECT_EQ(f[2], std::to_string(v.size()));
    EXPECT_EQ(f[3], std::to_string(missing));
    EXPECT_EQ(f[4], std::to_string(texts));
    EXPECT_EQ(std::strtod(f[5].c_str(), nullptr), min);
    EXPECT_EQ(std::strtod(f[6].c_str(), nullptr), max);
    EXPECT_NEAR(std::strtod(f[7].c_str(), nullptr), mean, 1e-12 * std::max(1.0, std::fabs(mean)));
    EXPECT_NEAR(std::strtod(f[8].c_str(), nullptr), sd, 1e-12 * sd);
    EXPECT_EQ(f[9], draw(steps_of(v, min, max), false));
  };
  check_numeric(lines[2], xs, x_missing, 0, -500, 1500);
  check_numeric(lines[3], ys, 0, y_text, -50, 50);
  EXPECT_EQ(lines[3][11], "text: \"none\" " + std::to_string(y_text));
}

TEST_F(KolvdumpE2E, SummaryPastTheExactDistinctCount) {
  // 100000 distinct values and one value in 30000 more rows, spread among
  // them: the count of distinct values becomes an estimate (within a few
  // per cent), and the frequent value is still found, with bounds on its
  // count that hold the true 30000.
  std::string text;
  for (int i = 0; i < 100000; ++i) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "v%06d\n", i);
    text += buf;
    if (i % 10 < 3) text += "hot\n";
  }
  convert("INPUT d.txt;\nOUTPUT d;\nINVAR $word;\n", "d.txt", text);
  Outcome o = kolvdump({"--summary", "--csv", "--no-header", "d"});
  ASSERT_EQ(o.status, 0) << o.err;
  auto lines = parse_csv(o.out);
  ASSERT_EQ(lines.size(), 1u);
  ASSERT_EQ(lines[0].size(), 12u);
  EXPECT_EQ(lines[0][2], "130000");
  ASSERT_EQ(lines[0][10].substr(0, 1), "~");
  double distinct = std::strtod(lines[0][10].c_str() + 1, nullptr);
  EXPECT_NEAR(distinct, 100001, 5000);
  const std::string& values = lines[0][11];
  ASSERT_EQ(values.rfind("\"hot\" ", 0), 0u) << values;
  unsigned long long least = 0, most = 0;
  if (values.find("..") != std::string::npos) {
    ASSERT_EQ(std::sscanf(values.c_str(), "\"hot\" %llu..%llu", &least, &most), 2) << values;
  } else {
    ASSERT_EQ(std::sscanf(values.c_str(), "\"hot\" %llu", &least), 1) << values;
    most = least;
  }
  EXPECT_LE(least, 30000u);
  EXPECT_GE(most, 30000u);
}

// A data set of one double variable holding 1, 2, ... `rows`, written in
// pieces straight to `path`.
void write_counting(const std::string& path, uint32_t rows) {
  std::string b = two_columns(0);
  // One column instead of two: the column count, the data offset (128 and
  // one name and type byte, 161, rounded up to 8 bytes), and the second
  // variable's name and type byte dropped.
  auto le32 = [&](size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + static_cast<size_t>(i)] = static_cast<char>(v >> (8 * i));
  };
  std::string header = b.substr(0, 128) + b.substr(128, 32) + std::string(1, '\1');
  header.resize(168, '\0');
  b = header;
  le32(60, 1);
  le32(72, 168);
  le32(80, rows);
  le32(84, 1);
  std::ofstream out(path, std::ios::binary);
  out << b;
  std::vector<double> block;
  for (uint32_t r = 1; r <= rows;) {
    block.clear();
    for (; r <= rows && block.size() < (1u << 16); ++r) block.push_back(static_cast<double>(r));
    out.write(reinterpret_cast<const char*>(block.data()),
              static_cast<std::streamsize>(block.size() * sizeof(double)));
  }
}

TEST_F(KolvdumpE2E, SummaryOfTenMillionRowsInFixedMemory) {
  // 1 to N: mean (N+1)/2, sample variance N(N+1)/12, an even histogram.
  const uint32_t n = 10'000'000;
  write_counting(path("small.dat"), 100'000);
  write_counting(path("large.dat"), n);
  Outcome small = kolvdump({"--summary", "--csv", "--no-header", "--ascii", "small"});
  ASSERT_EQ(small.status, 0) << small.err;
  EXPECT_EQ(small.out.substr(0, small.out.find(",5")), "A,numeric,100000,0,0,1,100000");
  Outcome large = kolvdump({"--summary", "--csv", "--no-header", "--ascii", "large"});
  ASSERT_EQ(large.status, 0) << large.err;
  auto lines = parse_csv(large.out);
  ASSERT_EQ(lines.size(), 1u);
  ASSERT_EQ(lines[0].size(), 12u);
  const auto& f = lines[0];
  EXPECT_EQ(f[2], "10000000");
  EXPECT_EQ(f[5], "1");
  EXPECT_EQ(f[6], "10000000");
  const double nd = n;
  EXPECT_NEAR(std::strtod(f[7].c_str(), nullptr), (nd + 1) / 2, 1e-9);
  const double sd = std::sqrt(nd * (nd + 1) / 12);
  EXPECT_NEAR(std::strtod(f[8].c_str(), nullptr), sd, 1e-12 * sd);
  EXPECT_EQ(f[9], "########");
  // 80 MB of rows against 800 KB: the peak resident size must not grow
  // with them (a few hundred KiB of slack for the allocator's moods).
  ASSERT_GT(small.peak_kib, 0);
  EXPECT_LT(large.peak_kib, small.peak_kib + 2048)
      << "peak " << large.peak_kib << " KiB for " << n << " rows, " << small.peak_kib
      << " KiB for 100000";
}

TEST_F(KolvdumpE2E, SummaryOfManyTextsInANumericColumn) {
  // 3000 distinct words and "N/A" 2000 times among 1000 numbers: past the
  // 1024 texts a numeric column counts exactly, "N/A" is still named, with
  // bounds that hold its true count; the texts leave the numbers' figures
  // alone (1 to 1000: mean 500.5).
  std::string text;
  for (int i = 0; i < 3000; ++i) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "w%04d\n", i);
    text += buf;
    if (i % 3 == 0) text += std::to_string(i / 3 + 1) + "\n";
    if (i % 3 != 2) text += "N/A\n";
  }
  convert("INPUT t.txt;\nOUTPUT t;\nINVAR x;\n", "t.txt", text);
  Outcome o = kolvdump({"--summary", "--csv", "--no-header", "t"});
  ASSERT_EQ(o.status, 0) << o.err;
  auto lines = parse_csv(o.out);
  ASSERT_EQ(lines.size(), 1u);
  ASSERT_EQ(lines[0].size(), 12u);
  EXPECT_EQ(lines[0][2], "1000");
  EXPECT_EQ(lines[0][4], "5000");
  EXPECT_EQ(lines[0][5], "1");
  EXPECT_EQ(lines[0][6], "1000");
  EXPECT_EQ(lines[0][7], "500.5");
  unsigned long long least = 0, most = 0;
  ASSERT_EQ(std::sscanf(lines[0][11].c_str(), "text: \"N/A\" %llu..%llu", &least, &most), 2)
      << lines[0][11];
  EXPECT_LE(least, 2000u);
  EXPECT_GE(most, 2000u);
}

TEST_F(KolvdumpE2E, SummaryOfNumbersNearTheLargestDouble) {
  // POP holds 68.2, 1e300 and 12 (and "N/A"): their squared deviations
  // pass the largest double, yet the standard deviation does not; worked
  // out here in long double by two passes.
  make_values();
  Outcome o = kolvdump({"--summary", "--csv", "--no-header", "--columns", "pop", "values"});
  ASSERT_EQ(o.status, 0) << o.err;
  auto lines = parse_csv(o.out);
  ASSERT_EQ(lines.size(), 1u);
  ASSERT_EQ(lines[0].size(), 12u);
  const long double v[] = {68.2L, 1e300L, 12.0L};
  const long double mean = (v[0] + v[1] + v[2]) / 3;
  long double squares = 0;
  for (long double x : v) squares += (x - mean) * (x - mean);
  const double sd = static_cast<double>(std::sqrt(squares / 2));
  EXPECT_NEAR(std::strtod(lines[0][7].c_str(), nullptr), static_cast<double>(mean), 1e-12 * 1e300);
  EXPECT_NEAR(std::strtod(lines[0][8].c_str(), nullptr), sd, 1e-12 * sd);
  EXPECT_EQ(lines[0][4], "1");
  EXPECT_EQ(lines[0][11], "text: \"N/A\" 1");
}
