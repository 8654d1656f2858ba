#include "source.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#ifdef KOLVPREP_HAVE_ZLIB
#include <zlib.h>
#endif
#ifdef KOLVPREP_HAVE_ZSTD
#include <zstd.h>
#endif
#ifdef KOLVPREP_HAVE_LZMA
#include <lzma.h>
#endif
#ifdef KOLVPREP_HAVE_BZIP2
#include <bzlib.h>
#endif

namespace kolvprep {

namespace {

// The reason a read failed, from errno.
std::string read_error() {
  return std::string("cannot read: ") + std::strerror(errno);
}

// Repeats a read until it gives bytes, the end, or an error other than an
// interruption.
ssize_t read_some(int fd, char* data, size_t size) {
  for (;;) {
    const ssize_t n = ::read(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    return n;
  }
}

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
    const ssize_t n = read_some(fd_, data, size);
    if (n < 0) {
      error = read_error();
      return false;
    }
    got = static_cast<size_t>(n);
    return true;
  }

  bool seekable() const override { return regular_; }
  uint64_t size() const override { return size_; }

  bool read_at(uint64_t offset, char* data, size_t size, size_t& got, std::string& error) override {
    got = 0;
    while (got < size) {
      const ssize_t n = ::pread(fd_, data + got, size - got, static_cast<off_t>(offset + got));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        error = read_error();
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

// Decoders hand over at most this much at a time, so that sizes fit the
// libraries' 32-bit counts.
constexpr size_t kStep = size_t{1} << 30;

// The text inside a compressed file, decoded in order. The compressed bytes
// come in blocks of 64 KiB (first any bytes already read to sniff a stream);
// a decoder takes them from `in_` and says when its data ends for good.
class CompressedSource : public Source {
 public:
  CompressedSource(Compression compression, int fd, std::string head)
      : Source(compression), in_(size_t{1} << 16), fd_(fd), head_(std::move(head)) {}
  ~CompressedSource() override {
    if (fd_ > 2) ::close(fd_);
  }

  bool read(char* data, size_t size, size_t& got, std::string& error) override {
    got = 0;
    if (size == 0) return true;
    while (got == 0 && !finished_) {
      if (in_pos_ == in_end_ && !input_done_ && !refill(error)) return false;
      if (between_) {
        // Between members the end of the input is the end of the text;
        // anything else begins the next member.
        if (in_pos_ == in_end_) {
          finished_ = true;
          break;
        }
        if (!next_member(error)) return false;
        between_ = false;
      }
      const size_t before = in_pos_;
      if (!decode(data, size, got, error)) return false;
      // No text, no compressed byte taken and none left to come: the data
      // stops before its own end.
      if (got == 0 && !finished_ && in_pos_ == before && in_pos_ == in_end_ && input_done_) {
        error = truncated();
        return false;
      }
    }
    return true;
  }

 protected:
  // Decodes from in_[in_pos_, in_end_) into `out`, advancing in_pos_;
  // sets finished_ when the data has ended for good.
  virtual bool decode(char* out, size_t size, size_t& produced, std::string& error) = 0;

  // Readies the decoder for another member (or stream) after one that set
  // between_ at its end.
  virtual bool next_member(std::string&) { return true; }

  // Points the library stream `z` at the compressed bytes in hand and at
  // `out`, runs `call` and moves past what it took; `produced` is what it
  // gave. Returns what `call` returns.
  template <typename Stream, typename Call>
  auto step(Stream& z, char* out, size_t size, size_t& produced, Call call) {
    using InCount = decltype(z.avail_in);
    using OutCount = decltype(z.avail_out);
    z.next_in = reinterpret_cast<decltype(z.next_in)>(in_.data() + in_pos_);
    z.avail_in = static_cast<InCount>(std::min(in_end_ - in_pos_, kStep));
    z.next_out = reinterpret_cast<decltype(z.next_out)>(out);
    z.avail_out = static_cast<OutCount>(std::min(size, kStep));
    const InCount in_before = z.avail_in;
    const OutCount out_before = z.avail_out;
    const auto rc = call();
    in_pos_ += in_before - z.avail_in;
    produced = out_before - z.avail_out;
    return rc;
  }

  std::string cannot_start() const {
    return std::string("cannot start the ") + compression_word(compression()) + " decoder";
  }
  std::string out_of_memory() const {
    return std::string("out of memory decoding ") + compression_word(compression());
  }

  std::string truncated() const {
    return std::string("the ") + compression_word(compression()) +
           " data ends early (the file is truncated)";
  }
  std::string corrupt(const std::string& detail) const {
    return std::string("the ") + compression_word(compression()) + " data is corrupt (" + detail +
           ")";
  }

  std::vector<char> in_;
  size_t in_pos_ = 0, in_end_ = 0;
  bool input_done_ = false;  // every compressed byte has been read into in_
  bool finished_ = false;
  bool between_ = false;  // a member has ended and no other has begun

 private:
  bool refill(std::string& error) {
    in_pos_ = 0;
    in_end_ = 0;
    if (head_used_ < head_.size()) {
      in_end_ = std::min(in_.size(), head_.size() - head_used_);
      std::memcpy(in_.data(), head_.data() + head_used_, in_end_);
      head_used_ += in_end_;
      return true;
    }
    const ssize_t n = read_some(fd_, in_.data(), in_.size());
    if (n < 0) {
      error = read_error();
      return false;
    }
    in_end_ = static_cast<size_t>(n);
    input_done_ = n == 0;
    return true;
  }

  int fd_;
  std::string head_;
  size_t head_used_ = 0;
};

#ifdef KOLVPREP_HAVE_ZLIB
// gzip: one or more members, one after the other (as `cat a.gz b.gz` makes),
// each a header, deflate data and a check.
class GzipSource final : public CompressedSource {
 public:
  GzipSource(int fd, std::string head)
      : CompressedSource(Compression::kGzip, fd, std::move(head)) {}
  ~GzipSource() override {
    if (ready_) inflateEnd(&z_);
  }

  bool start(std::string& error) {
    // 16 + MAX_WBITS: a gzip header and trailer around the deflate data.
    if (inflateInit2(&z_, 16 + MAX_WBITS) != Z_OK) {
      error = cannot_start();
      return false;
    }
    ready_ = true;
    return true;
  }

 private:
  bool decode(char* out, size_t size, size_t& produced, std::string& error) override {
    const int rc = step(z_, out, size, produced, [&] { return inflate(&z_, Z_NO_FLUSH); });
    if (rc == Z_STREAM_END) between_ = true;
    if (rc == Z_STREAM_END || rc == Z_OK || rc == Z_BUF_ERROR) return true;
    error = corrupt(z_.msg != nullptr ? z_.msg : "inflate failed");
    return false;
  }

  bool next_member(std::string&) override {
    inflateReset(&z_);
    return true;
  }

  z_stream z_{};
  bool ready_ = false;
};
#endif

#ifdef KOLVPREP_HAVE_ZSTD
// zstd: one or more frames; the library reads frame after frame itself.
class ZstdSource final : public CompressedSource {
 public:
  ZstdSource(int fd, std::string head)
      : CompressedSource(Compression::kZstd, fd, std::move(head)) {}
  ~ZstdSource() override { ZSTD_freeDStream(z_); }

  bool start(std::string& error) {
    z_ = ZSTD_createDStream();
    if (z_ == nullptr || ZSTD_isError(ZSTD_initDStream(z_))) {
      error = cannot_start();
      return false;
    }
    return true;
  }

 private:
  bool decode(char* out, size_t size, size_t& produced, std::string& error) override {
    ZSTD_inBuffer in{in_.data() + in_pos_, in_end_ - in_pos_, 0};
    ZSTD_outBuffer ob{out, size, 0};
    const size_t rc = ZSTD_decompressStream(z_, &ob, &in);
    if (ZSTD_isError(rc)) {
      error = corrupt(ZSTD_getErrorName(rc));
      return false;
    }
    in_pos_ += in.pos;
    produced = ob.pos;
    // 0: a frame is complete and all its text handed over. A call that
    // neither takes nor gives a byte only hints at the next frame's size.
    if (in.pos > 0 || ob.pos > 0) frame_open_ = rc != 0;
    if (produced == 0 && in_pos_ == in_end_ && input_done_ && !frame_open_) finished_ = true;
    return true;
  }

  ZSTD_DStream* z_ = nullptr;
  bool frame_open_ = false;
};
#endif

#ifdef KOLVPREP_HAVE_LZMA
// xz: one or more streams, with any stream padding between them.
class XzSource final : public CompressedSource {
 public:
  XzSource(int fd, std::string head) : CompressedSource(Compression::kXz, fd, std::move(head)) {}
  ~XzSource() override { lzma_end(&z_); }

  bool start(std::string& error) {
    if (lzma_stream_decoder(&z_, UINT64_MAX, LZMA_CONCATENATED) != LZMA_OK) {
      error = cannot_start();
      return false;
    }
    return true;
  }

 private:
  bool decode(char* out, size_t size, size_t& produced, std::string& error) override {
    // With every byte in hand, LZMA_FINISH tells the decoder that no other
    // stream follows.
    const lzma_action action = input_done_ && in_pos_ == in_end_ ? LZMA_FINISH : LZMA_RUN;
    const lzma_ret rc = step(z_, out, size, produced, [&] { return lzma_code(&z_, action); });
    switch (rc) {
      case LZMA_OK:
        return true;
      case LZMA_STREAM_END:
        finished_ = true;
        return true;
      case LZMA_BUF_ERROR:  // no progress: only with every byte read, at a cut
        error = truncated();
        return false;
      case LZMA_MEM_ERROR:
        error = out_of_memory();
        return false;
      case LZMA_FORMAT_ERROR:
        error = corrupt("not an xz stream");
        return false;
      case LZMA_DATA_ERROR:
        error = corrupt("bad compressed data");
        return false;
      case LZMA_OPTIONS_ERROR:
        error = corrupt("unsupported options");
        return false;
      default:
        error = corrupt("decoder error " + std::to_string(static_cast<int>(rc)));
        return false;
    }
  }

  lzma_stream z_ = LZMA_STREAM_INIT;
};
#endif

#ifdef KOLVPREP_HAVE_BZIP2
// bzip2: one or more streams, one after the other (as pbzip2 and
// `cat a.bz2 b.bz2` make).
class Bzip2Source final : public CompressedSource {
 public:
  Bzip2Source(int fd, std::string head)
      : CompressedSource(Compression::kBzip2, fd, std::move(head)) {}
  ~Bzip2Source() override {
    if (ready_) BZ2_bzDecompressEnd(&z_);
  }

  bool start(std::string& error) {
    if (BZ2_bzDecompressInit(&z_, 0, 0) != BZ_OK) {
      error = cannot_start();
      return false;
    }
    ready_ = true;
    return true;
  }

 private:
  bool decode(char* out, size_t size, size_t& produced, std::string& error) override {
    const int rc = step(z_, out, size, produced, [&] { return BZ2_bzDecompress(&z_); });
    if (rc == BZ_STREAM_END) {
      // A stream has ended; another may follow.
      BZ2_bzDecompressEnd(&z_);
      ready_ = false;
      between_ = true;
      return true;
    }
    if (rc == BZ_OK) return true;
    if (rc == BZ_MEM_ERROR) {
      error = out_of_memory();
      return false;
    }
    error = corrupt(rc == BZ_DATA_ERROR_MAGIC ? "not a bzip2 stream" : "bad compressed data");
    return false;
  }

  bool next_member(std::string& error) override { return start(error); }

  bz_stream z_{};
  bool ready_ = false;  // a stream is open in the decoder
};
#endif

// The decoder of `compression` reading `fd`, or nullptr when this build has
// none (its library was not found).
template <typename Decoder>
std::unique_ptr<Source> started(int fd, std::string head, std::string& error) {
  auto source = std::make_unique<Decoder>(fd, std::move(head));
  if (!source->start(error)) return nullptr;
  return source;
}

std::unique_ptr<Source> decoder_for(Compression compression, [[maybe_unused]] int fd,
                                    [[maybe_unused]] std::string head,
                                    [[maybe_unused]] std::string& error, bool& built) {
  built = true;
  switch (compression) {
#ifdef KOLVPREP_HAVE_ZLIB
    case Compression::kGzip:
      return started<GzipSource>(fd, std::move(head), error);
#endif
#ifdef KOLVPREP_HAVE_ZSTD
    case Compression::kZstd:
      return started<ZstdSource>(fd, std::move(head), error);
#endif
#ifdef KOLVPREP_HAVE_LZMA
    case Compression::kXz:
      return started<XzSource>(fd, std::move(head), error);
#endif
#ifdef KOLVPREP_HAVE_BZIP2
    case Compression::kBzip2:
      return started<Bzip2Source>(fd, std::move(head), error);
#endif
    default:
      break;
  }
  built = false;
  return nullptr;
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

bool can_read(Compression compression) {
  switch (compression) {
    case Compression::kNone:
      return true;
    case Compression::kGzip:
#ifdef KOLVPREP_HAVE_ZLIB
      return true;
#else
      return false;
#endif
    case Compression::kZstd:
#ifdef KOLVPREP_HAVE_ZSTD
      return true;
#else
      return false;
#endif
    case Compression::kXz:
#ifdef KOLVPREP_HAVE_LZMA
      return true;
#else
      return false;
#endif
    case Compression::kBzip2:
#ifdef KOLVPREP_HAVE_BZIP2
      return true;
#else
      return false;
#endif
  }
  return false;
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
    // The decoder reads a regular file from its start again (pread left the
    // offset there) and a stream from the sniffed bytes on.
    bool built = false;
    auto source =
        decoder_for(compression, fd, regular ? std::string() : std::move(head), error, built);
    if (built) return source;  // the decoder owns fd, and closes it
    if (fd > 2) ::close(fd);
    error = std::string("the file is compressed with ") + compression_word(compression) +
            ", which this build of kolvprep cannot read";
    return nullptr;
  }
  return std::make_unique<PlainSource>(fd, regular, regular ? static_cast<uint64_t>(st.st_size) : 0,
                                       regular ? std::string() : std::move(head));
}

}  // namespace kolvprep
