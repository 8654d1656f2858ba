#include "engine/threads.hpp"

#include <sched.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>

namespace kolv {

namespace {

constexpr int kMostThreads = 256;

// A whole number from 1 to limit, or 0 when the text is anything else.
long whole_number(const char* text, long limit) {
  if (text == nullptr || *text == '\0') return 0;
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text, &end, 10);
  if (errno != 0 || *end != '\0' || value < 1) return 0;
  return value < limit ? value : limit;
}

// The cores that cpu.max allows ("max" or "quota period"), rounded up; 0
// when the file is missing or sets no limit.
int cgroup_cores(const std::string& dir) {
  std::ifstream in("/sys/fs/cgroup" + dir + "/cpu.max");
  std::string quota;
  long long period = 0;
  if (!(in >> quota >> period) || quota == "max" || period <= 0) return 0;
  const long long q = std::atoll(quota.c_str());
  if (q <= 0) return 0;
  return static_cast<int>((q + period - 1) / period);
}

// The tightest cpu.max limit from this process's control group up to the
// root (the unified hierarchy's "0::" line of /proc/self/cgroup).
int cgroup_limit() {
  std::ifstream in("/proc/self/cgroup");
  std::string line;
  std::string dir;
  while (std::getline(in, line)) {
    if (line.rfind("0::", 0) == 0) dir = line.substr(3);
  }
  int limit = 0;
  while (!dir.empty()) {
    const int cores = cgroup_cores(dir);
    if (cores > 0 && (limit == 0 || cores < limit)) limit = cores;
    const size_t slash = dir.find_last_of('/');
    if (slash == std::string::npos || dir == "/") break;
    dir = slash == 0 ? "/" : dir.substr(0, slash);
  }
  return limit;
}

}  // namespace

int usable_cores() {
  int cores = 1;
  cpu_set_t set;
  CPU_ZERO(&set);
  if (::sched_getaffinity(0, sizeof set, &set) == 0) cores = CPU_COUNT(&set);
  const int limit = cgroup_limit();
  if (limit > 0 && limit < cores) cores = limit;
  if (cores < 1) cores = 1;
  return cores < kMostThreads ? cores : kMostThreads;
}

int conversion_threads() {
  const long chosen = whole_number(std::getenv("KOLV_THREADS"), kMostThreads);
  return chosen > 0 ? static_cast<int>(chosen) : usable_cores();
}

size_t chunk_bytes_override() {
  return static_cast<size_t>(whole_number(std::getenv("KOLV_CHUNK_BYTES"), long{1} << 30));
}

}  // namespace kolv
