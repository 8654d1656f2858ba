// Selecting output variables, checked as a property over many generated runs:
// an OUTVAR naming every input variable in input order gives the very same
// data set as no OUTVAR at all, and an OUTVAR naming any selection (subsets,
// repeats, other orders, ranges) gives exactly the selected columns of the
// full run, in every delimited layout, element size and with COMPLEX.
// Each run is the whole program, in-process, in a temporary directory.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "driver/entry.hpp"
#include "support/scratch.hpp"
#include "test_run.hpp"

namespace {

namespace fs = std::filesystem;

// Deterministic for a given seed on every standard library (unlike the
// standard distributions, whose algorithms are unspecified).
class Dice {
 public:
  explicit Dice(uint32_t seed) : engine_(seed) {}
  int below(int n) { return static_cast<int>(engine_() % static_cast<uint32_t>(n)); }
  int between(int lo, int hi) { return lo + below(hi - lo + 1); }
  bool chance(int percent) { return below(100) < percent; }
  template <typename T>
  const T& pick(const std::vector<T>& items) {
    return items[static_cast<size_t>(below(static_cast<int>(items.size())))];
  }

 private:
  std::mt19937 engine_;
};

enum class Layout { kSoft, kNewline, kStream, kLinePerRow };

// A run of input variables declared by one INVAR item: a single name or a range.
struct Group {
  std::string stem;  // as stored: folded by type
  int count = 1;
  int width = 0;  // digits of the generated numbers (ranges only)
  bool numeric = true;
  bool range = false;
  int first = 0;  // index of the group's first input variable
};

struct Variable {
  std::string name;  // as stored in the data set
  bool numeric = true;
  int group = 0;
  int member = 1;  // number within a range
};

struct Scenario {
  Layout layout = Layout::kSoft;
  bool ndels = false;
  int cplx = 1;
  int otyp = 8;
  std::string outtyp;   // the OUTTYP statement, or empty
  char msym = 0;        // MSYM character, or 0 for none
  std::string delimit;  // the DELIMIT clause, with a trailing blank, or empty
  std::vector<Group> groups;
  std::vector<Variable> vars;
  int rows = 0;
  bool big = false;
  std::string input;
};

int digits(int n) {
  return static_cast<int>(std::to_string(n).size());
}

std::string mixed_case(Dice& dice, const std::string& text) {
  std::string out = text;
  for (char& c : out) {
    unsigned char u = static_cast<unsigned char>(c);
    if (std::isalpha(u)) c = static_cast<char>(dice.chance(50) ? std::toupper(u) : std::tolower(u));
  }
  return out;
}

std::string folded(const std::string& text, bool numeric) {
  std::string out = text;
  for (char& c : out) {
    unsigned char u = static_cast<unsigned char>(c);
    c = static_cast<char>(numeric ? std::toupper(u) : std::tolower(u));
  }
  return out;
}

std::string padded(int value, int width) {
  std::string s = std::to_string(value);
  while (static_cast<int>(s.size()) < width) s.insert(s.begin(), '0');
  return s;
}

// ---- variables ----------------------------------------------------------

void make_variables(Dice& dice, Scenario& sc, bool allow_character, int varin) {
  int made = 0;
  for (int g = 0; made < varin; ++g) {
    Group group;
    group.first = made;
    group.numeric = !allow_character || dice.chance(70);
    group.range = dice.chance(35);
    if (group.range) {
      group.count = dice.between(1, std::min(12, varin - made));
      group.width = digits(group.count);
      group.stem = folded("r" + std::to_string(g) + "x", group.numeric);
    } else {
      group.stem = folded("s" + std::to_string(g) + (dice.chance(30) ? "_q" : ""), group.numeric);
    }
    for (int m = 1; m <= group.count; ++m) {
      Variable v;
      v.name = group.range ? group.stem + padded(m, group.width) : group.stem;
      v.numeric = group.numeric;
      v.group = g;
      v.member = m;
      sc.vars.push_back(v);
    }
    made += group.count;
    sc.groups.push_back(group);
  }
}

std::string invar_statement(Dice& dice, const Scenario& sc) {
  std::string s = "INVAR " + sc.delimit;
  bool numeric_mode = true;
  for (const Group& g : sc.groups) {
    if (g.numeric != numeric_mode) {
      s += g.numeric ? "# " : "$ ";
      numeric_mode = g.numeric;
    }
    s += mixed_case(dice, g.stem);
    if (g.range) {
      switch (dice.below(3)) {
        case 0:
          s += "[" + std::to_string(g.count) + "]";
          break;
        case 1:
          s += "[1:" + std::to_string(g.count) + "]";
          break;
        default:
          s += "[1-" + std::to_string(g.count) + "]";
          break;
      }
    }
    s += dice.pick(std::vector<std::string>{" ", ", ", "\n  ", ","});
  }
  return s + ";\n";
}

// One OUTVAR item naming members a..b of a group: a single name, or (for a
// range group) a range whose padding gives the group's own names.
std::string outvar_item(Dice& dice, const Group& g, int a, int b) {
  if (!g.range) return mixed_case(dice, g.stem);
  if (a == b && dice.chance(60)) return mixed_case(dice, g.stem + padded(a, g.width));
  // A first number written with leading zeros sets the width; without them
  // the last number's digits do, which are the group's width as a >= 10^(w-1).
  return mixed_case(dice, g.stem) + "[" + padded(a, g.width) + (dice.chance(50) ? ":" : "-") +
         std::to_string(b) + "]";
}

// OUTVAR naming every input variable in input order, by names and ranges.
std::string outvar_all(Dice& dice, const Scenario& sc) {
  std::string s = "OUTVAR ";
  for (const Group& g : sc.groups) {
    if (g.range && dice.chance(50)) {
      s += outvar_item(dice, g, 1, g.count) + " ";
    } else {
      for (int m = 1; m <= g.count; ++m) s += outvar_item(dice, g, m, m) + " ";
    }
    if (dice.chance(20)) s += ",\n";
  }
  return s + ";\n";
}

// OUTVAR naming a random selection; fills `selected` with the input index of
// every output column.
std::string outvar_some(Dice& dice, const Scenario& sc, int most, std::vector<int>& selected) {
  std::string s = "OUTVAR ";
  const int items = dice.between(1, most);
  for (int i = 0; i < items; ++i) {
    const Variable& v = dice.pick(sc.vars);
    const Group& g = sc.groups[static_cast<size_t>(v.group)];
    int a = v.member;
    int b = v.member;
    if (g.range && dice.chance(30)) b = dice.between(a, g.count);
    s += outvar_item(dice, g, a, b) + dice.pick(std::vector<std::string>{" ", ",", " , ", "\n"});
    for (int m = a; m <= b; ++m) selected.push_back(g.first + m - 1);
  }
  return s + ";\n";
}

// ---- input text ---------------------------------------------------------

std::string word(Dice& dice, bool letter_first) {
  static const std::string kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHJKLMNOPQRSTUVWXYZ";
  static const std::string kTail = "abcdefghijklmnopqrstuvwxyz0123456789_";
  std::string w(1, letter_first || dice.chance(70)
                       ? dice.pick(std::vector<char>(kLetters.begin(), kLetters.end()))
                       : static_cast<char>('0' + dice.below(10)));
  const int length = dice.between(1, 12);
  while (static_cast<int>(w.size()) < length)
    w += kTail[static_cast<size_t>(dice.below(static_cast<int>(kTail.size())))];
  return w;
}

std::string number(Dice& dice) {
  char buf[64];
  switch (dice.below(10)) {
    case 0:
      std::snprintf(buf, sizeof buf, "%d", dice.between(-40000, 40000));
      break;
    case 1:
      std::snprintf(buf, sizeof buf, "%d.5", dice.between(-300, 300));
      break;
    case 2:
      std::snprintf(buf, sizeof buf, "%.*f", dice.between(1, 6),
                    (dice.between(-2000000, 2000000)) / 997.0);
      break;
    case 3:
      std::snprintf(buf, sizeof buf, "%de%d", dice.between(-99, 99), dice.between(-40, 40));
      break;
    case 4:
      std::snprintf(buf, sizeof buf, "%.3E", dice.between(-99999, 99999) * 1e7);
      break;
    case 5:
      std::snprintf(buf, sizeof buf, "+%d", dice.between(0, 999));
      break;
    case 6:
      std::snprintf(buf, sizeof buf, "%s.%d", dice.chance(50) ? "-" : "", dice.between(0, 999));
      break;
    case 7:
      std::snprintf(buf, sizeof buf, "%d.", dice.between(-50, 50));
      break;
    case 8:
      std::snprintf(
          buf, sizeof buf, "%s",
          dice.pick(std::vector<std::string>{"1e10", "-1e300", "32768", "-inf", "0x1F", "65536.4"})
              .c_str());
      break;
    default:
      std::snprintf(buf, sizeof buf, "%.2f", dice.between(-1000, 1000) / 8.0);
      break;
  }
  return buf;
}

// The text of one field; empty stands for an empty field (hard layouts only).
std::string field(Dice& dice, const Scenario& sc, bool numeric) {
  const bool hard = sc.layout != Layout::kSoft;
  const int r = dice.below(100);
  if (r < 6) return sc.msym && dice.chance(50) ? std::string(1, sc.msym) : ".";
  if (r < 12 && hard) return "";
  if (!numeric) return word(dice, false);
  if (r < 18) return word(dice, true);
  return number(dice);
}

std::string line_end(Dice& dice) {
  return dice.chance(25) ? "\r\n" : "\n";
}

std::string blanks(Dice& dice) {
  return dice.chance(15) ? dice.pick(std::vector<std::string>{" ", "\t", "  "}) : "";
}

void make_input(Dice& dice, Scenario& sc) {
  const int n = static_cast<int>(sc.vars.size()) * sc.cplx;
  std::vector<std::vector<std::string>> rows(static_cast<size_t>(sc.rows));
  for (auto& row : rows)
    for (int k = 0; k < n; ++k)
      row.push_back(field(dice, sc, sc.vars[static_cast<size_t>(k / sc.cplx)].numeric));
  // Without N a file may not end in an empty field that follows a delimiter
  // closing the previous row; a value there keeps every row count exact.
  if (!rows.empty() && rows.back().back().empty() && !sc.ndels) rows.back().back() = "0";

  std::string& text = sc.input;
  switch (sc.layout) {
    case Layout::kSoft: {
      static const std::vector<std::string> kSeparators = {" ",    "\t", ",",  "\n",
                                                           "\r\n", "  ", " ,", " \t, "};
      if (dice.chance(20)) text += dice.pick(kSeparators);
      bool first = true;
      for (const auto& row : rows)
        for (const std::string& f : row) {
          if (!first) text += dice.pick(kSeparators);
          text += f;
          first = false;
        }
      if (!rows.empty() && dice.chance(70)) text += line_end(dice);
      break;
    }
    case Layout::kNewline: {
      bool first = true;
      for (const auto& row : rows)
        for (const std::string& f : row) {
          if (!first) text += line_end(dice);
          text += blanks(dice) + f + blanks(dice);
          first = false;
        }
      if (!rows.empty() && sc.ndels) text += line_end(dice);
      break;
    }
    case Layout::kStream: {
      for (size_t r = 0; r < rows.size(); ++r) {
        for (size_t k = 0; k < rows[r].size(); ++k) {
          if (k > 0) text += ",";
          text += blanks(dice) + rows[r][k] + blanks(dice);
        }
        const bool last = r + 1 == rows.size();
        if (!last || sc.ndels) text += ",";
        if (!last || dice.chance(50))
          text += dice.pick(std::vector<std::string>{"", "\n", "\r\n", " \n"});
      }
      break;
    }
    case Layout::kLinePerRow: {
      for (size_t r = 0; r < rows.size(); ++r) {
        // Now and then a short line: the rest of its row is missing.
        size_t keep = rows[r].size();
        if (dice.chance(8)) keep = static_cast<size_t>(dice.below(static_cast<int>(keep) + 1));
        for (size_t k = 0; k < keep; ++k) {
          if (k > 0) text += ",";
          text += blanks(dice) + rows[r][k] + blanks(dice);
        }
        // The last line may go without its line end, unless it is empty.
        const bool last = r + 1 == rows.size();
        if (!last || keep == 0 || dice.chance(60)) text += line_end(dice);
      }
      break;
    }
  }
}

// ---- scenarios ----------------------------------------------------------

Scenario make_scenario(Dice& dice) {
  Scenario sc;
  // One scenario in eight is wide and long, so that rows fill more than one
  // output block and the input more than one read.
  const bool big = dice.chance(12);
  sc.big = big;
  sc.layout = static_cast<Layout>(dice.below(4));
  sc.cplx = dice.chance(35) ? 2 : 1;
  switch (big ? dice.below(2) * 3 : dice.below(7)) {
    case 0:
      sc.outtyp = "";
      sc.otyp = 8;
      break;
    case 1:
      sc.outtyp = "OUTTYP I;\n";
      sc.otyp = 2;
      break;
    case 2:
      sc.outtyp = "OUTTYP F;\n";
      sc.otyp = 4;
      break;
    case 3:
      sc.outtyp = "OUTTYP D;\n";
      sc.otyp = 8;
      break;
    case 4:
      sc.outtyp = "outtyp 2;\n";
      sc.otyp = 2;
      break;
    case 5:
      sc.outtyp = "OUTTYP 4;\n";
      sc.otyp = 4;
      break;
    default:
      sc.outtyp = "OUTTYP 8;\n";
      sc.otyp = 8;
      break;
  }
  if (dice.chance(20)) sc.msym = '*';
  switch (sc.layout) {
    case Layout::kSoft:
      break;
    case Layout::kNewline:
      sc.ndels = dice.chance(50);
      sc.delimit = sc.ndels
                       ? dice.pick(std::vector<std::string>{"DELIMIT(\\N,N) ", "delimit(\\n n) "})
                       : "DELIMIT(\\N) ";
      break;
    case Layout::kStream:
      sc.ndels = dice.chance(40);
      sc.delimit =
          sc.ndels
              ? "DELIMIT(,N) "
              : dice.pick(std::vector<std::string>{"DELIMIT ", "DELIMIT(,) ", "DELIMIT(\\C) "});
      break;
    case Layout::kLinePerRow:
      sc.delimit = dice.pick(std::vector<std::string>{"DELIMIT(\\R) ", "DELIMIT(\\r) "});
      break;
  }
  // Character variables need 8-byte elements; with 2 or 4 bytes the element
  // size of a run would then depend on what it selects.
  make_variables(dice, sc, sc.otyp == 8, big ? dice.between(24, 40) : dice.between(1, 40));
  const int r = dice.below(100);
  sc.rows = big      ? dice.between(400, 900)
            : r < 6  ? 0
            : r < 85 ? dice.between(1, 40)
                     : dice.between(41, 300);
  make_input(dice, sc);
  return sc;
}

// ---- running and reading back ------------------------------------------

std::string read_bytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_text(const fs::path& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

struct RunResult {
  int status = -1;
  std::string out;
  std::string err;
};

RunResult run_kolv(const fs::path& dir, const std::string& command) {
  write_text(dir / "run.cmd", command);
  const std::string cmd = (dir / "run.cmd").string();
  const char* argv[] = {"kolv", cmd.c_str(), "-noc", nullptr};
  kolv_test::Capture out;
  kolv_test::Capture err;
  RunResult result;
  result.status = kolv::kolv_main(3, argv, kolv::Console{out.file(), err.file()});
  result.out = out.text();
  result.err = err.text();
  return result;
}

uint32_t word_at(const std::string& file, size_t offset) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i)
    v = (v << 8) | static_cast<unsigned char>(file[offset + static_cast<size_t>(i)]);
  return v;
}

