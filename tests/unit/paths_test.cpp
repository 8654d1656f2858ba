#include "base/paths.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/state.hpp"
#include "support/scratch.hpp"

#if defined(__SANITIZE_ADDRESS__)
#define KOLV_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KOLV_TEST_ASAN 1
#endif
#endif
#ifdef KOLV_TEST_ASAN
// Provided by the sanitizer runtime; g++ ships no header for it.
extern "C" size_t __sanitizer_get_allocated_size(const volatile void* p);
#endif

namespace {

using kolv::kPathSize;

// Saves HOME and puts it back when the test ends.
class HomeGuard {
 public:
  HomeGuard() {
    const char* home = std::getenv("HOME");
    if (home != nullptr) saved_ = home;
  }
  ~HomeGuard() {
    if (saved_) {
      setenv("HOME", saved_->c_str(), 1);
    } else {
      unsetenv("HOME");
    }
  }
  void set(const std::string& value) { setenv("HOME", value.c_str(), 1); }
  void unset() { unsetenv("HOME"); }

 private:
  std::optional<std::string> saved_;
};

// Makes a temporary directory the current one for the test's duration.
class InTempDir {
 public:
  InTempDir() {
    char buf[4096];
    if (getcwd(buf, sizeof buf) != nullptr) old_ = buf;
    ok_ = !dir_.path().empty() && chdir(dir_.path().c_str()) == 0;
    if (ok_ && getcwd(buf, sizeof buf) != nullptr) cwd_ = buf;
  }
  ~InTempDir() {
    if (!old_.empty() && chdir(old_.c_str()) != 0) std::abort();
  }
  bool ok() const { return ok_ && !cwd_.empty(); }
  // The current directory as the system reports it (links resolved).
  const std::string& cwd() const { return cwd_; }

 private:
  kolv_support::ScratchDir dir_{"kolv_paths"};
  std::string old_;
  std::string cwd_;
  bool ok_ = false;
};

// A 1024-byte path buffer followed by guard bytes that must stay untouched.
class PathBuffer {
 public:
  static constexpr size_t kGuard = 64;
  static constexpr char kGuardByte = 0x5A;

  explicit PathBuffer(const std::string& text) : bytes_(kPathSize + kGuard, kGuardByte) {
    size_t n = std::min(text.size(), static_cast<size_t>(kPathSize - 1));
    std::memcpy(bytes_.data(), text.data(), n);
    bytes_[n] = '\0';
  }
  char* data() { return bytes_.data(); }
  std::string str() const { return std::string(bytes_.data(), strnlen(bytes_.data(), kPathSize)); }
  bool terminated() const { return std::memchr(bytes_.data(), '\0', kPathSize) != nullptr; }
  bool guard_intact() const {
    for (size_t i = kPathSize; i < bytes_.size(); ++i) {
      if (bytes_[i] != kGuardByte) return false;
    }
    return true;
  }

 private:
  std::vector<char> bytes_;
};

struct ParseResult {
  int status;
  std::string path;
};

ParseResult parse(const std::string& text, const char* base) {
  PathBuffer buf(text);
  int status = kolv::pathparseex(buf.data(), base);
  EXPECT_TRUE(buf.terminated());
  EXPECT_TRUE(buf.guard_intact());
  return {status, buf.str()};
}

ParseResult parse_cwd(const std::string& text) {
  PathBuffer buf(text);
  int status = kolv::pathparse(buf.data());
  EXPECT_TRUE(buf.terminated());
  EXPECT_TRUE(buf.guard_intact());
  return {status, buf.str()};
}

std::string parent_of(const std::string& dir) {
  return dir.substr(0, dir.rfind('/'));
}

bool is_empty_file(const std::string& name) {
  struct stat st;
  return stat(name.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_size == 0;
}

bool exists(const std::string& name) {
  struct stat st;
  return stat(name.c_str(), &st) == 0;
}

// Takes ownership of a malloc'd name and returns it as a string.
std::string take(char* p) {
  EXPECT_NE(p, nullptr);
  if (p == nullptr) return {};
  std::string s = p;
  std::free(p);
  return s;
}

// ---------------------------------------------------------------- pathparse

TEST(Pathparse, RelativeNameJoinsTheBaseDirectory) {
  EXPECT_EQ(parse("data/in.txt", "/u/w").path, "/u/w/data/in.txt");
  EXPECT_EQ(parse("data/in.txt", "/u/w").status, 0);
}

TEST(Pathparse, DotsAreResolved) {
  ParseResult r = parse("../x/./y", "/u/w");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.path, "/u/x/y");
}

TEST(Pathparse, RelativeNameJoinsTheCurrentDirectory) {
  InTempDir here;
  ASSERT_TRUE(here.ok());
  EXPECT_EQ(parse_cwd("data/in.txt").path, here.cwd() + "/data/in.txt");
  EXPECT_EQ(parse_cwd("../x/./y").path, parent_of(here.cwd()) + "/x/y");
  EXPECT_EQ(parse_cwd("./in.txt").path, here.cwd() + "/in.txt");
}

TEST(Pathparse, LoneRootStays) {
  ParseResult r = parse_cwd("/");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.path, "/");
}

