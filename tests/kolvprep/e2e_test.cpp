// kolvprep end to end: it looks at a file, writes NAME.cmd and prints a
// command; the test runs that command (kolvprep --text and the real kolv)
// and compares every value of the data set with the text as a CSV reader
// reads it. Hostile inputs must give one clear line and no command file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "support.hpp"

namespace {

using kptest::Reading;
using kptest::Result;
using kptest::ScratchDir;

struct Outcome {
  Result prep;
  Result convert;
  std::string command;
  std::string cmd_text;
};

Outcome prepare_and_convert(const ScratchDir& dir, const std::string& file,
                            const std::string& options = "") {
  Outcome o;
  o.prep = kptest::kolvprep(dir.path(), options + (options.empty() ? "" : " ") + file);
  o.command = kptest::last_line(o.prep.out);
  o.convert = kptest::shell(dir.path(), o.command);
  return o;
}

void expect_round_trip(const ScratchDir& dir, const std::string& name, const std::string& text,
                       const Reading& reading) {
  const kptest::DataSet ds = kptest::read_data_set(dir.file(name + ".dat"));
  const auto records = kptest::read_records(text, reading);
  EXPECT_EQ(kptest::compare(ds, records, reading), "");
}

void expect_converted(const Outcome& o) {
  EXPECT_EQ(o.prep.status, 0) << o.prep.err;
  EXPECT_EQ(o.convert.status, 0) << o.convert.out << o.convert.err;
  EXPECT_EQ(o.convert.out.find("Bad data"), std::string::npos) << o.convert.out;
  EXPECT_EQ(o.convert.out.find("delimiter"), std::string::npos) << o.convert.out;
}

TEST(KolvprepE2e, QuotedCsvWithHeaderBomCrlfDatesAndMissingTokens) {
  ScratchDir dir;
  const std::string text =
      "\xEF\xBB\xBF"
      "id,\"place name\",day,time,value,note\r\n"
      "1,\"Lake Tahoe, CA\",2010-01-01,12:30,1.5,ok\r\n"
      "2,\"Crater \"\"Deep\"\"\",2010-01-02,08:05:09,NA,\r\n"
      "3,Mono,2011-12-31,23:59,-2.25e3,N/A\r\n"
      "4,,2012-02-29,00:00,.,null\r\n";
  kptest::write_file(dir.file("lakes.csv"), text);
  const Outcome o = prepare_and_convert(dir, "lakes.csv");
  expect_converted(o);
  EXPECT_EQ(o.command.rfind("kolvprep --text ", 0), 0u) << o.command;
  EXPECT_NE(o.command.find("| kolv lakes.cmd"), std::string::npos) << o.command;
  const std::string cmd = kptest::read_file(dir.file("lakes.cmd"));
  EXPECT_EQ(cmd.substr(0, cmd.find('\n')), "@ run: " + o.command + " @");
  Reading r;
  r.skip = 1;
  r.kinds = {'n', 'c', 'd', 't', 'n', 'c'};
  expect_round_trip(dir, "lakes", text, r);
  const kptest::DataSet ds = kptest::read_data_set(dir.file("lakes.dat"));
  ASSERT_EQ(ds.names.size(), 6u);
  EXPECT_EQ(ds.names[0], "ID");
  EXPECT_EQ(ds.names[1], "place_name");
  EXPECT_EQ(ds.names[2], "DAY");
  // The date reads as the number yyyymmdd, the time as hhmmss.
  double day, time;
  std::memcpy(&day, &ds.slots[2], 8);
  std::memcpy(&time, &ds.slots[3], 8);
  EXPECT_EQ(day, 20100101.0);
  EXPECT_EQ(time, 123000.0);
}

TEST(KolvprepE2e, TabSeparatedWithEmptyFieldsKeepsEveryRecordInPlace) {
  ScratchDir dir;
  const std::string text = "a\tb\tc\n1\t\t3\n4\t5\t6\n\t8\t\n";
  kptest::write_file(dir.file("t.tsv"), text);
  const Outcome o = prepare_and_convert(dir, "t.tsv");
  expect_converted(o);
  Reading r;
  r.delimiter = '\t';
  r.skip = 1;
  r.kinds = {'n', 'n', 'n'};
  expect_round_trip(dir, "t", text, r);
}

TEST(KolvprepE2e, SemicolonAndPipeLayouts) {
  for (char d : {';', '|'}) {
    ScratchDir dir;
    std::string text = "x;y;name\n1.5;2;alpha\n-3;4e2;beta gamma\n5;;delta\n";
    for (char& c : text) {
      if (c == ';') c = d;
    }
    kptest::write_file(dir.file("s.txt"), text);
    const Outcome o = prepare_and_convert(dir, "s.txt");
    expect_converted(o);
    EXPECT_NE(o.command.find(d == ';' ? "--layout=semicolon" : "--layout=pipe"), std::string::npos)
        << o.command;
    Reading r;
    r.delimiter = d;
    r.skip = 1;
    r.kinds = {'n', 'n', 'c'};
    expect_round_trip(dir, "s", text, r);
  }
}

TEST(KolvprepE2e, CleanCommaFileIsReadAsItIs) {
  ScratchDir dir;
  const std::string text = "1,2.5,abc\n3,,de\n-4,1e-3,.\n";
  kptest::write_file(dir.file("c.csv"), text);
  const Outcome o = prepare_and_convert(dir, "c.csv");
  expect_converted(o);
  EXPECT_EQ(o.command, "kolv c.cmd && kolvdump --check c.dat");
  Reading r;
  r.kinds = {'n', 'n', 'c'};
  expect_round_trip(dir, "c", text, r);
}

TEST(KolvprepE2e, BlankAlignedFileIsReadAsItIsWithMsymForQuestionMarks) {
  ScratchDir dir;
  const std::string text = "  1.0   20   abc\n  2.5    ?   de\n -3.0   40   fgh\n";
  kptest::write_file(dir.file("b.dat"), text);
  const Outcome o = prepare_and_convert(dir, "b.dat");
  expect_converted(o);
  EXPECT_EQ(o.command, "kolv b.cmd && kolvdump --check b.dat");
  EXPECT_NE(kptest::read_file(dir.file("b.cmd")).find("MSYM ?;"), std::string::npos);
  Reading r;
  r.delimiter = 0;
  r.kinds = {'n', 'n', 'c'};
  expect_round_trip(dir, "b", text, r);
}

TEST(KolvprepE2e, CommentAndBlankLinesBeforeTheData) {
  ScratchDir dir;
  const std::string text =
      "# station data\n#\n\n% not a comment char here\n 1 2 3\n 4 5 6\n\n 7 8 9\n";
  kptest::write_file(dir.file("k.txt"), text);
  const Outcome o = prepare_and_convert(dir, "k.txt");
  expect_converted(o);
  Reading r;
  r.delimiter = 0;
  r.comment = '#';
  r.skip = 4;
  r.kinds = {'n', 'n', 'n'};
  expect_round_trip(dir, "k", text, r);
}

TEST(KolvprepE2e, FixedColumnsBecomeARecordDescription) {
  ScratchDir dir;
  std::string text;
  for (int i = 0; i < 50; ++i) {
    char line[64];
    std::snprintf(line, sizeof line, "ST%03d%4d%02d%6.1fX%c\n", i % 7, 1990 + i, 1 + i % 12,
                  i * 3.5 - 40, "ABC"[i % 3]);
    text += line;
  }
  kptest::write_file(dir.file("f.txt"), text);
  const Outcome o = prepare_and_convert(dir, "f.txt");
  expect_converted(o);
  EXPECT_EQ(o.command, "kolv f.cmd && kolvdump --check f.dat");
  const std::string cmd = kptest::read_file(dir.file("f.cmd"));
  EXPECT_NE(cmd.find("INVAR RECORD = 19"), std::string::npos) << cmd;
  // The columns found: the text "ST", the glued digits of station, year
  // and month, the value, and the letters at the end.
  Reading r;
  r.raw_text = true;
  const kptest::DataSet ds = kptest::read_data_set(dir.file("f.dat"));
  ASSERT_TRUE(ds.problem.empty()) << ds.problem;
  // Every group of the command file, in order.
  size_t at = 0;
  while ((at = cmd.find('(', at)) != std::string::npos) {
    size_t a = 0, w = 0;
    if (std::sscanf(cmd.c_str() + at, "(%zu,%zu)", &a, &w) == 2) r.fixed.push_back({a - 1, w});
    ++at;
  }
  ASSERT_EQ(r.fixed.size(), ds.columns);
  for (uint8_t t : ds.types) r.kinds.push_back(t ? 'n' : 'c');
  EXPECT_EQ(r.kinds.front(), 'c') << cmd;
  EXPECT_EQ(r.kinds.back(), 'c') << cmd;
  EXPECT_GE(std::count(r.kinds.begin(), r.kinds.end(), 'n'), 2) << cmd;
  expect_round_trip(dir, "f", text, r);
}

TEST(KolvprepE2e, NameAndForce) {
  ScratchDir dir;
  kptest::write_file(dir.file("in.csv"), "a,b\n1,2\n");
  Result first = kptest::kolvprep(dir.path(), "--name out in.csv");
  EXPECT_EQ(first.status, 0) << first.err;
  EXPECT_TRUE(kptest::file_exists(dir.file("out.cmd")));
  kptest::write_file(dir.file("out.cmd"), "mine");
  Result again = kptest::kolvprep(dir.path(), "--name=out in.csv");
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(again.err, "kolvprep: out.cmd exists; --force replaces it\n");
  EXPECT_EQ(kptest::read_file(dir.file("out.cmd")), "mine");
  Result forced = kptest::kolvprep(dir.path(), "--force --name out in.csv");
  EXPECT_EQ(forced.status, 0);
  EXPECT_NE(kptest::read_file(dir.file("out.cmd")), "mine");
}

TEST(KolvprepE2e, LargeFileIsSampledAndConvertedWhole) {
  ScratchDir dir;
  std::string text = "n,x,label\n";
  for (int i = 0; i < 300000; ++i) {
    text += std::to_string(i) + "," + std::to_string(i * 0.25 - 1000) + ",\"w " +
            std::to_string(i % 97) + "\"\n";
  }
  ASSERT_GT(text.size(), size_t{4} << 20);
  kptest::write_file(dir.file("big.csv"), text);
  const Outcome o = prepare_and_convert(dir, "big.csv");
  expect_converted(o);
  EXPECT_NE(o.prep.out.find("only a sample was read"), std::string::npos) << o.prep.out;
  Reading r;
  r.skip = 1;
  r.kinds = {'n', 'n', 'c'};
  expect_round_trip(dir, "big", text, r);
}

// The lines of a text, each without its line end.
std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> out;
  size_t at = 0;
  while (at < text.size()) {
    const size_t nl = text.find('\n', at);
    out.push_back(text.substr(at, nl == std::string::npos ? std::string::npos : nl - at));
    at = nl == std::string::npos ? text.size() : nl + 1;
  }
  return out;
}

