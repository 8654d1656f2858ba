// The fast paths of the benchmark work against the conversions they stand in
// for, over millions of generated texts:
//
//  - parse_double_padded against the C library's strtod (and parse_double):
//    the same end and the same bit pattern, whatever bytes follow the text's
//    zero byte, and never a read beyond the 8 bytes of padding after it;
//  - parse_window16 (the 16-byte reading of the common field) and
//    parse_field against strtod likewise, never reading past the 16 bytes
//    of the window or the padding;
//  - the 2-byte element conversion without the library's floor against
//    floor(x + 0.5) itself;
//  - packed_number, the in-place reading of a packed numeric field (by the
//    16-byte window and by the word reader), against scandbltemp on the
//    field's rebuilt text;
//  - scandbl (its quick decision first, with the 16-byte window and with the
//    portable conversion alone) against scandbl's full steps: the same
//    return position, slot, status, error position, character flags, buffer
//    contents and refills, on fields placed anywhere in the read buffer,
//    around the early-refill limit and across refills, and at every position
//    of the buffer.
//
// KOLV_DIFF_COUNT sets the number of texts for the parser (default 3,000,000;
// the scanner takes a tenth of it); KOLV_DIFF_SEED varies the seeds.
#include <gtest/gtest.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "base/numparse.hpp"
#include "base/numwide.hpp"
#include "base/state.hpp"
#include "engine/elements.hpp"
#include "engine/packed.hpp"
#include "engine/readbuf.hpp"
#include "engine/scanners.hpp"
#include "generated_text.hpp"