TEST(Pathparse, AbsoluteNameIgnoresTheBase) {
  EXPECT_EQ(parse("/a/b/c.dat", "/u/w").path, "/a/b/c.dat");
}

TEST(Pathparse, DoubleSeparatorIsRejected) {
  ParseResult r = parse_cwd("a//b");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.path, "a//b");
}

TEST(Pathparse, ColonIsRejected) {
  ParseResult r = parse_cwd("c:x");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.path, "c:x");
}

TEST(Pathparse, CommaColonPlusRejectedAndUnchangedButBackslashes) {
  for (const char* name : {"dir\\a,b", "dir\\a:b", "dir\\a+b"}) {
    std::string expected = name;
    expected[3] = '/';
    ParseResult r = parse_cwd(name);
    EXPECT_EQ(r.status, 1) << name;
    EXPECT_EQ(r.path, expected) << name;
  }
}

TEST(Pathparse, EveryInvalidCharacterIsRejected) {
  for (const char* c = kolv::invalid_chars; *c != '\0'; ++c) {
    if (*c == '\\') continue;  // a separator, turned into '/'
    std::string name = std::string("a") + *c + "b";
    ParseResult r = parse(name, "/u/w");
    EXPECT_EQ(r.status, 1) << name;
    EXPECT_EQ(r.path, name) << name;
  }
}

TEST(Pathparse, TwoBackslashesMakeARejectedDoubleSeparator) {
  ParseResult r = parse("a\\\\b", "/u/w");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.path, "a//b");
}

TEST(Pathparse, BackslashesBecomeSlashes) {
  EXPECT_EQ(parse("a\\b\\c.txt", "/u/w").path, "/u/w/a/b/c.txt");
  EXPECT_EQ(parse("\\top\\x", "/u/w").path, "/top/x");
}

TEST(Pathparse, TrailingSlashIsKept) {
  EXPECT_EQ(parse("data/", "/u/w").path, "/u/w/data/");
  EXPECT_EQ(parse("/a/b/", nullptr).path, "/a/b/");
  EXPECT_EQ(parse("data\\", "/u/w").path, "/u/w/data/");
  EXPECT_EQ(parse("./", "/u/w").path, "/u/w/");
}

TEST(Pathparse, DotDotStopsAtTheRoot) {
  EXPECT_EQ(parse("/../../a", nullptr).path, "/a");
  EXPECT_EQ(parse("../../../../x", "/u/w").path, "/x");
  EXPECT_EQ(parse("/..", nullptr).path, "/");
  EXPECT_EQ(parse("/../", nullptr).path, "/");
  EXPECT_EQ(parse("..", "/u").path, "/");
}

TEST(Pathparse, DotDotRemovesOneComponent) {
  EXPECT_EQ(parse("/a/b/../c", nullptr).path, "/a/c");
  EXPECT_EQ(parse("a/b/../../c/", "/u/w").path, "/u/w/c/");
}

TEST(Pathparse, RootBaseAddsNoExtraSlash) {
  EXPECT_EQ(parse("x/y", "/").path, "/x/y");
}

TEST(Pathparse, EmptyNameWithoutBaseIsTheCurrentDirectory) {
  InTempDir here;
  ASSERT_TRUE(here.ok());
  ParseResult r = parse_cwd("");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.path, here.cwd());
}

TEST(Pathparse, EmptyNameWithBaseStaysEmpty) {
  ParseResult r = parse("", "/u/w");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.path, "");
}

TEST(Pathparse, TildeIsHome) {
  HomeGuard home;
  home.set("/home/kay");
  EXPECT_EQ(parse("~/a/", nullptr).path, "/home/kay/a/");
  EXPECT_EQ(parse("~", nullptr).path, "/home/kay");
  EXPECT_EQ(parse("~/a/../b", "/u/w").path, "/home/kay/b");
  EXPECT_EQ(parse("~\\a", nullptr).path, "/home/kay/a");
}

