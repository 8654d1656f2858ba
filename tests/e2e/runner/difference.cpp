#include "difference.hpp"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace kolv::e2e {
namespace {

std::vector<std::string_view> split_lines(std::string_view text) {
  std::vector<std::string_view> lines;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) end = text.size() - 1;
    lines.push_back(text.substr(pos, end - pos + 1));  // the line end stays visible
    pos = end + 1;
  }
  return lines;
}

size_t first_difference(std::string_view a, std::string_view b) {
  size_t n = std::min(a.size(), b.size());
  size_t i = 0;
  while (i < n && a[i] == b[i]) ++i;
  return i;
}

std::string hex_row(std::string_view data, size_t row_start, size_t mark) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%08zx ", row_start);
  std::string row = buf;
  for (size_t i = row_start; i < row_start + 16; ++i) {
    if (i < data.size()) {
      std::snprintf(buf, sizeof buf, "%c%02x", i == mark ? '>' : ' ',
                    static_cast<unsigned char>(data[i]));
      row += buf;
    } else {
      row += "   ";
    }
  }
  row += "  |";
  for (size_t i = row_start; i < row_start + 16 && i < data.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(data[i]);
    row += (c >= 32 && c < 127) ? static_cast<char>(c) : '.';
  }
  return row + "|";
}

}  // namespace

std::string visible(std::string_view text) {
  std::string out;
  for (char ch : text) {
    unsigned char c = static_cast<unsigned char>(ch);
    switch (c) {
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\\':
        out += "\\\\";
        break;
      default:
        if (c >= 32 && c < 127) {
          out += static_cast<char>(c);
        } else {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\x%02x", c);
          out += buf;
        }
    }
  }
  return out;
}

std::string describe_text_difference(std::string_view expected, std::string_view actual) {
  if (expected == actual) return {};
  const size_t at = first_difference(expected, actual);
  const size_t line_index =
      static_cast<size_t>(std::count(expected.begin(), expected.begin() + at, '\n'));
  std::vector<std::string_view> want = split_lines(expected);
  std::vector<std::string_view> got = split_lines(actual);

  std::string out = "first difference at line " + std::to_string(line_index + 1) +
                    ", byte offset " + std::to_string(at) + " (expected " +
                    std::to_string(expected.size()) + " bytes, actual " +
                    std::to_string(actual.size()) + ")\n";
  for (size_t i = line_index >= 2 ? line_index - 2 : 0; i < line_index; ++i)
    out += "    same " + std::to_string(i + 1) + ": " + visible(want[i]) + "\n";
  out += "  expected " + std::to_string(line_index + 1) + ": " +
         (line_index < want.size() ? visible(want[line_index]) : "<end of text>") + "\n";
  out += "  actual   " + std::to_string(line_index + 1) + ": " +
         (line_index < got.size() ? visible(got[line_index]) : "<end of text>") + "\n";
  if (got.size() <= 60) {
    out += "whole actual text:\n";
    for (size_t i = 0; i < got.size(); ++i)
      out += "  " + std::to_string(i + 1) + "| " + visible(got[i]) + "\n";
  }
  return out;
}

std::string describe_byte_difference(std::string_view expected, std::string_view actual) {
  if (expected == actual) return {};
  const size_t at = first_difference(expected, actual);
  std::string out = "first differing byte at offset " + std::to_string(at);
  char buf[32];
  std::snprintf(buf, sizeof buf, " (0x%zx)", at);
  out += buf;
  out += "; expected " + std::to_string(expected.size()) + " bytes, actual " +
         std::to_string(actual.size()) + "\n";
  const size_t row = at / 16 * 16;
  const size_t first = row >= 32 ? row - 32 : 0;
  for (size_t r = first; r <= row + 32; r += 16) {
    if (r >= expected.size() && r >= actual.size()) break;
    out += "  expected " + hex_row(expected, r, at) + "\n";
    out += "  actual   " + hex_row(actual, r, at) + "\n";
  }
  return out;
}

}  // namespace kolv::e2e