namespace {

using kolv_test::add_digits;
using kolv_test::below;
using kolv_test::between;
using kolv_test::chance;
using kolv_test::pick;
using kolv_test::Rng;
using kolv_test::shown;

uint64_t total_count() {
  return kolv_test::count_from_env("KOLV_DIFF_COUNT", 3000000);
}
uint64_t base_seed() {
  return kolv_test::seed_from_env(0x66617374ULL);
}

// Digit runs of every length around the word size: 0 to 9, 15 to 17, 19 to 21.
int run_length(Rng& r) {
  static const int lengths[] = {0, 1, 2, 3, 4, 5, 6, 7, 7, 8, 8, 9, 15, 16, 17, 19, 20, 21};
  return lengths[below(r, sizeof lengths / sizeof lengths[0])];
}

// What may follow a number: nothing, a terminator, an exponent (complete or
// not), a second point, a letter, "x" after a zero, any byte.
void add_tail(Rng& r, std::string& s) {
  switch (below(r, 8)) {
    case 0:
      return;
    case 1:
      s += pick(r, " \t\r\n,");
      return;
    case 2:
      s += pick(r, "eE");
      if (chance(r, 50)) s += pick(r, "+-");
      add_digits(r, s, between(r, 0, 4));
      return;
    case 3:
      s += '.';
      add_digits(r, s, between(r, 0, 3));
      return;
    case 4:
      s += pick(r, "xXpPiInNaA_}.");
      return;
    default: {
      const int n = between(r, 1, 3);
      for (int i = 0; i < n; ++i) s += static_cast<char>(between(r, 1, 255));
      return;
    }
  }
}

// The main family: sign, digit runs of every length on both sides of an
// optional point, then a tail.
void gen_runs(Rng& r, std::string& s) {
  const int k = static_cast<int>(below(r, 10));
  if (k < 4)
    s += '-';
  else if (k == 4)
    s += '+';
  else if (k == 5 && chance(r, 20))
    s += pick(r, "+- ");
  if (chance(r, 10)) s.append(static_cast<size_t>(between(r, 1, 3)), '0');
  add_digits(r, s, run_length(r));
  if (chance(r, 75)) {
    s += '.';
    add_digits(r, s, run_length(r));
  }
  add_tail(r, s);
}

// Exported decimals: six places, one to five integer digits.
void gen_six_places(Rng& r, std::string& s) {
  if (chance(r, 50)) s += '-';
  add_digits(r, s, between(r, 1, 5));
  s += '.';
  add_digits(r, s, 6);
  add_tail(r, s);
}

// Doubles printed by the C library, and the words and forms strtod reads.
void gen_printed(Rng& r, std::string& s) {
  char b[512];
  const int k = static_cast<int>(below(r, 6));
  double d;
  do d = std::bit_cast<double>(r());
  while (!std::isfinite(d));
  if (chance(r, 50)) d = std::ldexp(static_cast<double>(below(r, 1000000000)), between(r, -40, 10));
  switch (k) {
    case 0:
      std::snprintf(b, sizeof b, "%.17g", d);
      break;
    case 1:
      std::snprintf(b, sizeof b, "%.*f", between(r, 0, 12), std::fmod(d, 1e9));
      break;
    case 2:
      std::snprintf(b, sizeof b, "%.*e", between(r, 0, 20), d);
      break;
    case 3:
      std::snprintf(b, sizeof b, "%a", d);
      break;
    case 4: {
      static const char* words[] = {"inf",   "-infinity", "nan",  "+nan(1)", "0x",
                                    "0x1p3", "-0x.8",     "00x1", " 12",     "\t-1.5",
                                    "1e",    "1e+",       ".",    "-.",      "+.e1"};
      std::snprintf(b, sizeof b, "%s", words[below(r, sizeof words / sizeof words[0])]);
      break;
    }
    default:
      std::snprintf(b, sizeof b, "%.*g", between(r, 1, 17), d);
      break;
  }
  s += b;
  add_tail(r, s);
}

// Short random texts of the bytes numbers are made of.
void gen_ascii(Rng& r, std::string& s) {
  const int n = between(r, 0, 20);
  for (int i = 0; i < n; ++i) s += chance(r, 80) ? pick(r, "0123456789.+-eE") : pick(r, " x,\t_a0");
}

using Gen = void (*)(Rng&, std::string&);
const Gen kGens[] = {gen_runs, gen_runs, gen_runs, gen_six_places, gen_printed, gen_ascii};

std::string generate(Rng& r) {
  std::string s;
  kGens[below(r, sizeof kGens / sizeof kGens[0])](r, s);
  return s;
}

// The end of a generated run: what it covered, no failures, and (for a run
// large enough to tell) at least `percent` of its cases on the path under
// test, so that a generator that stops producing them is noticed.
void expect_covered(const char* tag, uint64_t count, const char* cases, uint64_t hits,
                    const char* path, uint64_t failures, int percent) {
  std::printf("[ %-12s ] %llu %s, %llu %s\n", tag, static_cast<unsigned long long>(count), cases,
              static_cast<unsigned long long>(hits), path);
  EXPECT_EQ(failures, 0u);
  if (count >= 10000) {
    EXPECT_GE(hits * 100, count * static_cast<uint64_t>(percent)) << tag;
  }
}

// Places each text so that exactly 8 readable bytes follow its zero byte, the
// padding parse_double_padded may read; the page after them is inaccessible.
class PaddedBuffer {
 public:
  PaddedBuffer() {
    page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_ = 5 * page_;
    void* m = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) std::abort();
    base_ = static_cast<char*>(m);
    if (mprotect(base_ + 4 * page_, page_, PROT_NONE) != 0) std::abort();
  }
  ~PaddedBuffer() { munmap(base_, size_); }
  PaddedBuffer(const PaddedBuffer&) = delete;
  PaddedBuffer& operator=(const PaddedBuffer&) = delete;
  // The padding is drawn from digits, points and exponent letters, so that a
  // reader that looked past the zero byte would take them in.
  const char* place(const std::string& text, Rng& r) { return place_within(text, 0, r); }
  // The same with at least `window` readable bytes from the text's start
  // (the 16-byte window), and not one more than that or the padding needs.
  const char* place_within(const std::string& text, size_t window, Rng& r) {
    const size_t readable = std::max(text.size() + 1 + 8, window);
    char* p = base_ + 4 * page_ - readable;
    std::memcpy(p, text.c_str(), text.size() + 1);
    for (size_t i = text.size() + 1; i < readable; ++i) p[i] = pick(r, "0123456789.eE+-");
    return p;
  }

 private:
  char* base_ = nullptr;
  size_t page_ = 0;
  size_t size_ = 0;
};