TEST(Pathparse, HomeLosesOneTrailingSlash) {
  HomeGuard home;
  home.set("/home/kay/");
  EXPECT_EQ(parse("~/a", nullptr).path, "/home/kay/a");
  home.set("/");
  EXPECT_EQ(parse("~", nullptr).path, "/");
  EXPECT_EQ(parse("~/x", nullptr).path, "/x");
}

TEST(Pathparse, DotDotFromHomeStopsAtTheRoot) {
  HomeGuard home;
  home.set("/home/kay");
  EXPECT_EQ(parse("~/../..", nullptr).path, "/");
  EXPECT_EQ(parse("~/../../../etc", nullptr).path, "/etc");
}

TEST(Pathparse, LoneTildeWithoutHomeIsTheCurrentDirectory) {
  HomeGuard home;
  home.unset();
  InTempDir here;
  ASSERT_TRUE(here.ok());
  ParseResult r = parse_cwd("~");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.path, here.cwd());
  EXPECT_EQ(parse_cwd("~/a/b").path, here.cwd() + "/a/b");
}

TEST(Pathparse, TildeWithoutHomeUsesTheBase) {
  HomeGuard home;
  home.unset();
  EXPECT_EQ(parse("~/a/", "/u/w").path, "/u/w/a/");
}

TEST(Pathparse, RejectedTildeNameIsLeftAlone) {
  HomeGuard home;
  home.set("/home/kay");
  ParseResult r = parse("~/a,b", nullptr);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.path, "~/a,b");
}

// Names of 1023, 1024 and 5000 characters: the buffer receives the first 1023.
std::string repeated(const std::string& unit, size_t length) {
  std::string s;
  while (s.size() < length) s += unit;
  s.resize(length);
  return s;
}

TEST(PathparseBounds, AbsoluteNamesOfEveryLengthStayInBounds) {
  for (size_t length : {1023u, 1024u, 5000u}) {
    std::string big = repeated("/abcdefgh", length);
    std::string in = big.substr(0, 1023);
    ParseResult r = parse(big, nullptr);
    EXPECT_EQ(r.status, 0) << length;
    EXPECT_EQ(r.path, in) << length;
  }
}

TEST(PathparseBounds, RelativeNamesAreCutToTheBuffer) {
  for (size_t length : {1023u, 1024u, 5000u}) {
    std::string big = repeated("abcdefgh/", length);
    std::string in = big.substr(0, 1023);  // ends "abcdef", no trailing '/'
    ParseResult r = parse(big, "/b");
    EXPECT_EQ(r.status, 0) << length;
    EXPECT_EQ(r.path, ("/b/" + in).substr(0, 1023)) << length;
  }
}

TEST(PathparseBounds, TrailingSlashAtTheLastByteIsKept) {
  std::string big = repeated("/abcdefgh", 5000);
  std::string in = big.substr(0, 1022) + "/";
  ParseResult r = parse(in, nullptr);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.path.size(), 1023u);
  EXPECT_EQ(r.path, in);
}

TEST(PathparseBounds, TrailingSlashIsDroppedWhenThereIsNoRoom) {
  std::string in = std::string(1021, 'a') + "/";
  ParseResult r = parse(in, "/b");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.path, "/b/" + std::string(1020, 'a'));
}

TEST(PathparseBounds, UnterminatedBufferIsCutAtItsLastByte) {
  std::unique_ptr<char[]> buf(new char[kPathSize]);
  std::memset(buf.get(), 'a', kPathSize);
  buf[0] = '/';
  EXPECT_EQ(kolv::pathparseex(buf.get(), nullptr), 0);
  EXPECT_EQ(std::string(buf.get()), "/" + std::string(1022, 'a'));
}

TEST(PathparseBounds, ExactHeapBufferIsNotOverrun) {
  std::string big = repeated("x/", 5000);
  std::unique_ptr<char[]> buf(new char[kPathSize]);
  std::memcpy(buf.get(), big.data(), 1023);
  buf[1023] = '\0';
  EXPECT_EQ(kolv::pathparseex(buf.get(), "/u/w"), 0);
  ASSERT_NE(std::memchr(buf.get(), '\0', kPathSize), nullptr);
  EXPECT_EQ(std::string(buf.get()), ("/u/w/" + big.substr(0, 1023)).substr(0, 1023));
}