TEST(KolvprepE2e, MisfitsAreSetAsideCountedAndNeverReachKolv) {
  ScratchDir dir;
  std::string text = "id,name,v\n";
  std::string clean = text;
  for (int i = 1; i <= 40; ++i) {
    const std::string line =
        std::to_string(i) + ",\"n " + std::to_string(i % 7) + "\"," + std::to_string(i * 1.5);
    text += line + "\n";
    clean += line + "\n";
    // Line 12: a field too many; line 23: one too few; line 34: a stray quote.
    if (i == 10) text += "99,x,1,2\n";
    if (i == 20) text += "98,y\n";
    if (i == 30) text += "97,\"z,3\n";
  }
  kptest::write_file(dir.file("m.csv"), text);
  kptest::write_file(dir.file("m.rejects"), "from an earlier run\n");
  const Outcome o = prepare_and_convert(dir, "m.csv");
  expect_converted(o);
  EXPECT_NE(
      o.prep.out.find("warning: 3 records do not fit the table; the command sets them aside\n"),
      std::string::npos)
      << o.prep.out;
  EXPECT_EQ(o.command,
            "kolvprep --text --layout=comma --skip=1 --columns=3 --char=2 --rejects=m.rejects "
            "m.csv | kolv m.cmd && kolvdump --check m.dat");
  EXPECT_NE(o.convert.err.find("kolvprep: m.csv: 3 records set aside into m.rejects\n"),
            std::string::npos)
      << o.convert.err;
  EXPECT_EQ(kptest::read_file(dir.file("m.rejects")), "12\t99,x,1,2\n23\t98,y\n34\t97,\"z,3\n");
  Reading r;
  r.skip = 1;
  r.kinds = {'n', 'c', 'n'};
  expect_round_trip(dir, "m", clean, r);
  // Every line of the report is one finding of about 100 characters at most.
  for (const std::string& line : lines_of(o.prep.out)) {
    if (line == o.command) continue;
    EXPECT_LE(line.size(), 100u) << line;
  }

  // Padded instead: every record kept, no rejects file.
  ScratchDir pad_dir;
  kptest::write_file(pad_dir.file("m.csv"), text);
  const Outcome p = prepare_and_convert(pad_dir, "m.csv", "--misfits=pad");
  expect_converted(p);
  EXPECT_NE(p.command.find(" --misfits=pad "), std::string::npos) << p.command;
  EXPECT_FALSE(kptest::file_exists(pad_dir.file("m.rejects")));
  const kptest::DataSet ds = kptest::read_data_set(pad_dir.file("m.dat"));
  EXPECT_EQ(ds.rows, 43u) << ds.problem;
}

