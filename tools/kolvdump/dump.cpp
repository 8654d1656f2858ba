#include "dump.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <vector>

#include "format/dataset.hpp"

namespace kolvdump {

namespace {

using kolv::load_le32;

constexpr const char* kUsage = "usage: kolvdump [--csv] [--header-only] FILE\n";

// Column widths of the text layout when the rows cannot be read twice (a
// pipe): the widest text of an element, "-32768", "-1.17549435e-38",
// "-2.2250738585072014e-308", and 8 characters. A seekable file gets columns
// as wide as their widest value instead.
constexpr size_t kInt16Width = 6;
constexpr size_t kFloatWidth = 15;
constexpr size_t kDoubleWidth = 24;
constexpr size_t kTextWidth = 8;

constexpr size_t kReadChunk = 65536;

struct Header {
  uint32_t type_code = 0;
  uint32_t element_size = 0;
  uint32_t complex_flag = 0;
  uint32_t data_offset = 0;
  uint32_t rows = 0;
  uint32_t columns = 0;
};

// One printed column: a variable, or one part of a complex variable.
struct Column {
  std::string label;
  bool text = false;  // a character variable's 8-byte element, shown as text
  size_t width = 0;
};

struct Variable {
  std::string name;
  bool numeric = true;
};

[[gnu::format(printf, 2, 3)]] void say(FILE* err, const char* format, ...) {
  std::fputs("kolvdump: ", err);
  va_list args;
  va_start(args, format);
  std::vfprintf(err, format, args);
  va_end(args);
  std::fputc('\n', err);
}

uint16_t load_le16(const uint8_t* at) {
  return static_cast<uint16_t>(at[0] | at[1] << 8);
}

uint64_t load_le64(const uint8_t* at) {
  return static_cast<uint64_t>(load_le32(at)) | static_cast<uint64_t>(load_le32(at + 4)) << 32;
}

const char* element_description(uint32_t size) {
  switch (size) {
    case 2:
      return "2-byte integer";
    case 4:
      return "4-byte float";
    default:
      return "8-byte double";
  }
}

bool element_type_known(uint32_t code, uint32_t size) {
  return (code == kolv::kTypeInt16 && size == 2) || (code == kolv::kTypeFloat && size == 4) ||
         (code == kolv::kTypeDouble && size == 8);
}

// The data offset that `columns` variables give, without 32-bit wrap-around.
uint64_t expected_offset(uint32_t columns) {
  uint64_t n = columns;
  return kolv::kHeaderSize + 33 * n + (n % 8 == 0 ? 0 : 8 - n % 8);
}

// Reads up to `count` bytes, growing `to` a chunk at a time so that a header
// claiming a huge block costs no more memory than the file holds.
size_t read_into(FILE* in, std::vector<uint8_t>& to, uint64_t count) {
  to.clear();
  while (to.size() < count) {
    size_t want = static_cast<size_t>(std::min<uint64_t>(kReadChunk, count - to.size()));
    size_t old = to.size();
    to.resize(old + want);
    size_t got = std::fread(to.data() + old, 1, want, in);
    to.resize(old + got);
    if (got < want) break;
  }
  return to.size();
}

// Checks the 128 bytes read (`got` of them present); prints the reason and
// returns false when they are not the header of a finished data set.
bool check_header(const uint8_t* h, size_t got, const std::string& name, FILE* err,
                  Header& header) {
  // Signature words 1 to 5: 0xFFFFFFFF, 0, 0xFFFFFFFF, 0, 0xFFFFFFFF.
  // clang-format off
  static constexpr uint8_t kSignature[20] = {0xFF, 0xFF, 0xFF, 0xFF,  0, 0, 0, 0,
                                             0xFF, 0xFF, 0xFF, 0xFF,  0, 0, 0, 0,
                                             0xFF, 0xFF, 0xFF, 0xFF};
  // clang-format on
  bool signed_ok = got >= sizeof kSignature && std::memcmp(h, kSignature, sizeof kSignature) == 0;
  if (!signed_ok) {
    if (got >= 8 && load_le32(h + 4) == kolv::kV92Mark) {
      say(err, "%s is a version-92 data set, not version 96", name.c_str());
    } else if (got < static_cast<size_t>(kolv::kHeaderSize)) {
      say(err, "%s is too short for a data set header (%zu bytes)", name.c_str(), got);
    } else {
      say(err, "%s is not a finished data set", name.c_str());
    }
    return false;
  }
  if (got < static_cast<size_t>(kolv::kHeaderSize)) {
    say(err, "%s is too short for a data set header (%zu bytes)", name.c_str(), got);
    return false;
  }
  uint32_t check = load_le32(h + kolv::kCheckWordAt);
  if (load_le32(h + kolv::kOrderFlagAt) != 0) {
    uint32_t swapped =
        (check >> 24) | ((check >> 8) & 0xFF00u) | ((check << 8) & 0xFF0000u) | (check << 24);
    if (swapped == kolv::kCheckWord) {
      say(err, "%s was written in the other byte order", name.c_str());
      return false;
    }
  }
  if (load_le32(h + kolv::kOrderFlagAt) != 0 || check != kolv::kCheckWord) {
    say(err, "%s has an unrecognised byte-order mark", name.c_str());
    return false;
  }
  header.type_code = load_le32(h + kolv::kTypeCodeAt);
  header.element_size = load_le32(h + kolv::kElementSizeAt);
  header.complex_flag = load_le32(h + kolv::kComplexAt);
  header.data_offset = load_le32(h + kolv::kDataOffsetAt);
  header.rows = load_le32(h + kolv::kRowsAt);
  header.columns = load_le32(h + kolv::kColumnsAt);
  if (!element_type_known(header.type_code, header.element_size)) {
    say(err, "%s has an unknown element type (code %u, size %u)", name.c_str(), header.type_code,
        header.element_size);
    return false;
  }
  if (header.complex_flag > 1) {
    say(err, "%s has an unknown complex flag (%u)", name.c_str(), header.complex_flag);
    return false;
  }
  uint64_t offset = expected_offset(header.columns);
  if (header.data_offset != offset) {
    say(err, "%s gives data offset %u, but %u columns put the data at %llu", name.c_str(),
        header.data_offset, header.columns, static_cast<unsigned long long>(offset));
    return false;
  }
  return true;
}

// Reads the variable block that follows the header; prints the reason and
// returns false when it is cut short or holds an unknown type byte.
bool read_variables(FILE* in, const Header& header, const std::string& name, FILE* err,
                    std::vector<Variable>& variables) {
  uint64_t n = header.columns;
  uint64_t block = header.data_offset - static_cast<uint64_t>(kolv::kHeaderSize);
  std::vector<uint8_t> bytes;
  if (read_into(in, bytes, block) < block) {
    if (std::ferror(in)) {
      say(err, "cannot read %s: %s", name.c_str(), std::strerror(errno));
    } else {
      say(err, "%s is too short for its block of %u variables", name.c_str(), header.columns);
    }
    return false;
  }
  variables.resize(static_cast<size_t>(n));
  for (size_t i = 0; i < n; ++i) {
    uint8_t type = bytes[static_cast<size_t>(32 * n) + i];
    if (type > 1) {
      say(err, "%s gives type byte %u to variable %zu", name.c_str(), static_cast<unsigned>(type),
          i + 1);
      return false;
    }
    variables[i].name = escape_text(bytes.data() + 32 * i, 32);
    variables[i].numeric = type == 1;
  }
  return true;
}

std::vector<Column> make_columns(const Header& header, const std::vector<Variable>& variables) {
  size_t value_width = header.element_size == 2   ? kInt16Width
                       : header.element_size == 4 ? kFloatWidth
                                                  : kDoubleWidth;
  std::vector<Column> columns;
  for (const Variable& v : variables) {
    bool text = !v.numeric && header.element_size == 8;
    size_t width = text ? kTextWidth : value_width;
    if (header.complex_flag == 1) {
      for (const char* part : {".re", ".im"}) {
        std::string label = v.name + part;
        columns.push_back({label, text, std::max(width, label.size())});
      }
    } else {
      columns.push_back({v.name, text, std::max(width, v.name.size())});
    }
  }
  return columns;
}

// Narrows each column to its label and its widest value, reading the rows
// once and returning to the first row. Returns the number of whole rows, or
// nothing changes when the file cannot be repositioned.
uint64_t size_to_contents(FILE* in, const Header& header, std::vector<Column>& columns) {
  size_t row_bytes = columns.size() * header.element_size;
  if (row_bytes == 0 || std::fseek(in, 0, SEEK_CUR) != 0) return 0;
  for (Column& col : columns) col.width = col.label.size();
  std::vector<uint8_t> row(row_bytes);
  uint64_t rows = 0;
  while (std::fread(row.data(), 1, row_bytes, in) == row_bytes) {
    ++rows;
    for (size_t c = 0; c < columns.size(); ++c) {
      size_t length =
          format_element(row.data() + c * header.element_size, header.element_size, columns[c].text)
              .size();
      columns[c].width = std::max(columns[c].width, length);
    }
  }
  std::clearerr(in);
  std::fseek(in, static_cast<long>(header.data_offset), SEEK_SET);
  return rows;
}

std::string csv_field(const std::string& s) {
  if (s.find_first_of(",\"") == std::string::npos) return s;
  std::string quoted = "\"";
  for (char c : s) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

void put_cell(std::string& line, const std::string& s, size_t width, bool left) {
  size_t fill = s.size() < width ? width - s.size() : 0;
  if (!left) line.append(fill, ' ');
  line += s;
  if (left) line.append(fill, ' ');
}

void put_line(std::string& line, FILE* out) {
  size_t end = line.find_last_not_of(' ');
  line.erase(end == std::string::npos ? 0 : end + 1);
  line += '\n';
  std::fputs(line.c_str(), out);
}

size_t digits(uint64_t v) {
  size_t d = 1;
  while (v >= 10) {
    v /= 10;
    ++d;
  }
  return d;
}

void print_header(const Header& header, const std::string& name, FILE* out) {
  std::fprintf(out, "%-15s%s\n", "data set:", name.c_str());
  std::fprintf(out, "%-15s%u\n", "version:", kolv::kFileVersion);
  std::fprintf(out, "%-15s%u (%s)\n", "element type:", header.type_code,
               element_description(header.element_size));
  std::fprintf(out, "%-15s%u\n", "element size:", header.element_size);
  std::fprintf(
      out, "%-15s%u (%s)\n", "complex:", header.complex_flag,
      header.complex_flag == 1 ? "yes, a real and an imaginary element per variable" : "no");
  std::fprintf(out, "%-15s%u\n", "rows:", header.rows);
  std::fprintf(out, "%-15s%u\n", "columns:", header.columns);
  std::fprintf(out, "%-15s%u\n", "data offset:", header.data_offset);
}

void print_variables(const std::vector<Variable>& variables, FILE* out) {
  std::fputs("\nvariables:\n", out);
  if (variables.empty()) std::fputs("  none\n", out);
  size_t index_width = digits(variables.size());
  size_t name_width = 0;
  for (const Variable& v : variables) name_width = std::max(name_width, v.name.size());
  for (size_t i = 0; i < variables.size(); ++i) {
    std::string line = "  ";
    put_cell(line, std::to_string(i + 1), index_width, false);
    line += "  ";
    put_cell(line, variables[i].name, name_width, true);
    line += "  ";
    line += variables[i].numeric ? "numeric" : "character";
    put_line(line, out);
  }
}

void print_labels(const std::vector<Column>& columns, size_t row_width, bool csv, FILE* out) {
  std::string line;
  if (csv) {
    for (size_t c = 0; c < columns.size(); ++c) {
      if (c > 0) line += ',';
      line += csv_field(columns[c].label);
    }
    line += '\n';
    std::fputs(line.c_str(), out);
    return;
  }
  std::fputs("\ndata:\n", out);
  line = "  ";
  put_cell(line, "row", row_width, false);
  for (const Column& col : columns) {
    line += "  ";
    put_cell(line, col.label, col.width, col.text);
  }
  put_line(line, out);
}

void print_row(const uint8_t* row, uint64_t number, uint32_t size,
               const std::vector<Column>& columns, size_t row_width, bool csv, FILE* out) {
  std::string line;
  if (!csv) {
    line = "  ";
    put_cell(line, std::to_string(number), row_width, false);
  }
  for (size_t c = 0; c < columns.size(); ++c) {
    std::string value = format_element(row + c * size, size, columns[c].text);
    if (csv) {
      if (c > 0) line += ',';
      line += csv_field(value);
    } else {
      line += "  ";
      put_cell(line, value, columns[c].width, columns[c].text);
    }
  }
  if (csv) {
    line += '\n';
    std::fputs(line.c_str(), out);
  } else {
    put_line(line, out);
  }
}

}  // namespace

bool double_is_missing(uint64_t bits) {
  return ((bits >> 48) & 0x7FFFu) > 0x7FF0u;
}

bool float_is_missing(uint32_t bits) {
  return bits == 0x7FFFFFF8u;
}

bool int16_is_missing(uint16_t bits) {
  return bits == 0x8000u;
}

std::string escape_text(const uint8_t* bytes, size_t max) {
  std::string text;
  for (size_t i = 0; i < max && bytes[i] != 0; ++i) {
    uint8_t b = bytes[i];
    if (b >= 0x20 && b < 0x7F && b != '\\') {
      text += static_cast<char>(b);
    } else {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned>(b));
      text += hex;
    }
  }
  return text;
}

std::string format_element(const uint8_t* element, uint32_t size, bool character) {
  char buffer[64];
  switch (size) {
    case 2: {
      uint16_t bits = load_le16(element);
      if (int16_is_missing(bits)) return ".";
      std::snprintf(buffer, sizeof buffer, "%d", static_cast<int>(static_cast<int16_t>(bits)));
      return buffer;
    }
    case 4: {
      uint32_t bits = load_le32(element);
      if (float_is_missing(bits)) return ".";
      float value;
      std::memcpy(&value, &bits, sizeof value);
      std::snprintf(buffer, sizeof buffer, "%.9g", static_cast<double>(value));
      return buffer;
    }
    default: {
      uint64_t bits = load_le64(element);
      if (double_is_missing(bits)) return ".";
      if (character) return escape_text(element, 8);
      double value;
      std::memcpy(&value, &bits, sizeof value);
      std::snprintf(buffer, sizeof buffer, "%.17g", value);
      return buffer;
    }
  }
}

int dump(FILE* in, const std::string& name, const Options& options, FILE* out, FILE* err) {
  uint8_t h[kolv::kHeaderSize] = {};
  size_t got = std::fread(h, 1, sizeof h, in);
  if (got < sizeof h && std::ferror(in)) {
    say(err, "cannot read %s: %s", name.c_str(), std::strerror(errno));
    return kExitNotDataSet;
  }
  Header header;
  if (!check_header(h, got, name, err, header)) return kExitNotDataSet;
  std::vector<Variable> variables;
  if (!read_variables(in, header, name, err, variables)) return kExitNotDataSet;

  std::vector<Column> columns = make_columns(header, variables);
  uint64_t measured = 0;
  if (!options.csv && !options.header_only) measured = size_to_contents(in, header, columns);
  size_t row_width = std::max<size_t>(3, digits(std::max<uint64_t>(header.rows, measured)));
  if (!options.csv) {
    print_header(header, name, out);
    print_variables(variables, out);
  }
  if (!options.header_only || options.csv) print_labels(columns, row_width, options.csv, out);

  // Rows: counted to the end of the file whether printed or not.
  size_t row_bytes = columns.size() * header.element_size;
  uint64_t held = 0;
  size_t trailing = 0;
  if (row_bytes == 0) {
    held = header.rows;  // rows without columns take no bytes
    std::vector<uint8_t> rest(kReadChunk);
    size_t n;
    while ((n = std::fread(rest.data(), 1, rest.size(), in)) > 0) trailing += n;
  } else {
    std::vector<uint8_t> row(row_bytes);
    size_t n;
    while ((n = std::fread(row.data(), 1, row_bytes, in)) == row_bytes) {
      ++held;
      if (!options.header_only) {
        print_row(row.data(), held, header.element_size, columns, row_width, options.csv, out);
      }
    }
    trailing = n;
  }
  if (std::ferror(in)) {
    say(err, "cannot read %s: %s", name.c_str(), std::strerror(errno));
    return kExitNotDataSet;
  }
  std::fflush(out);

  int status = kExitOk;
  if (held != header.rows) {
    say(err, "header claims %u rows but the file holds %llu", header.rows,
        static_cast<unsigned long long>(held));
    status = kExitRowMismatch;
  }
  if (trailing != 0) {
    say(err, "%s ends with %zu bytes that do not make a whole row", name.c_str(), trailing);
    status = kExitRowMismatch;
  }
  return status;
}

int run(int argc, const char* const* argv, FILE* out, FILE* err) {
  Options options;
  const char* path = nullptr;
  bool options_done = false;
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    if (!options_done && arg[0] == '-' && arg[1] != '\0') {
      if (std::strcmp(arg, "--csv") == 0) {
        options.csv = true;
      } else if (std::strcmp(arg, "--header-only") == 0) {
        options.header_only = true;
      } else if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0) {
        std::fputs(kUsage, out);
        return kExitOk;
      } else if (std::strcmp(arg, "--") == 0) {
        options_done = true;
      } else {
        say(err, "unknown option %s", arg);
        std::fputs(kUsage, err);
        return kExitNotDataSet;
      }
    } else if (path == nullptr) {
      path = arg;
    } else {
      std::fputs(kUsage, err);
      return kExitNotDataSet;
    }
  }
  if (path == nullptr) {
    std::fputs(kUsage, err);
    return kExitNotDataSet;
  }

  FILE* in = std::fopen(path, "rb");
  if (in == nullptr) {
    say(err, "cannot open %s: %s", path, std::strerror(errno));
    return kExitNotDataSet;
  }
  int status = dump(in, path, options, out, err);
  std::fclose(in);
  return status;
}

}  // namespace kolvdump