TEST(PathparseBounds, LongHomeIsCut) {
  HomeGuard home;
  home.set("/" + std::string(4999, 'h'));
  ParseResult r = parse("~/a", nullptr);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.path, "/" + std::string(1022, 'h'));
}

TEST(PathparseBounds, LongBaseIsCut) {
  std::string base = "/" + std::string(4999, 'b');
  ParseResult r = parse("../x/", base.c_str());
  EXPECT_EQ(r.status, 0);
  // The base is held to 1033 characters, ".." removes it all, then x/ is added.
  EXPECT_EQ(r.path, "/x/");
  EXPECT_EQ(parse("a", base.c_str()).path, base.substr(0, 1023));
}

TEST(PathparseBounds, DotDotAfterACutClimbsFromTheCut) {
  // The result is built in a work area of 1033 characters. Here HOME (1021
  // characters) and "/cccccccccc" fill it to 1032, the next '/' fills it and
  // "d" is cut, so ".." then removes "cccccccccc/" and leaves HOME alone.
  HomeGuard home;
  std::string dir = "/" + std::string(1020, 'h');
  home.set(dir);
  ParseResult r = parse("~/cccccccccc/d/..", nullptr);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.path, dir);
}

// ------------------------------------------------------------- veldatempnam

TEST(Veldatempnam, CreatesAnEmptyFileInTheDirectory) {
  const kolv_support::ScratchDir dir("kolv_paths");
  ASSERT_FALSE(dir.path().empty());
  std::string name = take(kolv::veldatempnam(dir.path().c_str(), "out_"));
  std::string lead = dir.path() + "/out_";
  ASSERT_EQ(name.size(), lead.size() + 6);
  EXPECT_EQ(name.substr(0, lead.size()), lead);
  EXPECT_NE(name.substr(lead.size()), "XXXXXX");
  EXPECT_TRUE(is_empty_file(name));
  EXPECT_EQ(unlink(name.c_str()), 0);
}

TEST(Veldatempnam, TwoCallsReserveTwoNames) {
  const kolv_support::ScratchDir dir("kolv_paths");
  ASSERT_FALSE(dir.path().empty());
  std::string a = take(kolv::veldatempnam(dir.path().c_str(), "out_"));
  std::string b = take(kolv::veldatempnam(dir.path().c_str(), "out_"));
  EXPECT_NE(a, b);
  EXPECT_TRUE(is_empty_file(a));
  EXPECT_TRUE(is_empty_file(b));
  EXPECT_EQ(unlink(a.c_str()), 0);
  EXPECT_EQ(unlink(b.c_str()), 0);
}

TEST(Veldatempnam, TrailingSlashesAndBackslashesOfTheDirectoryGo) {
  const kolv_support::ScratchDir dir("kolv_paths");
  ASSERT_FALSE(dir.path().empty());
  std::string lead = dir.path() + "/out_";
  for (std::string given : {dir.path() + "///", dir.path() + "\\", dir.path() + "/\\/"}) {
    std::string name = take(kolv::veldatempnam(given.c_str(), "out_"));
    ASSERT_EQ(name.size(), lead.size() + 6) << given;
    EXPECT_EQ(name.substr(0, lead.size()), lead) << given;
    EXPECT_TRUE(is_empty_file(name)) << given;
    EXPECT_EQ(unlink(name.c_str()), 0);
  }
}

TEST(Veldatempnam, BackslashInThePrefixIsASeparator) {
  const kolv_support::ScratchDir dir("kolv_paths");
  ASSERT_FALSE(dir.path().empty());
  ASSERT_EQ(mkdir((dir.path() + "/sub").c_str(), 0700), 0);
  std::string name = take(kolv::veldatempnam(dir.path().c_str(), "sub\\out_"));
  std::string lead = dir.path() + "/sub/out_";
  ASSERT_EQ(name.size(), lead.size() + 6);
  EXPECT_EQ(name.substr(0, lead.size()), lead);
  EXPECT_TRUE(is_empty_file(name));
  EXPECT_EQ(unlink(name.c_str()), 0);
}

TEST(Veldatempnam, DotSlashDirectory) {
  InTempDir here;
  ASSERT_TRUE(here.ok());
  std::string name = take(kolv::veldatempnam("./", "out_"));
  ASSERT_EQ(name.size(), std::string("./out_").size() + 6);
  EXPECT_EQ(name.substr(0, 6), "./out_");
  EXPECT_TRUE(is_empty_file(here.cwd() + "/" + name.substr(2)));
  EXPECT_EQ(unlink(name.c_str()), 0);
}