TEST(ParseDoublePadded, SameEndAndBitsAsStrtod) {
  const uint64_t count = total_count();
  Rng rng(base_seed());
  PaddedBuffer buf;
  uint64_t converted = 0, quick_shape = 0, failures = 0;
  for (uint64_t i = 0; i < count; ++i) {
    const std::string text = generate(rng);
    const char* p = buf.place(text, rng);
    char* libc_end;
    const double libc = std::strtod(p, &libc_end);
    double padded = 0, plain = 0;
    const char* padded_end = kolv::parse_double_padded(p, &padded);
    const char* plain_end = kolv::parse_double(p, &plain);
    if (libc_end != p) ++converted;
    // Texts in the straight-line shape: at most 7 digits, a point, at most 7.
    const char* q = p + (*p == '-' || *p == '+');
    const char* d = q;
    while (*q >= '0' && *q <= '9') ++q;
    if (q - d < 8 && *q == '.') {
      const char* f = ++q;
      while (*q >= '0' && *q <= '9') ++q;
      if (q - f < 8 && q - d > 1) ++quick_shape;
    }
    const bool same = std::bit_cast<uint64_t>(libc) == std::bit_cast<uint64_t>(padded) &&
                      libc_end == padded_end &&
                      std::bit_cast<uint64_t>(plain) == std::bit_cast<uint64_t>(padded) &&
                      plain_end == padded_end;
    if (!same && ++failures <= 10)
      ADD_FAILURE() << "text #" << i << " \"" << shown(text) << "\": strtod ends at "
                    << (libc_end - p) << " with " << std::hexfloat << libc
                    << ", parse_double_padded at " << (padded_end - p) << " with " << padded;
  }
  std::printf("[ padded parse ] %llu texts, %llu converted, %llu of the straight-line shape\n",
              static_cast<unsigned long long>(count), static_cast<unsigned long long>(converted),
              static_cast<unsigned long long>(quick_shape));
  EXPECT_EQ(failures, 0u);
  // The generator must keep producing what it is built for.
  if (count >= 10000) {
    EXPECT_GE(converted * 100, count * 70);
    EXPECT_GE(quick_shape * 100, count * 20);
  }
}

// Every digit-run length before and after the point, with every byte after it.
// Calls f with every sign, every count of whole digits and of fractional
// digits (no point, or a point and 0 to `most` digits) up to `most`, and
// every byte from 1 to 255 after them.
template <class F>
void each_run_with_each_byte(Rng& rng, int most, F f) {
  for (int sign = 0; sign < 3; ++sign) {
    for (int whole = 0; whole <= most; ++whole) {
      for (int frac = -1; frac <= most; ++frac) {
        for (int c = 1; c < 256; ++c) {
          std::string text = sign == 0 ? "" : sign == 1 ? "-" : "+";
          add_digits(rng, text, whole);
          if (frac >= 0) {
            text += '.';
            add_digits(rng, text, frac);
          }
          text += static_cast<char>(c);
          f(text);
        }
      }
    }
  }
}

TEST(ParseDoublePadded, EveryRunLengthWithEveryFollowingByte) {
  Rng rng(base_seed() + 1);
  PaddedBuffer buf;
  uint64_t failures = 0;
  each_run_with_each_byte(rng, 18, [&](const std::string& text) {
    const char* p = buf.place(text, rng);
    char* libc_end;
    const double libc = std::strtod(p, &libc_end);
    double v = 0;
    const char* end = kolv::parse_double_padded(p, &v);
    if ((std::bit_cast<uint64_t>(libc) != std::bit_cast<uint64_t>(v) || libc_end != end) &&
        ++failures <= 10)
      ADD_FAILURE() << "\"" << shown(text) << "\": strtod ends at " << (libc_end - p)
                    << ", parse_double_padded at " << (end - p);
  });
  EXPECT_EQ(failures, 0u);
}

// ---- the 16-byte window ----------------------------------------------------

#if KOLV_WIDE_NUMBERS

