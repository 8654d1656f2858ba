// kolvprep's parts in-process: value classes, splitting, names, each
// detector on small samples, the plan and command file, and the rewrite.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "kolvprep/cmdfile.hpp"
#include "kolvprep/detect.hpp"
#include "kolvprep/fields.hpp"
#include "kolvprep/rewrite.hpp"

namespace kolvprep {
namespace {

TEST(Classify, NumbersAreWhatKolvConvertsWhole) {
  double v = 0;
  EXPECT_EQ(classify("12", &v), ValueKind::kNumber);
  EXPECT_EQ(v, 12.0);
  EXPECT_EQ(classify("-2.5e3", &v), ValueKind::kNumber);
  EXPECT_EQ(v, -2500.0);
  EXPECT_EQ(classify("3504.", &v), ValueKind::kNumber);
  EXPECT_EQ(classify("+.014", &v), ValueKind::kNumber);
  EXPECT_EQ(v, 0.014);
  EXPECT_EQ(classify("00202", &v), ValueKind::kNumber);
  EXPECT_EQ(v, 202.0);
  // Not taken whole, or read as text by kolv.
  EXPECT_EQ(classify("1.5e"), ValueKind::kText);
  EXPECT_EQ(classify("12abc"), ValueKind::kText);
  EXPECT_EQ(classify("inf"), ValueKind::kText);
  EXPECT_EQ(classify("0x1A"), ValueKind::kText);
  EXPECT_EQ(classify("+"), ValueKind::kText);
  EXPECT_EQ(classify("-"), ValueKind::kText);
  EXPECT_EQ(classify("_5"), ValueKind::kText);
}

TEST(Classify, MissingTokens) {
  for (const char* t : {"", "NA", "na", "N/A", "NaN", "nan", "null", "NULL", ".", "?"})
    EXPECT_EQ(classify(t), ValueKind::kMissing) << t;
  EXPECT_EQ(classify("NAN1"), ValueKind::kText);
  EXPECT_EQ(classify("-999"), ValueKind::kNumber);
}

TEST(Classify, IsoDatesAndTimes) {
  double v = 0;
  EXPECT_EQ(classify("2010-01-01", &v), ValueKind::kDate);
  EXPECT_EQ(v, 20100101.0);
  EXPECT_EQ(classify("23:59", &v), ValueKind::kTime);
  EXPECT_EQ(v, 235900.0);
  EXPECT_EQ(classify("08:05:09.5", &v), ValueKind::kTime);
  EXPECT_EQ(v, 80509.5);
  EXPECT_EQ(classify("2010-01-01T12:00:00Z", &v), ValueKind::kDateTime);
  EXPECT_EQ(v, 20100101120000.0);
  EXPECT_EQ(classify("2010-13-01"), ValueKind::kText);
  EXPECT_EQ(classify("2010-1-01"), ValueKind::kText);
  EXPECT_EQ(classify("25:00"), ValueKind::kText);
}

TEST(MissingCodes, NinesLookLikeCodes) {
  for (const char* t : {"-999", "-9999", "9999.9", "-9.99", "-0.99", "99999"})
    EXPECT_TRUE(looks_like_missing_code(t)) << t;
  for (const char* t : {"999", "99.9", "-1", "1999", "9998", "0"})
    EXPECT_FALSE(looks_like_missing_code(t)) << t;
}

TEST(Splitter, QuotedCommaFields) {
  Splitter s(Layout::kComma);
  std::vector<std::string_view> f;
  ASSERT_TRUE(s.split(R"(1, "a, b" ,"say ""hi""",,x )", f));
  ASSERT_EQ(f.size(), 5u);
  EXPECT_EQ(f[0], "1");
  EXPECT_EQ(f[1], "a, b");
  EXPECT_EQ(f[2], "say \"hi\"");
  EXPECT_EQ(f[3], "");
  EXPECT_EQ(f[4], "x");
  EXPECT_TRUE(s.saw_quote());
  EXPECT_FALSE(s.split(R"(1,"open)", f));
  EXPECT_FALSE(s.split(R"(1,"a"b,2)", f));
  ASSERT_TRUE(s.split("1,2,", f));
  EXPECT_EQ(f.size(), 3u);
}

TEST(Splitter, TabKeepsEmptyFieldsAndBlanksRunTogether) {
  Splitter tab(Layout::kTab);
  std::vector<std::string_view> f;
  ASSERT_TRUE(tab.split("1\t\t3", f));
  EXPECT_EQ(f.size(), 3u);
  EXPECT_EQ(f[1], "");
  Splitter blank(Layout::kBlank);
  ASSERT_TRUE(blank.split("  18.0   8\t\"chevrolet chevelle\"  ", f));
  ASSERT_EQ(f.size(), 3u);
  EXPECT_EQ(f[2], "chevrolet chevelle");
}

TEST(Splitter, FixedColumnsPastTheLineAreEmpty) {
  Splitter s(Layout::kFixed, {{0, 4}, {5, 3}, {10, 2}});
  std::vector<std::string_view> f;
  ASSERT_TRUE(s.split("1749 12x", f));
  ASSERT_EQ(f.size(), 3u);
  EXPECT_EQ(f[0], "1749");
  EXPECT_EQ(f[1], "12x");
  EXPECT_EQ(f[2], "");
}

TEST(Names, ValidDistinctAndWithinTheLimit) {
  std::vector<std::string> taken;
  EXPECT_EQ(make_name("pm2.5", 1, taken), "pm2_5");
  EXPECT_EQ(make_name("PM2 5", 2, taken), "PM2_5_2");
  EXPECT_EQ(make_name("", 3, taken), "V3");
  EXPECT_EQ(make_name("2nd", 4, taken), "V2nd");
  EXPECT_EQ(make_name("record", 5, taken), "record_");
  EXPECT_EQ(make_name("Delimit", 6, taken), "Delimit_");
  EXPECT_EQ(make_name("-dDl", 7, taken), "dDl");
  const std::string longname(40, 'a');
  const std::string n1 = make_name(longname, 8, taken);
  const std::string n2 = make_name(longname, 9, taken);
  EXPECT_EQ(n1.size(), 32u);
  EXPECT_EQ(n2.size(), 32u);
  EXPECT_NE(n1, n2);
}

// A sample from text held in memory.
struct Found {
  bool ok = false;
  std::string error;
  Detection d;
};

Found look(const std::string& text) {
  Found f;
  Sample s;
  if (!sample_from_bytes(text, true, text.size(), s, f.error)) return f;
  f.ok = detect(s, f.d, f.error);
  return f;
}

TEST(Detect, CommaHeaderNamesAndTypes) {
  const Found f = look("No,pm2.5,cbwd\r\n1,,NW\r\n2,5.5,cv\r\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.layout, Layout::kComma);
  EXPECT_TRUE(f.d.header);
  EXPECT_TRUE(f.d.crlf);
  EXPECT_EQ(f.d.skip, 1u);
  ASSERT_EQ(f.d.columns.size(), 3u);
  EXPECT_EQ(f.d.columns[0].name, "NO");
  EXPECT_EQ(f.d.columns[1].name, "PM2_5");
  EXPECT_EQ(f.d.columns[1].missing, 1u);
  EXPECT_EQ(f.d.columns[2].name, "cbwd");
  EXPECT_EQ(f.d.columns[2].type, ColumnType::kCharacter);
}

TEST(Detect, EachDelimiter) {
  EXPECT_EQ(look("1\t2\n3\t4\n").d.layout, Layout::kTab);
  EXPECT_EQ(look("1;2\n3;4\n").d.layout, Layout::kSemicolon);
  EXPECT_EQ(look("1|2\n3|4\n").d.layout, Layout::kPipe);
  EXPECT_EQ(look(" 1  2\n 3  4\n").d.layout, Layout::kBlank);
  // A tab that only sets off one column of a blank-aligned table.
  const Found f = look("1 2 3\t\"a b\"\n4 5 6\t\"c\"\n");
  EXPECT_EQ(f.d.layout, Layout::kBlank);
  EXPECT_EQ(f.d.columns.size(), 4u);
}

TEST(Detect, NoHeaderWhenTheFirstLineIsData) {
  const Found f = look("1,2\n3,4\n");
  ASSERT_TRUE(f.ok);
  EXPECT_FALSE(f.d.header);
  EXPECT_EQ(f.d.columns[0].name, "V1");
  EXPECT_EQ(f.d.skip, 0u);
}

TEST(Detect, AllTextColumnsWithAHeader) {
  const Found f = look("name,code\nann,x\nbob,y\n");
  ASSERT_TRUE(f.ok);
  EXPECT_TRUE(f.d.header);
  const Found g = look("ann,x\nbob,y\nann,y\n");
  EXPECT_FALSE(g.d.header);
}

TEST(Detect, CommentsBlankLinesAndTitlesFromTheLastComment) {
  const Found f = look("# made by hand\n\n # l  Dl\n  1 2\n  3 4\n\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.comment, '#');
  EXPECT_EQ(f.d.skip, 3u);
  EXPECT_TRUE(f.d.names_from_comment);
  EXPECT_EQ(f.d.columns[0].name, "L");
  EXPECT_EQ(f.d.columns[1].name, "DL");
  EXPECT_EQ(f.d.blank_lines, 1u);
}

TEST(Detect, ByteOrderMarkIsRemoved) {
  const Found f = look("\xEF\xBB\xBFx,y\n1,2\n");
  ASSERT_TRUE(f.ok);
  EXPECT_TRUE(f.d.bom);
  EXPECT_EQ(f.d.columns[0].name, "X");
}

TEST(Detect, FixedColumnsFromTheColumnsThatLineUp) {
  std::string text;
  for (int i = 0; i < 20; ++i) {
    char line[40];
    std::snprintf(line, sizeof line, "AB%4d%5.1f%c\n", 1990 + i, i * 1.5 - 5, i % 2 ? 'x' : ' ');
    text += line;
  }
  // Split at blanks, "AB1990" and "-5.0x" would be text; the columns that
  // line up give four.
  const Found f = look(text);
  ASSERT_TRUE(f.ok) << f.error;
  ASSERT_EQ(f.d.layout, Layout::kFixed);
  ASSERT_EQ(f.d.columns.size(), 4u);
  EXPECT_EQ(f.d.columns[0].fixed.start, 0u);
  EXPECT_EQ(f.d.columns[0].fixed.width, 2u);
  EXPECT_EQ(f.d.columns[0].type, ColumnType::kCharacter);
  EXPECT_EQ(f.d.columns[1].type, ColumnType::kNumeric);
  EXPECT_EQ(f.d.columns[2].type, ColumnType::kNumeric);
  EXPECT_EQ(f.d.columns[3].fixed.start, 11u);
  EXPECT_EQ(f.d.record_length, 12u);
}

std::string joined(const std::vector<std::string>& lines) {
  std::string all;
  for (const std::string& s : lines) all += s + "\n";
  return all;
}

TEST(Detect, WarningsOfEachKind) {
  const Found f = look(
      "v,t,n,w\n-999,Iris-versicolor,70000,-12\n-999,a b,1,38\n1,c,2,-9.9\n2,d,3,5\n3,e,4,6\n");
  ASSERT_TRUE(f.ok) << f.error;
  const Plan p = make_plan(f.d, "x.csv", "x");
  const std::string all = joined(report_warnings(f.d, p));
  // -999 lies far outside 1 to 3; -9.9 among -12 to 38 is a value.
  EXPECT_NE(all.find("column V: -999 (2 times) lies far outside 1 to 3; --missing -999 makes it "
                     "missing\n"),
            std::string::npos)
      << all;
  EXPECT_EQ(all.find("column W"), std::string::npos) << all;
  EXPECT_NE(
      all.find("column t: text up to 15 bytes (\"Iris-versicolor\"); kolv keeps the first 8\n"),
      std::string::npos)
      << all;
  EXPECT_NE(all.find("column t: blanks, tabs or commas inside values become \"_\" (\"a b\")\n"),
            std::string::npos)
      << all;
  // Every line of the report is short and one line.
  for (const std::string& line : report_warnings(f.d, p)) EXPECT_LE(line.size(), 100u) << line;
  const std::string notes = joined(report_notes(f.d, p));
  EXPECT_NE(notes.find("integers too large for 2-byte output (OUTTYP I) in N\n"), std::string::npos)
      << notes;
  const Found m = look("a,b\n1,NA\n?,2\n3,N/A\n");
  const std::string missing = joined(report_notes(m.d, make_plan(m.d, "m.csv", "m")));
  EXPECT_NE(missing.find("missing values: 3 in 2 columns (\"?\", \"NA\", \"N/A\")"),
            std::string::npos)
      << missing;
}

TEST(Detect, WholeNumbersBeyondEveryIntegerType) {
  // Thirty digits written out are a whole number beyond the 2-byte range;
  // 1.0e+064 is a value with an exponent, so its column is not one of integers.
  const Found f = look("a,b\n1,1000000000000000000000000000000\n2,3\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_TRUE(f.d.columns[1].integers);
  std::string notes;
  for (const std::string& s : report_notes(f.d, make_plan(f.d, "w.csv", "w"))) notes += s + "\n";
  EXPECT_NE(notes.find("integers too large for 2-byte output (OUTTYP I) in B"), std::string::npos)
      << notes;
  const Found g = look("  1\n  1.0e+064\n");
  ASSERT_TRUE(g.ok) << g.error;
  EXPECT_FALSE(g.d.columns[0].integers);
}

TEST(Detect, Refusals) {
  EXPECT_EQ(look("").error, "the file is empty");
  EXPECT_EQ(look("\xEF\xBB\xBF").error, "the file holds nothing but a byte-order mark");
  EXPECT_EQ(look("1,2\n3\0,4\n").error, "");  // text cut at the literal's NUL: one line
  EXPECT_EQ(look(std::string("1,2\n3\0,4\n", 9)).error, "a NUL byte at offset 5: not a text file");
  EXPECT_EQ(look("1,2,3\n").error,
            "only one line of data: too little to tell a header from data (give --header 1 or "
            "--no-header)");
  EXPECT_EQ(look("# only\n\n").error, "no lines of data: only blank or comment lines");
}

TEST(Plan, ReadAsItIsOnlyWhenKolvReadsTheTextExactly) {
  EXPECT_TRUE(make_plan(look("1,2\n3,4\n").d, "a.csv", "a").direct);
  EXPECT_FALSE(make_plan(look("a,b\n3,4\n").d, "a.csv", "a").direct);          // header
  EXPECT_FALSE(make_plan(look("1,NA\n3,4\n").d, "a.csv", "a").direct);         // token
  EXPECT_FALSE(make_plan(look("1,\"x\"\n3,\"y\"\n").d, "a.csv", "a").direct);  // quotes
  EXPECT_FALSE(make_plan(look("1,2010-01-01\n3,2010-01-02\n").d, "a.csv", "a").direct);
  EXPECT_FALSE(make_plan(look("1,2\n\n3,4\n").d, "a.csv", "a").direct);  // blank line
  EXPECT_TRUE(make_plan(look(" 1 2\n 3 4\n").d, "a.txt", "a").direct);
  const Plan p = make_plan(look("1,NA\n3,4\n").d, "my file.csv", "a");
  EXPECT_EQ(p.command,
            "kolvprep --text --layout=comma --columns=2 --rejects=a.rejects 'my file.csv' | kolv "
            "a.cmd && kolvdump --check a.dat");
}

TEST(CommandFile, FirstLineIsTheRunCommandAndStatementsEnd) {
  const Found f = look("id,name\n1,x@y\n2,z\n");
  const Plan p = make_plan(f.d, "in.csv", "out");
  const std::string t = command_file_text(f.d, p, "in.csv", "out", "9");
  EXPECT_EQ(t.substr(0, t.find('\n')), "@ run: " + p.command + " @");
  EXPECT_NE(t.find("INPUT /dev/stdin;"), std::string::npos);
  EXPECT_NE(t.find("OUTPUT out.dat;"), std::string::npos);
  EXPECT_NE(t.find("INVAR DELIMIT(\\R)"), std::string::npos);
  EXPECT_NE(t.find("#ID"), std::string::npos);
  EXPECT_NE(t.find("$name"), std::string::npos);
  // Comments pair up: an even number of "@".
  EXPECT_EQ(std::count(t.begin(), t.end(), '@') % 2, 0);
}

// The rewrite over text held in memory, fed in pieces of `piece` bytes.
struct Rewritten {
  std::string out;
  std::vector<std::string> warnings;
};

Rewritten rewrite_text(const std::string& text, TextOptions o, size_t piece = 1 << 20) {
  Rewritten r;
  std::string error;
  EXPECT_TRUE(finish_text_options(o, error)) << error;
  Rewriter rw(
      o,
      [&](const char* d, size_t n) {
        r.out.append(d, n);
        return true;
      },
      [&](const std::string& w) { r.warnings.push_back(w); });
  for (size_t at = 0; at < text.size(); at += piece)
    rw.feed(text.data() + at, std::min(piece, text.size() - at));
  rw.finish();
  return r;
}

TEST(Rewrite, HeaderQuotesMissingDatesAndSeparators) {
  TextOptions o;
  std::string error;
  for (const char* a : {"--layout=comma", "--skip=1", "--columns=4", "--char=2", "--date=3"})
    ASSERT_TRUE(parse_text_option(a, o, error)) << a;
  // A record of too few fields, and one with text in a numeric column or
  // a date column, are set aside.
  const std::string in =
      "\xEF\xBB\xBFh1,h2,h3,h4\r\n1,\"a, b\",2010-01-31,NA\r\n\r\n2,x,bad,null\r\n3,4\r\n"
      "5,y,2010-02-01,z\r\n6,w,,7\r\n";
  const Rewritten r = rewrite_text(in, o);
  EXPECT_EQ(r.out, "1,a__b,20100131,\n6,w,,7\n");
  ASSERT_EQ(r.warnings.size(), 4u);
  EXPECT_EQ(r.warnings[0], "line 4: text in a numeric column; set aside");
  EXPECT_EQ(r.warnings[1], "line 5: 2 fields where 4 are expected; set aside");
  EXPECT_EQ(r.warnings[2], "line 6: text in a numeric column; set aside");
  // The values whose blanks became "_" are counted in one line at the end.
  EXPECT_EQ(r.warnings[3],
            "1 value with blanks, tabs or commas written as \"_\" (first: line 2, \"a, b\")");
  // The same bytes fed one at a time give the same text.
  EXPECT_EQ(rewrite_text(in, o, 1).out, r.out);
}

TEST(Rewrite, OnePassCopyEqualsTheFullWay) {
  TextOptions o;
  std::string error;
  for (const char* a : {"--layout=comma", "--columns=3", "--char=1,3"})
    ASSERT_TRUE(parse_text_option(a, o, error));
  const std::string in =
      "1,2,3\n\"a b\",NA,n\n\"x\"\"y\",.,?\n\" lead\",2,3\n\"tail \",1,2\n\"q\"z,1,2\n"
      "a b,1,2\n1,2\n1,2,3,4\n\"\",null,N/A\n\"open,1,2\nnone,-1.5e3,\"7\"\n";
  TextOptions full = o;
  full.one_pass = false;
  const Rewritten fast = rewrite_text(in, o);
  const Rewritten slow = rewrite_text(in, full);
  EXPECT_EQ(fast.out, slow.out);
  EXPECT_EQ(fast.warnings, slow.warnings);
  EXPECT_EQ(fast.out, "1,2,3\na_b,,n\nx\"y,,\nlead,2,3\ntail,1,2\na_b,1,2\n,,\nnone,-1.5e3,7\n");
  // Set aside: text after a closing quote, a field too few, one too many
  // (each said), and a quote that never closes (beyond the three said).
  const std::vector<std::string> said = {
      "line 6: a quote out of place; set aside", "line 8: 2 fields where 3 are expected; set aside",
      "line 9: 4 fields where 3 are expected; set aside",
      "2 values with blanks, tabs or commas written as \"_\" (first: line 2, \"a b\")"};
  EXPECT_EQ(fast.warnings, said);
}

TEST(Rewrite, BlankFixedAndComments) {
  TextOptions o;
  std::string error;
  for (const char* a : {"--layout=blank", "--comment=hash", "--columns=2"})
    ASSERT_TRUE(parse_text_option(a, o, error));
  EXPECT_EQ(rewrite_text("# c\n 1  2\n # c\n 3 ?\n", o).out, "1,2\n3,\n");
  TextOptions fx;
  for (const char* a : {"--layout=fixed", "--fixed=1-2,3-6", "--char=1"})
    ASSERT_TRUE(parse_text_option(a, fx, error));
  EXPECT_EQ(rewrite_text("ab 1.5\nc\nde  -2x\n", fx).out, "ab,1.5\nc,\nde,-2\n");
  // A cut that leaves text in a numeric column sets the record aside.
  EXPECT_EQ(rewrite_text("ab 1.5\nde-2x\n", fx).out, "ab,1.5\n");
}

TEST(Rewrite, OverLongLineIsSetAsideWithoutBeingHeld) {
  TextOptions o;
  std::string error;
  ASSERT_TRUE(parse_text_option("--columns=2", o, error));
  const std::string longline(kMaxLine + 10, '9');
  const Rewritten r = rewrite_text("1,2\n" + longline + "\n3,4", o, 4096);
  EXPECT_EQ(r.out, "1,2\n3,4\n");
  ASSERT_EQ(r.warnings.size(), 1u);
  EXPECT_EQ(r.warnings[0], "line 2 is longer than 1 MiB: set aside");
}

TEST(Rewrite, OptionsAreCheckedWhole) {
  TextOptions o;
  std::string error;
  EXPECT_FALSE(parse_text_option("--layout=wavy", o, error));
  EXPECT_FALSE(parse_text_option("--skip=-1", o, error));
  EXPECT_FALSE(parse_text_option("--fixed=3-1", o, error));
  EXPECT_FALSE(parse_text_option("--colour=red", o, error));
  EXPECT_EQ(error, "unknown option --colour=red");
  EXPECT_FALSE(finish_text_options(o, error));
  EXPECT_EQ(error, "--columns=N is needed");
}

TEST(Rewrite, OptionsOfADetectionRoundTrip) {
  const Found f = look("d,t\n2010-01-01,10:00\n2010-01-02,11:00\n");
  const std::vector<std::string> args = text_options_for(f.d);
  TextOptions o;
  std::string error;
  for (const std::string& a : args) ASSERT_TRUE(parse_text_option(a, o, error)) << a;
  ASSERT_TRUE(finish_text_options(o, error));
  EXPECT_EQ(o.skip, 1u);
  EXPECT_EQ(o.types[0], ColumnType::kDate);
  EXPECT_EQ(o.types[1], ColumnType::kTime);
}

// ---- Quoting across lines, dialects, dates ----

TEST(QuoteTracker, OpenOnlyInsideAQuotedValue) {
  QuoteTracker t(',', Quoting{'"', false});
  EXPECT_TRUE(t.open_after("1,\"two"));
  t.open_after("\n");
  EXPECT_FALSE(t.open_after("lines\",3"));
  t.reset();
  // A doubled quote is text; a quote inside unquoted text is text.
  EXPECT_FALSE(t.open_after("1,\"a \"\"b\"\"\",c 5\" wide"));
  t.reset();
  EXPECT_TRUE(t.open_after("1,\"a \"\""));
  QuoteTracker b(',', Quoting{'\'', true});
  EXPECT_TRUE(b.open_after("'it\\'s"));
  b.reset();
  EXPECT_FALSE(b.open_after("'it\\'s',2"));
  QuoteTracker blank(0, Quoting{'"', false});
  EXPECT_TRUE(blank.open_after("1  \"a b"));
}

TEST(Splitter, SingleQuotesBackslashesAndOtherDelimiters) {
  std::vector<std::string_view> f;
  Splitter single(Layout::kComma, {}, Quoting{'\'', false});
  ASSERT_TRUE(single.split("1,'Smith, J',\"x\"", f));
  ASSERT_EQ(f.size(), 3u);
  EXPECT_EQ(f[1], "Smith, J");
  EXPECT_EQ(f[2], "\"x\"");
  Splitter backslash(Layout::kComma, {}, Quoting{'"', true});
  ASSERT_TRUE(backslash.split("\"say \\\"hi\\\"\",2", f));
  EXPECT_EQ(f[0], "say \"hi\"");
  Splitter other(Layout::kOther, {}, Quoting{'"', false}, ':');
  ASSERT_TRUE(other.split("a:\"b:c\":d", f));
  ASSERT_EQ(f.size(), 3u);
  EXPECT_EQ(f[1], "b:c");
  Splitter none(Layout::kComma, {}, Quoting{0, false});
  ASSERT_TRUE(none.split("\"a,b\"", f));
  EXPECT_EQ(f.size(), 2u);
}

TEST(Classify, DatesWhoseReadingIsCertain) {
  std::string out;
  EXPECT_TRUE(any_date("2015/01/31", &out));
  EXPECT_EQ(out, "20150131");
  out.clear();
  EXPECT_TRUE(any_date("31.01.2015", &out));
  EXPECT_EQ(out, "20150131");
  out.clear();
  EXPECT_TRUE(any_date("Jan 1 2000", &out));
  EXPECT_EQ(out, "20000101");
  out.clear();
  EXPECT_TRUE(any_date("Sep 9, 1999", &out));
  EXPECT_EQ(out, "19990909");
  out.clear();
  EXPECT_TRUE(any_date("5 March 2001", &out));
  EXPECT_EQ(out, "20010305");
  out.clear();
  EXPECT_TRUE(any_datetime("2015/01/01 01:00:00", &out));
  EXPECT_EQ(out, "20150101010000");
  out.clear();
  EXPECT_TRUE(any_datetime("Jan 1 2000 13:05", &out));
  EXPECT_EQ(out, "20000101130500");
  EXPECT_FALSE(any_date("Jan 1"));
  EXPECT_FALSE(any_date("2015/13/01"));
  EXPECT_FALSE(any_date("Janet 1 2000"));
  // Day/month or month/day: never a date.
  EXPECT_FALSE(any_date("01/02/2000"));
  int a = 0, b = 0;
  EXPECT_TRUE(ambiguous_date("01/02/2000", &a, &b));
  EXPECT_EQ(a, 1);
  EXPECT_EQ(b, 2);
  EXPECT_TRUE(ambiguous_date("13/02/2000 10:00"));
  EXPECT_FALSE(ambiguous_date("13/14/2000"));
  EXPECT_EQ(classify("2015/01/01 01:00:00"), ValueKind::kDateTime);
  EXPECT_EQ(classify("01/02/2000"), ValueKind::kText);
}

// ---- The detector on exports it was never shown ----

Found look_with(const std::string& text, const Overrides& given) {
  Found f;
  Sample s;
  if (!sample_from_bytes(text, true, text.size(), s, f.error)) return f;
  f.ok = detect(s, given, f.d, f.error);
  return f;
}

TEST(Detect, HeaderComparedWithTheRowsAfterIt) {
  // A byte-order mark, CRLF and an empty first name; names like "GDP (bn)"
  // and a repeated one; names that are years in quotes.
  Found f = look("\xEF\xBB\xBF,x,y\r\n1,2.5,3\r\n2,3.5,4\r\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_TRUE(f.d.header);
  EXPECT_EQ(f.d.columns[0].name, "V1");
  EXPECT_EQ(f.d.columns[0].type, ColumnType::kNumeric);
  f = look("GDP (bn),growth %,growth %\n1,2,3\n4,5,6\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_TRUE(f.d.header);
  EXPECT_EQ(f.d.columns[2].name, "GROWTH_2");
  EXPECT_EQ(
      joined(report_notes(f.d, make_plan(f.d, "g.csv", "g")))
          .find("names changed: \"GDP (bn)\" as GDP_BN, \"growth %\" as GROWTH, \"growth %\" as "
                "GROWTH_2\n"),
      std::string("line 1 is a header line: its fields give the names\n").size());
  f = look("\"name\",\"1960\",\"1961\"\n\"a\",1,2\n\"b\",3,4\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_TRUE(f.d.header);
  EXPECT_EQ(f.d.columns[1].name, "V1960");
  EXPECT_EQ(f.d.columns[1].type, ColumnType::kNumeric);
  // Quoted numbers everywhere are data.
  f = look("\"1\",\"2\"\n\"3\",\"4\"\n\"5\",\"6\"\n");
  EXPECT_FALSE(f.d.header);
}

TEST(Detect, SeveralHeaderRowsAndNamesAlone) {
  Found f = look("region,sales,sales\n,2020,2021\nnorth,1,2\nsouth,3,4\nwest,5,6\n");
  ASSERT_TRUE(f.ok) << f.error;
  // The second row holds numbers ("2020"): one header row only.
  EXPECT_EQ(f.d.header_rows, 1u);
  f = look("id,price,price\n,in euro,in dollar\n1,2,3\n4,5,6\n7,8,9\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.header_rows, 2u);
  EXPECT_EQ(f.d.columns[1].header, "price in euro");
  EXPECT_EQ(f.d.skip, 2u);
  f = look("a,b,c\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.data_lines, 0u);
  EXPECT_EQ(f.d.columns.size(), 3u);
  EXPECT_EQ(f.d.columns[2].name, "C");
}

TEST(Detect, PreambleNotesAndAnotherTable) {
  Found f = look("Report of sales\nMade today\n\na,b\n1,2\n3,4\n5,6\n\nNote: in thousands.\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.header_line, 4u);
  EXPECT_EQ(f.d.skip, 4u);
  EXPECT_EQ(f.d.table_end, 9u);
  EXPECT_EQ(f.d.data_lines, 3u);
  f = look("a,b\n1,2\n3,4\n5,6\n\nname,when\nx,2020-01-01\ny,2020-01-02\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.table_end, 6u);
  EXPECT_EQ(f.d.columns[0].type, ColumnType::kNumeric);
  const std::vector<std::string> options = text_options_for(f.d);
  EXPECT_NE(std::find(options.begin(), options.end(), "--end=6"), options.end());
}

TEST(Detect, QuotingRecordEndsAndDecimalCommas) {
  Found f = look("id,name,v\n1,'Smith, J',2\n2,'Doe, A',3\n3,'Roe, B',4\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.quoting.quote, '\'');
  EXPECT_EQ(f.d.columns.size(), 3u);
  f = look("a,b\r1,2\r3,4\r5,6\r");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_TRUE(f.d.cr_records);
  EXPECT_EQ(f.d.data_lines, 3u);
  f = look("\"id\",\"text\"\r\n\"1\",\"two\r\nlines\"\r\n\"2\",\"x\"\r\n\"3\",\"y\"\r\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.columns.size(), 2u);
  EXPECT_EQ(f.d.data_lines, 3u);
  EXPECT_EQ(f.d.joined_records, 1u);
  EXPECT_EQ(f.d.misfits, 0u);
  f = look("place;v;w\nReno, NV;1,5;2\nOslo;3,25;1.234,5\nRome;4;7,0\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.layout, Layout::kSemicolon);
  EXPECT_TRUE(f.d.decimal_comma);
  EXPECT_EQ(f.d.columns[1].type, ColumnType::kNumeric);
  EXPECT_EQ(f.d.columns[2].type, ColumnType::kNumeric);
  EXPECT_DOUBLE_EQ(f.d.columns[2].max, 1234.5);
}

TEST(Detect, BlankAlignedIsNotCutIntoFixedColumns) {
  const Found f = look(
      "# comment\n  year    temp   rain       seen\n  1990  -10.06   12.5 2015-03-18\n"
      "  1991    3.20    NaN 2016-04-19\n  1992   12.00    5.1 2017-05-20\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.layout, Layout::kBlank);
  ASSERT_EQ(f.d.columns.size(), 4u);
  EXPECT_EQ(f.d.columns[1].name, "TEMP");
  EXPECT_EQ(f.d.columns[3].type, ColumnType::kDate);
}

TEST(Detect, ValuesKeptAsWrittenAndSaidSo) {
  std::string text = "zip,month,when,bird\n";
  const char* birds[] = {"American Bullfrog", "American Robin", "Blue Jay"};
  for (int i = 0; i < 12; ++i) {
    char line[96];
    std::snprintf(line, sizeof line, "%05d,%02d,%02d/%02d/2000,%s\n", 501 + i * 1000, 1 + i,
                  1 + i % 12, 1 + i % 12, birds[i % 3]);
    text += line;
  }
  const Found f = look(text);
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.columns[0].type, ColumnType::kCharacter);  // 00501 ... 11501
  EXPECT_EQ(f.d.columns[1].type, ColumnType::kNumeric);    // 01 ... 12
  EXPECT_EQ(f.d.columns[2].type, ColumnType::kCharacter);  // day/month or month/day
  EXPECT_EQ(f.d.columns[3].distinct, 3u);
  EXPECT_EQ(f.d.columns[3].distinct_cut, 2u);
  const std::string all = joined(report_warnings(f.d, make_plan(f.d, "b.csv", "b")));
  EXPECT_NE(all.find("column zip: codes with leading zeros (\"00501\") kept as text; "
                     "--numeric-columns reads numbers\n"),
            std::string::npos)
      << all;
  EXPECT_NE(all.find("column when: dates like \"01/01/2000\" may be day/month or month/day; kept "
                     "as text\n"),
            std::string::npos)
      << all;
  EXPECT_NE(all.find("column bird: 3 distinct values become 2 in the 8 bytes kolv keeps\n"),
            std::string::npos)
      << all;
  // The findings come in column order.
  EXPECT_LT(all.find("column zip"), all.find("column when"));
  EXPECT_LT(all.find("column when"), all.find("column bird"));
}

TEST(Detect, EveryGuessCanBeGiven) {
  Overrides given;
  given.layout_given = true;
  given.layout = Layout::kOther;
  given.delimiter = ':';
  given.quote_given = true;
  given.quote = 0;
  given.header = 0;
  given.skip = 1;
  given.text_columns = {"2"};
  given.missing = {"-1"};
  given.pad = true;
  Found f = look_with("title\n1:2:\"x\n3:-1:y\n", given);
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.layout, Layout::kOther);
  EXPECT_EQ(f.d.delimiter, ':');
  EXPECT_EQ(f.d.quoting.quote, 0);
  EXPECT_FALSE(f.d.header);
  EXPECT_EQ(f.d.skip, 1u);
  EXPECT_EQ(f.d.columns[1].type, ColumnType::kCharacter);
  EXPECT_TRUE(f.d.layout_given && f.d.quote_given && f.d.header_given && f.d.skip_given);
  const std::vector<std::string> o = text_options_for(f.d);
  for (const char* want : {"--layout=other", "--delimiter=58", "--quote=none", "--skip=1",
                           "--missing=-1", "--misfits=pad", "--char=2,3"})
    EXPECT_NE(std::find(o.begin(), o.end(), want), o.end()) << want;
  Overrides cuts;
  cuts.cuts = {{0, 2}, {2, 4}, {6, 3}};
  cuts.numeric_columns = {"2", "3"};
  f = look_with("AB19901.5\nCD19912.5\n", cuts);
  ASSERT_TRUE(f.ok) << f.error;
  ASSERT_EQ(f.d.columns.size(), 3u);
  EXPECT_DOUBLE_EQ(f.d.columns[1].min, 1990);
  EXPECT_DOUBLE_EQ(f.d.columns[2].max, 2.5);
  // One line: data with --no-header, names with --header 1.
  Overrides data;
  data.header = 0;
  f = look_with("1,2,3\n", data);
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.data_lines, 1u);
  Overrides header;
  header.header = 1;
  f = look_with("1,2\n3,4\n", header);
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.columns[0].name, "V1");
  EXPECT_EQ(f.d.data_lines, 1u);
  Overrides bad;
  bad.text_columns = {"nine"};
  f = look_with("a,b\n1,2\n", bad);
  EXPECT_FALSE(f.ok);
  EXPECT_EQ(f.error, "no column nine (columns are 1 to 2 or header names)");
}

TEST(Detect, WeakEvidenceIsSaidWithTheOptionThatSettlesIt) {
  const Found f = look("AB19901.5\nCD19912.5\nEF19923.5\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.layout, Layout::kFixed);
  const std::string all = joined(report_warnings(f.d, make_plan(f.d, "t.txt", "t")));
  EXPECT_NE(all.find("fixed columns guessed as 1-2,3-9; --cuts settles them\n"), std::string::npos)
      << all;
  const Found h = look("a,b\n1,2\n");
  EXPECT_NE(joined(report_warnings(h.d, make_plan(h.d, "h.csv", "h")))
                .find("line 1 was taken for names on little evidence; --header or --no-header "
                      "settles it\n"),
            std::string::npos);
}

TEST(Plan, MisfitsAndSamplesGoThroughTheRewrite) {
  Found f = look("1,2\n3,4\n5\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.misfits, 1u);
  EXPECT_FALSE(make_plan(f.d, "a.csv", "a").direct);
  // A type given is held to by the rewrite: text in a column given as
  // numeric is set aside there, where kolv would store it as text.
  Overrides numeric;
  numeric.numeric_columns = {"2"};
  f = look_with("1,2\n3,x\n", numeric);
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_FALSE(make_plan(f.d, "a.csv", "a").direct);
  Sample s;
  std::string error;
  ASSERT_TRUE(sample_from_bytes("1,2\n3,4\n", false, 1 << 30, s, error));
  Detection d;
  ASSERT_TRUE(detect(s, d, error)) << error;
  EXPECT_FALSE(make_plan(d, "a.csv", "a").direct);
}

// ---- The rewrite: records across lines, misfits, pads and repairs ----

struct Rejected {
  Rewritten r;
  std::string rejects;
  uint64_t rejected = 0, padded = 0, joined = 0;
};

Rejected rewrite_rejects(const std::string& text, const std::vector<std::string>& args,
                         size_t piece = 1 << 20) {
  Rejected x;
  TextOptions o;
  std::string error;
  for (const std::string& a : args) EXPECT_TRUE(parse_text_option(a, o, error)) << a;
  EXPECT_TRUE(finish_text_options(o, error)) << error;
  Rewriter rw(
      o,
      [&](const char* d, size_t n) {
        x.r.out.append(d, n);
        return true;
      },
      [&](const std::string& w) { x.r.warnings.push_back(w); },
      [&](const char* d, size_t n) {
        x.rejects.append(d, n);
        return true;
      });
  for (size_t at = 0; at < text.size(); at += piece)
    rw.feed(text.data() + at, std::min(piece, text.size() - at));
  rw.finish();
  x.rejected = rw.rejected();
  x.padded = rw.padded();
  x.joined = rw.joined();
  return x;
}

TEST(Rewrite, RecordsAcrossLinesAndTheRejectsFile) {
  const std::string in =
      "id,text,v\r\n1,\"two\r\nlines\",2\r\n2,x,3,\r\n3,\"a\\b\",4,9\r\n4,y\r\n"
      "5,\"open,6\r\n6,z,7\r\n";
  for (size_t piece : {size_t{1}, size_t{3}, size_t{1} << 20}) {
    const Rejected x =
        rewrite_rejects(in, {"--layout=comma", "--skip=1", "--columns=3", "--char=2"}, piece);
    // The line end inside quotes becomes "_"; a field too many (an empty
    // one too: which field is extra cannot be known), one too few and a
    // quote that never closes are set aside.
    EXPECT_EQ(x.r.out, "1,two_lines,2\n6,z,7\n") << piece;
    EXPECT_EQ(x.rejects, "4\t2,x,3,\n5\t3,\"a\\\\b\",4,9\n6\t4,y\n7\t5,\"open,6\n") << piece;
    EXPECT_EQ(x.rejected, 4u);
    EXPECT_EQ(x.joined, 1u);
  }
  // Lines that joined do not make a record: the first is set aside, and
  // the next taken on its own.
  const Rejected y =
      rewrite_rejects("1,\"a\r\nb\",2,3\r\n4,5\r\n", {"--layout=comma", "--columns=2", "--char=1"});
  EXPECT_EQ(y.r.out, "4,5\n");
  EXPECT_EQ(y.rejects, "1\t1,\"a\n2\tb\",2,3\n");
  // A record of lines that does not fit is set aside whole: its inner line
  // ends written as \n, its CRs as \r.
  const Rejected z = rewrite_rejects("\"x\",\"a\r\nb\"\r\n4,5\r\n", {"--columns=2"});
  EXPECT_EQ(z.r.out, "4,5\n");
  EXPECT_EQ(z.rejects, "1\t\"x\",\"a\\r\\nb\"\n");
}

TEST(Rewrite, PadKeepsMisfits) {
  const Rejected x =
      rewrite_rejects("1,2,3\n4,5\n6,7,8,9\n10,x,11\n", {"--columns=3", "--misfits=pad"});
  EXPECT_EQ(x.r.out, "1,2,3\n4,5,\n6,7,8\n10,,11\n");
  EXPECT_EQ(x.rejects, "");
  EXPECT_EQ(x.padded, 3u);
  ASSERT_EQ(x.r.warnings.size(), 3u);
  EXPECT_EQ(x.r.warnings[0], "line 2: fields absent or extra; padded");
  EXPECT_EQ(x.r.warnings[2], "line 4: text in a numeric column made missing; padded");
}

TEST(Rewrite, DialectOptions) {
  EXPECT_EQ(
      rewrite_rejects("a,b\r1,2\r3,4\r", {"--record-end=cr", "--skip=1", "--columns=2"}).r.out,
      "1,2\n3,4\n");
  EXPECT_EQ(rewrite_rejects("1;'x;y';3,5\n2;'it''s';1.234,5\n",
                            {"--layout=semicolon", "--quote=single", "--decimal=comma",
                             "--columns=3", "--char=2"})
                .r.out,
            "1,x;y,3.5\n2,it's,1234.5\n");
  EXPECT_EQ(rewrite_rejects("1:\"a\\\"b\":-99\n",
                            {"--layout=other", "--delimiter=58", "--escape=backslash",
                             "--missing=-99", "--columns=3", "--char=2"})
                .r.out,
            "1,a\"b,\n");
  const Rejected end = rewrite_rejects("a\n1\n2\n\nb\nx\n", {"--skip=1", "--end=4", "--columns=1"});
  EXPECT_EQ(end.r.out, "1\n2\n");
  ASSERT_EQ(end.r.warnings.size(), 1u);
  EXPECT_EQ(end.r.warnings[0], "3 lines from line 4 on (notes or another table) left out");
  EXPECT_EQ(rewrite_rejects("d,t\n2015/01/31 10:00:00,Jan 5 2000\n",
                            {"--skip=1", "--columns=2", "--datetime=1", "--date=2"})
                .r.out,
            "20150131100000,20000105\n");
}

TEST(Rewrite, AQuoteThatNeverClosesHoldsBoundedLines) {
  std::string in = "\"open,1\n";
  for (size_t i = 0; i < kMaxRecordLines + 10; ++i) in += std::to_string(i) + ",x\n";
  const Rejected x = rewrite_rejects(in, {"--columns=2", "--char=2"}, 7);
  EXPECT_EQ(x.rejects, "1\t\"open,1\n");
  EXPECT_EQ(x.rejected, 1u);
  size_t lines = 0;
  for (char c : x.r.out) lines += c == '\n';
  EXPECT_EQ(lines, kMaxRecordLines + 10);
}

TEST(Detect, TokensOfTheShapeOfTheCodesAreCodes) {
  const Found f = look("QS,1\nNA,2\nTY,3\nGR,4\n,5\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_TRUE(f.d.columns[0].keep_tokens);
  const std::vector<std::string> o = text_options_for(f.d);
  EXPECT_NE(std::find(o.begin(), o.end(), "--keep=1"), o.end());
  EXPECT_NE(joined(report_warnings(f.d, make_plan(f.d, "k.csv", "k")))
                .find("column v1: \"NA\" has the shape of the other codes: kept as text\n"),
            std::string::npos);
  // Among words of other shapes NA is missing.
  EXPECT_FALSE(look("Paris,1\nNA,2\nRome,3\nOslo,4\n").d.columns[0].keep_tokens);
  // The rewrite keeps the token as text, the empty field missing.
  EXPECT_EQ(rewrite_rejects("NA,1\n,2\n", {"--columns=2", "--char=1", "--keep=1"}).r.out,
            "NA,1\n,2\n");
  EXPECT_EQ(rewrite_rejects("NA,1\n,2\n", {"--columns=2", "--char=1"}).r.out, ",1\n,2\n");
}

TEST(Detect, DialectScoresThatOnceMisled) {
  // Single quotes doubled inside, beside double quotes in unquoted text.
  Found f = look("name\tv\n'it''s here'\t1\na \"big\" lake\t2\n'O''Brien'\t3\nRome\t4\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.layout, Layout::kTab);
  EXPECT_EQ(f.d.quoting.quote, '\'');
  // A title of as many words as the table has columns: the tabs decide.
  f = look(
      "Table 3. Population by region\nSource: national survey 2020\n"
      "region\tratio\tdepth\twhen\nOslo\t1.5\t2\t2001-07-27\n"
      "Lima\t4.5\t3\t1995-08-11\nRome\t2.5\t7\t2003-09-17\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.layout, Layout::kTab);
  EXPECT_EQ(f.d.header_rows, 1u);
  EXPECT_EQ(f.d.header_line, 3u);
  EXPECT_EQ(f.d.columns[0].name, "region");
  // Semicolons with decimal commas: the comma splits each record in two,
  // and leaves semicolons in its cells.
  f = look("site;v;w\noak;365,45;1,5\nelm;1.962,49;2,5\nash;3,25;7,0\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.layout, Layout::kSemicolon);
  EXPECT_TRUE(f.d.decimal_comma);
}

TEST(Detect, DayAndMonthOrderShownByTheColumn) {
  Found f = look("d,v\n13/02/2000,1\n01/03/2000,2\n05/04/2000,3\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.columns[0].type, ColumnType::kDate);
  EXPECT_EQ(f.d.columns[0].date_order, DateOrder::kDayFirst);
  std::vector<std::string> o = text_options_for(f.d);
  EXPECT_NE(std::find(o.begin(), o.end(), "--day-first=1"), o.end());
  f = look("d,v\n02/13/2000 10:00,1\n03/01/2000 11:30,2\n04/05/2000 12:00,3\n");
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.columns[0].type, ColumnType::kDateTime);
  EXPECT_EQ(f.d.columns[0].date_order, DateOrder::kMonthFirst);
  // No value over 12: never guessed.
  f = look("d,v\n01/02/2000,1\n03/04/2000,2\n05/06/2000,3\n");
  EXPECT_EQ(f.d.columns[0].type, ColumnType::kCharacter);
  EXPECT_EQ(
      rewrite_rejects("13/02/2000,01/03/2000 10:00\n", {"--columns=2", "--date=1", "--datetime=2",
                                                        "--day-first=1", "--month-first=2"})
          .r.out,
      "20000213,20000103100000\n");
}

// A right-aligned table under comment lines and a header of names: the
// names split at blanks as the values do, so the columns are those between
// blanks, even where a value ("ST0") changes from letters to digits inside.
TEST(Detect, BlankAlignedTableWithNamesIsNotCutIntoFixedColumns) {
  std::string text = "# station data\n# second note\n  year  month     temp  station\n";
  const char* temps[] = {"-10.06", "21.50", "3.25", "38.00"};
  char line[80];
  for (int i = 0; i < 12; ++i) {
    std::snprintf(line, sizeof line, "%6d%7d%9s%9s%d\n", 2000 + i / 4, i % 4 + 1, temps[i % 4],
                  "ST", i % 3);
    text += line;
  }
  const Found f = look(text);
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.layout, Layout::kBlank);
  ASSERT_EQ(f.d.columns.size(), 4u);
  EXPECT_EQ(f.d.columns[0].name, "YEAR");
  EXPECT_EQ(f.d.columns[2].name, "TEMP");
  EXPECT_EQ(f.d.columns[2].type, ColumnType::kNumeric);
  EXPECT_EQ(f.d.columns[3].name, "station");
  EXPECT_EQ(f.d.columns[3].type, ColumnType::kCharacter);
  EXPECT_EQ(f.d.data_lines, 12u);
}

// Two header rows where the first reads as numbers (years) and the second
// names what each year holds: both are the header, and no data row is lost.
TEST(Detect, NamesUnderARowOfYearsAreASecondHeaderRow) {
  std::string text = "region,2019,2019,2020,2020\n,pop,gdp,pop,gdp\n";
  char line[80];
  for (int i = 0; i < 6; ++i) {
    std::snprintf(line, sizeof line, "R%d,%d,1.%d,%d,2.%d\n", i, 10 * i, i, 11 * i, i);
    text += line;
  }
  const Found f = look(text);
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_EQ(f.d.header_rows, 2u);
  EXPECT_EQ(f.d.data_lines, 6u);
  EXPECT_EQ(f.d.misfits, 0u);
  ASSERT_EQ(f.d.columns.size(), 5u);
  EXPECT_EQ(f.d.columns[1].header, "2019 pop");
  EXPECT_EQ(f.d.columns[4].header, "2020 gdp");
  EXPECT_EQ(f.d.columns[1].type, ColumnType::kNumeric);
}

// Records ended by a CR alone are read as lines, and the report says so.
TEST(Detect, CarriageReturnRecordsAreNamedInTheReport) {
  std::string text = "a\tb\tc\r";
  for (int i = 0; i < 8; ++i)
    text += std::to_string(i) + "\t" + std::to_string(i) + ".5\tx" + std::to_string(i) + "\r";
  const Found f = look(text);
  ASSERT_TRUE(f.ok) << f.error;
  EXPECT_TRUE(f.d.cr_records);
  EXPECT_EQ(f.d.data_lines, 8u);
  EXPECT_EQ(layout_summary(f.d).find("LF line ends"), std::string::npos) << layout_summary(f.d);
  EXPECT_NE(layout_summary(f.d).find(", CR line ends"), std::string::npos) << layout_summary(f.d);
}

}  // namespace
}  // namespace kolvprep
