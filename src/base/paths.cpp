#include "base/paths.hpp"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/state.hpp"

namespace kolv {

namespace {

// The directory handed to getcwd by the path routines may be this long,
// terminator included; a longer current directory counts as unknown.
constexpr int kCwdLimit = 1029;
// The longest intermediate result pathparseex builds before cutting it to a
// path buffer.
constexpr size_t kWorkChars = 1033;

// A bounded string under construction: appends past kWorkChars are cut.
struct WorkPath {
  char s[kWorkChars + 1] = {};
  size_t n = 0;

  void set(const char* src) { n = g_strlcpy(s, src, sizeof s); }

  void append(const char* src, size_t len) {
    size_t room = kWorkChars - n;
    if (len > room) len = room;
    std::memcpy(s + n, src, len);
    n += len;
    s[n] = '\0';
  }

  // A ".." component: drop a trailing '/', then cut at the last '/', if any.
  void up() {
    if (n > 0 && s[n - 1] == '/') s[--n] = '\0';
    for (size_t i = n; i > 0; --i) {
      if (s[i - 1] == '/') {
        n = i - 1;
        s[n] = '\0';
        return;
      }
    }
  }
};

}  // namespace

char* veldatempnam(const char* directory, const char* prefix) {
  if (prefix == nullptr) prefix = "";
  char name[kPathSize];
  if (directory != nullptr && *directory != '\0') {
    char dir[kPathSize];
    size_t n = g_strlcpy(dir, directory, sizeof dir);
    fixpath(dir);
    // "./" becomes "." while a lone "/" stays the root.
    while (n > 1 && dir[n - 1] == '/') dir[--n] = '\0';
    if (std::snprintf(name, sizeof name, "%s/%sXXXXXX", dir, prefix) < 0) name[0] = '\0';
    fixpath(name);
  } else {
    if (std::snprintf(name, sizeof name, "%sXXXXXX", prefix) < 0) name[0] = '\0';
  }
  // The empty file reserves the name until the caller opens it for writing.
  // A failure is left for that open to find. Descriptor 0 is taken as none.
  int fd = mkstemp(name);
  if (fd > 0) close(fd);
  return copy_string(name);
}

namespace {

// Where the walk of path's components starts: the home directory for "~",
// the root for an absolute path, otherwise base (or the current directory).
// Fills result with that start and returns the components to walk.
const char* walk_start(char* path, const char* base, WorkPath& result) {
  const char* home = nullptr;
  if (path[0] == '~') home = std::getenv("HOME");
  if (home != nullptr) {
    result.set(home);
    if (result.n > 0 && result.s[result.n - 1] == '/') result.s[--result.n] = '\0';
    return path + 1;
  }
  if (path[0] == '/') return path;  // absolute: the walk starts from the root
  // Without HOME, "~" means the current directory.
  if (path[0] == '~') path[0] = '.';
  const char* dir = base;
  char cwd[kCwdLimit];
  if (dir == nullptr) dir = getcwdir(cwd, kCwdLimit);
  // A one-character directory is the root, which the components supply.
  if (dir != nullptr && std::strlen(dir) != 1) result.set(dir);
  return path;
}

// Adds each component of walk to result: "." stays, ".." goes up.
void walk_components(const char* walk, WorkPath& result) {
  for (const char* p = walk; *p != '\0';) {
    if (*p == '/') {
      ++p;
      continue;
    }
    const char* end = std::strchr(p, '/');
    if (end == nullptr) end = p + std::strlen(p);
    size_t clen = static_cast<size_t>(end - p);
    if (clen == 2 && p[0] == '.' && p[1] == '.') {
      result.up();
    } else if (!(clen == 1 && p[0] == '.')) {
      result.append("/", 1);
      result.append(p, clen);
    }
    p = end;
  }
}

// Copies the walked path back, with the trailing "/" it had; nothing walked
// is the root.
void store_walked(char* path, const WorkPath& result, bool trailing_slash) {
  size_t out = g_strlcpy(path, result.s, kPathSize);
  if (trailing_slash) {
    if (out + 1 < static_cast<size_t>(kPathSize)) {
      path[out] = '/';
      path[out + 1] = '\0';
    }
  } else if (out == 0) {
    std::strcpy(path, "/");
  }
}

}  // namespace

int pathparseex(char* path, const char* base) {
  // A buffer handed in without a terminator is cut at its last byte.
  size_t len = strnlen(path, kPathSize);
  if (len == static_cast<size_t>(kPathSize)) path[--len] = '\0';

  if (len == 0) {
    // No name: the current directory, or, with a base, nothing at all.
    if (base == nullptr) {
      char cwd[kCwdLimit];
      if (getcwdir(cwd, kCwdLimit) != nullptr) g_strlcpy(path, cwd, kPathSize);
    }
    return 0;
  }

  fixpath(path);
  if (std::strpbrk(path, invalid_chars) != nullptr || std::strstr(path, double_sep) != nullptr) {
    return 1;
  }

  WorkPath result;
  const char* walk = walk_start(path, base, result);
  const size_t walk_len = std::strlen(walk);
  const bool trailing_slash = walk_len > 0 && walk[walk_len - 1] == '/';
  walk_components(walk, result);
  store_walked(path, result, trailing_slash);
  return 0;
}

int pathparse(char* path) {
  return pathparseex(path, nullptr);
}

char* getcwdir(char* buf, int size) {
  if (buf == nullptr || size <= 0) return nullptr;
  return getcwd(buf, static_cast<size_t>(size));
}

size_t g_strlcpy(char* dst, const char* src, size_t size) {
  if (size == 0) return 0;
  size_t n = strnlen(src, size - 1);
  std::memcpy(dst, src, n);
  dst[n] = '\0';
  return n;
}

void fixpath(char* s) {
  if (s == nullptr) return;
  for (; *s != '\0'; ++s) {
    if (*s == '\\') *s = '/';
  }
}

char* pathfix(char* s) {
  fixpath(s);
  return s;
}

namespace {

// A zero-filled block of `block` bytes holding at most block - 1 characters
// of s.
char* copy_into_block(const char* s, size_t block) {
  if (s == nullptr || block == 0) return nullptr;
  char* copy = static_cast<char*>(std::calloc(block, 1));
  if (copy != nullptr) g_strlcpy(copy, s, block);
  return copy;
}

size_t round_up8(size_t n) {
  return (n + 7) / 8 * 8;
}

}  // namespace

char* copy_string(const char* s) {
  if (s == nullptr) return nullptr;
  size_t size = std::strlen(s) + 1;
  char* copy = static_cast<char*>(std::malloc(size));
  if (copy != nullptr) std::memcpy(copy, s, size);
  return copy;
}

char* copy_string_ex(const char* s, size_t size) {
  return copy_into_block(s, size);
}

char* copy_string_for_symbol(const char* s) {
  if (s == nullptr) return nullptr;
  return copy_into_block(s, round_up8(std::strlen(s) + 1));
}

char* copy_string_for_symbol_ex(const char* s, size_t size) {
  return copy_into_block(s, round_up8(size));
}

int hasext(const char* name) {
  if (name == nullptr) return 0;
  const char* dot = std::strrchr(name, '.');
  return dot != nullptr && std::strchr(dot, '/') == nullptr ? 1 : 0;
}

char* dropext(char* name) {
  if (name == nullptr) return nullptr;
  char* dot = std::strrchr(name, '.');
  if (dot == nullptr || std::strchr(dot, '/') != nullptr) return name;
  *dot = '\0';
  return nullptr;
}

void upper(char* s) {
  if (s == nullptr) return;
  for (; *s != '\0'; ++s) *s = static_cast<char>(std::toupper(static_cast<unsigned char>(*s)));
}

void lower(char* s) {
  if (s == nullptr) return;
  for (; *s != '\0'; ++s) *s = static_cast<char>(std::tolower(static_cast<unsigned char>(*s)));
}

}  // namespace kolv