TEST(Veldatempnam, EmptyOrNullDirectoryIsTheCurrentOne) {
  InTempDir here;
  ASSERT_TRUE(here.ok());
  for (const char* dir : {"", static_cast<const char*>(nullptr)}) {
    std::string name = take(kolv::veldatempnam(dir, "out_"));
    ASSERT_EQ(name.size(), 10u);
    EXPECT_EQ(name.substr(0, 4), "out_");
    EXPECT_EQ(name.find('/'), std::string::npos);
    EXPECT_TRUE(is_empty_file(here.cwd() + "/" + name));
    EXPECT_EQ(unlink(name.c_str()), 0);
  }
}

TEST(Veldatempnam, MissingDirectoryStillGivesAName) {
  const kolv_support::ScratchDir dir("kolv_paths");
  ASSERT_FALSE(dir.path().empty());
  std::string missing = dir.path() + "/nothere";
  std::string name = take(kolv::veldatempnam(missing.c_str(), "out_"));
  std::string lead = missing + "/out_";
  ASSERT_EQ(name.size(), lead.size() + 6);
  EXPECT_EQ(name.substr(0, lead.size()), lead);
  EXPECT_FALSE(exists(name));
  EXPECT_FALSE(exists(missing));
}

TEST(Veldatempnam, OverlongDirectoryIsCutToABuffer) {
  // The directory is held to 1023 characters and so is the template, which
  // then has no room for the six X: no file is made and the cut name returns.
  std::string dir(5000, 'd');
  std::string name = take(kolv::veldatempnam(dir.c_str(), "out_"));
  EXPECT_EQ(name, std::string(1023, 'd'));
  EXPECT_FALSE(exists(name));
}

TEST(Veldatempnam, OverlongPrefixIsCutToABuffer) {
  std::string prefix(5000, 'p');
  std::string name = take(kolv::veldatempnam("/nonexistent_kolv_dir", prefix.c_str()));
  EXPECT_EQ(name, ("/nonexistent_kolv_dir/" + prefix).substr(0, 1023));
  std::string bare = take(kolv::veldatempnam(nullptr, prefix.c_str()));
  EXPECT_EQ(bare, prefix.substr(0, 1023));
  EXPECT_FALSE(exists(bare));
}

// ---------------------------------------------------------------- getcwdir

TEST(Getcwdir, GivesTheCurrentDirectory) {
  InTempDir here;
  ASSERT_TRUE(here.ok());
  char buf[kPathSize];
  EXPECT_EQ(kolv::getcwdir(buf, kPathSize), buf);
  EXPECT_EQ(std::string(buf), here.cwd());
}

TEST(Getcwdir, TooSmallBufferGivesNull) {
  char buf[4];
  EXPECT_EQ(kolv::getcwdir(buf, 1), nullptr);
  EXPECT_EQ(kolv::getcwdir(buf, 0), nullptr);
}

// --------------------------------------------------------------- g_strlcpy

TEST(GStrlcpy, CutsAndReturnsTheCopiedCount) {
  char dst[8] = "zzzzzzz";
  EXPECT_EQ(kolv::g_strlcpy(dst, "abcdef", 4), 3u);
  EXPECT_STREQ(dst, "abc");
  EXPECT_EQ(dst[4], 'z');
}

TEST(GStrlcpy, ShortSourceIsCopiedWhole) {
  char dst[8];
  EXPECT_EQ(kolv::g_strlcpy(dst, "ab", sizeof dst), 2u);
  EXPECT_STREQ(dst, "ab");
}

TEST(GStrlcpy, SizeOneGivesAnEmptyString) {
  char dst[2] = "z";
  EXPECT_EQ(kolv::g_strlcpy(dst, "abc", 1), 0u);
  EXPECT_EQ(dst[0], '\0');
}

TEST(GStrlcpy, SizeZeroWritesNothing) {
  char dst[2] = "z";
  EXPECT_EQ(kolv::g_strlcpy(dst, "abc", 0), 0u);
  EXPECT_EQ(dst[0], 'z');
}

TEST(GStrlcpy, ReadsNoFurtherThanItCopies) {
  std::unique_ptr<char[]> src(new char[3]{'a', 'b', 'c'});  // no terminator
  char dst[4];
  EXPECT_EQ(kolv::g_strlcpy(dst, src.get(), sizeof dst), 3u);
  EXPECT_STREQ(dst, "abc");
}

// ------------------------------------------------------------ fixpath, case

