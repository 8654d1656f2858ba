// The bytes of an export as kolvprep reads them: a plain file, or the text
// inside a gzip, zstd, xz or bzip2 file, told apart by its first bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kolvprep {

enum class Compression { kNone, kGzip, kZstd, kXz, kBzip2 };

// "gzip", "zstd", "xz", "bzip2"; "none" for a plain file.
const char* compression_word(Compression compression);

// The compression whose magic bytes begin `head` (kNone when none does).
Compression sniff_compression(std::string_view head);

class Source {
 public:
  virtual ~Source() = default;

  // Reads up to `size` bytes of the text in order into `data`; `got` is 0 at
  // its end. Returns false with a one-line reason in `error` when reading or
  // decompressing fails.
  virtual bool read(char* data, size_t size, size_t& got, std::string& error) = 0;

  // A plain regular file can also be read at any offset, so that a sample can
  // be spread through it; the text of a compressed file can only be read in
  // order.
  virtual bool seekable() const { return false; }
  virtual uint64_t size() const { return 0; }
  virtual bool read_at(uint64_t offset, char* data, size_t size, size_t& got, std::string& error);

  Compression compression() const { return compression_; }

 protected:
  explicit Source(Compression compression) : compression_(compression) {}

 private:
  Compression compression_;
};

// Whether this build reads `compression` (its library was found when it was
// built); a plain file always reads.
bool can_read(Compression compression);

// Opens `path` ("-" is standard input) and looks at its first bytes. Returns
// nullptr with a one-line reason in `error` when it cannot be opened, or when
// it is compressed in a way this build cannot read.
std::unique_ptr<Source> open_source(const std::string& path, std::string& error);

}  // namespace kolvprep
