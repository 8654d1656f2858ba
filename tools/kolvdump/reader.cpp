#include "reader.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kolvdump {

namespace {

constexpr size_t kReadChunk = 65536;

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

Problem fault(Fault f, uint64_t a = 0, uint64_t b = 0, uint64_t c = 0) {
  Problem p;
  p.fault = f;
  p.a = a;
  p.b = b;
  p.c = c;
  return p;
}

Problem read_failed() {
  Problem p;
  p.fault = Fault::kCannotRead;
  p.error = errno;
  return p;
}

Problem check_header(const uint8_t* h, size_t got, DataSet& ds) {
  if (!kolv::has_signature(h)) {
    if (got >= 8 && kolv::is_version92(h)) return fault(Fault::kVersion92);
    if (got < static_cast<size_t>(kolv::kHeaderSize)) return fault(Fault::kTooShort, got);
    bool zero = std::all_of(h, h + kolv::kHeaderSize, [](uint8_t b) { return b == 0; });
    return fault(zero ? Fault::kUnfinished : Fault::kNotDataSet);
  }
  if (got < static_cast<size_t>(kolv::kHeaderSize)) return fault(Fault::kTooShort, got);
  switch (kolv::header_order(h)) {
    case kolv::HeaderOrder::kOwn:
      break;
    case kolv::HeaderOrder::kReversed:
      return fault(Fault::kOtherOrder);
    case kolv::HeaderOrder::kUnrecognised:
      return fault(Fault::kBadOrderMark);
  }
  ds.header = kolv::header_fields(h);
  const kolv::HeaderFields& f = ds.header;
  ds.width = kolv::element_width(f.type_code, f.element_size);
  if (ds.width == 0) return fault(Fault::kElementType, f.type_code, f.element_size);
  if (f.complex_flag > 1) return fault(Fault::kComplexFlag, f.complex_flag);
  ds.complex = f.complex_flag == 1;
  uint64_t offset = kolv::data_offset_wide(f.columns);
  if (f.data_offset != offset) return fault(Fault::kDataOffset, f.data_offset, f.columns, offset);
  return {};
}

Problem read_variables(FILE* in, DataSet& ds) {
  uint64_t n = ds.header.columns;
  uint64_t block = ds.header.data_offset - static_cast<uint64_t>(kolv::kHeaderSize);
  std::vector<uint8_t> bytes;
  if (read_into(in, bytes, block) < block) {
    if (std::ferror(in)) return read_failed();
    return fault(Fault::kShortBlock, n);
  }
  ds.variables.resize(static_cast<size_t>(n));
  for (size_t i = 0; i < n; ++i) {
    uint8_t type = bytes[static_cast<size_t>(kolv::kNameSize * n) + i];
    if (type > 1) return fault(Fault::kTypeByte, type, i + 1);
    const uint8_t* name = bytes.data() + kolv::kNameSize * i;
    size_t length = 0;
    while (length < static_cast<size_t>(kolv::kNameSize) && name[length] != 0) ++length;
    ds.variables[i].name.assign(reinterpret_cast<const char*>(name), length);
    ds.variables[i].numeric = type == 1;
  }
  for (uint32_t v = 0; v < ds.variables.size(); ++v) {
    const Variable& var = ds.variables[v];
    bool character = !var.numeric && ds.width == 8;
    if (ds.complex) {
      ds.columns.push_back({var.name + ".re", v, character});
      ds.columns.push_back({var.name + ".im", v, character});
    } else {
      ds.columns.push_back({var.name, v, character});
    }
  }
  ds.row_bytes = static_cast<uint64_t>(ds.columns.size()) * ds.width;
  return {};
}

}  // namespace

Problem open_data_set(FILE* in, DataSet& ds) {
  ds = DataSet{};
  uint8_t h[kolv::kHeaderSize] = {};
  size_t got = std::fread(h, 1, sizeof h, in);
  if (got < sizeof h && std::ferror(in)) return read_failed();
  if (Problem p = check_header(h, got, ds); p.fault != Fault::kNone) return p;
  if (Problem p = read_variables(in, ds); p.fault != Fault::kNone) return p;
  struct stat st;
  if (fstat(fileno(in), &st) == 0 && S_ISREG(st.st_mode)) {
    ds.size_known = true;
    ds.file_size = static_cast<uint64_t>(st.st_size);
  }
  return {};
}

RowReader::RowReader(FILE* in, const DataSet& ds) : in_(in), ds_(ds) {}

bool RowReader::skip_to(uint64_t row) {
  if (row <= next_ || ds_.row_bytes == 0) return true;
  // A row no file can reach lies past the end of a file of known size; a
  // pipe is read to its end all the same, so that its rows are counted.
  const bool beyond =
      row > (static_cast<uint64_t>(INT64_MAX) - ds_.header.data_offset) / ds_.row_bytes;
  if (beyond && ds_.size_known) {
    at_end_ = true;
    return true;
  }
  if (!beyond) {
    uint64_t at = ds_.header.data_offset + row * ds_.row_bytes;
    if (fseeko(in_, static_cast<off_t>(at), SEEK_SET) == 0) {
      next_ = row;
      return true;
    }
  }
  std::vector<uint8_t> scratch(static_cast<size_t>(ds_.row_bytes) * 64);
  while (next_ < row && !at_end_) {
    size_t want = static_cast<size_t>(std::min<uint64_t>(64, row - next_));
    if (read(scratch.data(), want) < want) break;
  }
  return error_ == 0;
}

size_t RowReader::read(uint8_t* to, size_t max_rows) {
  if (ds_.row_bytes == 0 || max_rows == 0 || at_end_) return 0;
  size_t row_bytes = static_cast<size_t>(ds_.row_bytes);
  size_t want = max_rows * row_bytes;
  size_t got = std::fread(to, 1, want, in_);
  if (got < want) {
    at_end_ = true;
    if (std::ferror(in_)) error_ = errno;
    partial_ = got % row_bytes;
  }
  size_t rows = got / row_bytes;
  next_ += rows;
  return rows;
}

RowCount RowReader::count() {
  RowCount c;
  uint64_t offset = ds_.header.data_offset;
  if (ds_.size_known) {
    uint64_t data = ds_.file_size > offset ? ds_.file_size - offset : 0;
    if (ds_.row_bytes == 0) {
      c.rows = ds_.header.rows;  // rows without columns take no bytes
      c.trailing = data;
    } else {
      c.rows = data / ds_.row_bytes;
      c.trailing = data % ds_.row_bytes;
    }
    return c;
  }
  // A pipe: read what is left.
  std::vector<uint8_t> scratch(kReadChunk);
  if (ds_.row_bytes == 0) {
    size_t n;
    while ((n = std::fread(scratch.data(), 1, scratch.size(), in_)) > 0) c.trailing += n;
    c.rows = ds_.header.rows;
  } else {
    size_t per_read = std::max<size_t>(1, kReadChunk / static_cast<size_t>(ds_.row_bytes));
    scratch.resize(per_read * static_cast<size_t>(ds_.row_bytes));
    while (!at_end_) read(scratch.data(), per_read);
    c.rows = next_;
    c.trailing = partial_;
  }
  if (std::ferror(in_)) error_ = errno;
  c.error = error_;
  return c;
}

}  // namespace kolvdump
