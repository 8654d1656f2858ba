// Baseline: the I/O floor. Reads the input in 128 KiB reads and writes as
// many bytes as a conversion's output (zeros) in 128 KiB writes, the writes
// keeping pace with the reads, and does nothing else: no conversion can take
// less than this on the same files.
//
//   io_floor INPUT OUTPUT BYTES
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kBlock = 128 * 1024;

char in_buffer[kBlock];
char zeros[kBlock];

bool write_zeros(int fd, unsigned long long n) {
  while (n > 0) {
    const size_t chunk = n < kBlock ? static_cast<size_t>(n) : kBlock;
    const ssize_t w = ::write(fd, zeros, chunk);
    if (w <= 0) return false;
    n -= static_cast<unsigned long long>(w);
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: io_floor INPUT OUTPUT BYTES\n");
    return 2;
  }
  const unsigned long long total = std::strtoull(argv[3], nullptr, 10);
  const int in = ::open(argv[1], O_RDONLY);
  const int out = ::open(argv[2], O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (in < 0 || out < 0) {
    std::perror("io_floor");
    return 1;
  }
  const off_t size = ::lseek(in, 0, SEEK_END);
  ::lseek(in, 0, SEEK_SET);
  unsigned long long read_so_far = 0;
  unsigned long long written = 0;
  for (;;) {
    const ssize_t n = ::read(in, in_buffer, kBlock);
    if (n < 0) {
      std::perror("io_floor: read");
      return 1;
    }
    if (n == 0) break;
    read_so_far += static_cast<unsigned long long>(n);
    // The output written so far in proportion to the input read so far.
    const unsigned long long due =
        size > 0 ? static_cast<unsigned long long>(static_cast<long double>(total) * read_so_far /
                                                   static_cast<long double>(size))
                 : total;
    if (due > written && due - written >= kBlock) {
      const unsigned long long whole = (due - written) / kBlock * kBlock;
      if (!write_zeros(out, whole)) return 1;
      written += whole;
    }
  }
  if (!write_zeros(out, total - written)) return 1;
  return ::close(out) == 0 && ::close(in) == 0 ? 0 : 1;
}
