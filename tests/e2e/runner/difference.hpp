// Readable descriptions of how an actual output differs from the expected one.
#pragma once

#include <string>
#include <string_view>

namespace kolv::e2e {

// Text with control bytes made visible (\n, \r, \t, \xNN).
std::string visible(std::string_view text);

// Empty when equal; otherwise the first differing line with its neighbours,
// both lengths and, for short outputs, the whole actual text.
std::string describe_text_difference(std::string_view expected, std::string_view actual);

// Empty when equal; otherwise the offset of the first differing byte, both
// sizes and a hexadecimal dump of both around that offset.
std::string describe_byte_difference(std::string_view expected, std::string_view actual);

}  // namespace kolv::e2e
