// Packed ASCII conversion: loopfmt, scandbltemp and scanstrtemp.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "base/state.hpp"
#include "command/packed_record.hpp"
#include "driver/plan.hpp"
#include "engine/loops.hpp"
#include "engine/packed.hpp"

namespace {

constexpr uint64_t kMiss64 = 0x7FFFFFFF00000000ULL;

uint64_t bits_of(double x) {
  uint64_t b;
  std::memcpy(&b, &x, 8);
  return b;
}

// The text of a stream from its start.
std::string contents(FILE* f) {
  std::fflush(f);
  std::rewind(f);
  std::string s;
  char chunk[65536];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) s.append(chunk, n);
  return s;
}

// A run set up as the driver leaves it before the packed loop: the record
// description parsed, every variable output, the input open on `input` and
// the rows going to an anonymous file; messages captured.
struct PackedRun {
  kolv::Run run;
  char* text = nullptr;
  size_t size = 0;

  PackedRun(const char* description, const std::string& input, int otyp = 8) {
    run.io.out = open_memstream(&text, &size);
    std::strcpy(run.rb.inbuff.get(), description);
    parsed = kolv::scanformat(run, run.rb.inbuff.get());
    run.lay.allout = 1;
    run.vars.varout = run.vars.varin;
    run.set.otyp = otyp;
    std::strcpy(run.set.infile, "/data/in.dat");
    run.rb.infp = std::tmpfile();
    if (!input.empty()) std::fwrite(input.data(), 1, input.size(), run.rb.infp);
    std::rewind(run.rb.infp);
    run.files.fout = std::tmpfile();
  }
  ~PackedRun() {
    std::fclose(run.io.out);
    std::free(text);
    if (run.rb.infp != nullptr) std::fclose(run.rb.infp);
    if (run.files.fout != nullptr) std::fclose(run.files.fout);
  }
  PackedRun(const PackedRun&) = delete;
  PackedRun& operator=(const PackedRun&) = delete;

  int parsed = 0;

  // The plan the driver makes from the run, and an engine over it that reads
  // the input and writes the rows; its counts go back into the run, as the
  // driver takes them.
  kolv::Plan plan;
  std::unique_ptr<kolv::Engine> engine;
  kolv::Engine& start() {
    plan = kolv::make_plan(run);
    engine = std::make_unique<kolv::Engine>(plan, run.io);
    engine->rb.infp = run.rb.infp;
    engine->input_name = run.set.infile;
    engine->sink = run.files.fout;
    return *engine;
  }
  int finish(int status) {
    run.cnt.row += engine->rows;
    run.vars.vrec = engine->vrec;
    return status;
  }
  int convert() { return finish(kolv::loopfmt(start())); }
  int convert_buffered(int buffer_bytes) {
    return finish(kolv::loopfmt_buffered(start(), buffer_bytes));
  }
  std::string messages() {
    std::fflush(run.io.out);
    return std::string(text, size);
  }
  std::string output() { return contents(run.files.fout); }
  // 8-byte elements as bit patterns.
  std::vector<uint64_t> words() {
    std::string o = output();
    std::vector<uint64_t> w(o.size() / 8);
    std::memcpy(w.data(), o.data(), w.size() * 8);
    return w;
  }
  std::vector<uint16_t> shorts() {
    std::string o = output();
    std::vector<uint16_t> w(o.size() / 2);
    std::memcpy(w.data(), o.data(), w.size() * 2);
    return w;
  }
  std::vector<uint32_t> singles() {
    std::string o = output();
    std::vector<uint32_t> w(o.size() / 4);
    std::memcpy(w.data(), o.data(), w.size() * 4);
    return w;
  }
  // Runs the conversion expecting the bad-data end; returns its message.
  std::string convert_expecting_fatal() {
    try {
      convert();
    } catch (const kolv::FatalError& e) {
      return e.message;
    }
    ADD_FAILURE() << "the conversion did not end the run";
    return "<none>";
  }
};

uint64_t text8(const char* s) {
  char slot[8] = {};
  std::memcpy(slot, s, strnlen(s, 8));
  uint64_t b;
  std::memcpy(&b, slot, 8);
  return b;
}

// ---------------------------------------------------------------- scanners

struct Scanned {
  uint64_t bits = 0;
  uint32_t status = 7;
};

Scanned dbltemp(kolv::Engine& engine, const char* text, int index = 0) {
  Scanned s;
  char slot[8];
  std::memset(slot, 0x55, sizeof slot);
  kolv::scandbltemp(engine, text, slot, index, s.status);
  std::memcpy(&s.bits, slot, 8);
  return s;
}

