#include "byte_language.hpp"

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <optional>

namespace kolv::e2e {
namespace {

struct Token {
  std::string text;  // decoded contents for a quoted token
  bool quoted = false;
};

struct Line {
  int number = 0;
  std::string directive;
  std::vector<Token> args;
};

[[noreturn]] void fail(int line, const std::string& message) {
  throw ByteLanguageError("line " + std::to_string(line) + ": " + message);
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Reads a quoted string starting at text[pos] == '"'; leaves pos after the
// closing quote. Escapes: \\ \" \n \r \t \0 \xHH.
std::string read_quoted(std::string_view text, size_t& pos, int line) {
  std::string out;
  ++pos;
  while (pos < text.size() && text[pos] != '"') {
    char c = text[pos++];
    if (c != '\\') {
      out += c;
      continue;
    }
    if (pos >= text.size()) fail(line, "backslash at the end of a quoted string");
    char e = text[pos++];
    switch (e) {
      case '\\':
        out += '\\';
        break;
      case '"':
        out += '"';
        break;
      case 'n':
        out += '\n';
        break;
      case 'r':
        out += '\r';
        break;
      case 't':
        out += '\t';
        break;
      case '0':
        out += '\0';
        break;
      case 'x': {
        int hi = pos < text.size() ? hex_digit(text[pos]) : -1;
        int lo = pos + 1 < text.size() ? hex_digit(text[pos + 1]) : -1;
        if (hi < 0 || lo < 0) fail(line, "\\x needs two hexadecimal digits");
        out += static_cast<char>(hi * 16 + lo);
        pos += 2;
        break;
      }
      default:
        fail(line, std::string("unknown escape \\") + e);
    }
  }
  if (pos >= text.size()) fail(line, "quoted string not closed");
  ++pos;
  return out;
}

// Splits one line into tokens, dropping a '#' comment outside quotes.
std::vector<Token> tokenize(std::string_view text, int line) {
  std::vector<Token> tokens;
  size_t pos = 0;
  while (pos < text.size()) {
    char c = text[pos];
    if (c == '#') break;
    if (std::isspace(static_cast<unsigned char>(c))) {
      ++pos;
      continue;
    }
    if (c == '"') {
      Token token{read_quoted(text, pos, line), true};
      if (pos < text.size() && !std::isspace(static_cast<unsigned char>(text[pos])) &&
          text[pos] != '#')
        fail(line, "text run straight after a closing quote");
      tokens.push_back(std::move(token));
      continue;
    }
    size_t start = pos;
    while (pos < text.size() && !std::isspace(static_cast<unsigned char>(text[pos])) &&
           text[pos] != '#' && text[pos] != '"')
      ++pos;
    tokens.push_back(Token{std::string(text.substr(start, pos - start)), false});
  }
  return tokens;
}

std::vector<Line> split_lines(std::string_view text) {
  std::vector<Line> lines;
  int number = 0;
  size_t pos = 0;
  while (pos <= text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) end = text.size();
    ++number;
    std::vector<Token> tokens = tokenize(text.substr(pos, end - pos), number);
    if (!tokens.empty()) {
      if (tokens[0].quoted) fail(number, "a line must begin with a directive");
      Line line{number, tokens[0].text, {}};
      line.args.assign(tokens.begin() + 1, tokens.end());
      lines.push_back(std::move(line));
    }
    if (end == text.size()) break;
    pos = end + 1;
  }
  return lines;
}

const std::string& plain(const Line& line, const Token& token) {
  if (token.quoted) fail(line.number, line.directive + " takes no quoted text");
  return token.text;
}

// Unsigned number: decimal digits, or 0x followed by hexadecimal digits.
std::optional<std::uint64_t> parse_unsigned(std::string_view s) {
  int base = 10;
  if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    base = 16;
    s.remove_prefix(2);
  }
  if (s.empty()) return std::nullopt;
  std::uint64_t value = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value, base);
  if (ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  return value;
}

std::uint64_t unsigned_arg(const Line& line, const Token& token, std::uint64_t max) {
  auto value = parse_unsigned(plain(line, token));
  if (!value) fail(line.number, "not an unsigned number: " + token.text);
  if (*value > max) fail(line.number, "out of range for " + line.directive + ": " + token.text);
  return *value;
}

// Signed decimal with optional sign, or 0x-hex giving the raw bits of the width.
std::uint64_t signed_arg(const Line& line, const Token& token, int bits) {
  const std::string& s = plain(line, token);
  const std::uint64_t mask = bits == 64 ? ~0ULL : (1ULL << bits) - 1;
  if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X'))
    return unsigned_arg(line, token, mask);
  std::string_view digits = s;
  bool negative = false;
  if (!digits.empty() && (digits[0] == '-' || digits[0] == '+')) {
    negative = digits[0] == '-';
    digits.remove_prefix(1);
  }
  auto magnitude = parse_unsigned(digits);
  if (!magnitude ||
      (digits.size() > 1 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')))
    fail(line.number, "not a signed number: " + s);
  const std::uint64_t limit = 1ULL << (bits - 1);  // |min|; max is limit - 1
  if (*magnitude > (negative ? limit : limit - 1))
    fail(line.number, "out of range for " + line.directive + ": " + s);
  std::uint64_t value = negative ? (~*magnitude + 1) : *magnitude;
  return value & mask;
}

double float_arg(const Line& line, const Token& token) {
  const std::string& s = plain(line, token);
  std::string lower;
  for (char c : s) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (lower.find("nan") != std::string::npos)
    fail(line.number, "write NaNs as f32bits / f64bits: " + s);
  char* end = nullptr;
  double value = std::strtod(s.c_str(), &end);
  if (s.empty() || end != s.c_str() + s.size()) fail(line.number, "not a number: " + s);
  return value;
}

void put_le(Bytes& out, std::uint64_t value, int width) {
  for (int i = 0; i < width; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void need_args(const Line& line, size_t min_count, size_t max_count) {
  if (line.args.size() < min_count || line.args.size() > max_count) {
    std::string want = min_count == max_count ? std::to_string(min_count)
                       : max_count == std::numeric_limits<size_t>::max()
                           ? "at least " + std::to_string(min_count)
                           : std::to_string(min_count) + " to " + std::to_string(max_count);
    fail(line.number, line.directive + " takes " + want + " argument(s), not " +
                          std::to_string(line.args.size()));
  }
}

constexpr size_t kMany = std::numeric_limits<size_t>::max();

void padded_text(Bytes& out, const Line& line, size_t width) {
  need_args(line, 1, 1);
  const Token& token = line.args[0];
  if (!token.quoted) fail(line.number, line.directive + " needs a quoted text");
  if (token.text.size() > width)
    fail(line.number, line.directive + " text longer than " + std::to_string(width) + " bytes");
  out.insert(out.end(), token.text.begin(), token.text.end());
  out.insert(out.end(), width - token.text.size(), 0);
}

// The 128-byte version-96 header of a finished data set.
void header(Bytes& out, const Line& line) {
  need_args(line, 4, 4);
  std::map<std::string, std::uint64_t> fields;
  for (const Token& token : line.args) {
    const std::string& s = plain(line, token);
    size_t eq = s.find('=');
    if (eq == std::string::npos) fail(line.number, "header argument is not key=value: " + s);
    std::string key = s.substr(0, eq);
    if (key != "otyp" && key != "complex" && key != "rows" && key != "cols")
      fail(line.number, "unknown header key: " + key);
    if (fields.count(key)) fail(line.number, "header key given twice: " + key);
    Token value{s.substr(eq + 1), false};
    fields[key] = unsigned_arg(line, value, 0xFFFFFFFFULL);
  }
  for (const char* key : {"otyp", "complex", "rows", "cols"})
    if (!fields.count(key)) fail(line.number, std::string("header needs ") + key + "=");
  std::uint64_t otyp = fields["otyp"];
  std::uint64_t type_code = otyp == 2 ? 12 : otyp == 4 ? 1004 : otyp == 8 ? 1008 : 0;
  if (type_code == 0) fail(line.number, "header otyp must be 2, 4 or 8");
  if (fields["complex"] > 1) fail(line.number, "header complex must be 0 or 1");
  std::uint64_t cols = fields["cols"];
  std::uint64_t offset = 128 + 33 * cols + (cols % 8 ? 8 - cols % 8 : 0);
  if (offset > 0xFFFFFFFFULL) fail(line.number, "header cols too large");
  const std::uint32_t words[22] = {0xFFFFFFFF,
                                   0,
                                   0xFFFFFFFF,
                                   0,
                                   0xFFFFFFFF,
                                   0,
                                   0,
                                   0xABCDEF02,
                                   1,
                                   0,
                                   1,
                                   static_cast<std::uint32_t>(type_code),
                                   static_cast<std::uint32_t>(otyp),
                                   static_cast<std::uint32_t>(fields["complex"]),
                                   1,
                                   2,
                                   1,
                                   0,
                                   static_cast<std::uint32_t>(offset),
                                   0,
                                   static_cast<std::uint32_t>(fields["rows"]),
                                   static_cast<std::uint32_t>(cols)};
  for (std::uint32_t word : words) put_le(out, word, 4);
  out.insert(out.end(), 40, 0);
}

void assemble_range(const std::vector<Line>& lines, size_t begin, size_t end, Bytes& out);

// Returns the index of the "end" that closes the "repeat" at lines[open].
size_t matching_end(const std::vector<Line>& lines, size_t open, size_t limit) {
  int depth = 0;
  for (size_t i = open; i < limit; ++i) {
    if (lines[i].directive == "repeat") ++depth;
    if (lines[i].directive == "end" && --depth == 0) return i;
  }
  fail(lines[open].number, "repeat without end");
}

void assemble_line(const Line& line, Bytes& out) {
  const std::string& d = line.directive;
  if (d == "hex") {
    need_args(line, 1, kMany);
    for (const Token& token : line.args) {
      const std::string& s = plain(line, token);
      if (s.empty() || s.size() > 2 || hex_digit(s[0]) < 0 ||
          (s.size() == 2 && hex_digit(s[1]) < 0))
        fail(line.number, "hex takes bytes of one or two hexadecimal digits, not " + s);
      out.push_back(static_cast<std::uint8_t>(std::stoul(s, nullptr, 16)));
    }
  } else if (d == "u8" || d == "u16" || d == "u32") {
    need_args(line, 1, kMany);
    int width = d == "u8" ? 1 : d == "u16" ? 2 : 4;
    std::uint64_t max = width == 4 ? 0xFFFFFFFFULL : (1ULL << (8 * width)) - 1;
    for (const Token& token : line.args) put_le(out, unsigned_arg(line, token, max), width);
  } else if (d == "i16" || d == "i32") {
    need_args(line, 1, kMany);
    int width = d == "i16" ? 2 : 4;
    for (const Token& token : line.args) put_le(out, signed_arg(line, token, 8 * width), width);
  } else if (d == "f32") {
    need_args(line, 1, kMany);
    for (const Token& token : line.args) {
      float value = static_cast<float>(float_arg(line, token));
      std::uint32_t bits;
      std::memcpy(&bits, &value, 4);
      put_le(out, bits, 4);
    }
  } else if (d == "f64") {
    need_args(line, 1, kMany);
    for (const Token& token : line.args) {
      double value = float_arg(line, token);
      std::uint64_t bits;
      std::memcpy(&bits, &value, 8);
      put_le(out, bits, 8);
    }
  } else if (d == "f32bits") {
    need_args(line, 1, kMany);
    for (const Token& token : line.args) put_le(out, unsigned_arg(line, token, 0xFFFFFFFFULL), 4);
  } else if (d == "f64bits") {
    need_args(line, 1, kMany);
    for (const Token& token : line.args) put_le(out, unsigned_arg(line, token, ~0ULL), 8);
  } else if (d == "miss16") {
    need_args(line, 0, 0);
    put_le(out, 0x8000, 2);
  } else if (d == "miss32") {
    need_args(line, 0, 0);
    put_le(out, 0x7FFFFFF8, 4);
  } else if (d == "miss64") {
    need_args(line, 0, 0);
    put_le(out, 0x7FFFFFFF00000000ULL, 8);
  } else if (d == "text8") {
    padded_text(out, line, 8);
  } else if (d == "name") {
    padded_text(out, line, 32);
  } else if (d == "zeros") {
    need_args(line, 1, 1);
    out.insert(out.end(), unsigned_arg(line, line.args[0], 1ULL << 32), 0);
  } else if (d == "header") {
    header(out, line);
  } else if (d == "types") {
    for (const Token& token : line.args) put_le(out, unsigned_arg(line, token, 255), 1);
    size_t n = line.args.size();
    if (n % 8) out.insert(out.end(), 8 - n % 8, 0);
  } else if (d == "end") {
    fail(line.number, "end without repeat");
  } else {
    fail(line.number, "unknown directive: " + d);
  }
}

void assemble_range(const std::vector<Line>& lines, size_t begin, size_t end, Bytes& out) {
  for (size_t i = begin; i < end; ++i) {
    const Line& line = lines[i];
    if (line.directive != "repeat") {
      assemble_line(line, out);
      continue;
    }
    need_args(line, 1, 1);
    std::uint64_t count = unsigned_arg(line, line.args[0], 1ULL << 32);
    size_t close = matching_end(lines, i, end);
    if (!lines[close].args.empty()) fail(lines[close].number, "end takes no arguments");
    Bytes body;
    assemble_range(lines, i + 1, close, body);
    for (std::uint64_t k = 0; k < count; ++k) out.insert(out.end(), body.begin(), body.end());
    i = close;
  }
}

}  // namespace

Bytes assemble_bytes(std::string_view text) {
  std::vector<Line> lines = split_lines(text);
  Bytes out;
  assemble_range(lines, 0, lines.size(), out);
  return out;
}

}  // namespace kolv::e2e
