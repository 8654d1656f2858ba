// OUTVAR: resolving names against the input variables, ranges, undefined
// names, table growth, and the variable block written after the header.
#include "command/outvar.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "command/invar.hpp"
#include "support/files.hpp"
#include "support/scratch.hpp"
#include "test_run.hpp"

namespace {

using kolv::FatalError;
using kolv_test::TestRun;

using Names = std::vector<std::string>;
using Ints = std::vector<int>;

// A temporary output beside which nothing else lives: a directory of its own
// holding a file of 128 zero bytes, as the run prepares it before pass 3.
class TempOutput {
 public:
  TempOutput() {
    if (!kolv_support::write_file(path_, std::string(128, '\0'))) std::abort();
  }
  const std::string& path() const { return path_; }
  std::string bytes() const { return kolv_support::read_file(path_); }

 private:
  kolv_support::ScratchDir dir_{"kolv_outvar"};
  std::string path_ = dir_.file("out_header");
};

class Outvar : public ::testing::Test {
 protected:
  void SetUp() override { std::strcpy(t.run.files.outtmp, tmp.path().c_str()); }
  void invar(const std::string& statement) {
    t.statement(statement);
    t.run.vars.varin = kolv::scaninvar(t.run, t.st());
  }
  int outvar(const std::string& statement) {
    t.statement(statement);
    return kolv::scanoutvar(t.run, t.st());
  }
  std::string fatal_of(const std::string& statement) {
    try {
      outvar(statement);
    } catch (const FatalError& e) {
      return e.message;
    }
    return "(no fatal error)";
  }
  std::string oname(int i) const {
    const char* field = t.run.vars.onames.data() + 32 * static_cast<size_t>(i);
    return std::string(field, strnlen(field, 32));
  }
  Names onames() const {
    Names names;
    for (int i = 0; i < t.run.vars.varout; ++i) names.push_back(oname(i));
    return names;
  }
  Ints otypes() const {
    Ints types;
    for (int i = 0; i < t.run.vars.varout; ++i)
      types.push_back(t.run.vars.otypes[static_cast<size_t>(i)]);
    return types;
  }
  Ints outvec(int count) const {
    Ints v;
    for (int i = 0; i < count; ++i) v.push_back(t.run.vars.outvec[static_cast<size_t>(i)]);
    return v;
  }

