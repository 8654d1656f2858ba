#include "support/files.hpp"

#include <sys/stat.h>

#include <cstdio>

namespace kolv_support {

bool read_file(const std::string& path, std::string& bytes) {
  bytes.clear();
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  char chunk[65536];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.append(chunk, n);
  std::fclose(f);
  return true;
}

std::string read_file(const std::string& path) {
  std::string bytes;
  read_file(path, bytes);
  return bytes;
}

bool write_file(const std::string& path, std::string_view bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  bool ok = bytes.empty() || std::fwrite(bytes.data(), bytes.size(), 1, f) == 1;
  if (std::fclose(f) != 0) ok = false;
  return ok;
}

bool file_exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

}  // namespace kolv_support
