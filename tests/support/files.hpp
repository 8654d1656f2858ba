// Whole files in and out, for every test program.
#pragma once

#include <string>
#include <string_view>

namespace kolv_support {

// The file's bytes; "" when it cannot be read.
std::string read_file(const std::string& path);

// The file's bytes into `bytes`; false when it cannot be opened.
bool read_file(const std::string& path, std::string& bytes);

// Writes the bytes as the whole file; false when that fails.
bool write_file(const std::string& path, std::string_view bytes);

// Whether anything (a file, a directory, a dangling link) has the name.
bool file_exists(const std::string& path);

}  // namespace kolv_support