  TempOutput tmp;
  TestRun t;
};

std::string field32(const std::string& name) {
  return name + std::string(32 - name.size(), '\0');
}

// ---- resolution and order ---------------------------------------------------------

TEST_F(Outvar, ChoosesAndOrdersInputVariables) {
  invar("INVAR $ name # age");
  EXPECT_EQ(outvar("OUTVAR age NAME"), 2);
  EXPECT_EQ(t.run.vars.varout, 2);
  EXPECT_EQ(onames(), (Names{"AGE", "name"}));
  EXPECT_EQ(otypes(), (Ints{1, 0}));
  EXPECT_EQ(outvec(2), (Ints{1, 0}));
  EXPECT_EQ(t.out_text(), "");
}

TEST_F(Outvar, VariableBlockFollowsTheHeader) {
  invar("INVAR $ name # age");
  outvar("OUTVAR age NAME");
  std::string expected = std::string(128, '\0') + field32("AGE") + field32("name") +
                         std::string("\x01\x00", 2) + std::string(6, '\0');
  EXPECT_EQ(tmp.bytes(), expected);
}

TEST_F(Outvar, RangeThenSingleName) {
  invar("INVAR x[3]");
  EXPECT_EQ(outvar("OUTVAR x[2:3] x1"), 3);
  EXPECT_EQ(onames(), (Names{"X2", "X3", "X1"}));
  EXPECT_EQ(outvec(3), (Ints{1, 2, 0}));
}

TEST_F(Outvar, RangesFollowTheInputGrammar) {
  invar("INVAR w[10] $ s[2]");
  EXPECT_EQ(outvar("OUTVAR w[08-10] w[03] S[2] w[1:10]"), 18);
  EXPECT_EQ(oname(0), "W08");
  EXPECT_EQ(oname(2), "W10");
  EXPECT_EQ(oname(3), "W01");
  EXPECT_EQ(oname(6), "s1");
  EXPECT_EQ(oname(7), "s2");
  EXPECT_EQ(oname(17), "W10");
  EXPECT_EQ(outvec(18), (Ints{7, 8, 9, 0, 1, 2, 10, 11, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(t.out_text(), "");
}

TEST_F(Outvar, SameVariableTwice) {
  invar("INVAR a b");
  EXPECT_EQ(outvar("OUTVAR b b a"), 3);
  EXPECT_EQ(outvec(3), (Ints{1, 1, 0}));
  EXPECT_EQ(onames(), (Names{"B", "B", "A"}));
}

TEST_F(Outvar, LookupTriesTheSlotInInputOrderFirst) {
  invar("INVAR a b a");
  outvar("OUTVAR a a a");
  // Slot 0 finds input 0; slot 1 finds B there and scans from the start;
  // slot 2 finds the second A at its own index.
  EXPECT_EQ(outvec(3), (Ints{0, 0, 2}));
}

TEST_F(Outvar, NamesFoldByTheInputType) {
  invar("INVAR $ s # n");
  outvar("OUTVAR S n");
  EXPECT_EQ(onames(), (Names{"s", "N"}));
}

TEST_F(Outvar, PreserveCaseKeepsTheNameAsWrittenInOutvar) {
  t.run.set.keepcase = 1;
  invar("INVAR $ Sx # Nm");
  outvar("OUTVAR sX NM");
  EXPECT_EQ(onames(), (Names{"sX", "NM"}));
  EXPECT_EQ(outvec(2), (Ints{0, 1}));
}

// ---- chardata -----------------------------------------------------------------

TEST_F(Outvar, NumericSelectionClearsChardata) {
  invar("INVAR $ s # n");
  EXPECT_EQ(t.run.vars.chardata, 1);
  outvar("OUTVAR n");
  EXPECT_EQ(t.run.vars.chardata, 0);
}

TEST_F(Outvar, AnySelectedCharacterVariableSetsChardata) {
  invar("INVAR $ s # n");
  outvar("OUTVAR s n");
  EXPECT_EQ(t.run.vars.chardata, 1);
}

// ---- undefined names ------------------------------------------------------------

TEST_F(Outvar, UndefinedNameIsReportedAndTakesNoSlot) {
  invar("INVAR a b");
  EXPECT_EQ(outvar("OUTVAR a zz b"), 2);
  EXPECT_EQ(t.out_text(), "KOLV - Undefined variable zz\n");
  EXPECT_EQ(t.run.vars.undefvar, 1);
  EXPECT_EQ(onames(), (Names{"A", "B"}));
  EXPECT_EQ(outvec(2), (Ints{0, 1}));
}

TEST_F(Outvar, EveryUndefinedNameIsReported) {
  invar("INVAR a");
  EXPECT_EQ(outvar("OUTVAR p a Q[2]"), 1);
  EXPECT_EQ(t.out_text(),
            "KOLV - Undefined variable p\n"
            "KOLV - Undefined variable Q1\n"
            "KOLV - Undefined variable Q2\n");
  EXPECT_EQ(t.run.vars.undefvar, 3);
}

// ---- syntax --------------------------------------------------------------------

TEST_F(Outvar, TypeSwitchesAreSyntaxErrors) {
  invar("INVAR a $ b");
  EXPECT_EQ(fatal_of("OUTVAR a $b"), "KOLV - Syntax error at: $b\n");
  EXPECT_EQ(fatal_of("OUTVAR # a"), "KOLV - Syntax error at: # a\n");
}

TEST_F(Outvar, TrailingTextIsASyntaxError) {
  invar("INVAR a b");
  EXPECT_EQ(fatal_of("OUTVAR a + b"), "KOLV - Syntax error at: + b\n");
}

TEST_F(Outvar, RangeErrorsAreReportedAsInInvar) {
  invar("INVAR x[3]");
  EXPECT_EQ(fatal_of("OUTVAR x[3:1]"), "KOLV - Syntax error at: 3:1]\n");
  EXPECT_EQ(fatal_of("OUTVAR x[0]"), "KOLV - Syntax error at: 0]\n");
  EXPECT_EQ(fatal_of("OUTVAR x[1:z]"), "KOLV - Syntax error at: z]\n");
}

TEST_F(Outvar, NameOf33CharactersIsASyntaxError) {
  invar("INVAR " + std::string(32, 'a'));
  EXPECT_EQ(outvar("OUTVAR " + std::string(32, 'a')), 1);
  EXPECT_EQ(fatal_of("OUTVAR " + std::string(32, 'a') + "b"), "KOLV - Syntax error at: b\n");
}

TEST_F(Outvar, TemporaryFileThatWillNotOpenIsFatal) {
  invar("INVAR a");
  std::string missing = tmp.path() + ".absent/x";
  std::strcpy(t.run.files.outtmp, missing.c_str());
  EXPECT_EQ(fatal_of("OUTVAR a"), "KOLV - Can't open temporary file 6\n");
}

// ---- packed input ----------------------------------------------------------------

TEST_F(Outvar, IgnoredWithPackedInput) {
  invar("INVAR a b");
  t.run.lay.varformat = 2;
  t.run.vars.varout = 0;
  EXPECT_EQ(outvar("OUTVAR a\nb"), 0);
  EXPECT_EQ(t.out_text(), "IGNORING: OUTVAR a\nb\n");
  EXPECT_EQ(tmp.bytes(), std::string(128, '\0'));
}

// ---- padding of the type bytes and table growth -------------------------------------

TEST_F(Outvar, FiveTypesArePaddedWithThreeZeros) {
  invar("INVAR v[5]");
  outvar("OUTVAR v[5]");
  std::string b = tmp.bytes();
  ASSERT_EQ(b.size(), 128u + 5 * 32 + 5 + 3);
  EXPECT_EQ(b.substr(128 + 160), std::string("\x01\x01\x01\x01\x01\0\0\0", 8));
}

TEST_F(Outvar, EightTypesNeedNoPadding) {
  invar("INVAR v[8]");
  outvar("OUTVAR v[8]");
  EXPECT_EQ(tmp.bytes().size(), 128u + 8 * 32 + 8);
}

TEST_F(Outvar, RangeGrowsTheTablesPastAThousand) {
  invar("INVAR $ v[1500]");
  EXPECT_EQ(outvar("OUTVAR v[1500]"), 1500);
  EXPECT_EQ(oname(1499), "v1500");
  EXPECT_EQ(outvec(1500)[1000], 1000);
  EXPECT_EQ(outvec(1500)[1499], 1499);
  std::string b = tmp.bytes();
  ASSERT_EQ(b.size(), 128u + 1500 * 32 + 1500 + 4);
  EXPECT_EQ(b.substr(128 + 1499 * 32, 32), field32("v1500"));
  EXPECT_EQ(b[128 + 1500 * 32 + 1499], '\0');  // character type byte
}

TEST_F(Outvar, SingleNamesGrowTheTablesPastAThousand) {
  invar("INVAR v[1100]");
  std::string statement = "OUTVAR";
  for (int i = 1100; i >= 1; --i) {
    char name[8];
    std::snprintf(name, sizeof name, "v%04d", i);
    statement += std::string(" ") + name;
  }
  EXPECT_EQ(outvar(statement), 1100);
  EXPECT_EQ(oname(0), "V1100");
  EXPECT_EQ(oname(1099), "V0001");
  EXPECT_EQ(outvec(1100)[0], 1099);
  EXPECT_EQ(outvec(1100)[1099], 0);
  EXPECT_EQ(tmp.bytes().size(), 128u + 1100 * 32 + 1100 + 4);
}

// ---- several statements ---------------------------------------------------------

TEST_F(Outvar, LastStatementCounts) {
  invar("INVAR a b c");
  outvar("OUTVAR a b c");
  EXPECT_EQ(outvar("OUTVAR c"), 1);
  EXPECT_EQ(t.run.vars.varout, 1);
  EXPECT_EQ(onames(), (Names{"C"}));
  EXPECT_EQ(outvec(1), (Ints{2}));
  std::string b = tmp.bytes();
  ASSERT_GE(b.size(), 128u + 40);
  EXPECT_EQ(b.substr(128, 40), field32("C") + std::string("\x01\0\0\0\0\0\0\0", 8));
}

}  // namespace
