#include "support/scratch.hpp"

#include <dirent.h>
#include <ftw.h>
#include <limits.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kolv_support {

namespace {

void make_writable(const std::string& dir) {
  ::chmod(dir.c_str(), 0777);
  DIR* d = ::opendir(dir.c_str());
  if (d == nullptr) return;
  while (dirent* e = ::readdir(d)) {
    if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
    const std::string path = dir + "/" + e->d_name;
    struct stat st;
    if (::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) make_writable(path);
  }
  ::closedir(d);
}

int remove_entry(const char* path, const struct stat*, int, struct FTW*) {
  return std::remove(path);
}

}  // namespace

ScratchDir::ScratchDir(const std::string& prefix, const std::string& under) {
  const char* tmpdir = std::getenv("TMPDIR");
  const std::string base = !under.empty()                         ? under
                           : tmpdir != nullptr && *tmpdir != '\0' ? tmpdir
                                                                  : "/tmp";
  const std::string pattern = base + "/" + prefix + "_XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  if (::mkdtemp(name.data()) == nullptr) {
    std::fprintf(stderr, "cannot make a scratch directory from %s\n", pattern.c_str());
    std::abort();
  }
  char resolved[PATH_MAX];
  path_ = ::realpath(name.data(), resolved) != nullptr ? resolved : name.data();
}

ScratchDir::~ScratchDir() {
  remove_tree(path_);
}

std::vector<std::string> ScratchDir::entries() const {
  std::vector<std::string> names;
  DIR* d = ::opendir(path_.c_str());
  if (d == nullptr) return names;
  while (dirent* e = ::readdir(d)) {
    if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
      names.emplace_back(e->d_name);
  }
  ::closedir(d);
  std::sort(names.begin(), names.end());
  return names;
}

void remove_tree(const std::string& path) {
  if (path.empty()) return;
  make_writable(path);
  ::nftw(path.c_str(), remove_entry, 16, FTW_DEPTH | FTW_PHYS);
}

}  // namespace kolv_support
