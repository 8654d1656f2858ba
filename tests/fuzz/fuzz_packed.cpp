// Fuzz target: packed ASCII records. The first bytes choose a record
// description (record length, fields with their type, column, width and
// decimals, some of them by "*" from the field before), the element width,
// CHECK or NOCHECK, MSYM and a run of whole filler records that moves the
// fuzzed records past the first buffer refill; the rest is the input file.
// Packed input either converts or stops at bad data, so beyond the common
// checks a completed run leaves a data set whose header agrees with the
// description and whose rows fill the file, no more rows than whole records.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_common.hpp"

namespace {

using kolv_fuzz::broken;
using kolv_fuzz::get32;

constexpr size_t kChoiceBytes = 6;
constexpr size_t kFieldBytes = 3;
constexpr size_t kReadSize = 131072;

struct Field {
  bool numeric = true;
  bool same_start = false;  // "*": right after the field before
  int column = 1;           // counted from 1
  bool same_width = false;
  int width = 1;
  int decimals = -1;  // -1: none given
};

struct Choice {
  int record = 1;
  int otyp = 0;  // 0: no OUTTYP statement
  bool nocheck = false;
  char msym = 0;
  int filler_records = 0;
  std::vector<Field> fields;
};

// Needs kChoiceBytes + fields x kFieldBytes bytes; returns the bytes used.
size_t choose(const uint8_t* c, size_t size, Choice& ch) {
  // Mostly short records; now and then one close to the longest allowed.
  ch.record = (c[2] & 0xE0) == 0xE0 ? static_cast<int>(kReadSize) - c[0]
                                    : (c[0] | (c[1] & 0x3) << 8) % 600 + 1;
  ch.otyp = (c[1] >> 2 & 3) == 0 ? 0 : 1 << (c[1] >> 2 & 3);
  ch.nocheck = (c[1] & 0x10) != 0;
  static const char kSymbols[] = {0, '.', '-', 'x', '&', '9', '+', 0};
  ch.msym = kSymbols[c[1] >> 5 & 7];
  // Now and then enough whole records to pass the first refill; only for
  // records of 64 bytes or more, as thousands of short rows cost much time.
  ch.filler_records =
      (c[2] & 7) == 7 && ch.record >= 64
          ? static_cast<int>(kReadSize / static_cast<size_t>(ch.record)) + (c[2] >> 3 & 3)
          : 0;
  const int count = c[3] % 8 + 1;
  size_t used = kChoiceBytes;
  for (int k = 0; k < count && used + kFieldBytes <= size; ++k, used += kFieldBytes) {
    const uint8_t* f = c + used;
    Field field;
    field.numeric = (f[0] & 1) == 0;
    field.same_start = (f[0] & 2) != 0;
    field.same_width = (f[0] & 4) != 0;
    // Columns and widths mostly within the record, sometimes beyond it.
    field.column = f[1] % (ch.record + 8) + 1;
    field.width = f[2] % 24;
    const int d = f[0] >> 3 & 7;
    field.decimals = d >= 5 ? -1 : d;
    ch.fields.push_back(field);
  }
  ch.fields.resize(ch.fields.empty() ? 1 : ch.fields.size());
  return used;
}

std::string field_name(int i) {
  std::string name(1, 'F');
  return name += std::to_string(i + 1);
}

std::string command_file(const kolv_fuzz::Sandbox& box, const Choice& ch) {
  std::string cmd = kolv_fuzz::files_head(box);
  if (ch.otyp != 0) cmd += "OUTTYP " + std::to_string(ch.otyp) + ";\n";
  cmd += ch.nocheck ? "NOCHECK;\n" : "CHECK;\n";
  if (ch.msym != 0) cmd += std::string("MSYM ") + ch.msym + ";\n";
  cmd += "INVAR RECORD = " + std::to_string(ch.record);
  for (size_t i = 0; i < ch.fields.size(); ++i) {
    const Field& f = ch.fields[i];
    cmd += f.numeric ? " #(" : " $(";
    cmd += f.same_start ? std::string("*") : std::to_string(f.column);
    cmd += ",";
    cmd += f.same_width ? std::string("*") : std::to_string(f.width);
    if (f.decimals >= 0) cmd.append(".").append(std::to_string(f.decimals));
    cmd.append(") ").append(field_name(static_cast<int>(i)));
  }
  cmd += ";\n";
  return cmd;
}

void check_data_set(const kolv_fuzz::Sandbox& box, const Choice& ch, size_t input_size) {
  std::string ds;
  if (!kolv_fuzz::read_file(box.path("out.dat"), ds)) broken("no output after a completed run");
  if (ds.size() < 128) broken("output shorter than a header", std::to_string(ds.size()));
  if (get32(ds, 0) != 0xFFFFFFFFu || get32(ds, 28) != 0xABCDEF02u) broken("header signature");
  const uint32_t otyp = get32(ds, 48);
  if (otyp != 2 && otyp != 4 && otyp != 8) broken("element size", std::to_string(otyp));
  if (ch.otyp == 0 && otyp != 8) broken("element size without OUTTYP", std::to_string(otyp));
  if (ch.otyp != 0 && otyp != static_cast<uint32_t>(ch.otyp) && otyp != 8)
    broken("element size", std::to_string(otyp));
  const uint32_t columns = static_cast<uint32_t>(ch.fields.size());
  if (get32(ds, 84) != columns) broken("column count", std::to_string(get32(ds, 84)));
  const uint32_t pad = columns % 8 == 0 ? 0 : 8 - columns % 8;
  const uint32_t offset = 128 + 33 * columns + pad;
  if (get32(ds, 72) != offset) broken("data offset", std::to_string(get32(ds, 72)));
  if (ds.size() < offset) broken("output shorter than its variable block");
  for (uint32_t j = 0; j < columns; ++j) {
    const char type = ds[128 + 32 * columns + j];
    if (type != (ch.fields[j].numeric ? 1 : 0)) broken("variable type");
  }
  const size_t row_bytes = otyp * columns;
  const size_t data = ds.size() - offset;
  if (data % row_bytes != 0) broken("rows do not fill the file", std::to_string(data));
  const size_t rows = data / row_bytes;
  if (rows != get32(ds, 80))
    broken("row count",
           std::to_string(rows) + " in file, " + std::to_string(get32(ds, 80)) + " in header");
  if (rows > input_size / static_cast<size_t>(ch.record))
    broken("more rows than whole records", std::to_string(rows));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kChoiceBytes) return 0;
  kolv_fuzz::Sandbox& box = kolv_fuzz::Sandbox::get();
  Choice ch;
  const size_t used = choose(data, size, ch);
  std::string input(static_cast<size_t>(ch.filler_records) * static_cast<size_t>(ch.record), '1');
  input.append(reinterpret_cast<const char*>(data + used), size - used);
  kolv_fuzz::write_file(box.path("in.txt"), input);
  std::string out;
  const int status = box.run(command_file(box, ch), out);
  if (status == 255) {
    box.expect_output_kept("fatal end");
    if (out.find("Bad data - file") == std::string::npos)
      broken("fatal end without a bad-data report", out);
    return 0;
  }
  check_data_set(box, ch, input.size());
  return 0;
}
