// Conversion on worker threads: the thread count's settings, when the
// parallel path runs or refuses, and generated line-per-row inputs with
// events at random places converted on one thread and on four with tiny
// chunks, which must give the same rows, marks, messages and status.
#include "engine/parallel.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "base/fatal.hpp"
#include "engine/loops.hpp"
#include "engine/plan.hpp"
#include "engine/threads.hpp"
#include "test_run.hpp"

namespace {

using kolv::ElementType;
using kolv::FieldKind;
using kolv::LoopStatus;
using kolv::Plan;
using kolv::RowLayout;
using kolv_test::Capture;
using kolv_test::file_with;
using kolv_test::read_all;

// Sets an environment variable for one scope, restoring it after.
class EnvSetting {
 public:
  EnvSetting(const char* name, const char* value) : name_(name) {
    const char* old = std::getenv(name);
    had_ = old != nullptr;
    if (had_) old_ = old;
    if (value == nullptr) {
      ::unsetenv(name);
    } else {
      ::setenv(name, value, 1);
    }
  }
  ~EnvSetting() {
    if (had_) {
      ::setenv(name_, old_.c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }
  EnvSetting(const EnvSetting&) = delete;
  EnvSetting& operator=(const EnvSetting&) = delete;

 private:
  const char* name_;
  bool had_ = false;
  std::string old_;
};

// Everything a conversion leaves that a user could see.
struct Outcome {
  LoopStatus status = kolv::kLoopDone;
  uint32_t rows = 0;
  std::vector<uint8_t> marks;
  std::string output;
  std::string out;
  std::string err;
};

// Converts text by the plan through Engine::convert, with KOLV_THREADS and
// KOLV_CHUNK_BYTES as given; rows go to a temporary file, or to /dev/full
// (every write fails) when full_disk.
Outcome convert(const Plan& plan, const std::string& text, const char* threads, const char* chunk,
                bool full_disk = false) {
  EnvSetting t("KOLV_THREADS", threads);
  EnvSetting c("KOLV_CHUNK_BYTES", chunk);
  Capture out;
  Capture err;
  kolv::Engine engine(plan, kolv::Console{out.file(), err.file()});
  FILE* input = file_with(text);
  FILE* sink = full_disk ? std::fopen("/dev/full", "ab") : std::tmpfile();
  if (sink == nullptr) std::abort();
  std::setvbuf(sink, nullptr, _IONBF, 0);
  kolv::Source source{input, "/data/in.asc"};
  kolv::RowSink rows{sink};
  Outcome o;
  try {
    o.status = engine.convert(source, rows);
  } catch (const kolv::FatalError&) {
    // Bad data in a packed record ends the run after its report.
    o.status = kolv::kLoopRejected;
  }
  o.rows = engine.rows;
  o.marks = engine.vrec;
  if (!full_disk) o.output = read_all(sink);
  o.out = out.text();
  o.err = err.text();
  std::fclose(input);
  std::fclose(sink);
  return o;
}

void expect_same(const Outcome& one, const Outcome& many, const std::string& what) {
  EXPECT_EQ(one.status, many.status) << what;
  EXPECT_EQ(one.rows, many.rows) << what;
  EXPECT_EQ(one.marks, many.marks) << what;
  // Rows are compared whole; a failure names the sizes, not the bytes.
  EXPECT_TRUE(one.output == many.output)
      << what << ": " << one.output.size() << " and " << many.output.size() << " bytes";
  EXPECT_EQ(one.out, many.out) << what;
  EXPECT_EQ(one.err, many.err) << what;
}

Plan line_plan(const std::string& kinds, ElementType element = ElementType::kDouble) {
  Plan plan;
  plan.layout = RowLayout::kLinePerRow;
  plan.element = element;
  plan.delimiter = ',';
  for (char k : kinds) plan.kinds.push_back(k == 'n' ? FieldKind::kNumeric : FieldKind::kCharacter);
  return plan;
}

std::string lines(int count, const std::string& line) {
  std::string text;
  for (int i = 0; i < count; ++i) text += line + "\n";
  return text;
}

TEST(ParallelThreads, KolvThreadsSetsTheCountAndAnythingElseIsIgnored) {
  EXPECT_GE(kolv::usable_cores(), 1);
  {
    EnvSetting t("KOLV_THREADS", "3");
    EXPECT_EQ(kolv::conversion_threads(), 3);
  }
  for (const char* bad : {"0", "-2", "x", "3x", ""}) {
    EnvSetting t("KOLV_THREADS", bad);
    EXPECT_EQ(kolv::conversion_threads(), kolv::usable_cores()) << bad;
  }
  {
    EnvSetting t("KOLV_THREADS", nullptr);
    EXPECT_EQ(kolv::conversion_threads(), kolv::usable_cores());
  }
}

TEST(ParallelThreads, ChunkBytesOverrideIsAWholeNumberOrNothing) {
  {
    EnvSetting c("KOLV_CHUNK_BYTES", "257");
    EXPECT_EQ(kolv::chunk_bytes_override(), 257u);
  }
  {
    EnvSetting c("KOLV_CHUNK_BYTES", "big");
    EXPECT_EQ(kolv::chunk_bytes_override(), 0u);
  }
  {
    EnvSetting c("KOLV_CHUNK_BYTES", nullptr);
    EXPECT_EQ(kolv::chunk_bytes_override(), 0u);
  }
}

// convert_in_parallel itself: what it takes on, and the state a refusal leaves.
struct Direct {
  Plan plan;
  Capture out;
  Capture err;
  FILE* input = nullptr;
  FILE* sink = std::tmpfile();

  Direct(Plan p, const std::string& text) : plan(std::move(p)), input(file_with(text)) {}
  ~Direct() {
    std::fclose(input);
    std::fclose(sink);
  }
  kolv::Parallel run(int threads, kolv::Engine& engine, LoopStatus& status) {
    EnvSetting c("KOLV_CHUNK_BYTES", "100");
    engine.sink = sink;
    kolv::Source source{input, "in"};
    return kolv::convert_in_parallel(engine, source, threads, status);
  }
};

TEST(ParallelPath, CleanLinesAreConvertedOnThreads) {
  Direct d(line_plan("nn"), lines(500, "1.5,-2"));
  kolv::Engine engine(d.plan, kolv::Console{d.out.file(), d.err.file()});
  LoopStatus status = kolv::kLoopNoType;
  EXPECT_EQ(d.run(4, engine, status), kolv::Parallel::kFinished);
  EXPECT_EQ(status, kolv::kLoopDone);
  EXPECT_EQ(engine.rows, 500u);
  std::string expected;
  for (int i = 0; i < 500; ++i) expected += kolv_test::d8(1.5) + kolv_test::d8(-2);
  EXPECT_TRUE(read_all(d.sink) == expected);
  EXPECT_EQ(d.out.text() + d.err.text(), "");
}

TEST(ParallelPath, ABadFieldLeavesEverythingAsBefore) {
  // 20000 rows: whole blocks are written before the bad line's chunk comes up.
  std::string text = lines(20000, "1,2") + "1,2x\n" + lines(10, "3,4");
  Direct d(line_plan("nn"), text);
  kolv::Engine engine(d.plan, kolv::Console{d.out.file(), d.err.file()});
  LoopStatus status = kolv::kLoopNoType;
  EXPECT_EQ(d.run(2, engine, status), kolv::Parallel::kRefused);
  EXPECT_EQ(engine.rows, 0u);
  EXPECT_EQ(std::ftell(d.input), 0);
  EXPECT_EQ(read_all(d.sink).size(), 0u);
  EXPECT_EQ(d.out.text() + d.err.text(), "");
}

TEST(ParallelPath, CleanRecordsAreConvertedOnThreads) {
  Plan plan;
  plan.layout = RowLayout::kPacked;
  plan.element = ElementType::kDouble;
  plan.record_length = 5;
  plan.kinds = {FieldKind::kNumeric, FieldKind::kCharacter};
  kolv::PackedField number;
  number.start = 0;
  number.width = 3;
  kolv::PackedField word;
  word.type = 0;
  word.start = 3;
  word.width = 2;
  plan.fields = {number, word};
  std::string text;
  for (int i = 0; i < 300; ++i) text += " 42ab";
  Direct d(plan, text);
  kolv::Engine engine(d.plan, kolv::Console{d.out.file(), d.err.file()});
  engine.rb.infp = d.input;
  engine.sink = d.sink;
  LoopStatus status = kolv::kLoopNoType;
  EnvSetting c("KOLV_CHUNK_BYTES", "64");
  EXPECT_EQ(kolv::convert_packed_in_parallel(engine, 5, 3, status), kolv::Parallel::kFinished);
  EXPECT_EQ(status, kolv::kLoopDone);
  EXPECT_EQ(engine.rows, 300u);
  std::string expected;
  for (int i = 0; i < 300; ++i) expected += kolv_test::d8(42) + std::string("ab\0\0\0\0\0\0", 8);
  EXPECT_TRUE(read_all(d.sink) == expected);
  EXPECT_EQ(d.out.text() + d.err.text(), "");
}

TEST(ParallelPath, OneThreadAndOtherLayoutsAreNotTried) {
  for (RowLayout layout : {RowLayout::kSoft, RowLayout::kNewline, RowLayout::kHardStream}) {
    Plan plan = line_plan("nn");
    plan.layout = layout;
    Direct d(plan, lines(100, "1,2"));
    kolv::Engine engine(d.plan, kolv::Console{d.out.file(), d.err.file()});
    LoopStatus status = kolv::kLoopDone;
    EXPECT_EQ(d.run(4, engine, status), kolv::Parallel::kNotTried);
  }
  Direct d(line_plan("nn"), lines(100, "1,2"));
  kolv::Engine engine(d.plan, kolv::Console{d.out.file(), d.err.file()});
  LoopStatus status = kolv::kLoopDone;
  EXPECT_EQ(d.run(1, engine, status), kolv::Parallel::kNotTried);
  EXPECT_EQ(std::ftell(d.input), 0);
}

// A field of a line, drawn at random: mostly numbers, sometimes text, a
// missing value, blanks around it, or an event.
std::string random_field(std::mt19937& rng, bool numeric, int event_rate) {
  std::uniform_int_distribution<int> pick(0, 999);
  const int roll = pick(rng);
  if (roll < event_rate) {
    switch (pick(rng) % 9) {
      case 0:
        return "1x";  // runs into a word: a missing delimiter
      case 1:
        return "--4";  // no number
      case 2:
        return std::string(1, '\0');
      case 3:
        return std::string(40000, '7');  // longer than a chunk's line may be
      case 4:
        return "1,2";  // one field too many
      case 5:
        return "abcdefghijkl";  // character data cut to 8 bytes
      case 6:
        return "+";
      case 7:
        return "1e";
      default:
        return "\n";  // a line that ends early
    }
  }
  std::string field;
  if (roll % 7 == 0) field += "  ";
  if (roll % 11 == 0) field += "\t";
  if (roll % 13 == 0) {
    field += ".";
  } else if (!numeric || roll % 17 == 0) {
    static const char* const kWords[] = {"ab", "x_1", "Hello", "n/a", "abcdefgh"};
    field += kWords[static_cast<size_t>(roll) % 5];
  } else if (roll % 19 == 0) {
    // An empty field: missing.
  } else {
    std::uniform_real_distribution<double> value(-1e6, 1e6);
    char number[40];
    std::snprintf(number, sizeof number, roll % 3 == 0 ? "%.17g" : "%.3f", value(rng));
    field += number;
  }
  if (roll % 5 == 0) field += " \r";
  return field;
}

TEST(ParallelSameness, RandomLinesWithEventsGiveTheOneThreadedOutcome) {
  const char* count_text = std::getenv("KOLV_PARALLEL_CASES");
  const int cases = count_text != nullptr ? std::atoi(count_text) : 150;
  std::mt19937 rng(20261125);
  int refused_or_reported = 0;
  for (int c = 0; c < cases; ++c) {
    std::uniform_int_distribution<int> width(1, 5);
    std::string kinds;
    const int n = width(rng);
    for (int k = 0; k < n; ++k) kinds += rng() % 4 == 0 ? 'c' : 'n';
    static const ElementType kTypes[] = {ElementType::kInt16, ElementType::kFloat32,
                                         ElementType::kDouble};
    Plan plan = line_plan(kinds, kTypes[rng() % 3]);
    plan.complex = rng() % 6 == 0;
    plan.delimiter = rng() % 3 == 0 ? ';' : ',';
    if (rng() % 3 == 0) {
      plan.all_columns = false;
      for (int k = n - 1; k >= 0; k -= 2) plan.columns.push_back(k);
    }
    // Clean inputs most of the time, so that the whole run stays parallel;
    // otherwise events at a few random places.
    const int event_rate = rng() % 3 == 0 ? 0 : static_cast<int>(rng() % 3);
    const int rows = static_cast<int>(rng() % 3000);
    std::string text;
    for (int r = 0; r < rows; ++r) {
      for (int k = 0; k < n; ++k) {
        std::string field = random_field(rng, kinds[static_cast<size_t>(k)] == 'n', event_rate);
        if (field == "1,2" && plan.delimiter == ';') field = "1;2";
        text += field;
        if (k + 1 < n) text += plan.delimiter;
      }
      if (r + 1 < rows || rng() % 2 == 0) text += rng() % 10 == 0 ? "\r\n" : "\n";
    }
    const std::string chunk = std::to_string(1 + rng() % 700);
    const Outcome one = convert(plan, text, "1", nullptr);
    const Outcome many = convert(plan, text, "4", chunk.c_str());
    if (!one.out.empty() || !one.err.empty()) ++refused_or_reported;
    expect_same(one, many, "case " + std::to_string(c) + " kinds " + kinds + " chunk " + chunk);
    if (testing::Test::HasFailure()) break;
  }
  // Both kinds of run came up: some with reports (refused chunks) and some without.
  EXPECT_GT(refused_or_reported, 0);
  EXPECT_LT(refused_or_reported, cases);
}

TEST(ParallelSameness, AFullDiskStopsAtTheSameBlockWithTheSameMarks) {
  // Character data in the first rows only, then cut text: the marks at the
  // failed first block must be those of its rows alone.
  Plan plan = line_plan("nc");
  std::string text = lines(3000, "1,ab") + lines(20000, "2,abcdefghijk");
  const Outcome one = convert(plan, text, "1", nullptr, true);
  const Outcome many = convert(plan, text, "4", "300", true);
  EXPECT_EQ(one.status, kolv::kLoopWriteFailed);
  expect_same(one, many, "full disk");
  ASSERT_GE(one.marks.size(), 2u);
  EXPECT_EQ(one.marks[1], 255);
}

// A packed record's text: each field its width of digits, blanks, a
// decimal point, a missing value or letters; sometimes a byte that makes
// the field bad data, or a NUL.
std::string random_record(std::mt19937& rng, const Plan& plan, int event_rate) {
  std::string record(static_cast<size_t>(plan.record_length), ' ');
  std::uniform_int_distribution<int> pick(0, 999);
  for (const kolv::PackedField& f : plan.fields) {
    std::string text;
    const int roll = pick(rng);
    if (roll < event_rate) {
      text = pick(rng) % 2 == 0 ? "1#" : std::string(1, '\0');
    } else if (f.type == 0 || roll % 23 == 0) {
      text = roll % 2 == 0 ? "abcdefghij" : "Zed";
    } else if (roll % 13 == 0) {
      text = ".";
    } else if (roll % 17 == 0) {
      text = "";
    } else {
      text = std::to_string(static_cast<long>(rng() % 100000)) + (roll % 3 == 0 ? ".5" : "");
      if (roll % 5 == 0) text = "-" + text;
    }
    for (int64_t k = 0; k < f.width && k < static_cast<int64_t>(text.size()); ++k)
      record[static_cast<size_t>(f.start + k)] = text[static_cast<size_t>(k)];
  }
  return record;
}

TEST(ParallelSameness, RandomPackedRecordsGiveTheOneThreadedOutcome) {
  const char* count_text = std::getenv("KOLV_PARALLEL_CASES");
  const int cases = count_text != nullptr ? std::atoi(count_text) : 150;
  std::mt19937 rng(11252026);
  int reported = 0;
  for (int c = 0; c < cases; ++c) {
    static const ElementType kTypes[] = {ElementType::kInt16, ElementType::kFloat32,
                                         ElementType::kDouble};
    Plan plan;
    plan.layout = RowLayout::kPacked;
    plan.element = kTypes[rng() % 3];
    plan.fit_record_to_line_ends = rng() % 4 != 0;
    const int n = 1 + static_cast<int>(rng() % 5);
    int64_t at = 0;
    for (int k = 0; k < n; ++k) {
      kolv::PackedField f;
      f.type = rng() % 4 == 0 ? 0 : 1;
      f.start = at;
      f.width = 1 + static_cast<int64_t>(rng() % 9);
      f.decimals = static_cast<uint8_t>(rng() % 5 == 0 ? 2 : 0);
      at += f.width;
      plan.fields.push_back(f);
      plan.kinds.push_back(f.type == 0 ? FieldKind::kCharacter : FieldKind::kNumeric);
    }
    plan.record_length = at;
    const int event_rate = rng() % 3 == 0 ? 0 : static_cast<int>(rng() % 2);
    const bool line_ends = rng() % 2 == 0;
    const int records = static_cast<int>(rng() % 3000);
    std::string text;
    for (int r = 0; r < records; ++r) {
      text += random_record(rng, plan, event_rate);
      if (line_ends) text += "\n";
    }
    if (rng() % 4 == 0) text += "12";  // bytes that make no record
    const std::string chunk = std::to_string(1 + rng() % 700);
    const Outcome one = convert(plan, text, "1", nullptr);
    const Outcome many = convert(plan, text, "4", chunk.c_str());
    if (!one.out.empty() || !one.err.empty()) ++reported;
    expect_same(one, many, "packed case " + std::to_string(c) + " chunk " + chunk);
    if (testing::Test::HasFailure()) break;
  }
  EXPECT_GT(reported, 0);
  EXPECT_LT(reported, cases);
}

}  // namespace
