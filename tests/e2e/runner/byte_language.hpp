// The byte language of expected files named *.bytes: one directive per line,
// each producing a run of little-endian bytes (see tests/e2e/README.md).
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kolv::e2e {

using Bytes = std::vector<std::uint8_t>;

// A directive that cannot be read. The message starts with "line N: ".
class ByteLanguageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Assembles the whole text into bytes, or throws ByteLanguageError.
Bytes assemble_bytes(std::string_view text);

}  // namespace kolv::e2e
