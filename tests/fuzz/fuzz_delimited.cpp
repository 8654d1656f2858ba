// Fuzz target: delimited input. The first bytes choose a valid command file
// (layout, delimiter, N option, element width, COMPLEX, CHECK, MSYM, the
// variables and their types, an OUTVAR selection, and a run of filler that
// moves the fuzzed bytes onto the buffer's refill boundary); the rest is the
// input file. A valid command file must always give a completed run, so
// beyond the common checks every run must end with status 0 and a data set
// whose header, variable block and size agree with the command file.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_common.hpp"

namespace {

using kolv_fuzz::broken;
using kolv_fuzz::get32;

constexpr size_t kChoiceBytes = 8;
constexpr size_t kReadSize = 131072;

enum Layout { kSoft, kHardStream, kNewline, kLinePerRow };

struct Choice {
  Layout layout = kSoft;
  char delimiter = ',';
  bool ndels = false;
  int otyp = 0;  // 0: no OUTTYP statement
  bool complex = false;
  bool nocheck = false;
  char msym = 0;  // 0: no MSYM statement
  int varin = 1;
  std::vector<bool> numeric;
  std::vector<int> selected;  // empty: no OUTVAR
  int filler = 0;             // 0 none, 1 blanks, 2 whole rows, 3 repeat the input
  size_t filler_gap = 0;      // fuzzed bytes start this far before the refill boundary
};

Choice choose(const uint8_t* c) {
  Choice ch;
  ch.layout = static_cast<Layout>(c[0] & 3);
  // Not ';', which would end the statement.
  static const char kDelimiters[] = {',', '!', '|', ':', '#', '\\', 'x', '.'};
  ch.delimiter = kDelimiters[c[0] >> 2 & 7];
  ch.ndels = (c[0] & 0x20) != 0;
  ch.otyp = (c[1] & 3) == 0 ? 0 : 1 << (c[1] & 3);
  ch.complex = (c[1] & 4) != 0;
  ch.nocheck = (c[1] & 8) != 0;
  static const char kSymbols[] = {0, '.', '-', 'x', '&', '9', '*', 0};
  ch.msym = kSymbols[c[1] >> 4 & 7];
  ch.varin = c[2] % 8 + 1;
  for (int i = 0; i < ch.varin; ++i) ch.numeric.push_back((c[3] >> i & 1) == 0);
  // OUTVAR: none, or up to four picks of input variables (repeats allowed).
  if ((c[4] & 0x80) != 0) {
    int picks = (c[4] & 3) + 1;
    for (int k = 0; k < picks; ++k) ch.selected.push_back((c[4] >> (2 + k) & 0x1F) % ch.varin);
  }
  // Filler costs time: three runs in eight.
  ch.filler = (c[5] & 7) < 5 ? 0 : (c[5] & 7) - 4;
  ch.filler_gap = static_cast<size_t>(c[6]) | static_cast<size_t>(c[7] & 1) << 8;
  return ch;
}

// A variable's name in the command file, and as the run stores it: numeric
// names in upper case, character names in lower case.
std::string variable_name(int i) {
  std::string name(1, 'V');
  return name += std::to_string(i + 1);
}
std::string stored_name(const Choice& ch, int i) {
  std::string name(1, ch.numeric[static_cast<size_t>(i)] ? 'V' : 'v');
  return name += std::to_string(i + 1);
}

std::string command_file(const kolv_fuzz::Sandbox& box, const Choice& ch) {
  std::string cmd = kolv_fuzz::files_head(box);
  if (ch.otyp != 0) cmd += "OUTTYP " + std::to_string(ch.otyp) + ";\n";
  if (ch.complex) cmd += "COMPLEX;\n";
  if (ch.nocheck) cmd += "NOCHECK;\n";
  if (ch.msym != 0) cmd += std::string("MSYM ") + ch.msym + ";\n";
  cmd += "INVAR ";
  switch (ch.layout) {
    case kSoft:
      break;
    case kHardStream:
      cmd += "DELIMIT(";
      cmd += ch.delimiter == '\\' ? std::string("\\\\") : std::string(1, ch.delimiter);
      cmd += ch.ndels ? ",N) " : ") ";
      break;
    case kNewline:
      cmd += ch.ndels ? "DELIMIT(\\N,N) " : "DELIMIT(\\N) ";
      break;
    case kLinePerRow:
      cmd += ch.ndels ? "DELIMIT(\\R,N) " : "DELIMIT(\\R) ";
      break;
  }
  bool numeric = true;
  for (int i = 0; i < ch.varin; ++i) {
    if (ch.numeric[static_cast<size_t>(i)] != numeric) {
      numeric = ch.numeric[static_cast<size_t>(i)];
      cmd += numeric ? "#" : "$";
    }
    cmd += variable_name(i) + " ";
  }
  cmd += ";\n";
  if (!ch.selected.empty()) {
    cmd += "OUTVAR";
    for (int s : ch.selected) cmd.append(" ").append(variable_name(s));
    cmd += ";\n";
  }
  return cmd;
}

// The separator that the layout puts between fields and after a row.
char field_separator(const Choice& ch) {
  switch (ch.layout) {
    case kSoft:
      return ' ';
    case kNewline:
      return '\n';
    default:
      return ch.delimiter;
  }
}

// A run of whole, valid rows: every field "1" (a number, or one character).
std::string valid_row(const Choice& ch) {
  const int fields = ch.varin * (ch.complex ? 2 : 1);
  std::string row;
  for (int k = 0; k < fields; ++k) {
    row += '1';
    const bool last = k == fields - 1;
    if (!last) {
      row += field_separator(ch);
    } else if (ch.layout == kHardStream) {
      row += ch.delimiter;
      row += '\n';
    } else {
      row += '\n';
    }
  }
  return row;
}

std::string input_file(const Choice& ch, const std::string& fuzzed) {
  if (ch.filler == 0) return fuzzed;
  const size_t target = kReadSize > ch.filler_gap ? kReadSize - ch.filler_gap : 0;
  std::string input;
  if (ch.filler == 1) {
    // Blanks are skipped before the first field by every layout.
    input.assign(target, ' ');
  } else if (ch.filler == 2) {
    // A delimiter that is a digit or the blank would make the rows invalid;
    // the input is then simply longer.
    const std::string row = valid_row(ch);
    while (input.size() + row.size() <= target) input += row;
  } else {
    if (fuzzed.empty()) return fuzzed;
    while (input.size() < kReadSize + ch.filler_gap) input += fuzzed;
    return input;
  }
  return input + fuzzed;
}

void check_data_set(const kolv_fuzz::Sandbox& box, const Choice& ch, const std::string& out) {
  std::string ds;
  if (!kolv_fuzz::read_file(box.path("out.dat"), ds)) broken("no output after a completed run");
  if (ds.size() < 128) broken("output shorter than a header", std::to_string(ds.size()));
  static const unsigned char kHead[32] = {
      0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0,    0,    0,    0,
      0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0,    0,    0,    0,    0x02, 0xEF, 0xCD, 0xAB};
  if (ds.compare(0, 32, std::string(reinterpret_cast<const char*>(kHead), 32)) != 0)
    broken("header signature");

  // Element size: 8 unless OUTTYP chose another; character data among the
  // output variables force 8 unless NOCHECK.
  bool char_out = false;
  if (ch.selected.empty()) {
    for (bool n : ch.numeric) char_out = char_out || !n;
  } else {
    for (int s : ch.selected) char_out = char_out || !ch.numeric[static_cast<size_t>(s)];
  }
  int otyp = ch.otyp == 0 ? 8 : ch.otyp;
  if (char_out && !ch.nocheck) otyp = 8;
  const uint32_t columns =
      static_cast<uint32_t>(ch.selected.empty() ? ch.varin : static_cast<int>(ch.selected.size()));
  const uint32_t pad = columns % 8 == 0 ? 0 : 8 - columns % 8;
  const uint32_t offset = 128 + 33 * columns + pad;
  if (get32(ds, 48) != static_cast<uint32_t>(otyp))
    broken("element size", std::to_string(get32(ds, 48)));
  if (get32(ds, 52) != (ch.complex ? 1u : 0u)) broken("complex flag");
  if (get32(ds, 84) != columns) broken("column count", std::to_string(get32(ds, 84)));
  if (get32(ds, 72) != offset) broken("data offset", std::to_string(get32(ds, 72)));
  if (ds.size() < offset) broken("output shorter than its variable block");
  for (uint32_t j = 0; j < columns; ++j) {
    const int input = ch.selected.empty() ? static_cast<int>(j) : ch.selected[j];
    const std::string name = ds.substr(128 + 32 * j, 32);
    if (name.compare(0, name.find('\0'), stored_name(ch, input)) != 0)
      broken("variable name", name);
    const char type = ds[128 + 32 * columns + j];
    if (type != (ch.numeric[static_cast<size_t>(input)] ? 1 : 0)) broken("variable type");
  }

  const size_t row_bytes = static_cast<size_t>(otyp) * (ch.complex ? 2 : 1) * columns;
  const size_t data = ds.size() - offset;
  if (data % row_bytes != 0) broken("rows do not fill the file", std::to_string(data));
  const size_t rows = data / row_bytes;
  const uint32_t header_rows = get32(ds, 80);
  // After a bad-data stop the rows of the unwritten block are still counted.
  const bool stopped = out.find("Bad data - file") != std::string::npos ||
                       out.find("Missing delimiter - file") != std::string::npos ||
                       out.find("Unexpected delimiter - file") != std::string::npos;
  if (stopped ? rows > header_rows : rows != header_rows)
    broken("row count",
           std::to_string(rows) + " in file, " + std::to_string(header_rows) + " in header");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kChoiceBytes) return 0;
  kolv_fuzz::Sandbox& box = kolv_fuzz::Sandbox::get();
  const Choice ch = choose(data);
  const std::string fuzzed(reinterpret_cast<const char*>(data + kChoiceBytes), size - kChoiceBytes);
  kolv_fuzz::write_file(box.path("in.txt"), input_file(ch, fuzzed));
  std::string out;
  const int status = box.run(command_file(box, ch), out);
  if (status != 0) broken("a valid command file ended fatally", out);
  check_data_set(box, ch, out);
  return 0;
}