TEST(ScanDblTemp, Numbers) {
  kolv::Plan plan;
  kolv::Engine engine{plan, kolv::Console{}};
  EXPECT_EQ(dbltemp(engine, "12.34").bits, bits_of(12.34));
  EXPECT_EQ(dbltemp(engine, "   -7").bits, bits_of(-7.0));
  EXPECT_EQ(dbltemp(engine, ".5").bits, bits_of(0.5));
  EXPECT_EQ(dbltemp(engine, "1e5xyz").bits, bits_of(1e5));
  EXPECT_EQ(dbltemp(engine, "12 34").bits, bits_of(12.0));
  EXPECT_EQ(dbltemp(engine, "0x10").bits, bits_of(16.0));
  EXPECT_EQ(dbltemp(engine, "\t 3").bits, bits_of(3.0));
  EXPECT_EQ(dbltemp(engine, "12.3").status, 1u);
}

TEST(ScanDblTemp, RecordsTheTextForReports) {
  kolv::Plan plan;
  kolv::Engine engine{plan, kolv::Console{}};
  const char* text = "  1";
  dbltemp(engine, text);
  EXPECT_EQ(engine.rb.cperr, text);
  const char* bad = "  +";
  dbltemp(engine, bad);
  EXPECT_EQ(engine.rb.cperr, bad);
}

TEST(ScanDblTemp, MissingValues) {
  kolv::Plan plan;
  kolv::Engine engine{plan, kolv::Console{}};
  for (const char* t : {".", "  .", ". ", ".,", ".\t", ".\n", ".\r", ".I", ".}", "   .  "}) {
    Scanned s = dbltemp(engine, t);
    EXPECT_EQ(s.status, 1u) << t;
    EXPECT_EQ(s.bits, kMiss64) << t;
  }
  plan.missing_symbol = '*';
  EXPECT_EQ(dbltemp(engine, "*").bits, kMiss64);
  EXPECT_EQ(dbltemp(engine, " * ").bits, kMiss64);
  EXPECT_EQ(dbltemp(engine, ".").bits, kMiss64);
  EXPECT_EQ(dbltemp(engine, "*5").status, 0u);
}

TEST(ScanDblTemp, NothingToConvert) {
  kolv::Plan plan;
  kolv::Engine engine{plan, kolv::Console{}};
  for (const char* t : {"", "   ", "+", "-", ".x", "!", "*", "\t\t", "- 1"}) {
    Scanned s = dbltemp(engine, t);
    EXPECT_EQ(s.status, 0u) << t;
  }
  for (uint8_t v : engine.vrec) ASSERT_EQ(v, 0);
}

TEST(ScanDblTemp, LettersMakeCharacterData) {
  kolv::Plan plan;
  kolv::Engine engine{plan, kolv::Console{}};
  Scanned s = dbltemp(engine, "  abc", 3);
  EXPECT_EQ(s.status, 1u);
  EXPECT_EQ(s.bits, text8("abc"));
  EXPECT_EQ(engine.vrec[3], 1);
  s = dbltemp(engine, "_x1 y", 4);
  EXPECT_EQ(s.bits, text8("_x1"));
  EXPECT_EQ(engine.vrec[4], 1);
  s = dbltemp(engine, "abcdefghij", 5);
  EXPECT_EQ(s.bits, text8("abcdefgh"));
  EXPECT_EQ(engine.vrec[5], 255);
}

TEST(ScanStrTemp, TextAndMissingValue) {
  kolv::Plan plan;
  kolv::Engine engine{plan, kolv::Console{}};
  char slot[8];
  uint32_t status = 0;
  kolv::scanstrtemp(engine, "ab,cd", slot, 2, status);
  EXPECT_EQ(status, 1u);
  uint64_t b;
  std::memcpy(&b, slot, 8);
  EXPECT_EQ(b, text8("ab"));
  EXPECT_EQ(engine.vrec[2], 1);

  plan.missing_symbol = 'N';
  kolv::scanstrtemp(engine, "N ", slot, 6, status);
  std::memcpy(&b, slot, 8);
  EXPECT_EQ(b, kMiss64);
  EXPECT_EQ(engine.vrec[6], 1);
  kolv::scanstrtemp(engine, "NA", slot, 6, status);
  std::memcpy(&b, slot, 8);
  EXPECT_EQ(b, text8("NA"));
  // A truncation stays marked.
  kolv::scanstrtemp(engine, "abcdefghi", slot, 7, status);
  kolv::scanstrtemp(engine, "ab", slot, 7, status);
  EXPECT_EQ(engine.vrec[7], 255);
}

// ---------------------------------------------------------------- line ends

// One record of the help text's description: sex in column 1, four 8-wide
// volumes from column 2, the total in columns 60-69, blanks elsewhere.
std::string help_record(char sex, const char* vols, const char* total) {
  std::string r(80, ' ');
  r[0] = sex;
  r.replace(1, 32, vols);
  r.replace(59, 10, total);
  return r;
}

const char* kHelpDescription = "80 $(1,1) sex #(*,8.2) vol[4] (60,10) total";