TEST(ParseWindow16, TakesOnlyWhatItConvertsAsStrtodDoes) {
  const uint64_t count = total_count();
  Rng rng(base_seed() + 7);
  PaddedBuffer buf;
  uint64_t taken = 0, failures = 0;
  for (uint64_t i = 0; i < count; ++i) {
    const std::string text = generate(rng);
    const char* p = buf.place_within(text, 16, rng);
    char* libc_end;
    const double libc = std::strtod(p, &libc_end);
    double window = 0, field = 0;
    const char* window_end = kolv::parse_window16(p, &window);
    const char* field_end = kolv::parse_field(p, &field);
    if (window_end != nullptr) ++taken;
    const bool same =
        (window_end == nullptr || (window_end == libc_end && std::bit_cast<uint64_t>(window) ==
                                                                 std::bit_cast<uint64_t>(libc))) &&
        field_end == libc_end && std::bit_cast<uint64_t>(field) == std::bit_cast<uint64_t>(libc);
    if (!same && ++failures <= 10)
      ADD_FAILURE() << "text #" << i << " \"" << shown(text) << "\": strtod ends at "
                    << (libc_end - p) << " with " << std::hexfloat << libc << ", the window at "
                    << (window_end == nullptr ? -1 : window_end - p) << " with " << window
                    << ", parse_field at " << (field_end - p) << " with " << field;
  }
  expect_covered("window parse", count, "texts", taken, "taken by the 16-byte window", failures,
                 20);
}

// Every sign, every length of the whole and fractional digits that fits the
// window and some that do not, with every byte after them and the window's
// last byte just before an inaccessible page.
TEST(ParseWindow16, EveryRunLengthWithEveryFollowingByte) {
  Rng rng(base_seed() + 5);
  PaddedBuffer buf;
  uint64_t failures = 0, taken = 0;
  each_run_with_each_byte(rng, 17, [&](const std::string& text) {
    const char* p = buf.place_within(text, 16, rng);
    char* libc_end;
    const double libc = std::strtod(p, &libc_end);
    double v = 0;
    const char* end = kolv::parse_window16(p, &v);
    if (end == nullptr) return;
    ++taken;
    if ((std::bit_cast<uint64_t>(libc) != std::bit_cast<uint64_t>(v) || libc_end != end) &&
        ++failures <= 10)
      ADD_FAILURE() << "\"" << shown(text) << "\": strtod ends at " << (libc_end - p)
                    << ", the window at " << (end - p);
  });
  EXPECT_EQ(failures, 0u);
  // Everything with at least one digit and an end inside the window, after
  // any byte but an exponent letter or an "x", is taken.
  EXPECT_GT(taken, 3u * 100 * 240);
}

TEST(ParseWindow16, RefusesWhatItMustLeave) {
  const char* const refused[] = {"1234567890123456 ",
                                 "-123456789.123456",
                                 "1e5 ",
                                 "1E+5 ",
                                 "0x1A ",
                                 "- ",
                                 ". ",
                                 "-. ",
                                 " 5",
                                 "inf ",
                                 "+.e1"};
  for (const char* t : refused) {
    char window[32] = {};
    std::memcpy(window, t, std::strlen(t));
    double v;
    EXPECT_EQ(kolv::parse_window16(window, &v), nullptr) << t;
  }
  char window[32] = {};
  std::memcpy(window, "-0.000,", 7);
  double v = 1;
  ASSERT_EQ(kolv::parse_window16(window, &v), window + 6);
  EXPECT_TRUE(std::signbit(v));
  EXPECT_EQ(v, 0.0);
  std::memcpy(window, "123456789012345 ", 16);
  ASSERT_EQ(kolv::parse_window16(window, &v), window + 15);
  EXPECT_EQ(v, 123456789012345.0);
}

#endif

// ---- the 2-byte element ---------------------------------------------------

uint16_t element16_by_floor(double x) {
  const double r = std::floor(x + 0.5);
  int32_t i = INT32_MIN;
  if (r >= -2147483648.0 && r < 2147483648.0) i = static_cast<int32_t>(r);
  return static_cast<uint16_t>(static_cast<uint32_t>(i) & 0xFFFF);
}