// A data set read back: its header fields, variable block and elements.
struct DataSet {
  uint32_t otyp = 0, complex = 0, offset = 0, rows = 0, cols = 0;
  std::vector<std::string> names;  // 32-byte fields, whole
  std::string types;
  std::string data;
  int cplx() const { return complex ? 2 : 1; }
  std::string element(uint32_t row, size_t column) const {
    size_t per_row = static_cast<size_t>(cols) * static_cast<size_t>(cplx());
    return data.substr((row * per_row + column) * otyp, otyp);
  }
};

::testing::AssertionResult read_data_set(const std::string& file, DataSet& ds) {
  if (file.size() < 128)
    return ::testing::AssertionFailure() << "file of " << file.size() << " bytes";
  ds.otyp = word_at(file, 48);
  ds.complex = word_at(file, 52);
  ds.offset = word_at(file, 72);
  ds.rows = word_at(file, 80);
  ds.cols = word_at(file, 84);
  const size_t pad = ds.cols % 8 ? 8 - ds.cols % 8 : 0;
  if (ds.offset != 128 + 33 * ds.cols + pad)
    return ::testing::AssertionFailure()
           << "data offset " << ds.offset << " for " << ds.cols << " columns";
  const size_t expected_size =
      ds.offset + static_cast<size_t>(ds.rows) * ds.cols * static_cast<size_t>(ds.cplx()) * ds.otyp;
  if (file.size() != expected_size)
    return ::testing::AssertionFailure()
           << "file of " << file.size() << " bytes, header says " << expected_size;
  for (uint32_t i = 0; i < ds.cols; ++i) ds.names.push_back(file.substr(128 + 32 * i, 32));
  ds.types = file.substr(128 + 32 * ds.cols, ds.cols);
  if (file.compare(128 + 33 * ds.cols, pad, std::string(pad, '\0')) != 0)
    return ::testing::AssertionFailure() << "type pad is not zero";
  ds.data = file.substr(ds.offset);
  return ::testing::AssertionSuccess();
}