TEST(LoopFmt, CrLfRecordsUnderCheckGrowTheRecord) {
  std::string input = help_record('M', "   12345     100  1.2345-0000001", "     123.5") + "\r\n" +
                      help_record('F', "                                ", "         .") + "\r\n";
  PackedRun p(kHelpDescription, input);
  ASSERT_EQ(p.parsed, 6);
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(), "Records beginning with CR/LF... Setting record length to 82\n");
  EXPECT_EQ(p.engine->record, 82);
  EXPECT_EQ(p.run.cnt.row, 2u);
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 12u);
  EXPECT_EQ(w[0], text8("M"));
  EXPECT_EQ(w[1], bits_of(123.45));  // "   12345" with 2 implied decimals
  EXPECT_EQ(w[2], bits_of(1.0));     // "     100"
  EXPECT_EQ(w[3], bits_of(1.23));    // "  1.2345": the point goes in all the same
  EXPECT_EQ(w[4], bits_of(-0.01));   // "-0000001"
  EXPECT_EQ(w[5], bits_of(123.5));
  EXPECT_EQ(w[6], text8("F"));
  for (int i = 7; i < 12; ++i) EXPECT_EQ(w[static_cast<size_t>(i)], kMiss64) << i;
  EXPECT_EQ(p.engine->rb.read_size, kolv::kReadSize);
}

TEST(LoopFmt, CrLfRecordsUnderNoCheckKeepTheRecord) {
  PackedRun p("4 (1,4) a", "1234\r\n1234\r\n1234\r\n");
  p.run.set.noauto = 1;
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(), "KOLV WARNING: some records begin with CR/LF\n");
  EXPECT_EQ(p.engine->record, 4);
  // 18 bytes: four 4-byte records, then "\r\n", which is no extra data.
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 4u);
  EXPECT_EQ(w[0], bits_of(1234.0));
  EXPECT_EQ(w[1], bits_of(12.0));  // "\r\n12"
  EXPECT_EQ(w[2], bits_of(34.0));  // "34\r\n"
  EXPECT_EQ(w[3], bits_of(1234.0));
  EXPECT_EQ(p.run.cnt.row, 4u);
}

TEST(LoopFmt, NewlineRecordsUnderCheckAndNoCheck) {
  PackedRun check("3 (1,3) a", "123\n456\n");
  EXPECT_EQ(check.convert(), 0);
  EXPECT_EQ(check.messages(), "Records beginning with newline... Setting record length to 4\n");
  std::vector<uint64_t> w = check.words();
  ASSERT_EQ(w.size(), 2u);
  EXPECT_EQ(w[1], bits_of(456.0));

  PackedRun nocheck("3 (1,3) a", "123\n456\n");
  nocheck.run.set.noauto = 1;
  EXPECT_EQ(nocheck.convert(), 0);
  EXPECT_EQ(nocheck.messages().rfind("KOLV WARNING: some records begin with newlines\n", 0), 0u);
  EXPECT_EQ(nocheck.engine->record, 3);
}

TEST(LoopFmt, SecondLineEndAloneDecidesNewline) {
  // The byte at 3 is data, the byte at 6 a line end: records of 4 follow,
  // however oddly they fall; 14 bytes leave 2 extra ones ("4\n").
  PackedRun p("3 (1,3) a", "111222\n333444\n");
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(),
            "Records beginning with newline... Setting record length to 4\n"
            "2 extra bytes at end of file /data/in.dat:\n"
            "   Hex:    34 0a \n"
            "   ASCII: \"4\x04");
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 3u);
  EXPECT_EQ(w[0], bits_of(111.0));
  EXPECT_EQ(w[1], bits_of(22.0));  // "22\n"
  EXPECT_EQ(w[2], bits_of(334.0));
}

TEST(LoopFmt, FirstByteDecidesTheKind) {
  // A line feed first and a carriage return second: newline records.
  PackedRun p("2 (1,2) a", "12\n4\r6");
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(), "Records beginning with newline... Setting record length to 3\n");
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 2u);
  EXPECT_EQ(w[1], bits_of(4.0));
  // A carriage return first: CR/LF, whatever the second byte is.
  PackedRun q("2 (1,2) a", "12\r\n34\r\n");
  EXPECT_EQ(q.convert(), 0);
  EXPECT_EQ(q.messages(), "Records beginning with CR/LF... Setting record length to 4\n");
}

TEST(LoopFmt, NoLineEndsNoNotice) {
  PackedRun p("3 (1,3) a", "123456789");
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(), "");
  EXPECT_EQ(p.words().size(), 3u);
}

// ---------------------------------------------------------------- fields

TEST(LoopFmt, BlankAndPointFieldsAreMissingInEveryWidth) {
  const std::string input =
      "      "
      "  .   ";
  for (int otyp : {2, 4, 8}) {
    PackedRun p("12 (1,6) a b", input, otyp);
    EXPECT_EQ(p.convert(), 0);
    if (otyp == 2) {
      EXPECT_EQ(p.shorts(), (std::vector<uint16_t>{0x8000, 0x8000}));
    } else if (otyp == 4) {
      EXPECT_EQ(p.singles(), (std::vector<uint32_t>{0x7FFFFFF8, 0x7FFFFFF8}));
    } else {
      EXPECT_EQ(p.words(), (std::vector<uint64_t>{kMiss64, kMiss64}));
    }
  }
}

