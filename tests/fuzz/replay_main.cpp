// The fuzz targets as ordinary programs: every file named on the command line,
// and every file of every directory named there (in name order), is handed to
// LLVMFuzzerTestOneInput once. A broken check aborts the program, so the test
// that runs it fails and names the input being replayed. So does an input
// that runs longer than KOLV_FUZZ_REPLAY_SECONDS (default 20): a hang is a
// failure too.
#include <dirent.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

// What the alarm prints: formatted before each input, written by the handler.
char g_too_slow[PATH_MAX + 128];

void on_alarm(int) {
  const ssize_t ignored = write(2, g_too_slow, std::strlen(g_too_slow));
  (void)ignored;
  _exit(3);
}

bool read_whole(const std::string& path, std::string& bytes) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  bytes.clear();
  char chunk[65536];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.append(chunk, n);
  const bool ok = std::ferror(f) == 0;
  std::fclose(f);
  return ok;
}

bool is_directory(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

void collect(const std::string& path, std::vector<std::string>& files) {
  if (!is_directory(path)) {
    files.push_back(path);
    return;
  }
  DIR* d = opendir(path.c_str());
  if (d == nullptr) return;
  std::vector<std::string> names;
  while (dirent* e = readdir(d)) {
    const std::string name = e->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  closedir(d);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) collect(path + "/" + name, files);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) collect(argv[i], files);
  if (files.empty()) {
    std::fprintf(stderr, "%s: no inputs to replay\n", argv[0]);
    return 1;
  }
  const char* limit_text = std::getenv("KOLV_FUZZ_REPLAY_SECONDS");
  const unsigned limit = limit_text != nullptr ? static_cast<unsigned>(std::atoi(limit_text)) : 20;
  signal(SIGALRM, on_alarm);
  std::string bytes;
  for (const std::string& file : files) {
    if (!read_whole(file, bytes)) {
      std::fprintf(stderr, "%s: cannot read %s\n", argv[0], file.c_str());
      return 1;
    }
    std::fprintf(stderr, "replay %s (%zu bytes)\n", file.c_str(), bytes.size());
    std::snprintf(g_too_slow, sizeof g_too_slow, "%s: %s ran longer than %u s\n", argv[0],
                  file.c_str(), limit);
    alarm(limit);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    alarm(0);
  }
  std::fprintf(stderr, "%zu inputs replayed\n", files.size());
  return 0;
}
