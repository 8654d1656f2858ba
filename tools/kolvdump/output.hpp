// A large output buffer over a stream: text is gathered in one block and
// written with one fwrite when the block is full, so that a million rows take
// a few hundred writes. A failed write is remembered (with its errno) and
// every later write is dropped, so a closed pipe ends the output at once.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

namespace kolvdump {

class Output {
 public:
  static constexpr size_t kBlock = 1 << 20;

  explicit Output(FILE* stream, size_t block = kBlock) : stream_(stream), buffer_(block) {}
  ~Output() { flush(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // Room for `n` more bytes at the returned pointer; commit(end) keeps what
  // was written there. `n` may exceed the block.
  char* reserve(size_t n) {
    if (buffer_.size() - used_ < n) {
      flush();
      if (buffer_.size() < n) buffer_.resize(n);
    }
    return buffer_.data() + used_;
  }
  void commit(const char* end) { used_ = static_cast<size_t>(end - buffer_.data()); }

  void put(std::string_view s) {
    char* at = reserve(s.size());
    std::memcpy(at, s.data(), s.size());
    used_ += s.size();
  }
  void put(char c) { *reserve(1) = c, ++used_; }

  // Writes what is gathered; false once any write has failed.
  bool flush();

  bool failed() const { return error_ != 0; }
  int error() const { return error_; }

 private:
  FILE* stream_;
  std::vector<char> buffer_;
  size_t used_ = 0;
  int error_ = 0;
};

}  // namespace kolvdump