TEST(LoopFmt, MsymCharacterIsMissingToo) {
  PackedRun p("6 (1,2) a b c", " * . 5");
  p.run.set.mstring = '*';
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.words(), (std::vector<uint64_t>{kMiss64, kMiss64, bits_of(5.0)}));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(p.run.vars.vrec[static_cast<size_t>(i)], 0);
}

TEST(LoopFmt, ImpliedDecimals) {
  const std::string input =
      std::string("  1234") + "1.2345" + "-1234" + "123" + "12" + " 345" + "  12";
  PackedRun p("30 (1,6.2) a (*,6.2) b (*,5.2) c (*,3.5) d (*,2.2) e (*,4.*) f (*,4.0) g", input);
  ASSERT_EQ(p.parsed, 7);
  EXPECT_EQ(p.convert(), 0);
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 7u);
  EXPECT_EQ(w[0], bits_of(12.34));
  EXPECT_EQ(w[1], bits_of(1.23));  // "1.23.45": the second point ends the number
  EXPECT_EQ(w[2], bits_of(-12.34));
  EXPECT_EQ(w[3], bits_of(0.123));  // more decimals than bytes: the point leads
  EXPECT_EQ(w[4], bits_of(0.12));
  EXPECT_EQ(w[5], bits_of(3.45));  // ".*" kept 2 decimals
  EXPECT_EQ(w[6], bits_of(12.0));
}

TEST(LoopFmt, ImpliedPointBetweenBlanksIsMissing) {
  // "   5" with 2 decimals becomes "  . 5": a lone point, the missing value.
  PackedRun p("4 (1,4.2) a", "   5");
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.words(), (std::vector<uint64_t>{kMiss64}));
}

TEST(LoopFmt, ElementConversions) {
  PackedRun i16("24 (1,6) a b c d", "   2.5  -2.5 32768   1.4", 2);
  EXPECT_EQ(i16.convert(), 0);
  EXPECT_EQ(i16.shorts(), (std::vector<uint16_t>{3, static_cast<uint16_t>(-2), 0x8000, 1}));
  PackedRun f32("12 (1,6) a b", " 1e300  0.25", 4);
  EXPECT_EQ(f32.convert(), 0);
  EXPECT_EQ(f32.singles(), (std::vector<uint32_t>{0x7F800000, 0x3E800000}));
}

TEST(LoopFmt, CharacterFields) {
  PackedRun p("20 $(1,12) name (13,6) s (19,2) t", "abcdefghijklab    x ");
  EXPECT_EQ(p.run.vars.chartrunc, 1);
  EXPECT_EQ(p.convert(), 0);
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 3u);
  EXPECT_EQ(w[0], text8("abcdefgh"));
  EXPECT_EQ(w[1], text8("ab    "));  // trailing blanks kept
  EXPECT_EQ(w[2], text8("x "));
  // Character fields are not flagged: only text in numeric fields is.
  for (int i = 0; i < 3; ++i) EXPECT_EQ(p.run.vars.vrec[static_cast<size_t>(i)], 0);
}

TEST(LoopFmt, CharacterFieldsInNarrowElements) {
  PackedRun i16("4 $(1,3) s (4,1) t", "abcd", 2);
  EXPECT_EQ(i16.convert(), 0);
  EXPECT_EQ(i16.output(), std::string("abd\0", 4));
  PackedRun f32("4 $(1,3) s (4,1) t", "abcd", 4);
  EXPECT_EQ(f32.convert(), 0);
  EXPECT_EQ(f32.output(), std::string("abc\0d\0\0\0", 8));
}

TEST(LoopFmt, TextInNumericFields) {
  const std::string input = std::string("abc") + "abcdefghij" + "xy" + "_a b " + "  xyz";
  PackedRun p("25 (1,3) a (4,10) b (14,2) c (16,5) d (21,5) e", input);
  ASSERT_EQ(p.parsed, 5);
  EXPECT_EQ(p.convert(), 0);
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 5u);
  EXPECT_EQ(w[0], text8("abc"));
  EXPECT_EQ(w[1], text8("abcdefgh"));
  EXPECT_EQ(w[2], text8("xy"));
  EXPECT_EQ(w[3], text8("_a"));
  EXPECT_EQ(w[4], text8("xyz"));  // blanks first: read through scandbltemp
  std::vector<uint8_t> expected = {1, 255, 1, 1, 1};
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(p.run.vars.vrec[i], expected[i]) << i;
}

TEST(LoopFmt, TextInNumericFieldsOfNarrowElements) {
  // The element takes the first min(width, otyp) bytes of the text.
  PackedRun f32("9 (1,6) a (7,3) b", "abcdefxy ", 4);
  EXPECT_EQ(f32.convert(), 0);
  EXPECT_EQ(f32.output(), std::string("abcdxy\0\0", 8));
  PackedRun i16("9 (1,6) a (7,3) b", "abcdefxy ", 2);
  EXPECT_EQ(i16.convert(), 0);
  EXPECT_EQ(i16.output(), std::string("abxy", 4));
}

