#include "expect.hpp"

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support.hpp"

namespace realdata {

namespace {

// The bytes that end a field of either kind: NUL, TAB, LF, CR, blank, comma.
bool ends_field(char c) {
  return c == '\0' || c == '\t' || c == '\n' || c == '\r' || c == ' ' || c == ',';
}

bool starts_word(char c) {
  return c == '_' || std::isalpha(static_cast<unsigned char>(c)) != 0;
}

std::string printf_string(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string printf_string(const char* format, ...) {
  char buf[4096];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buf, sizeof buf, format, args);
  va_end(args);
  return buf;
}

// The "   Hex:" and "   ASCII:" lines of a report: at most 16 bytes from
// `at`, stopping at `end`; non-printing bytes show as the byte 4.
std::string byte_lines(const char* at, const char* end, bool closing_quote) {
  std::string hex = "   Hex:    ";
  std::string ascii = "   ASCII: \"";
  for (int i = 0; i < 16 && at + i < end && at[i] != '\0'; ++i) {
    hex += printf_string("%02x ", static_cast<int>(static_cast<signed char>(at[i])));
    const unsigned char c = static_cast<unsigned char>(at[i]);
    ascii += std::isprint(c) ? static_cast<char>(c) : '\x04';
  }
  return hex + "\n" + ascii + (closing_quote ? "\"\n" : "");
}

enum class Kind { kNumber, kMissing, kText, kBad, kUnmodelled };

struct Slot {
  Kind kind;
  uint64_t bits = 0;
  bool cut = false;  // text longer than 8 bytes
};

// One non-empty field `p`..`p + len` of a delimited record, which the field's
// separators end; `p` lies in NUL-terminated text so that strtod can read it.
Slot field_slot(const char* p, size_t len, bool numeric, char msym) {
  if (len == 1 && (p[0] == '.' || p[0] == msym)) return {Kind::kMissing, kMissingSlot};
  const bool text = !numeric || starts_word(p[0]);
  if (text) {
    return {Kind::kText, text_slot(std::string(p, len)), len > 8};
  }
  // A missing-value character followed by I or } leaves the letter for the
  // next field; none of these files has one.
  if ((p[0] == '.' || p[0] == msym) && (p[1] == 'I' || p[1] == '}')) return {Kind::kUnmodelled};
  char* end = nullptr;
  const double x = std::strtod(p, &end);
  if (end == p) return {Kind::kBad};
  // A number run into further text would make two fields; not modelled.
  if (end != p + len) return {Kind::kUnmodelled};
  return {Kind::kNumber, number_slot(x)};
}

void mark(std::vector<uint8_t>& vrec, size_t variable, const Slot& s) {
  if (s.kind != Kind::kText) return;
  if (s.cut)
    vrec[variable] = 255;
  else if (vrec[variable] == 0)
    vrec[variable] = 1;
}

}  // namespace

std::vector<int> all_columns(size_t n) {
  std::vector<int> c(n);
  for (size_t i = 0; i < n; ++i) c[i] = static_cast<int>(i);
  return c;
}

// ----------------------------------------------------------- soft-delimited

Delimited soft_delimited(const std::string& text, const std::string& infile,
                         const std::vector<uint8_t>& types, int cplx, char msym) {
  Delimited d;
  d.vrec.assign(types.size(), 0);
  const size_t n = types.size() * static_cast<size_t>(cplx);
  const char* base = text.c_str();
  const size_t size = text.size();
  auto separator = [](char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == ',';
  };
  // Reports after a refill would give offsets within the buffer, not the
  // file; the files used here are read whole at once, or fail early.
  auto offset_ok = [&](size_t at) { return size < 131072 || at + 128 < 131072; };

  size_t pos = 0;
  int line = 1;
  auto skip = [&] {
    while (pos < size && separator(base[pos])) {
      if (base[pos] == '\n') ++line;
      ++pos;
    }
  };
  skip();
  std::vector<uint64_t> row;
  size_t k = 0;
  while (pos < size) {
    const size_t start = pos;
    while (pos < size && !separator(base[pos])) ++pos;
    const size_t variable = k / static_cast<size_t>(cplx);
    const Slot s = field_slot(base + start, pos - start, types[variable] == 1, msym);
    if (s.kind == Kind::kUnmodelled) {
      d.model_gap = "field at offset " + std::to_string(start);
      return d;
    }
    if (s.kind == Kind::kBad) {
      if (!offset_ok(start)) d.model_gap = "bad data after a refill";
      // A numeric field that converts nothing is tried once more after a
      // refill from its start, while the input holds more than the first
      // read: the field then stands at the buffer's start, and the report
      // gives that offset. A file shorter than one read is never refilled.
      const size_t shown = size >= 131072 ? 0 : start;
      d.report =
          printf_string("Bad data - file %s,  line %d,  file offset %zu hex,  %zu decimal:\n",
                        infile.c_str(), line, shown, shown) +
          byte_lines(base + start, base + size, true);
      d.stopped = true;
      return d;
    }
    mark(d.vrec, variable, s);
    row.push_back(s.bits);
    skip();
    if (k + 1 == n) {
      d.slots.insert(d.slots.end(), row.begin(), row.end());
      ++d.rows;
      row.clear();
      k = 0;
    } else if (pos == size) {
      if (!offset_ok(pos)) d.model_gap = "incomplete row after a refill";
      d.report =
          printf_string("End of file %s\n", infile.c_str()) +
          printf_string("Last row incomplete - line %d,  file offset %zu hex,  %zu decimal\n", line,
                        pos, pos);
    } else {
      ++k;
    }
  }
  return d;
}

// ---------------------------------------------------------- record per line

Delimited record_per_line(const std::string& text, const std::vector<uint8_t>& types, char msym) {
  Delimited d;
  d.vrec.assign(types.size(), 0);
  const size_t n = types.size();
  size_t line_start = 0;
  int line = 0;
  while (line_start < text.size()) {
    ++line;
    size_t line_end = text.find('\n', line_start);
    if (line_end == std::string::npos) line_end = text.size();
    size_t field_start = line_start;
    for (size_t k = 0; k < n; ++k) {
      size_t field_end = text.find(',', field_start);
      if (field_end == std::string::npos || field_end > line_end) field_end = line_end;
      // The last field runs to the line end; a comma there means too many fields.
      if (k + 1 == n && field_end != line_end) {
        d.model_gap =
            "line " + std::to_string(line) + " has more than " + std::to_string(n) + " fields";
        return d;
      }
      if (k + 1 < n && field_end == line_end) {
        d.model_gap =
            "line " + std::to_string(line) + " has fewer than " + std::to_string(n) + " fields";
        return d;
      }
      size_t a = field_start, b = field_end;
      auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
      while (a < b && blank(text[a])) ++a;
      while (b > a && blank(text[b - 1])) --b;
      Slot s{Kind::kMissing, kMissingSlot};
      if (a < b) {
        for (size_t i = a; i < b; ++i) {
          if (ends_field(text[i])) {
            d.model_gap = "field with an inner blank on line " + std::to_string(line);
            return d;
          }
        }
        s = field_slot(text.c_str() + a, b - a, types[k] == 1, msym);
        if (s.kind == Kind::kUnmodelled || s.kind == Kind::kBad) {
          d.model_gap = "unreadable field on line " + std::to_string(line);
          return d;
        }
      }
      mark(d.vrec, k, s);
      d.slots.push_back(s.bits);
      field_start = field_end + 1;
    }
    ++d.rows;
    line_start = line_end + 1;
  }
  return d;
}

std::string row_elements(const Delimited& d, size_t rows, size_t variables,
                         const std::vector<int>& columns, int cplx, int size) {
  std::string out;
  const size_t width = variables * static_cast<size_t>(cplx);
  for (size_t r = 0; r < rows; ++r) {
    for (int c : columns) {
      for (int part = 0; part < cplx; ++part)
        out += element(d.slots[r * width + static_cast<size_t>(c * cplx + part)], size);
    }
  }
  return out;
}

std::string character_report(const std::vector<uint8_t>& vrec, const std::vector<uint8_t>& types,
                             const std::vector<int>& columns, int otyp, bool chartrunc) {
  bool found = false;
  for (int c : columns) {
    const size_t k = static_cast<size_t>(c);
    if (vrec[k] != 0 && types[k] == 1) found = true;
    if (vrec[k] == 255) chartrunc = true;
  }
  std::string s;
  if (found) s += "KOLV - Found character data in numeric field\n";
  if (found && otyp < 8)
    s += "KOLV - OUTput TYPe D required for character data\n"
         "       Character data in output file will be lost\n";
  else if (chartrunc)
    s += "KOLV - Character data longer than 8 bytes were truncated\n";
  return s;
}

// ------------------------------------------------------------ packed records

Packed packed_records(const std::string& file, const std::string& infile, int record,
                      const std::vector<PackedField>& fields, int otyp, char msym, bool check) {
  Packed p;
  p.vrec.assign(fields.size(), 0);
  for (const PackedField& f : fields) {
    if (!f.numeric && f.width >= 9) p.chartrunc = true;
  }
  const size_t size = file.size();
  // A line end just after the first or the second record means that every
  // record is followed by one; the first of the two bytes says which kind.
  auto line_end = [](char c) { return c == '\r' || c == '\n'; };
  const char first = static_cast<size_t>(record) < size ? file[static_cast<size_t>(record)] : '\0';
  const char second =
      2 * static_cast<size_t>(record) < size ? file[2 * static_cast<size_t>(record)] : '\0';
  if (line_end(first) || line_end(second)) {
    const bool crlf = first == '\r';
    if (check) {
      record += crlf ? 2 : 1;
      p.messages += std::string(crlf ? "Records beginning with CR/LF..."
                                     : "Records beginning with newline...") +
                    printf_string(" Setting record length to %d\n", record);
    } else {
      p.messages += crlf ? "KOLV WARNING: some records begin with CR/LF\n"
                         : "KOLV WARNING: some records begin with newlines\n";
    }
  }
  p.record = record;
  const size_t records = size / static_cast<size_t>(record);
  const size_t extra = size % static_cast<size_t>(record);

  for (size_t i = 0; i < records; ++i) {
    const char* rec = file.data() + i * static_cast<size_t>(record);
    for (size_t v = 0; v < fields.size(); ++v) {
      const PackedField& f = fields[v];
      if (f.column - 1 + f.width > record) {
        p.model_gap = "a field runs past the record";
        return p;
      }
      const std::string raw(rec + f.column - 1, static_cast<size_t>(f.width));
      std::string elem(static_cast<size_t>(otyp), '\0');
      const size_t keep = std::min<size_t>(static_cast<size_t>(f.width), static_cast<size_t>(otyp));
      if (!f.numeric) {
        std::memcpy(elem.data(), raw.data(), keep);
        p.data += elem;
        continue;
      }
      // A word in a numeric field: up to 8 characters, to the first ending byte.
      auto word = [&](const std::string& t, size_t from) {
        if (p.vrec[v] == 0) p.vrec[v] = 1;
        size_t e = from;
        while (e < t.size() && !ends_field(t[e])) ++e;
        if (e - from > 8) p.vrec[v] = 255;
        return text_slot(t.substr(from, std::min<size_t>(e - from, 8)));
      };
      if (starts_word(raw[0])) {
        if (p.vrec[v] == 0) p.vrec[v] = 1;
        if (raw[0] == msym && (raw.size() == 1 || ends_field(raw[1]))) {
          p.data += element(kMissingSlot, otyp);
        } else {
          const uint64_t bits = word(raw, 0);
          std::memcpy(elem.data(), &bits, keep);
          p.data += elem;
        }
        continue;
      }
      // The implied point: the first width - d bytes, ".", the last d bytes.
      std::string text = raw;
      if (f.decimals > 0) {
        const size_t lead = static_cast<size_t>(std::max(0, f.width - f.decimals));
        text = raw.substr(0, lead) + "." + raw.substr(lead);
      }
      size_t q = 0;
      while (q < text.size() && text[q] == ' ') ++q;
      const char c0 = q < text.size() ? text[q] : '\0';
      const char c1 = q + 1 < text.size() ? text[q + 1] : '\0';
      if ((c0 == '.' || c0 == msym) && (ends_field(c1) || c1 == 'I' || c1 == '}')) {
        p.data += element(kMissingSlot, otyp);
        continue;
      }
      if (starts_word(c0)) {
        if (otyp != 8) {
          p.model_gap = "text in a numeric field of a 2- or 4-byte data set";
          return p;
        }
        p.data += element(word(text, q), 8);
        continue;
      }
      char* end = nullptr;
      const double x = std::strtod(text.c_str() + q, &end);
      if (end != text.c_str() + q) {
        p.data += element(number_slot(x), otyp);
        continue;
      }
      if (text.find_first_not_of(' ') == std::string::npos) {
        p.data += element(kMissingSlot, otyp);
        continue;
      }
      // Unreadable: the report names the record and the field's file offset,
      // shows the field's text, and the run ends.
      const size_t offset = i * static_cast<size_t>(record) + static_cast<size_t>(f.column - 1);
      p.messages += "Bad data - file " +
                    printf_string("%s,  line %zu,  file offset %zu hex, %zu decimal:\n",
                                  infile.c_str(), i + 1, offset, offset) +
                    byte_lines(text.data(), text.data() + text.size(), true);
      p.fatal = true;
      return p;
    }
    ++p.rows;
  }
  if (extra > 0 && !line_end(file[records * static_cast<size_t>(record)])) {
    const char* tail = file.data() + records * static_cast<size_t>(record);
    p.messages += printf_string("%zu extra bytes at end of file %s:\n", extra, infile.c_str()) +
                  byte_lines(tail, tail + extra, false);
  }
  return p;
}

}  // namespace realdata