TEST(Fixpath, TurnsBackslashesIntoSlashes) {
  char s[] = "a\\b\\\\c/d";
  kolv::fixpath(s);
  EXPECT_STREQ(s, "a/b//c/d");
  char t[] = "x\\y";
  EXPECT_EQ(kolv::pathfix(t), t);
  EXPECT_STREQ(t, "x/y");
}

TEST(Case, UpperAndLowerInPlace) {
  char s[] = "Run_1.Txt";
  kolv::upper(s);
  EXPECT_STREQ(s, "RUN_1.TXT");
  kolv::lower(s);
  EXPECT_STREQ(s, "run_1.txt");
}

// ---------------------------------------------------------- extension names

TEST(Hasext, DotBeforeASlashIsNoExtension) {
  EXPECT_EQ(kolv::hasext("dir.v2/run"), 0);
  EXPECT_EQ(kolv::hasext("run.txt"), 1);
  EXPECT_EQ(kolv::hasext("dir.v2/run.cmd"), 1);
  EXPECT_EQ(kolv::hasext("run"), 0);
  EXPECT_EQ(kolv::hasext("a.b/"), 0);
  EXPECT_EQ(kolv::hasext(""), 0);
}

TEST(Dropext, CutsTheExtensionAndSaysSoWithNull) {
  char s[] = "dir/run.v1.txt";
  EXPECT_EQ(kolv::dropext(s), nullptr);
  EXPECT_STREQ(s, "dir/run.v1");
}

TEST(Dropext, NameWithoutExtensionIsReturnedUnchanged) {
  char s[] = "dir.v2/run";
  EXPECT_EQ(kolv::dropext(s), s);
  EXPECT_STREQ(s, "dir.v2/run");
  char t[] = "run";
  EXPECT_EQ(kolv::dropext(t), t);
  EXPECT_STREQ(t, "run");
}

// ------------------------------------------------------------------ copies

// Bytes [from, to) of p are all zero.
bool zero_from(const char* p, size_t from, size_t to) {
  for (size_t i = from; i < to; ++i) {
    if (p[i] != '\0') return false;
  }
  return true;
}

// The exact size of a block is known only to the sanitizer's allocator.
void expect_block_size(const char* p, size_t size) {
#ifdef KOLV_TEST_ASAN
  EXPECT_EQ(__sanitizer_get_allocated_size(p), size);
#else
  (void)p;
  (void)size;
#endif
}

TEST(CopyString, ExactLength) {
  char* p = kolv::copy_string("abc");
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(p, "abc");
  expect_block_size(p, 4);
  std::free(p);
  EXPECT_EQ(kolv::copy_string(nullptr), nullptr);
}

TEST(CopyString, ExCutsAndZeroFills) {
  char* p = kolv::copy_string_ex("abcdef", 4);
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(p, "abc");
  expect_block_size(p, 4);
  std::free(p);
  p = kolv::copy_string_ex("ab", 6);
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(p, "ab");
  EXPECT_TRUE(zero_from(p, 2, 6));
  expect_block_size(p, 6);
  std::free(p);
  EXPECT_EQ(kolv::copy_string_ex(nullptr, 6), nullptr);
  EXPECT_EQ(kolv::copy_string_ex("ab", 0), nullptr);
}

TEST(CopyString, SymbolOfSevenCharactersIsEightBytes) {
  char* p = kolv::copy_string_for_symbol("abcdefg");
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(p, "abcdefg");
  expect_block_size(p, 8);
  std::free(p);
}

TEST(CopyString, SymbolOfEightCharactersIsSixteenBytes) {
  char* p = kolv::copy_string_for_symbol("abcdefgh");
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(p, "abcdefgh");
  EXPECT_TRUE(zero_from(p, 8, 16));
  expect_block_size(p, 16);
  std::free(p);
  EXPECT_EQ(kolv::copy_string_for_symbol(nullptr), nullptr);
}

TEST(CopyString, SymbolExRoundsTheSizeUp) {
  char* p = kolv::copy_string_for_symbol_ex("abcdefghijk", 3);
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(p, "abcdefg");  // block of 8 holds 7 characters
  expect_block_size(p, 8);
  std::free(p);
  p = kolv::copy_string_for_symbol_ex("ab", 9);
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(p, "ab");
  EXPECT_TRUE(zero_from(p, 2, 16));
  expect_block_size(p, 16);
  std::free(p);
  EXPECT_EQ(kolv::copy_string_for_symbol_ex("ab", 0), nullptr);
  EXPECT_EQ(kolv::copy_string_for_symbol_ex(nullptr, 8), nullptr);
}

}  // namespace