TEST(LoopFmt, LetterMsymAloneIsAWholeMissingElement) {
  for (int otyp : {2, 4, 8}) {
    PackedRun p("8 (1,1) a (2,4) b (6,3) c", "NN   NA ", otyp);
    p.run.set.mstring = 'N';
    EXPECT_EQ(p.convert(), 0);
    std::string o = p.output();
    ASSERT_EQ(o.size(), static_cast<size_t>(3 * otyp));
    if (otyp == 2) {
      EXPECT_EQ(o.substr(0, 4), std::string("\x00\x80\x00\x80", 4));
      EXPECT_EQ(o.substr(4, 2), "NA");
    }
    if (otyp == 4) {
      EXPECT_EQ(o.substr(0, 8), std::string("\xF8\xFF\xFF\x7F\xF8\xFF\xFF\x7F", 8));
      EXPECT_EQ(o.substr(8, 4), std::string("NA\0\0", 4));
    }
    if (otyp == 8) {
      EXPECT_EQ(p.words(), (std::vector<uint64_t>{kMiss64, kMiss64, text8("NA")}));
    }
    // Met as text first, so the variables are marked.
    EXPECT_EQ(p.run.vars.vrec[0], 1);
    EXPECT_EQ(p.run.vars.vrec[1], 1);
  }
}

TEST(LoopFmt, FieldsBeyondTheRecordReadBlanks) {
  PackedRun p("4 (1,2) a (3,4) b (10,3) c (10,3.1) d $(4,3) s $(20,2) t #(1,2000000000) u", "12 7");
  ASSERT_EQ(p.parsed, 7);
  EXPECT_EQ(p.convert(), 0);
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 7u);
  EXPECT_EQ(w[0], bits_of(12.0));
  EXPECT_EQ(w[1], bits_of(7.0));
  EXPECT_EQ(w[2], kMiss64);
  EXPECT_EQ(w[3], kMiss64);
  EXPECT_EQ(w[4], text8("7  "));
  EXPECT_EQ(w[5], text8("  "));
  EXPECT_EQ(w[6], bits_of(12.0));  // "12 7" and blanks: the number ends at the blank
}

TEST(LoopFmt, WideFieldsWithDecimalsStayBounded) {
  PackedRun p("5 (1,2000000000.3) a (*,*.*) b", "12345");
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.words(), (std::vector<uint64_t>{bits_of(12345.0), kMiss64}));
}

TEST(LoopFmt, ZeroWidthFields) {
  PackedRun p("3 (1,0) a (1,0.2) b $(1,0) s #(1,3) c", "123");
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.words(), (std::vector<uint64_t>{kMiss64, kMiss64, 0, bits_of(123.0)}));
}

TEST(LoopFmt, NulBytesInTheRecord) {
  PackedRun p("4 (1,2) a $(3,2) s", std::string("1\0\0z", 4));
  EXPECT_EQ(p.convert(), 0);
  // The character field keeps its bytes as they are, the NUL included.
  EXPECT_EQ(p.output().substr(8), std::string("\0z\0\0\0\0\0\0", 8));
  EXPECT_EQ(p.words()[0], bits_of(1.0));
}

// ---------------------------------------------------------------- bad data

TEST(LoopFmt, BadDataIsReportedAndEndsTheRun) {
  PackedRun p("10 (1,5.2) a (6,5) b", std::string("1234500001") + "12345 +   ");
  EXPECT_EQ(p.convert_expecting_fatal(), "");
  EXPECT_EQ(p.messages(),
            "Bad data - file /data/in.dat,  line 2,  file offset 15 hex, 15 decimal:\n"
            "   Hex:    20 2b 20 20 20 \n"
            "   ASCII: \" +   \"\n");
  EXPECT_EQ(p.engine->rb.read_size, kolv::kReadSize);
}

TEST(LoopFmt, BadDataDumpShowsTheRebuiltText) {
  PackedRun p("5 (1,5.2) a", "!2345");
  EXPECT_EQ(p.convert_expecting_fatal(), "");
  EXPECT_EQ(p.messages(),
            "Bad data - file /data/in.dat,  line 1,  file offset 0 hex, 0 decimal:\n"
            "   Hex:    21 32 33 2e 34 35 \n"
            "   ASCII: \"!23.45\"\n");
}

TEST(LoopFmt, BadDataDumpStopsAtSixteenBytes) {
  PackedRun p("30 (3,20) a", "xx#1234567890123456789xxxxxxxx");
  EXPECT_EQ(p.convert_expecting_fatal(), "");
  EXPECT_EQ(p.messages(),
            "Bad data - file /data/in.dat,  line 1,  file offset 2 hex, 2 decimal:\n"
            "   Hex:    23 31 32 33 34 35 36 37 38 39 30 31 32 33 34 35 \n"
            "   ASCII: \"#123456789012345\"\n");
}

