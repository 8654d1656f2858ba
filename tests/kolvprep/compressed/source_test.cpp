// kolvprep's reader of compressed exports: files made by the command-line
// tools gzip, zstd, xz and bzip2 read back to the text they hold, whole, in
// tiny pieces, from a pipe, and as several members or streams one after the
// other; a file cut short or damaged fails with one line naming the
// compression. A tool that is missing skips its tests with a message
// (KOLV_REQUIRE_COMPRESSION, set by CI, makes that a failure).
#include "kolvprep/source.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "../support.hpp"

namespace {

using kolvprep::Compression;

struct Tool {
  Compression compression;
  const char* program;   // the command-line compressor
  const char* suffix;    // the name it gives its output
  const char* compress;  // the command writing FILE.suffix from FILE
};

const Tool kTools[] = {
    {Compression::kGzip, "gzip", ".gz", "gzip -k -f"},
    {Compression::kZstd, "zstd", ".zst", "zstd -q -k -f"},
    {Compression::kXz, "xz", ".xz", "xz -k -f"},
    {Compression::kBzip2, "bzip2", ".bz2", "bzip2 -k -f"},
};

// Test names and messages show the program, not the struct's bytes.
void PrintTo(const Tool& tool, std::ostream* os) {
  *os << tool.program;
}

bool required() {
  const char* v = std::getenv("KOLV_REQUIRE_COMPRESSION");
  return v != nullptr && *v != '\0' && std::string(v) != "0";
}

bool on_path(const std::string& program) {
  return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

using kptest::read_file;
using kptest::write_file;

using Scratch = kptest::ScratchDir;

// A text of `lines` CSV lines that compresses well but not to nothing: the
// values change from line to line.
std::string csv_text(size_t lines, uint32_t seed) {
  std::string t = "id,name,value,day\n";
  uint32_t x = seed | 1;
  for (size_t i = 0; i < lines; ++i) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    t += std::to_string(i) + ",name" + std::to_string(x % 997) + "," + std::to_string(x % 100000) +
         "." + std::to_string(x % 10) + ",2020-0" + std::to_string(1 + x % 9) + "-1" +
         std::to_string(x % 10) + "\n";
  }
  return t;
}

// The compressed bytes of `text` as `tool` writes them.
std::string compressed(const Tool& tool, const Scratch& dir, const std::string& text,
                       const std::string& name) {
  write_file(dir.file(name), text);
  const std::string command = std::string(tool.compress) + " '" + dir.file(name) + "'";
  if (std::system(command.c_str()) != 0) return "";
  return read_file(dir.file(name) + tool.suffix);
}

// Reads a source to its end in pieces of `piece` bytes (cycling through 1 to
// `piece` when `vary`). False with `error` when a read fails.
bool read_all(kolvprep::Source& source, size_t piece, bool vary, std::string& text,
              std::string& error) {
  std::vector<char> buf(piece);
  size_t want = 1;
  for (;;) {
    size_t got = 0;
    const size_t size = vary ? want : piece;
    want = want % piece + 1;
    if (!source.read(buf.data(), size, got, error)) return false;
    if (got == 0) return true;
    if (got > size) {
      error = "read handed over more than asked";
      return false;
    }
    text.append(buf.data(), got);
  }
}

class CompressedSource : public ::testing::TestWithParam<Tool> {
 protected:
  void SetUp() override {
    const Tool& tool = GetParam();
    if (!kolvprep::can_read(tool.compression)) {
      if (required()) FAIL() << "this build of kolvprep cannot read " << tool.program;
      GTEST_SKIP() << "this build of kolvprep has no " << tool.program
                   << " decoder (its library was not found when it was built)";
    }
    if (!on_path(tool.program)) {
      if (required()) FAIL() << "the program " << tool.program << " is not on the PATH";
      GTEST_SKIP() << "the program " << tool.program
                   << " is not on the PATH, so there is no file of its own to read back";
    }
  }

  // Opens `bytes` written to a file and reads it all; returns the error.
  std::string read_back(const std::string& bytes, std::string& text, size_t piece = 65536,
                        bool vary = false) {
    write_file(dir_.file("in"), bytes);
    std::string error;
    auto source = kolvprep::open_source(dir_.file("in"), error);
    if (source == nullptr) return "open: " + error;
    EXPECT_EQ(source->compression(), GetParam().compression);
    EXPECT_FALSE(source->seekable());
    if (!read_all(*source, piece, vary, text, error)) return error;
    return "";
  }