TEST(KolvprepE2e, AFileOfNamesAloneGivesAnEmptyDataSet) {
  ScratchDir dir;
  kptest::write_file(dir.file("h.csv"), "alpha,beta,gamma\n");
  const Outcome o = prepare_and_convert(dir, "h.csv");
  expect_converted(o);
  const kptest::DataSet ds = kptest::read_data_set(dir.file("h.dat"));
  ASSERT_TRUE(ds.problem.empty()) << ds.problem;
  EXPECT_EQ(ds.rows, 0u);
  EXPECT_EQ(ds.names, (std::vector<std::string>{"ALPHA", "BETA", "GAMMA"}));
}

TEST(KolvprepE2e, GivenChoicesAreReportedAndCarriedByTheCommand) {
  ScratchDir dir;
  const std::string text = "sales of 2020\nregion:code:amount\nnorth:\"007:2.5\nsouth:\"012:3\n";
  kptest::write_file(dir.file("g.txt"), text);
  const Outcome o = prepare_and_convert(
      dir, "g.txt", "--delimiter : --quote none --skip 1 --header=1 --text-columns code");
  expect_converted(o);
  EXPECT_NE(o.prep.out.find("given: delimiter, quote, 1 header row, lines before the table, text "
                            "columns code\n"),
            std::string::npos)
      << o.prep.out;
  EXPECT_NE(o.prep.out.find("guessed: nothing\n"), std::string::npos) << o.prep.out;
  EXPECT_EQ(o.command,
            "kolvprep --text --layout=other --delimiter=58 --quote=none --skip=2 --columns=3 "
            "--char=1,2 --rejects=g.rejects g.txt | kolv g.cmd && kolvdump --check g.dat");
  // The quotes are text here: the code keeps its quote.
  const kptest::DataSet ds = kptest::read_data_set(dir.file("g.dat"));
  ASSERT_EQ(ds.rows, 2u) << ds.problem;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&ds.slots[1]), 4), "\"007");
}

