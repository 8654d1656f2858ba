// Baseline: the bare parsing limit. Streams the input through a 128 KiB
// buffer with read(2), converts every number with std::from_chars and writes
// the doubles from a 128 KiB block with write(2). It checks nothing else: any
// run of blanks, tabs, carriage returns, line ends and commas separates two
// numbers.
//
//   fromchars_loop INPUT OUTPUT
#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace {

constexpr size_t kBuffer = 128 * 1024;
constexpr size_t kBlockDoubles = 128 * 1024 / sizeof(double);

char in_buffer[kBuffer];
double block[kBlockDoubles];

bool separator(char c) {
  return c == ' ' || c == '\n' || c == ',' || c == '\t' || c == '\r';
}

bool write_all(int fd, const void* data, size_t n) {
  const char* p = static_cast<const char*>(data);
  while (n > 0) {
    const ssize_t w = ::write(fd, p, n);
    if (w <= 0) return false;
    p += w;
    n -= static_cast<size_t>(w);
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: fromchars_loop INPUT OUTPUT\n");
    return 2;
  }
  const int in = ::open(argv[1], O_RDONLY);
  const int out = ::open(argv[2], O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (in < 0 || out < 0) {
    std::perror("fromchars_loop");
    return 1;
  }
  size_t have = 0;   // bytes in in_buffer
  size_t count = 0;  // doubles in block
  bool more = true;
  for (;;) {
    if (more) {
      const ssize_t got = ::read(in, in_buffer + have, kBuffer - have);
      if (got < 0) {
        std::perror("fromchars_loop");
        return 1;
      }
      if (got == 0) more = false;
      have += static_cast<size_t>(got);
    }
    const char* p = in_buffer;
    // While more input follows, numbers are parsed only up to the last
    // separator of the buffer: the bytes after it may be a number cut short.
    const char* end = in_buffer + have;
    if (more)
      while (end > in_buffer && !separator(end[-1])) --end;
    for (;;) {
      while (p < end && separator(*p)) ++p;
      if (p == end) break;
      double v;
      const auto r = std::from_chars(p, end, v);
      if (r.ec != std::errc()) {
        std::fprintf(stderr, "fromchars_loop: bad number\n");
        return 1;
      }
      block[count++] = v;
      if (count == kBlockDoubles) {
        if (!write_all(out, block, sizeof block)) return 1;
        count = 0;
      }
      p = r.ptr;
    }
    p = end;
    const size_t tail = static_cast<size_t>(in_buffer + have - p);
    std::memmove(in_buffer, p, tail);
    have = tail;
    if (!more) break;
  }
  if (!write_all(out, block, count * sizeof(double)) || ::close(out) != 0) {
    std::perror("fromchars_loop");
    return 1;
  }
  ::close(in);
  return 0;
}