TEST(LoopFmt, TabsAreNotBlanks) {
  PackedRun p("4 (1,2) a (3,2) b", "  \t\t");
  EXPECT_EQ(p.convert_expecting_fatal(), "");
  EXPECT_EQ(p.messages(),
            "Bad data - file /data/in.dat,  line 1,  file offset 2 hex, 2 decimal:\n"
            "   Hex:    09 09 \n"
            "   ASCII: \"\x04\x04\"\n");
}

TEST(LoopFmt, NulBytesInANumericFieldAreBadData) {
  PackedRun p("4 (1,2) a", std::string("\0\0ab", 4));
  EXPECT_EQ(p.convert_expecting_fatal(), "");
  EXPECT_EQ(p.messages(),
            "Bad data - file /data/in.dat,  line 1,  file offset 0 hex, 0 decimal:\n"
            "   Hex:    \n"
            "   ASCII: \"\"\n");
}

TEST(LoopFmt, PointBeforeOtherTextIsBadData) {
  PackedRun p("2 (1,2) a", ".x");
  EXPECT_EQ(p.convert_expecting_fatal(), "");
  EXPECT_NE(p.messages().find("   ASCII: \".x\"\n"), std::string::npos);
}

// ---------------------------------------------------------------- extra bytes

std::string ten_records() {
  std::string s;
  for (int i = 0; i < 10; ++i) s += "  " + std::to_string(10 + i);
  return s;
}

TEST(LoopFmt, FinalLineFeedIsNoExtraData) {
  PackedRun p("4 (1,4) a", ten_records() + "\n");
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(), "");
  EXPECT_EQ(p.run.cnt.row, 10u);
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 10u);
  EXPECT_EQ(w[9], bits_of(19.0));
}

TEST(LoopFmt, ExtraBytesAreReportedWithoutClosingQuote) {
  PackedRun p("4 (1,4) a", ten_records() + "xy");
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(),
            "2 extra bytes at end of file /data/in.dat:\n"
            "   Hex:    78 79 \n"
            "   ASCII: \"xy");
  EXPECT_EQ(p.run.cnt.row, 10u);
  EXPECT_EQ(p.words().size(), 10u);
}

TEST(LoopFmt, ExtraBytesDumpAtMostSixteen) {
  PackedRun p("40 $(1,2) s", std::string(40, 'a') + "bcdefghijklmnopq\trstu");
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(),
            "21 extra bytes at end of file /data/in.dat:\n"
            "   Hex:    62 63 64 65 66 67 68 69 6a 6b 6c 6d 6e 6f 70 71 \n"
            "   ASCII: \"bcdefghijklmnopq");
}

TEST(LoopFmt, InputShorterThanARecord) {
  PackedRun p("10 (1,4) a", "1\t3\r5");
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(),
            "5 extra bytes at end of file /data/in.dat:\n"
            "   Hex:    31 09 33 0d 35 \n"
            "   ASCII: \"1\x04"
            "3\x04"
            "5");
  EXPECT_EQ(p.output(), "");
  EXPECT_EQ(p.run.cnt.row, 0u);
}

TEST(LoopFmt, EmptyInput) {
  PackedRun p("10 (1,4) a", "");
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(), "");
  EXPECT_EQ(p.output(), "");
  EXPECT_EQ(p.run.cnt.row, 0u);
}

TEST(LoopFmt, ExtraBytesInTheNextRead) {
  // Three records fill the 9-byte buffer exactly; "xy" comes with a refill.
  PackedRun p("3 (1,3) a", "123456789xy");
  EXPECT_EQ(p.convert_buffered(9), 0);
  EXPECT_EQ(p.messages(),
            "2 extra bytes at end of file /data/in.dat:\n"
            "   Hex:    78 79 \n"
            "   ASCII: \"xy");
  EXPECT_EQ(p.words().size(), 3u);
}

// ---------------------------------------------------------------- buffers

std::string numbered_records(int count, int width) {
  std::string s;
  char field[32];
  for (int i = 0; i < count; ++i) {
    std::snprintf(field, sizeof field, "%*d", width, i);
    s += field;
  }
  return s;
}

void expect_numbered(PackedRun& p, int count) {
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) ASSERT_EQ(w[static_cast<size_t>(i)], bits_of(i)) << i;
  EXPECT_EQ(p.run.cnt.row, static_cast<uint32_t>(count));
}

TEST(LoopFmt, RecordsAcrossManySmallRefills) {
  for (int buffer : {1, 3, 5, 10, 11, 64}) {
    PackedRun p("7 (1,7) a", numbered_records(500, 7));
    EXPECT_EQ(p.convert_buffered(buffer), 0) << buffer;
    expect_numbered(p, 500);
    EXPECT_EQ(p.messages(), "");
    EXPECT_EQ(p.engine->rb.read_size, kolv::kReadSize);
  }
}

