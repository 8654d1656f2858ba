#include "source.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace kolvprep {

namespace {

// A file read as it is. Regular files are read positionally too; a pipe or a
// terminal only in order.
class PlainSource final : public Source {
 public:
  PlainSource(int fd, bool regular, uint64_t size, std::string head)
      : Source(Compression::kNone),
        fd_(fd),
        regular_(regular),
        size_(size),
        head_(std::move(head)) {}
  ~PlainSource() override {
    if (fd_ > 2) ::close(fd_);
  }

  bool read(char* data, size_t size, size_t& got, std::string& error) override {
    got = 0;
    if (head_used_ < head_.size()) {  // the bytes looked at first come first
      got = std::min(size, head_.size() - head_used_);
      std::memcpy(data, head_.data() + head_used_, got);
      head_used_ += got;
      return true;
    }
    for (;;) {
      const ssize_t n = ::read(fd_, data, size);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        error = std::string("cannot read: ") + std::strerror(errno);
        return false;
      }
      got = static_cast<size_t>(n);
      return true;
    }
  }

  bool seekable() const override { return regular_; }
  uint64_t size() const override { return size_; }

  bool read_at(uint64_t offset, char* data, size_t size, size_t& got, std::string& error) override {
    got = 0;
    while (got < size) {
      const ssize_t n = ::pread(fd_, data + got, size - got, static_cast<off_t>(offset + got));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        error = std::string("cannot read: ") + std::strerror(errno);
        return false;
      }
      if (n == 0) break;
      got += static_cast<size_t>(n);
    }
    return true;
  }

 private:
  int fd_;
  bool regular_;
  uint64_t size_;
  std::string head_;  // bytes read to sniff a stream that cannot be reread
  size_t head_used_ = 0;
};

// Reads up to `size` bytes at the stream's start, repeating short reads.
std::string read_head(int fd, size_t size) {
  std::string head(size, '\0');
  size_t got = 0;
  while (got < size) {
    const ssize_t n = ::read(fd, head.data() + got, size - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  head.resize(got);
  return head;
}

}  // namespace

const char* compression_word(Compression compression) {
  switch (compression) {
    case Compression::kGzip:
      return "gzip";
    case Compression::kZstd:
      return "zstd";
    case Compression::kXz:
      return "xz";
    case Compression::kBzip2:
      return "bzip2";
    case Compression::kNone:
      break;
  }
  return "none";
}

Compression sniff_compression(std::string_view head) {
  const auto starts = [&](std::string_view magic) { return head.substr(0, magic.size()) == magic; };
  if (starts("\x1f\x8b")) return Compression::kGzip;
  if (starts("\x28\xb5\x2f\xfd")) return Compression::kZstd;
  if (starts(std::string_view("\xfd"
                              "7zXZ\0",
                              6)))
    return Compression::kXz;
  if (starts("BZh") && head.size() >= 4 && head[3] >= '1' && head[3] <= '9')
    return Compression::kBzip2;
  return Compression::kNone;
}

bool Source::read_at(uint64_t, char*, size_t, size_t& got, std::string& error) {
  got = 0;
  error = "cannot read at an offset in a stream";
  return false;
}

std::unique_ptr<Source> open_source(const std::string& path, std::string& error) {
  const int fd = path == "-" ? 0 : ::open(path.c_str(), O_RDONLY);
  if (fd < 0) {
    error = std::string("cannot open: ") + std::strerror(errno);
    return nullptr;
  }
  struct stat st {};
  const bool regular = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
  // A regular file is sniffed positionally and read from its start again;
  // a stream keeps the sniffed bytes to hand out first.
  std::string head;
  if (regular) {
    head.resize(8);
    const ssize_t n = ::pread(fd, head.data(), head.size(), 0);
    head.resize(n > 0 ? static_cast<size_t>(n) : 0);
  } else {
    head = read_head(fd, 8);
  }
  const Compression compression = sniff_compression(head);
  if (compression != Compression::kNone) {
    if (fd > 2) ::close(fd);
    error = std::string("the file is compressed with ") + compression_word(compression) +
            ", which this build of kolvprep cannot read";
    return nullptr;
  }
  return std::make_unique<PlainSource>(fd, regular, regular ? static_cast<uint64_t>(st.st_size) : 0,
                                       regular ? std::string() : std::move(head));
}

}  // namespace kolvprep
