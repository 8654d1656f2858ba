#include "support.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "kolvdump/cli.hpp"

namespace realdata {

std::string data_dir() {
  char resolved[PATH_MAX];
  if (realpath(KOLV_REALDATA_DIR, resolved) == nullptr) return "";
  struct stat st;
  if (stat(resolved, &st) != 0 || !S_ISDIR(st.st_mode)) return "";
  return resolved;
}

// ------------------------------------------------------------- running kolv

KolvRun run_kolv(const ScratchDir& dir, const std::string& name, const std::string& command,
                 bool quiet) {
  KolvRun result;
  write_file(dir.file(name), command);
  // Captured output lives in a directory of its own: the scratch directory
  // must hold only what kolv itself leaves behind.
  const ScratchDir capture("kolv_realdata");
  const std::string out_name = capture.file("stdout");
  const std::string err_name = capture.file("stderr");
  const int out_fd = open(out_name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int err_fd = open(err_name.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (out_fd < 0 || err_fd < 0) {
    ADD_FAILURE() << "cannot make capture files in " << capture.path();
    if (out_fd >= 0) close(out_fd);
    if (err_fd >= 0) close(err_fd);
    return result;
  }
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    if (chdir(dir.path().c_str()) != 0) _exit(126);
    dup2(out_fd, 1);
    dup2(err_fd, 2);
    if (quiet)
      execl(KOLV_REALDATA_KOLV, "kolv", name.c_str(), "-noc", static_cast<char*>(nullptr));
    else
      execl(KOLV_REALDATA_KOLV, "kolv", name.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status))
    result.status = WEXITSTATUS(status);
  close(out_fd);
  close(err_fd);
  result.out = read_file(out_name);
  result.err = read_file(err_name);
  return result;
}

// ----------------------------------------------------------------- elements

uint64_t number_slot(double x) {
  uint64_t bits;
  std::memcpy(&bits, &x, 8);
  return bits;
}

uint64_t text_slot(const std::string& text) {
  unsigned char bytes[8] = {};
  std::memcpy(bytes, text.data(), std::min<size_t>(text.size(), 8));
  uint64_t bits;
  std::memcpy(&bits, bytes, 8);
  return bits;
}

namespace {

bool slot_is_missing(uint64_t bits) {
  return ((bits >> 48) & 0x7FFF) > 0x7FF0;
}

template <typename T>
std::string bytes_of(T value) {
  std::string s(sizeof(T), '\0');
  std::memcpy(s.data(), &value, sizeof(T));
  return s;
}

}  // namespace

std::string element(uint64_t slot, int size) {
  double x;
  std::memcpy(&x, &slot, 8);
  switch (size) {
    case 8:
      return bytes_of(slot);
    case 4:
      if (slot_is_missing(slot)) return bytes_of(uint32_t{0x7FFFFFF8});
      return bytes_of(static_cast<float>(x));
    case 2: {
      if (slot_is_missing(slot)) return bytes_of(uint16_t{0x8000});
      const double y = std::floor(x + 0.5);
      uint32_t word = 0x80000000u;
      if (y >= -2147483648.0 && y <= 2147483647.0)
        word = static_cast<uint32_t>(static_cast<int32_t>(y));
      return bytes_of(static_cast<uint16_t>(word & 0xFFFF));
    }
    default:
      ADD_FAILURE() << "no element of " << size << " bytes";
      return "";
  }
}

// ---------------------------------------------------------------- data sets

namespace {

std::string hex_of(const std::string& bytes) {
  std::string s;
  char b[4];
  for (char ch : bytes) {
    const unsigned char c = static_cast<unsigned char>(ch);
    std::snprintf(b, sizeof b, "%02x ", c);
    s += b;
  }
  if (!s.empty()) s.pop_back();
  return s;
}

}  // namespace

void expect_data_set(const std::string& path, const ExpectedSet& e) {
  const DataSet ds = read_data_set(path);
  ASSERT_EQ(ds.problem, "") << path;
  const uint32_t code = e.element_size == 2 ? 12 : e.element_size == 4 ? 1004 : 1008;
  EXPECT_EQ(ds.element_code, code);
  EXPECT_EQ(ds.element_size, static_cast<uint32_t>(e.element_size));
  EXPECT_EQ(ds.complex_flag, e.complex ? 1u : 0u);
  EXPECT_EQ(ds.rows, e.rows);
  EXPECT_EQ(ds.columns, e.names.size());
  EXPECT_EQ(ds.names, e.names);
  EXPECT_EQ(ds.types, e.types);

  const size_t row_bytes =
      static_cast<size_t>(e.element_size) * (e.complex ? 2 : 1) * e.names.size();
  ASSERT_GT(row_bytes, 0u);
  ASSERT_EQ(e.data.size(), row_bytes * e.rows_written) << "the expectation itself is malformed";
  EXPECT_EQ(ds.data.size(), e.data.size())
      << "the file holds " << ds.data.size() / row_bytes << " rows and "
      << ds.data.size() % row_bytes << " stray bytes; expected " << e.rows_written << " rows";

  // Element by element: name the first few that differ.
  const size_t size = static_cast<size_t>(e.element_size);
  const size_t per_row = row_bytes / size;
  const size_t common = std::min(ds.data.size(), e.data.size()) / size;
  int reported = 0;
  size_t differing = 0;
  for (size_t i = 0; i < common; ++i) {
    if (std::memcmp(ds.data.data() + i * size, e.data.data() + i * size, size) == 0) continue;
    ++differing;
    if (reported < 8) {
      ++reported;
      const size_t col = i % per_row / (e.complex ? 2 : 1);
      ADD_FAILURE() << path << ": row " << i / per_row + 1 << ", column " << col + 1 << " ("
                    << (col < e.names.size() ? e.names[col] : "?")
                    << (e.complex ? (i % 2 ? ", imaginary" : ", real") : "") << "): element "
                    << hex_of(ds.data.substr(i * size, size)) << ", expected "
                    << hex_of(e.data.substr(i * size, size));
    }
  }
  EXPECT_EQ(differing, 0u) << "elements that differ, of " << common;
}

int kolvdump_status(const std::string& path) {
  FILE* in = std::fopen(path.c_str(), "rb");
  if (in == nullptr) return 2;
  FILE* sink = std::fopen("/dev/null", "w");
  const int status = kolvdump::dump(in, path, kolvdump::Options{}, sink, sink);
  std::fclose(sink);
  std::fclose(in);
  return status;
}

}  // namespace realdata