TEST(LoopFmt, RecordsAcrossTheReadBufferBoundary) {
  // 131072 is not a multiple of 7: each fill holds 18724 whole records.
  // The refills counted are the one-threaded reading's, so this run keeps
  // to one thread whatever KOLV_THREADS the suite runs under.
  const char* threads = std::getenv("KOLV_THREADS");
  const std::string saved = threads != nullptr ? threads : "";
  ::setenv("KOLV_THREADS", "1", 1);
  PackedRun p("7 (1,7) a", numbered_records(60000, 7));
  EXPECT_EQ(p.convert(), 0);
  if (threads != nullptr)
    ::setenv("KOLV_THREADS", saved.c_str(), 1);
  else
    ::unsetenv("KOLV_THREADS");
  expect_numbered(p, 60000);
  // 420000 bytes: the first fill and three refills.
  EXPECT_EQ(p.engine->rb.fills, 3u);
}

TEST(LoopFmt, OneByteRecords) {
  std::string input;
  for (int i = 0; i < 300000; ++i) input += static_cast<char>('0' + i % 10);
  PackedRun p("1 (1,1) d", input, 2);
  EXPECT_EQ(p.convert(), 0);
  std::vector<uint16_t> w = p.shorts();
  ASSERT_EQ(w.size(), 300000u);
  for (size_t i = 0; i < w.size(); ++i) ASSERT_EQ(w[i], i % 10) << i;
}

std::string long_record(const char* head, const char* tail) {
  std::string r(131072, ' ');
  r.replace(0, std::strlen(head), head);
  r.replace(131072 - std::strlen(tail), std::strlen(tail), tail);
  return r;
}

TEST(LoopFmt, LongestRecords) {
  std::string input =
      long_record("  1.5", "  -2") + long_record("abc", " 77") + long_record("", "9");
  PackedRun p("131072 (1,5) a (131069,4) b (131071,5) c", input);
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(), "");
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 9u);
  EXPECT_EQ(w[0], bits_of(1.5));
  EXPECT_EQ(w[1], bits_of(-2.0));
  EXPECT_EQ(w[2], bits_of(-2.0));  // "-2" and blanks past the record
  EXPECT_EQ(w[3], text8("abc"));
  EXPECT_EQ(w[4], bits_of(77.0));
  EXPECT_EQ(w[5], bits_of(77.0));
  EXPECT_EQ(w[6], kMiss64);
  EXPECT_EQ(w[7], bits_of(9.0));
  EXPECT_EQ(w[8], bits_of(9.0));
}

TEST(LoopFmt, LongestRecordsWithLineEnds) {
  std::string input = long_record("1", "2") + "\n" + long_record("3", "4") + "\n";
  PackedRun p("131072 (1,2) a (131072,1) b", input);
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(), "Records beginning with newline... Setting record length to 131073\n");
  EXPECT_EQ(p.words(),
            (std::vector<uint64_t>{bits_of(1.0), bits_of(2.0), bits_of(3.0), bits_of(4.0)}));

  std::string crlf = long_record("5", "6") + "\r\n" + long_record("7", "8") + "\r\n";
  PackedRun q("131072 (1,2) a (131072,1) b", crlf);
  EXPECT_EQ(q.convert(), 0);
  EXPECT_EQ(q.messages(), "Records beginning with CR/LF... Setting record length to 131074\n");
  EXPECT_EQ(q.words(),
            (std::vector<uint64_t>{bits_of(5.0), bits_of(6.0), bits_of(7.0), bits_of(8.0)}));
  EXPECT_EQ(q.engine->rb.read_size, kolv::kReadSize);
}

// ---------------------------------------------------------------- output

struct WriteCounter {
  std::vector<size_t> writes;
};

ssize_t count_write(void* cookie, const char* /*buf*/, size_t size) {
  static_cast<WriteCounter*>(cookie)->writes.push_back(size);
  return static_cast<ssize_t>(size);
}

TEST(LoopFmt, RowsLeaveInWholeBlocks) {
  // Eight doubles a row: 2048 rows to a 131072-byte block.
  PackedRun p("8 (1,1) v[8]", std::string(2049 * 8, '1'));
  WriteCounter counter;
  cookie_io_functions_t io = {nullptr, count_write, nullptr, nullptr};
  FILE* sink = fopencookie(&counter, "w", io);
  ASSERT_NE(sink, nullptr);
  std::setvbuf(sink, nullptr, _IONBF, 0);
  std::fclose(p.run.files.fout);
  p.run.files.fout = sink;
  EXPECT_EQ(p.convert(), 0);
  std::fclose(sink);
  p.run.files.fout = nullptr;
  EXPECT_EQ(counter.writes, (std::vector<size_t>{131072, 64}));
  EXPECT_EQ(p.run.cnt.row, 2049u);
}

TEST(LoopFmt, RowCountAddsToAppendedRows) {
  PackedRun p("4 (1,4) a", ten_records());
  p.run.cnt.row = 7;
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.run.cnt.row, 17u);
}