TEST(KolvprepE2e, QuotedLineEndsCrOnlyAndSingleQuotes) {
  ScratchDir dir;
  // RFC 4180: every field quoted, CRLF, a value holding a line end.
  kptest::write_file(
      dir.file("q.csv"),
      "\"id\",\"text\",\"v\"\r\n\"1\",\"two\r\nlines\",\"2\"\r\n\"2\",\"x\",\"3\"\r\n"
      "\"3\",\"y\",\"4\"\r\n");
  const Outcome q = prepare_and_convert(dir, "q.csv");
  expect_converted(q);
  EXPECT_NE(q.prep.out.find("note: 1 record holds line ends inside quoted values; each becomes "
                            "\"_\"\n"),
            std::string::npos)
      << q.prep.out;
  kptest::DataSet ds = kptest::read_data_set(dir.file("q.dat"));
  ASSERT_EQ(ds.rows, 3u) << ds.problem;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&ds.slots[1]), 8), "two_line");
  // Records ending with a CR alone.
  kptest::write_file(dir.file("c.csv"), "a,b\r1,2\r3,4\r");
  const Outcome c = prepare_and_convert(dir, "c.csv");
  expect_converted(c);
  EXPECT_NE(c.command.find("--record-end=cr"), std::string::npos) << c.command;
  ds = kptest::read_data_set(dir.file("c.dat"));
  EXPECT_EQ(ds.rows, 2u) << ds.problem;
  // Single quotes around values holding the delimiter.
  kptest::write_file(dir.file("s.csv"), "id,name\n1,'Doe, J'\n2,'Roe, A'\n3,'Poe, E'\n");
  const Outcome s = prepare_and_convert(dir, "s.csv");
  expect_converted(s);
  ds = kptest::read_data_set(dir.file("s.dat"));
  ASSERT_EQ(ds.rows, 3u) << ds.problem;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&ds.slots[1]), 6), "Doe__J");
}

