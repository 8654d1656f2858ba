#include "render.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "values.hpp"

namespace kolvdump {

namespace {

// Room for one cell in a line: the widest number or escaped text between
// quotes, or the missing text.
size_t cell_room(std::string_view na) {
  return std::max(kCellRoom + 2, na.size());
}

char* put_spaces(char* to, size_t n) {
  std::memset(to, ' ', n);
  return to + n;
}

char* put_bytes(char* to, std::string_view s) {
  std::memcpy(to, s.data(), s.size());
  return to + s.size();
}

// Ends a line of the text view: trailing blanks dropped, then a line end.
char* end_line(char* line, char* end) {
  while (end > line && end[-1] == ' ') --end;
  *end++ = '\n';
  return end;
}

size_t digits(uint64_t v) {
  size_t d = 1;
  while (v >= 10) {
    v /= 10;
    ++d;
  }
  return d;
}

const char* element_description(uint32_t width) {
  switch (width) {
    case 2:
      return "2-byte integer";
    case 4:
      return "4-byte float";
    default:
      return "8-byte double";
  }
}

void put_number_line(const char* label, uint64_t value, const char* note, Output& out) {
  char line[160];
  int n = note == nullptr ? std::snprintf(line, sizeof line, "%-15s%llu\n", label,
                                          static_cast<unsigned long long>(value))
                          : std::snprintf(line, sizeof line, "%-15s%llu (%s)\n", label,
                                          static_cast<unsigned long long>(value), note);
  out.put(std::string_view(line, static_cast<size_t>(n)));
}

}  // namespace

void write_header(const DataSet& ds, std::string_view name, Output& out) {
  out.put("data set:      ");
  out.put(name);
  out.put('\n');
  put_number_line("version:", kolv::kFileVersion, nullptr, out);
  put_number_line("element type:", ds.header.type_code, element_description(ds.width), out);
  put_number_line("element size:", ds.width, nullptr, out);
  put_number_line("complex:", ds.header.complex_flag,
                  ds.complex ? "yes, a real and an imaginary element per variable" : "no", out);
  put_number_line("rows:", ds.header.rows, nullptr, out);
  put_number_line("columns:", ds.header.columns, nullptr, out);
  put_number_line("data offset:", ds.header.data_offset, nullptr, out);
}

void write_variables(const DataSet& ds, Output& out) {
  out.put("\nvariables:\n");
  if (ds.variables.empty()) out.put("  none\n");
  size_t index_width = digits(ds.variables.size());
  std::vector<std::string> names;
  size_t name_width = 0;
  for (const Variable& v : ds.variables) {
    names.push_back(escape_text(v.name));
    name_width = std::max(name_width, shown_width(names.back()));
  }
  for (size_t i = 0; i < ds.variables.size(); ++i) {
    char number[24];
    char* number_end = std::to_chars(number, number + sizeof number, i + 1).ptr;
    size_t number_size = static_cast<size_t>(number_end - number);
    char* line = out.reserve(index_width + name_width + names[i].size() + 32);
    char* p = put_spaces(line, 2 + index_width - number_size);
    p = put_bytes(p, std::string_view(number, number_size));
    p = put_spaces(p, 2);
    p = put_bytes(p, names[i]);
    p = put_spaces(p, 2 + name_width - shown_width(names[i]));
    p = put_bytes(p, ds.variables[i].numeric ? "numeric" : "character");
    out.commit(end_line(line, p));
  }
}

size_t text_cell(const uint8_t* element, uint32_t width, bool character, std::string_view na,
                 char* to, char** end) {
  switch (classify(element, width, character)) {
    case CellKind::kMissing:
      *end = put_bytes(to, na);
      return shown_width(na);
    case CellKind::kNumber:
      *end = format_number(element, width, to);
      return static_cast<size_t>(*end - to);
    case CellKind::kText:
      break;
  }
  std::string_view bytes(reinterpret_cast<const char*>(element), text_length(element));
  size_t shown = 0;
  if (character) {
    *end = escape_text(bytes, to, shown);
    return shown;
  }
  // Text where a number belongs: between double quotes, so it cannot be
  // taken for a value.
  char* p = to;
  *p++ = '"';
  p = escape_text(bytes, p, shown);
  *p++ = '"';
  *end = p;
  return shown + 2;
}

TextLayout plan_text(const DataSet& ds, const std::vector<uint32_t>& columns, const uint8_t* sample,
                     size_t sample_rows, uint64_t last_row_number, std::string na) {
  TextLayout layout;
  layout.columns = columns;
  layout.na = std::move(na);
  layout.row_width = std::max<size_t>(3, digits(last_row_number));
  size_t row_bytes = static_cast<size_t>(ds.row_bytes);
  std::vector<char> cell(cell_room(layout.na));
  for (uint32_t c : columns) {
    const Column& col = ds.columns[c];
    size_t width = shown_width(escape_text(col.label));
    for (size_t r = 0; r < sample_rows; ++r) {
      char* end;
      const uint8_t* element = sample + r * row_bytes + size_t{c} * ds.width;
      width = std::max(width,
                       text_cell(element, ds.width, col.character, layout.na, cell.data(), &end));
    }
    layout.widths.push_back(width);
  }
  return layout;
}

void write_labels(const DataSet& ds, const TextLayout& layout, Output& out) {
  out.put("\ndata:\n");
  size_t room = layout.row_width + 8;
  std::vector<std::string> labels;
  for (uint32_t c : layout.columns) {
    labels.push_back(escape_text(ds.columns[c].label));
    room += labels.back().size() + 2;
  }
  for (size_t w : layout.widths) room += w;
  char* line = out.reserve(room);
  char* p = put_spaces(line, 2 + layout.row_width - 3);
  p = put_bytes(p, "row");
  for (size_t i = 0; i < layout.columns.size(); ++i) {
    size_t shown = shown_width(labels[i]);
    size_t fill = layout.widths[i] > shown ? layout.widths[i] - shown : 0;
    p = put_spaces(p, 2);
    if (ds.columns[layout.columns[i]].character) {
      p = put_spaces(put_bytes(p, labels[i]), fill);
    } else {
      p = put_bytes(put_spaces(p, fill), labels[i]);
    }
  }
  out.commit(end_line(line, p));
}

void write_text_rows(const DataSet& ds, const TextLayout& layout, const uint8_t* rows, size_t n,
                     uint64_t first_number, Output& out) {
  const size_t row_bytes = static_cast<size_t>(ds.row_bytes);
  const size_t room_per_cell = cell_room(layout.na) + 2;
  size_t line_room = layout.row_width + 24;
  for (size_t w : layout.widths) line_room += w + room_per_cell;
  const size_t count = layout.columns.size();
  std::vector<char> cell(cell_room(layout.na));
  for (size_t r = 0; r < n; ++r) {
    const uint8_t* row = rows + r * row_bytes;
    char* line = out.reserve(line_room);
    char number[24];
    char* number_end = std::to_chars(number, number + sizeof number, first_number + r).ptr;
    size_t number_size = static_cast<size_t>(number_end - number);
    char* p =
        put_spaces(line, 2 + (layout.row_width > number_size ? layout.row_width - number_size : 0));
    p = put_bytes(p, std::string_view(number, number_size));
    for (size_t i = 0; i < count; ++i) {
      const uint32_t c = layout.columns[i];
      const bool character = ds.columns[c].character;
      char* end;
      size_t shown =
          text_cell(row + size_t{c} * ds.width, ds.width, character, layout.na, cell.data(), &end);
      std::string_view text(cell.data(), static_cast<size_t>(end - cell.data()));
      size_t fill = layout.widths[i] > shown ? layout.widths[i] - shown : 0;
      p = put_spaces(p, 2);
      if (character) {
        p = put_spaces(put_bytes(p, text), fill);
      } else if (fill <= 32 && text.size() <= 32) {
        // A number, right-aligned by copies of a fixed size: the line's room
        // holds a cell's room beyond every cell, and the cell buffer at least
        // 32 bytes; lengths that vary from value to value cost no branch.
        std::memset(p, ' ', 32);
        p += fill;
        std::memcpy(p, cell.data(), 32);
        p += text.size();
      } else {
        p = put_bytes(put_spaces(p, fill), text);
      }
    }
    out.commit(end_line(line, p));
  }
}

CsvLayout plan_csv(const std::vector<uint32_t>& columns, std::string_view na) {
  CsvLayout layout;
  layout.columns = columns;
  if (na.find_first_of(",\"\r\n") == std::string_view::npos) {
    layout.na = na;
  } else {
    std::string quoted(1, '"');
    for (char c : na) {
      if (c == '"') quoted += '"';
      quoted += c;
    }
    quoted += '"';
    layout.na = std::move(quoted);
  }
  return layout;
}

void put_csv_field(std::string_view field, Output& out) {
  if (field.find_first_of(",\"\r\n") == std::string_view::npos) {
    out.put(field);
    return;
  }
  out.put('"');
  for (char c : field) {
    if (c == '"') out.put('"');
    out.put(c);
  }
  out.put('"');
}

void write_csv_names(const DataSet& ds, const CsvLayout& layout, Output& out) {
  for (size_t i = 0; i < layout.columns.size(); ++i) {
    if (i > 0) out.put(',');
    put_csv_field(ds.columns[layout.columns[i]].label, out);
  }
  out.put('\n');
}

void write_csv_rows(const DataSet& ds, const CsvLayout& layout, const uint8_t* rows, size_t n,
                    Output& out) {
  const size_t row_bytes = static_cast<size_t>(ds.row_bytes);
  const size_t count = layout.columns.size();
  // A field takes at most 24 characters of a number, 18 of quoted text or
  // the missing text, and its comma.
  const size_t line_room = count * (std::max<size_t>(kCellRoom, layout.na.size()) + 1) + 1;
  for (size_t r = 0; r < n; ++r) {
    const uint8_t* row = rows + r * row_bytes;
    char* line = out.reserve(line_room);
    char* p = line;
    for (size_t i = 0; i < count; ++i) {
      if (i > 0) *p++ = ',';
      const uint32_t c = layout.columns[i];
      const uint8_t* element = row + size_t{c} * ds.width;
      switch (classify(element, ds.width, ds.columns[c].character)) {
        case CellKind::kNumber:
          p = format_number(element, ds.width, p);
          break;
        case CellKind::kMissing:
          p = put_bytes(p, layout.na);
          break;
        case CellKind::kText: {
          std::string_view text(reinterpret_cast<const char*>(element), text_length(element));
          if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
            p = put_bytes(p, text);
          } else {
            *p++ = '"';
            for (char ch : text) {
              if (ch == '"') *p++ = '"';
              *p++ = ch;
            }
            *p++ = '"';
          }
          break;
        }
      }
    }
    *p++ = '\n';
    out.commit(p);
  }
}

}  // namespace kolvdump