TEST(Element16, SameAsFloorOfXPlusAHalf) {
  Rng rng(base_seed() + 3);
  static const double edges[] = {0.5,
                                 -0.5,
                                 1.5,
                                 -1.5,
                                 2.5,
                                 -2.5,
                                 0.49999999999999994,
                                 -0.49999999999999994,
                                 32767.5,
                                 -32768.5,
                                 2147483647.5,
                                 2147483646.5,
                                 -2147483648.5,
                                 -2147483647.5,
                                 -2147483648.0,
                                 2147483648.0,
                                 4503599627370495.5,
                                 4503599627370497.0,
                                 1e300,
                                 -1e300,
                                 HUGE_VAL,
                                 -HUGE_VAL,
                                 0.0,
                                 -0.0};
  uint64_t failures = 0;
  auto check = [&](double x) {
    char slot[8];
    std::memcpy(slot, &x, 8);
    if (kolv::slot_is_missing(std::bit_cast<uint64_t>(x))) return;
    const uint16_t got = kolv::to_element16(slot);
    const uint16_t want = element16_by_floor(x);
    if (got != want && ++failures <= 10)
      ADD_FAILURE() << std::hexfloat << x << ": " << got << ", floor gives " << want;
  };
  for (double e : edges)
    for (int step = -3; step <= 3; ++step) {
      double x = e;
      for (int k = 0; k < step; ++k) x = std::nextafter(x, HUGE_VAL);
      for (int k = 0; k > step; --k) x = std::nextafter(x, -HUGE_VAL);
      check(x);
    }
  const uint64_t count = total_count();
  for (uint64_t i = 0; i < count; ++i) {
    switch (below(rng, 4)) {
      case 0:
        check(std::bit_cast<double>(rng()));  // any bits: NaNs, infinities, huge, tiny
        break;
      case 1:
        check(static_cast<double>(static_cast<int64_t>(rng()) >> between(rng, 20, 63)) / 2);
        break;
      case 2:
        check(std::ldexp(static_cast<double>(rng() >> 11), between(rng, -60, 0)) *
              (chance(rng, 50) ? -1 : 1));
        break;
      default:
        check((static_cast<double>(below(rng, 2000000001)) - 1e9) / 100.0);
        break;
    }
  }
  EXPECT_EQ(failures, 0u);
}

// ---- packed fields: in place against the rebuilt text ---------------------

// The text loopfmt rebuilds for a field inside its record: the first
// width - decimals bytes, a point and the last decimals bytes (the point
// before the whole field when decimals exceed the width); no point without
// decimals.
std::string rebuilt(const std::string& field, int decimals) {
  if (decimals == 0) return field;
  const size_t lead = field.size() > static_cast<size_t>(decimals)
                          ? field.size() - static_cast<size_t>(decimals)
                          : 0;
  return field.substr(0, lead) + "." + field.substr(lead);
}

TEST(PackedNumber, SameAsScandbltempOnTheRebuiltText) {
  const uint64_t count = total_count() / 3;
  Rng rng(base_seed() + 4);
  std::vector<char> buffer(256);
  kolv::Plan plan;
  kolv::Engine engine{plan, kolv::Console{}};
  uint64_t failures = 0, in_place = 0;
  for (uint64_t i = 0; i < count; ++i) {
    const int width = between(rng, 0, 24);
    const int decimals =
        chance(rng, 20) ? between(rng, 0, 25) : between(rng, 0, std::min(width, 8));
    const char mstring = pick(rng, ".-*9 ");
    std::string field;
    // Mostly the clean shape (blanks, sign, digits), with a stray byte now and then.
    const int blanks = between(rng, 0, width);
    field.append(static_cast<size_t>(blanks), ' ');
    if (field.size() < static_cast<size_t>(width) && chance(rng, 50)) field += pick(rng, "-+");
    while (field.size() < static_cast<size_t>(width)) {
      if (chance(rng, 3))
        field += pick(rng, " .-+eEaI}\t\n0");
      else if (chance(rng, 1))
        field += static_cast<char>(between(rng, 0, 255));
      else
        field += static_cast<char>('0' + below(rng, 10));
    }
    // The field, then bytes of the next field (digits and blanks) as padding.
    std::memcpy(buffer.data(), field.data(), field.size());
    for (size_t k = field.size(); k < field.size() + 16; ++k)
      buffer[k] = pick(rng, "0123456789 .-");
    double number = 0, by_words = 0;
    const bool taken = kolv::packed_number_as<kolv::kWideNumbers>(buffer.data(), width, decimals,
                                                                  mstring, &number);
    const bool taken_by_words =
        kolv::packed_number_as<false>(buffer.data(), width, decimals, mstring, &by_words);
    if ((taken != taken_by_words ||
         (taken && std::bit_cast<uint64_t>(number) != std::bit_cast<uint64_t>(by_words))) &&
        ++failures <= 10)
      ADD_FAILURE() << "field \"" << shown(field) << "\" (" << decimals << " decimals): the window "
                    << (taken ? "takes" : "leaves") << " it with " << std::hexfloat << number
                    << ", the word reader " << (taken_by_words ? "takes" : "leaves") << " it with "
                    << by_words;
    if (!taken) continue;
    ++in_place;
    plan.missing_symbol = mstring;
    const std::string text = rebuilt(field, decimals);
    char slot[8];
    uint32_t status = 99;
    kolv::scandbltemp(engine, text.c_str(), slot, 0, status);
    uint64_t want = 0;
    std::memcpy(&want, slot, 8);
    if ((status != 1 || want != std::bit_cast<uint64_t>(number)) && ++failures <= 10)
      ADD_FAILURE() << "field \"" << shown(field) << "\" (" << decimals << " decimals, MSYM '"
                    << mstring << "'): in place " << std::hexfloat << number
                    << ", from the rebuilt text status " << status << " with "
                    << std::bit_cast<double>(want);
  }
  expect_covered("packed", count, "fields", in_place, "read in place", failures, 20);
}