TEST(KolvprepE2e, WrongChoicesAreUsageErrors) {
  ScratchDir dir;
  kptest::write_file(dir.file("in.csv"), "a,b\n1,2\n");
  for (const char* args : {"--quote x in.csv", "--header many in.csv", "--cuts 5-3 in.csv",
                           "--misfits=drop in.csv", "--delimiter ab in.csv"}) {
    const Result r = kptest::kolvprep(dir.path(), args);
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_EQ(r.err.rfind("kolvprep: cannot read --", 0), 0u) << r.err;
    EXPECT_FALSE(kptest::file_exists(dir.file("in.cmd"))) << args;
  }
  const Result missing = kptest::kolvprep(dir.path(), "in.csv --skip");
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.err.substr(0, missing.err.find('\n')),
            "kolvprep: unknown option --skip (it needs a value)");
  const Result column = kptest::kolvprep(dir.path(), "--numeric-columns 7 in.csv");
  EXPECT_EQ(column.status, 1);
  EXPECT_EQ(column.err,
            "kolvprep: in.csv: no column 7 (columns are 1 to 2 or header names); no command file "
            "written\n");
}

TEST(KolvprepE2e, ClosedPipeEndsTheRewriteQuietly) {
  ScratchDir dir;
  std::string text;
  for (int i = 0; i < 200000; ++i) text += "1,2,3\n";
  kptest::write_file(dir.file("p.csv"), text);
  const Result r = kptest::shell(
      dir.path(),
      "{ kolvprep --text --layout=comma --columns=3 p.csv; echo \"status $?\" >&2; } | head -c 1");
  EXPECT_EQ(r.err, "status 0\n");
}

TEST(KolvprepE2e, HelpVersionAndWrongArguments) {
  ScratchDir dir;
  const Result help = kptest::kolvprep(dir.path(), "--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("usage: kolvprep"), std::string::npos);
  const Result version = kptest::kolvprep(dir.path(), "--version");
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out.rfind("kolvprep ", 0), 0u);
  const Result bad = kptest::kolvprep(dir.path(), "--bogus x");
  EXPECT_EQ(bad.status, 2);
  EXPECT_EQ(bad.err.rfind("kolvprep: unknown option --bogus\n", 0), 0u) << bad.err;
  const Result text = kptest::kolvprep(dir.path(), "--text --layout=comma x");
  EXPECT_EQ(text.status, 2);
  EXPECT_EQ(text.err, "kolvprep: --columns=N is needed\n");
}

struct Hostile {
  const char* name;
  std::string bytes;
  const char* message;
};

class KolvprepHostile : public testing::TestWithParam<int> {};

std::vector<Hostile> hostile_inputs() {
  std::string inconsistent;
  // Lines of 1 to 9 values, between blanks or commas at random.
  for (int i = 1; i < 40; ++i) {
    for (int k = 0; k <= (i * 7) % 9; ++k)
      inconsistent += std::to_string(i * 37 % 1000) + ((i + k) % 3 ? " " : ",");
    inconsistent += "\n";
  }
  return {
      {"empty", "", "the file is empty"},
      {"one_line", "1,2,3\n",
       "only one line of data: too little to tell a header from data (give --header 1 or "
       "--no-header)"},
      {"binary",
       std::string("\x7f"
                   "ELF\x02\x01\x01\0\0\0",
                   10) +
           "abc\n1,2\n",
       "a NUL byte at offset 7: not a text file"},
      {"long_line", std::string(10u << 20, '7') + "\n1\n",
       "line 1 is longer than 1 MiB: not a table of values"},
      {"inconsistent", inconsistent,
       "no steady layout: the lines hold different numbers of fields (give --delimiter)"},
      {"bom_only", "\xEF\xBB\xBF", "the file holds nothing but a byte-order mark"},
  };
}

TEST_P(KolvprepHostile, ClearMessageAndNoCommandFile) {
  const Hostile h = hostile_inputs()[static_cast<size_t>(GetParam())];
  ScratchDir dir;
  kptest::write_file(dir.file("in.txt"), h.bytes);
  const Result r = kptest::kolvprep(dir.path(), "in.txt");
  EXPECT_EQ(r.status, 1) << h.name;
  EXPECT_EQ(r.err, std::string("kolvprep: in.txt: ") + h.message + "; no command file written\n")
      << h.name;
  EXPECT_EQ(r.out, "");
  EXPECT_FALSE(kptest::file_exists(dir.file("in.cmd"))) << h.name;
  // The rewrite takes every one of them without a crash.
  const Result t =
      kptest::shell(dir.path(), "kolvprep --text --layout=comma --columns=3 in.txt > out.txt");
  EXPECT_EQ(t.status, 0) << h.name << t.err;
}

INSTANTIATE_TEST_SUITE_P(Inputs, KolvprepHostile, testing::Range(0, 6),
                         [](const testing::TestParamInfo<int>& param_info) {
                           return std::string(
                               hostile_inputs()[static_cast<size_t>(param_info.param)].name);
                         });

}  // namespace
