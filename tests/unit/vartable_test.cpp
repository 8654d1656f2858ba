// The variable tables: growth of the input table, makeivar and getvardex.
#include "command/vartable.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "command/invar.hpp"
#include "test_run.hpp"

namespace {

using kolv::FatalError;
using kolv_test::TestRun;

std::string iname(const TestRun& t, int i) {
  const char* field = t.run.vars.inames.data() + 32 * static_cast<size_t>(i);
  return std::string(field, strnlen(field, 32));
}

int scan(TestRun& t, const std::string& statement) {
  t.statement(statement);
  return kolv::scaninvar(t.run, t.st());
}

// ---- table growth --------------------------------------------------------------

TEST(InputTables, RangeGrowsPastAThousand) {
  TestRun t;
  EXPECT_EQ(scan(t, "INVAR $ v[1500]"), 1500);
  EXPECT_EQ(iname(t, 0), "v0001");
  EXPECT_EQ(iname(t, 999), "v1000");
  EXPECT_EQ(iname(t, 1000), "v1001");
  EXPECT_EQ(iname(t, 1499), "v1500");
  EXPECT_EQ(t.run.vars.itypes[1499], 0);
  EXPECT_GE(t.run.vars.varlimit, 1500);
  EXPECT_EQ(t.run.vars.itypes.size() % 8, 0u);
}

TEST(InputTables, SingleNamesGrowPastAThousand) {
  TestRun t;
  std::string statement = "INVAR";
  for (int i = 1; i <= 1001; ++i) statement += " n" + std::to_string(i);
  statement += " $ last";
  EXPECT_EQ(scan(t, statement), 1002);
  EXPECT_EQ(iname(t, 999), "N1000");
  EXPECT_EQ(iname(t, 1000), "N1001");
  EXPECT_EQ(iname(t, 1001), "last");
  EXPECT_EQ(t.run.vars.itypes[1000], 1);
  EXPECT_EQ(t.run.vars.itypes[1001], 0);
  EXPECT_GE(t.run.vars.varlimit, 1002);
}

TEST(InputTables, MakeivarAddsWithTheCurrentType) {
  TestRun t;
  scan(t, "INVAR a");
  std::strcpy(t.run.vars.vname, "extra");
  t.run.vars.numeric_data = 0;
  kolv::makeivar(t.run, 2000);
  EXPECT_EQ(t.run.vars.varin, 2);
  EXPECT_EQ(iname(t, 1), "extra");
  EXPECT_EQ(t.run.vars.itypes[1], 0);
}

// ---- getvardex -----------------------------------------------------------------

TEST(Getvardex, IgnoresCase) {
  TestRun t;
  scan(t, "INVAR $ name # age");
  t.run.vars.varout = 0;
  EXPECT_EQ(kolv::getvardex(t.run, "AGE"), 1);
  EXPECT_EQ(kolv::getvardex(t.run, "Name"), 0);
}

TEST(Getvardex, AbsentNameGivesMinusOne) {
  TestRun t;
  scan(t, "INVAR age");
  t.run.vars.varout = 0;
  EXPECT_EQ(kolv::getvardex(t.run, "ag"), -1);
  EXPECT_EQ(kolv::getvardex(t.run, "ages"), -1);
  EXPECT_EQ(kolv::getvardex(t.run, "zz"), -1);
  EXPECT_EQ(t.run.vars.chardata, 0);
}

TEST(Getvardex, TriesTheEntryAtVaroutFirst) {
  TestRun t;
  scan(t, "INVAR a b a");
  t.run.vars.varout = 2;
  EXPECT_EQ(kolv::getvardex(t.run, "a"), 2);
  t.run.vars.varout = 0;
  EXPECT_EQ(kolv::getvardex(t.run, "a"), 0);
  t.run.vars.varout = 1;  // B there: scan from the start
  EXPECT_EQ(kolv::getvardex(t.run, "a"), 0);
  t.run.vars.varout = 7;  // beyond the table
  EXPECT_EQ(kolv::getvardex(t.run, "a"), 0);
}

TEST(Getvardex, ComparesAtMost32Characters) {
  TestRun t;
  std::string name(32, 'L');
  scan(t, "INVAR " + name + " b");
  t.run.vars.varout = 1;
  EXPECT_EQ(kolv::getvardex(t.run, std::string(32, 'l').c_str()), 0);
}

TEST(Getvardex, CharacterVariableSetsChardataAndItStays) {
  TestRun t;
  scan(t, "INVAR $ s # n");
  t.run.vars.chardata = 0;
  t.run.vars.varout = 0;
  EXPECT_EQ(kolv::getvardex(t.run, "n"), 1);
  EXPECT_EQ(t.run.vars.chardata, 0);
  EXPECT_EQ(kolv::getvardex(t.run, "s"), 0);
  EXPECT_EQ(t.run.vars.chardata, 1);
  EXPECT_EQ(kolv::getvardex(t.run, "n"), 1);
  EXPECT_EQ(t.run.vars.chardata, 1);
}

}  // namespace