// ---- scandbl: the quick decision against the full steps ---------------------

// The scanner tests make three runs (each with a 132 KiB read buffer) per
// field: keep freed buffers in the heap instead of returning them to the
// system each time, which made the tests spend most of their time faulting
// pages in.
void keep_freed_buffers() {
#if defined(__GLIBC__)
  mallopt(M_TRIM_THRESHOLD, 64 << 20);
  mallopt(M_MMAP_THRESHOLD, 64 << 20);
#endif
}

// One run reading the given bytes read_size at a time, with the buffer filled.
struct ScanRun {
  kolv::Plan plan;
  kolv::Engine engine{plan, kolv::Console{}};
  std::string bytes;
  FILE* in = nullptr;
  ScanRun(const std::string& input, int read_size, char mstring) : bytes(input) {
    in = fmemopen(bytes.empty() ? nullptr : bytes.data(), bytes.size(), "rb");
    if (in == nullptr) in = std::tmpfile();  // fmemopen refuses an empty buffer
    engine.rb.infp = in;
    engine.rb.read_size = read_size;
    engine.rb.theresmore = 1;
    plan.missing_symbol = mstring;
    kolv::first_fill(engine.rb);
  }
  ~ScanRun() { std::fclose(in); }
  ScanRun(const ScanRun&) = delete;
  ScanRun& operator=(const ScanRun&) = delete;
};

struct Outcome {
  long next;
  std::string slot;
  uint32_t status;
  long cperr;
  int vrec;
  std::string buffered;
  int theresmore;
  int readbytes;
  uint64_t fills;
  long file_at;
  bool operator==(const Outcome&) const = default;
};

template <class Scan>
Outcome scan_with(ScanRun& s, long offset, int field, Scan scan) {
  char* buffer = s.engine.rb.inbuff.get();
  char slot[8];
  std::memset(slot, 0x55, sizeof slot);
  uint32_t status = 99;
  s.engine.rb.cperr = nullptr;
  char* next = scan(s.engine, buffer + offset, slot, field, status);
  const long cperr =
      s.engine.rb.cperr == nullptr ? -1 : static_cast<long>(s.engine.rb.cperr - buffer);
  return {static_cast<long>(next - buffer), std::string(slot, 8), status, cperr,
          s.engine.vrec[static_cast<size_t>(field)],
          // Without a refill the buffer holds what it held before the scan.
          s.engine.rb.fills == 0 ? std::string() : std::string(buffer), s.engine.rb.theresmore,
          s.engine.rb.readbytes, s.engine.rb.fills, std::ftell(s.in)};
}