TEST(LoopFmt, WriteFailureIsStatusTwo) {
  PackedRun p("4 (1,4) a", ten_records());
  std::fclose(p.run.files.fout);
  p.run.files.fout = std::fopen("/dev/null", "r");
  ASSERT_NE(p.run.files.fout, nullptr);
  EXPECT_EQ(p.convert(), 2);
  EXPECT_EQ(p.engine->rb.read_size, kolv::kReadSize);
}

TEST(LoopFmt, RowWiderThanABlockIsStatusOne) {
  PackedRun p("131072 (1,1) x[16385]", "1");
  ASSERT_EQ(p.parsed, 16385);
  EXPECT_EQ(p.convert(), 1);
  EXPECT_EQ(p.output(), "");
  EXPECT_EQ(p.engine->rb.read_size, kolv::kReadSize);
  // The same row in 4-byte elements fits.
  PackedRun q("131072 (1,1) x[16385]", std::string(131072, '2'), 4);
  EXPECT_EQ(q.convert(), 0);
  EXPECT_EQ(q.output().size(), 16385u * 4);
}

TEST(LoopFmt, OtherElementSizeRunsNoLoop) {
  PackedRun p("4 (1,4) a", ten_records(), 3);
  EXPECT_EQ(p.convert(), -1);
  EXPECT_EQ(p.output(), "");
}

// ---------------------------------------------------------------- real data

#ifdef KOLV_REALDATA_DIR
// The real-data folder lies beside the project in CI, where
// KOLV_REQUIRE_REALDATA makes its absence a failure; a user's clone may not
// have it, and then these tests skip.
#define OPEN_REAL_DATA_FILE(file, name)                                                       \
  std::ifstream file(std::string(KOLV_REALDATA_DIR) + "/" + (name), std::ios::binary);        \
  if (!file.good()) {                                                                         \
    const char* required = std::getenv("KOLV_REQUIRE_REALDATA");                              \
    if (required != nullptr && std::string(required) == "1")                                  \
      FAIL() << "the real-data file " << KOLV_REALDATA_DIR << "/" << (name) << " is missing"; \
    GTEST_SKIP() << "the real-data file " << KOLV_REALDATA_DIR << "/" << (name)               \
                 << " is not there (the real-data folder lies beside the project in CI)";     \
  }

TEST(LoopFmt, MonthlySunspotNumbers) {
  OPEN_REAL_DATA_FILE(file, "SN_m_tot_V2.0.txt");
  std::string input((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  ASSERT_EQ(input.size(), 122854u);
  PackedRun p("37 (1,4) YEAR (6,2) MONTH (9,8) DATE (19,5) SN (25,5) SD (32,4) NOBS $(37,1) flag",
              input);
  ASSERT_EQ(p.parsed, 7);
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(), "Records beginning with newline... Setting record length to 38\n");
  EXPECT_EQ(p.run.cnt.row, 3233u);
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 3233u * 7);
  auto row = [&](size_t r) {
    return std::vector<uint64_t>(w.begin() + static_cast<std::ptrdiff_t>(7 * (r - 1)),
                                 w.begin() + static_cast<std::ptrdiff_t>(7 * r));
  };
  // Line 1:    "1749 01 1749.042   96.7  -1.0    -1  "
  EXPECT_EQ(row(1), (std::vector<uint64_t>{bits_of(1749), bits_of(1), bits_of(1749.042),
                                           bits_of(96.7), bits_of(-1.0), bits_of(-1), text8(" ")}));
  // Line 1000: "1832 04 1832.290   44.8   8.5    27  "
  EXPECT_EQ(row(1000),
            (std::vector<uint64_t>{bits_of(1832), bits_of(4), bits_of(1832.290), bits_of(44.8),
                                   bits_of(8.5), bits_of(27), text8(" ")}));
  // Line 3233: "2018 05 2018.371   13.2   1.6  1035 *"
  EXPECT_EQ(row(3233),
            (std::vector<uint64_t>{bits_of(2018), bits_of(5), bits_of(2018.371), bits_of(13.2),
                                   bits_of(1.6), bits_of(1035), text8("*")}));
}

TEST(LoopFmt, DebrecenDailySumsWithCrLf) {
  OPEN_REAL_DATA_FILE(file, "dDPD2015.txt");
  std::string input((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  PackedRun p("86 (3,4) YEAR (8,2) MONTH (11,2) DAY $(23,4) obs", input);
  EXPECT_EQ(p.convert(), 0);
  EXPECT_EQ(p.messages(), "Records beginning with CR/LF... Setting record length to 88\n");
  EXPECT_EQ(p.run.cnt.row, 365u);
  std::vector<uint64_t> w = p.words();
  ASSERT_EQ(w.size(), 365u * 4);
  // "d 2015 01 01 00 52 00 MITA ..." and "d 2015 01 02 11 39 11 KANZ ..."
  EXPECT_EQ(std::vector<uint64_t>(w.begin(), w.begin() + 8),
            (std::vector<uint64_t>{bits_of(2015), bits_of(1), bits_of(1), text8("MITA"),
                                   bits_of(2015), bits_of(1), bits_of(2), text8("KANZ")}));
}
#endif

}  // namespace