std::string statement_head(const Scenario& sc, const fs::path& dir, const std::string& output) {
  std::string s =
      "INPUT " + (dir / "in.txt").string() + ";\nOUTPUT " + (dir / output).string() + ";\n";
  s += sc.outtyp;
  if (sc.cplx == 2) s += "COMPLEX;\n";
  if (sc.msym) s += std::string("MSYM ") + sc.msym + ";\n";
  return s;
}

bool mentions_rejected_input(const std::string& out) {
  for (const char* report :
       {"Bad data", "Missing delimiter", "Unexpected delimiter", "Last row incomplete"})
    if (out.find(report) != std::string::npos) return true;
  return false;
}

bool leaves_temporary_file(const fs::path& dir) {
  for (const auto& entry : fs::directory_iterator(dir))
    if (entry.path().filename().string().rfind("out_", 0) == 0) return true;
  return false;
}

class OutvarProperty : public ::testing::Test {
 protected:
  // Memory-backed when available: the runs make many small files.
  kolv_support::ScratchDir scratch_{"kolv_outvar_prop",
                                    fs::is_directory("/dev/shm") ? "/dev/shm" : ""};
  fs::path dir_ = scratch_.path();
};

TEST_F(OutvarProperty, SelectionsGiveTheColumnsOfTheFullRun) {
  Dice dice(20261121);
  constexpr int kScenarios = 160;
  int crossed_blocks = 0;
  int large_inputs = 0;
  for (int iteration = 0; iteration < kScenarios; ++iteration) {
    Scenario sc = make_scenario(dice);
    write_text(dir_ / "in.txt", sc.input);
    const std::string invar = invar_statement(dice, sc);
    std::vector<int> selected;
    const std::string all_outvar = outvar_all(dice, sc);
    const std::string some_outvar = outvar_some(dice, sc, sc.big ? 60 : 30, selected);
    const std::string full_cmd = statement_head(sc, dir_, "full.dat") + invar;
    const std::string all_cmd = statement_head(sc, dir_, "all.dat") + invar + all_outvar;
    const std::string some_cmd = statement_head(sc, dir_, "some.dat") + invar + some_outvar;
    SCOPED_TRACE("scenario " + std::to_string(iteration) + "\n" + some_cmd + "(all: " + all_outvar +
                 ")");

    RunResult full = run_kolv(dir_, full_cmd);
    ASSERT_EQ(full.status, 0) << full.out;
    ASSERT_FALSE(mentions_rejected_input(full.out)) << "the generated input was not valid:\n"
                                                    << full.out;
    RunResult all = run_kolv(dir_, all_cmd);
    ASSERT_EQ(all.status, 0) << all.out;
    RunResult some = run_kolv(dir_, some_cmd);
    ASSERT_EQ(some.status, 0) << some.out;
    ASSERT_FALSE(leaves_temporary_file(dir_));

    const std::string full_file = read_bytes(dir_ / "full.dat");
    const std::string all_file = read_bytes(dir_ / "all.dat");
    const std::string some_file = read_bytes(dir_ / "some.dat");

    // Naming every variable in input order changes nothing.
    ASSERT_TRUE(all_file == full_file)
        << "OUTVAR of all variables in input order differs from no OUTVAR (" << all_file.size()
        << " and " << full_file.size() << " bytes)";
    EXPECT_EQ(all.err, full.err);

    DataSet f;
    ASSERT_TRUE(read_data_set(full_file, f));
    ASSERT_EQ(f.otyp, static_cast<uint32_t>(sc.otyp));
    ASSERT_EQ(f.cplx(), sc.cplx);
    ASSERT_EQ(f.rows, static_cast<uint32_t>(sc.rows));
    ASSERT_EQ(f.cols, sc.vars.size());
    for (size_t i = 0; i < sc.vars.size(); ++i) {
      std::string name_field = sc.vars[i].name;
      name_field.resize(32, '\0');
      ASSERT_EQ(f.names[i], name_field) << "input variable " << i;
      ASSERT_EQ(f.types[i], sc.vars[i].numeric ? 1 : 0);
    }

    // A selection gives exactly the selected columns of the full run.
    DataSet s;
    ASSERT_TRUE(read_data_set(some_file, s));
    ASSERT_EQ(s.otyp, f.otyp);
    ASSERT_EQ(s.complex, f.complex);
    ASSERT_EQ(s.rows, f.rows);
    ASSERT_EQ(s.cols, selected.size());
    for (size_t j = 0; j < selected.size(); ++j) {
      const size_t input = static_cast<size_t>(selected[j]);
      ASSERT_EQ(s.names[j], f.names[input]) << "output column " << j;
      ASSERT_EQ(s.types[j], f.types[input]) << "output column " << j;
    }
    const int cplx = f.cplx();
    for (uint32_t row = 0; row < f.rows; ++row)
      for (size_t j = 0; j < selected.size(); ++j)
        for (int part = 0; part < cplx; ++part) {
          const size_t from = static_cast<size_t>(selected[j]) * static_cast<size_t>(cplx) +
                              static_cast<size_t>(part);
          const size_t to = j * static_cast<size_t>(cplx) + static_cast<size_t>(part);
          ASSERT_EQ(s.element(row, to), f.element(row, from))
              << "row " << row << ", output column " << j << ", part " << part;
        }
    EXPECT_EQ(some.err, full.err);  // the partial-record warning, if any

    const size_t some_row = selected.size() * static_cast<size_t>(cplx) * f.otyp;
    if (f.rows > 131072 / some_row) ++crossed_blocks;
    if (sc.input.size() > 131072) ++large_inputs;
  }
  // The scenarios must reach past one output block and one read of input.
  EXPECT_GT(crossed_blocks, 0);
  EXPECT_GT(large_inputs, 0);
}

}  // namespace