// The same outcome without copying the buffer, for scans that refill nothing
// (a refill shows in the count of fills and the input's position).
template <class Scan>
Outcome scan_light(ScanRun& s, long offset, Scan scan) {
  char* buffer = s.engine.rb.inbuff.get();
  char slot[8];
  std::memset(slot, 0x55, sizeof slot);
  uint32_t status = 99;
  s.engine.rb.cperr = nullptr;
  char* next = scan(s.engine, buffer + offset, slot, 0, status);
  const long cperr =
      s.engine.rb.cperr == nullptr ? -1 : static_cast<long>(s.engine.rb.cperr - buffer);
  return {static_cast<long>(next - buffer),
          std::string(slot, 8),
          status,
          cperr,
          s.engine.vrec[0],
          std::string(),
          s.engine.rb.theresmore,
          s.engine.rb.readbytes,
          s.engine.rb.fills,
          std::ftell(s.in)};
}

TEST(ScandblQuickDecision, StartsNumberIsExactlyADigitOrASign) {
  for (int c = 0; c < 256; ++c) {
    const bool want = (c >= '0' && c <= '9') || c == '-' || c == '+';
    EXPECT_EQ(kolv::starts_number(static_cast<char>(c)), want) << "byte " << c;
  }
}

TEST(ScandblQuickDecision, SameAsTheFullSteps) {
  keep_freed_buffers();
  const uint64_t count = total_count() / 10;
  Rng rng(base_seed() + 2);
  uint64_t failures = 0, quick = 0;
  for (uint64_t i = 0; i < count; ++i) {
    // Where the field starts: near the buffer's start, or around the point
    // where fewer than 80 bytes remain before the read limit.
    const bool far = chance(rng, 2);
    const int read_size =
        far || chance(rng, 50) ? kolv::kReadSize : between(rng, 4, 48);  // small: refills
    const long offset = far ? kolv::kReadSize - 80 + between(rng, -40, 40)
                            : between(rng, 0, std::min(40, read_size - 1));
    std::string field = generate(rng);
    if (chance(rng, 5)) field = pick(rng, ".-*9a") + field;
    std::string input(static_cast<size_t>(offset), 'x');
    input += field;
    const int after = between(rng, 0, 60);
    for (int k = 0; k < after; ++k) input += pick(rng, "0123456789 .,\n-e");
    const char mstring = pick(rng, ".-*9a");
    const int field_index = between(rng, 0, 3);
    ScanRun a(input, read_size, mstring), b(input, read_size, mstring),
        c(input, read_size, mstring);
    if (offset > static_cast<long>(std::strlen(a.engine.rb.inbuff.get())))
      continue;  // not buffered
    const Outcome wide = scan_with(a, offset, field_index, kolv::scandbl_as<kolv::kWideNumbers>);
    const Outcome portable = scan_with(c, offset, field_index, kolv::scandbl_as<false>);
    const Outcome full = scan_with(b, offset, field_index, kolv::scan_detail::scandbl_steps);
    if (wide.fills == 0 && wide.status == 1 && wide.cperr == offset) ++quick;
    if ((!(wide == full) || !(portable == full)) && ++failures <= 10)
      ADD_FAILURE() << "field \"" << shown(field) << "\" at " << offset << " (read size "
                    << read_size << ", MSYM '" << mstring << "'): quick decision returns "
                    << wide.next << " status " << wide.status << " (portable " << portable.next
                    << " status " << portable.status << "), full steps " << full.next << " status "
                    << full.status;
  }
  expect_covered("scandbl", count, "fields", quick, "converted in place", failures, 30);
}

