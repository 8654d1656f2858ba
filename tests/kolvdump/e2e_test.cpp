// kolvdump end to end: the real kolvdump binary (and kolv, to make data
// sets) run in a fresh temporary folder; each test checks exact standard
// output, standard error and exit status.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
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
    if (pid < 0 || waitpid(pid, &status, 0) != pid) return o;
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