  Scratch dir_;
};

TEST_P(CompressedSource, ReadsBackTheTextWhole) {
  const std::string text = csv_text(20000, 7);  // several input blocks
  const std::string bytes = compressed(GetParam(), dir_, text, "t.csv");
  ASSERT_FALSE(bytes.empty());
  EXPECT_EQ(kolvprep::sniff_compression(bytes), GetParam().compression);
  std::string back;
  ASSERT_EQ(read_back(bytes, back), "");
  EXPECT_EQ(back.size(), text.size());
  EXPECT_TRUE(back == text);
}

TEST_P(CompressedSource, ReadsBackInTinyPieces) {
  const std::string text = csv_text(3000, 11);
  const std::string bytes = compressed(GetParam(), dir_, text, "t.csv");
  ASSERT_FALSE(bytes.empty());
  std::string one, varied;
  ASSERT_EQ(read_back(bytes, one, 1), "");
  EXPECT_TRUE(one == text);
  ASSERT_EQ(read_back(bytes, varied, 7, true), "");
  EXPECT_TRUE(varied == text);
}

TEST_P(CompressedSource, ReadsAnEmptyText) {
  const std::string bytes = compressed(GetParam(), dir_, "", "empty.csv");
  ASSERT_FALSE(bytes.empty());
  std::string back;
  ASSERT_EQ(read_back(bytes, back), "");
  EXPECT_EQ(back, "");
}

TEST_P(CompressedSource, ReadsMembersOneAfterTheOther) {
  const std::string a = csv_text(500, 3), b = "tail,1\nmore,2\n";
  const std::string bytes =
      compressed(GetParam(), dir_, a, "a.csv") + compressed(GetParam(), dir_, b, "b.csv");
  std::string back;
  ASSERT_EQ(read_back(bytes, back), "");
  EXPECT_TRUE(back == a + b);
  back.clear();
  ASSERT_EQ(read_back(bytes, back, 5, true), "");
  EXPECT_TRUE(back == a + b);
}

TEST_P(CompressedSource, ReadsFromAPipe) {
  // A stream is sniffed from bytes that cannot be read again; they must still
  // reach the decoder first.
  const std::string text = csv_text(4000, 5);
  const std::string bytes = compressed(GetParam(), dir_, text, "p.csv");
  ASSERT_FALSE(bytes.empty());
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  std::thread writer([&] {
    size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t n =
          write(fds[1], bytes.data() + done, std::min<size_t>(1000, bytes.size() - done));
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    close(fds[1]);
  });
  std::string error, back;
  auto source = kolvprep::open_source("/dev/fd/" + std::to_string(fds[0]), error);
  bool ok = source != nullptr && read_all(*source, 4096, false, back, error);
  writer.join();
  source.reset();
  close(fds[0]);
  ASSERT_TRUE(ok) << error;
  EXPECT_TRUE(back == text);
}

// A failure is one line naming the compression.
void expect_one_line(const std::string& error, const Tool& tool, const std::string& what) {
  EXPECT_NE(error.find(std::string("the ") + tool.program + " data"), std::string::npos) << error;
  EXPECT_NE(error.find(what), std::string::npos) << error;
  EXPECT_EQ(error.find('\n'), std::string::npos) << error;
}

TEST_P(CompressedSource, RefusesATruncatedFile) {
  const std::string text = csv_text(3000, 9);
  const std::string bytes = compressed(GetParam(), dir_, text, "t.csv");
  ASSERT_GT(bytes.size(), 64u);
  // Cut inside the header, in the middle of the data, and just before the
  // end (the check that closes the data is missing).
  for (size_t keep : {size_t{6}, bytes.size() / 2, bytes.size() - 1}) {
    std::string back;
    const std::string error = read_back(bytes.substr(0, keep), back);
    expect_one_line(error, GetParam(), "ends early (the file is truncated)");
    EXPECT_LT(back.size(), text.size() + 1) << keep;
  }
}

TEST_P(CompressedSource, RefusesACorruptFile) {
  const std::string text = csv_text(3000, 13);
  std::string bytes = compressed(GetParam(), dir_, text, "t.csv");
  ASSERT_GT(bytes.size(), 64u);
  // Damage a run of bytes in the middle: the decoder or the data's check
  // must notice.
  for (size_t i = bytes.size() / 2; i < bytes.size() / 2 + 16; ++i)
    bytes[i] = static_cast<char>(~bytes[i]);
  std::string back;
  const std::string error = read_back(bytes, back);
  ASSERT_NE(error, "") << "damaged data read back without a failure";
  EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  EXPECT_NE(error.find(std::string("the ") + GetParam().program + " data"), std::string::npos)
      << error;
}

TEST_P(CompressedSource, RefusesBytesAfterTheData) {
  const std::string bytes = compressed(GetParam(), dir_, "a,b\n1,2\n", "t.csv");
  std::string back;
  const std::string error = read_back(bytes + "this is not compressed data\n", back);
  ASSERT_NE(error, "");
  EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  EXPECT_NE(error.find(std::string("the ") + GetParam().program + " data"), std::string::npos)
      << error;
}

INSTANTIATE_TEST_SUITE_P(Tools, CompressedSource, ::testing::ValuesIn(kTools),
                         [](const ::testing::TestParamInfo<Tool>& p) {
                           return std::string(p.param.program);
                         });

TEST(PlainSource, ReadsAPlainFileAsItIsAndAtAnyOffset) {
  Scratch dir;
  const std::string text = csv_text(100, 1);
  write_file(dir.file("p.csv"), text);
  std::string error, back;
  auto source = kolvprep::open_source(dir.file("p.csv"), error);
  ASSERT_NE(source, nullptr) << error;
  EXPECT_EQ(source->compression(), Compression::kNone);
  EXPECT_TRUE(source->seekable());
  EXPECT_EQ(source->size(), text.size());
  ASSERT_TRUE(read_all(*source, 3, true, back, error)) << error;
  EXPECT_TRUE(back == text);
  char at[4];
  size_t got = 0;
  ASSERT_TRUE(source->read_at(3, at, 4, got, error)) << error;
  EXPECT_EQ(std::string(at, got), text.substr(3, 4));
}

TEST(PlainSource, TellsEachCompressionByItsFirstBytes) {
  EXPECT_EQ(kolvprep::sniff_compression("\x1f\x8b\x08"), Compression::kGzip);
  EXPECT_EQ(kolvprep::sniff_compression("\x28\xb5\x2f\xfd"), Compression::kZstd);
  EXPECT_EQ(kolvprep::sniff_compression(std::string("\xfd"
                                                    "7zXZ\0",
                                                    6)),
            Compression::kXz);
  EXPECT_EQ(kolvprep::sniff_compression("BZh9"), Compression::kBzip2);
  EXPECT_EQ(kolvprep::sniff_compression("BZh"), Compression::kNone);
  EXPECT_EQ(kolvprep::sniff_compression("id,name\n"), Compression::kNone);
}

}  // namespace