// Every position of the read buffer: a field written into a full buffer at
// each offset, scanned by the quick decision (both conversions) and by the
// full steps. Fields that need no refill are written in place into one
// buffer and restored after; in the last 200 bytes, where the early refill
// and the read limit decide, every offset gets fresh runs, refills included.
TEST(ScandblQuickDecision, SameAtEveryBufferPosition) {
  keep_freed_buffers();
  const char* const fields[] = {"-12345.678901 ",   "7,",      "0.5\n",
                                "123456789012345 ", "-1.5e3 ", "1234567890123456 ",
                                "+.25\t",           "9.",      "-x "};
  std::string input(static_cast<size_t>(kolv::kReadSize) + 4096, ' ');
  for (size_t i = 0; i < input.size(); i += 7) input[i] = '5';
  for (const char* field : fields) {
    const std::string f(field);
    ScanRun a(input, kolv::kReadSize, '*'), b(input, kolv::kReadSize, '*'),
        c(input, kolv::kReadSize, '*');
    char* bufs[3] = {a.engine.rb.inbuff.get(), b.engine.rb.inbuff.get(), c.engine.rb.inbuff.get()};
    uint64_t failures = 0;
    const long in_place_limit = kolv::kReadSize - 200;
    for (long offset = 0; offset < kolv::kReadSize; ++offset) {
      Outcome wide{}, portable{}, full{};
      if (offset < in_place_limit) {
        std::string saved(bufs[0] + offset, f.size());
        for (char* buf : bufs) std::memcpy(buf + offset, f.data(), f.size());
        wide = scan_light(a, offset, kolv::scandbl_as<kolv::kWideNumbers>);
        portable = scan_light(c, offset, kolv::scandbl_as<false>);
        full = scan_light(b, offset, kolv::scan_detail::scandbl_steps);
        for (char* buf : bufs) std::memcpy(buf + offset, saved.data(), f.size());
      } else {
        std::string text = input;
        text.replace(static_cast<size_t>(offset), f.size(), f);
        ScanRun x(text, kolv::kReadSize, '*'), y(text, kolv::kReadSize, '*'),
            z(text, kolv::kReadSize, '*');
        wide = scan_with(x, offset, 0, kolv::scandbl_as<kolv::kWideNumbers>);
        portable = scan_with(z, offset, 0, kolv::scandbl_as<false>);
        full = scan_with(y, offset, 0, kolv::scan_detail::scandbl_steps);
      }
      if ((!(wide == full) || !(portable == full)) && ++failures <= 5)
        ADD_FAILURE() << "field \"" << shown(f) << "\" at " << offset << ": quick decision "
                      << wide.next << " (portable " << portable.next << "), full steps "
                      << full.next;
    }
    EXPECT_EQ(failures, 0u) << shown(f);
  }
}

// ---- scanstr: the one-step field against the steps ------------------------

std::string word(Rng& r) {
  std::string w;
  const int k = between(r, 0, 9);
  if (k == 0) return std::string(1, pick(r, ".-*9a"));  // a missing value, or not
  const int n = between(r, 0, 20);
  for (int i = 0; i < n; ++i)
    w += chance(r, 90) ? pick(r, "abcdefXYZ_0123456789-.+") : static_cast<char>(between(r, 1, 255));
  return w;
}

TEST(ScanstrOneStep, SameAsTheSteps) {
  keep_freed_buffers();
  const uint64_t count = total_count() / 10;
  Rng rng(base_seed() + 6);
  uint64_t failures = 0;
  for (uint64_t i = 0; i < count; ++i) {
    const int read_size = chance(rng, 50) ? kolv::kReadSize : between(rng, 4, 48);
    const long offset = between(rng, 0, std::min(40, read_size - 1));
    std::string input(static_cast<size_t>(offset), 'x');
    const std::string field = word(rng);
    input += field;
    const int after = between(rng, 0, 30);
    for (int k = 0; k < after; ++k) input += pick(rng, "ab \t\r\n,.-9");
    const char mstring = pick(rng, ".-*9a");
    const int field_index = between(rng, 0, 3);
    ScanRun a(input, read_size, mstring), b(input, read_size, mstring);
    if (offset > static_cast<long>(std::strlen(a.engine.rb.inbuff.get())))
      continue;  // not buffered
    const Outcome one = scan_with(a, offset, field_index, kolv::scanstr_as<kolv::kWideNumbers>);
    const Outcome steps = scan_with(b, offset, field_index, kolv::scan_detail::scanstr_steps);
    if (!(one == steps) && ++failures <= 10)
      ADD_FAILURE() << "field \"" << shown(field) << "\" at " << offset << " (read size "
                    << read_size << ", MSYM '" << mstring << "'): one step returns " << one.next
                    << " flag " << one.vrec << ", the steps " << steps.next << " flag "
                    << steps.vrec;
  }
  EXPECT_EQ(failures, 0u);
}

}  // namespace
