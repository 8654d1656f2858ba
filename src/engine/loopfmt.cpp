// loopfmt: packed ASCII records, one row per fixed-length record, every
// input variable in declaration order.
//
// Fields are cut from the record by the layout table (fmv). A field that
// reaches past the record's end reads blanks there, as if every record were
// padded with blanks: a numeric field wholly beyond the record is missing, a
// character field beyond it is blanks. Nothing outside the record, and
// nothing outside the bytes actually read, is ever looked at.
#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "base/fatal.hpp"
#include "engine/elements.hpp"
#include "engine/loops.hpp"
#include "engine/messages.hpp"
#include "engine/packed.hpp"
#include "engine/parallel.hpp"
#include "engine/readbuf.hpp"
#include "engine/rowblock.hpp"
#include "engine/scanners.hpp"
#include "engine/sourcerr.hpp"
#include "engine/threads.hpp"

namespace kolv {

namespace {

template <int W>
void put_missing(char* element) {
  char slot[8];
  store_missval(slot);
  put_element<W>(element, slot);
}

// The input's size in bytes (0 when it cannot be told); leaves it rewound.
int64_t input_size(FILE* in) {
  int64_t size = 0;
  if (fseeko(in, 0, SEEK_END) == 0) size = ftello(in);
  std::rewind(in);
  return size < 0 ? 0 : size;
}

int byte_at(FILE* in, int64_t offset) {
  if (fseeko(in, static_cast<off_t>(offset), SEEK_SET) != 0) return EOF;
  return std::fgetc(in);
}

// Records followed by a line end: the bytes at offsets record and 2 x record
// tell. When the plan fits records to line ends the line end joins the
// record; otherwise a warning. Returns the record length to read by.
int64_t check_line_ends(Engine& engine) {
  FILE* in = engine.rb.infp;
  int64_t record = engine.plan.record_length;
  const int first = byte_at(in, record);
  const int second = byte_at(in, 2 * record);
  std::rewind(in);
  auto line_end = [](int c) { return c == '\r' || c == '\n'; };
  if (!line_end(first) && !line_end(second)) return record;
  const bool crlf = first == '\r';
  FILE* out = engine.io.out;
  if (engine.plan.fit_record_to_line_ends) {
    std::fputs(crlf ? kRecordsBeginWithCrLf : kRecordsBeginWithNewline, out);
    record += crlf ? 2 : 1;
    std::fprintf(out, kSettingRecordLength, static_cast<int>(record));
  } else {
    std::fputs(crlf ? kSomeRecordsBeginWithCrLf : kSomeRecordsBeginWithNewlines, out);
  }
  return record;
}

// read_size is the record-rounded size only while loopfmt runs.
struct ReadSizeRestore {
  ReadBuffer& rb;
  ~ReadSizeRestore() { rb.read_size = kReadSize; }
};

// One numeric field into its element; false when it holds no number and is
// not blank (bad data).
template <int W>
bool convert_numeric(Engine& engine, char mstring, PackedRecord rec, const PackedField& f,
                     int index, char* text, char* element) {
  char slot[8];
  uint32_t status = 0;
  const unsigned char first = static_cast<unsigned char>(field_byte(rec, f.start));
  if (f.width > 0 && (first == '_' || is_letter(first))) {
    // Text in a numeric field. A letter MSYM standing alone there is the
    // whole missing element of its size: a part of the missing pattern would
    // read back as a number.
    *append_field(text, rec, f.start, 0, f.width) = '\0';
    scanstrtemp(engine, text, slot, index, status);
    if (slot_bits(slot) == kMissvalBits) {
      put_missing<W>(element);
    } else {
      std::memcpy(element, slot, static_cast<size_t>(std::min<int64_t>(f.width, W)));
    }
    return true;
  }
  double number;
  if (f.start + f.width <= rec.length &&
      packed_number(rec.bytes + f.start, f.width, f.decimals, mstring, &number)) {
    engine.rb.cperr = text;  // where scandbltemp would have left it
    std::memcpy(slot, &number, 8);
    put_element<W>(element, slot);
    return true;
  }
  const char* end = numeric_text(text, rec, f);
  scandbltemp(engine, text, slot, index, status);
  if (status == 1) {
    put_element<W>(element, slot);
  } else if (all_blanks(text, end)) {
    put_missing<W>(element);
  } else {
    return false;
  }
  return true;
}

// One record's fields into the row's elements. A numeric field that holds
// no number ends the run after its report.
template <int W>
void convert_record(Engine& engine, const PackedField* fields, int n, char mstring,
                    PackedRecord rec, int64_t index, char* text, char* out) {
  for (int j = 0; j < n; ++j) {
    const PackedField& f = fields[static_cast<size_t>(j)];
    char* element = out + static_cast<size_t>(j) * W;
    if (f.type == 0) {
      const int64_t keep = std::min<int64_t>(f.width, W);
      for (int64_t k = 0; k < keep; ++k) element[k] = field_byte(rec, f.start + k);
    } else if (!convert_numeric<W>(engine, mstring, rec, f, j, text, element)) {
      report_packed_bad_data(engine, index + 1, index * rec.length + f.start, engine.rb.cperr);
      end_quietly();
    }
  }
}

// Room for as many rows as a block holds; short of memory, one row fewer at
// a time. False when not even one row fits.
bool reserve_block(BlockWriter& writer, size_t row_bytes) {
  size_t rows_per_block = static_cast<size_t>(kBlockBytes) / row_bytes;
  while (rows_per_block > 0 && !writer.reserve(row_bytes, rows_per_block, 0)) --rows_per_block;
  return rows_per_block > 0;
}

// The report of the bytes after the last whole record, which may still be
// unread (at: where they begin in the buffer).
void report_after_last_record(Engine& engine, size_t at, int64_t extra) {
  ReadBuffer& rb = engine.rb;
  char* const buffer = rb.inbuff.get();
  if (at >= rb.buffered) {
    fillbuff(rb, buffer + at);
    at = 0;
  }
  report_extra_bytes(engine, buffer + at, rb.buffered - at, extra);
}

template <int W>
LoopStatus convert(Engine& engine, int64_t record, int buffer_bytes) {
  const Plan& plan = engine.plan;
  ReadBuffer& rb = engine.rb;
  // Every input variable is output; the row holds them all.
  const int n = plan.variables();
  if (n <= 0 || record <= 0) return kLoopDone;
  const size_t row_bytes = static_cast<size_t>(W) * static_cast<size_t>(n);
  if (row_bytes > static_cast<size_t>(kBlockBytes)) return kLoopNoMemory;

  // Read once: the rows' element stores could otherwise make every field
  // reload them through the plan.
  const PackedField* const fields = plan.fields.data();
  const char mstring = plan.missing_symbol;
  std::unique_ptr<char[]> text;
  try {
    text.reset(new char[static_cast<size_t>(record + 2 * kBlankRun + 8)]);
    if (engine.vrec.size() < static_cast<size_t>(n)) engine.vrec.resize(static_cast<size_t>(n), 0);
  } catch (const std::bad_alloc&) {
    return kLoopNoMemory;
  }
  BlockWriter writer(engine, true);
  if (!reserve_block(writer, row_bytes)) return kLoopNoMemory;

  rb.read_size =
      static_cast<int>(record > buffer_bytes ? record : buffer_bytes - buffer_bytes % record);
  const int64_t size = input_size(rb.infp);
  const int64_t records = size / record;
  const int64_t extra = size % record;

  first_fill(rb);
  char* const buffer = rb.inbuff.get();
  size_t at = 0;
  int64_t index = 0;
  for (; index < records; ++index) {
    if (at + static_cast<size_t>(record) > rb.buffered) {
      fillbuff(rb, buffer + at);
      at = 0;
      // The input ended before the records its size promised.
      if (static_cast<size_t>(record) > rb.buffered) break;
    }
    convert_record<W>(engine, fields, n, mstring, PackedRecord{buffer + at, record}, index,
                      text.get(), writer.row());
    at += static_cast<size_t>(record);
    if (writer.finish_row() == BlockWrite::kFailed) return kLoopWriteFailed;
  }
  if (writer.flush() == BlockWrite::kFailed) return kLoopWriteFailed;
  if (extra > 0 && index == records) report_after_last_record(engine, at, extra);
  return kLoopDone;
}

}  // namespace

namespace {

// The records, once the record length is settled.
int packed_records(Engine& engine, int64_t record, int buffer_bytes) {
  switch (engine.plan.element) {
    case ElementType::kInt16:
      return convert<2>(engine, record, buffer_bytes);
    case ElementType::kFloat32:
      return convert<4>(engine, record, buffer_bytes);
    case ElementType::kDouble:
      return convert<8>(engine, record, buffer_bytes);
  }
  return kLoopNoType;
}

}  // namespace

int loopfmt_buffered(Engine& engine, int buffer_bytes) {
  ReadSizeRestore restore{engine.rb};
  const int64_t record = check_line_ends(engine);
  engine.record = record;
  return packed_records(engine, record, buffer_bytes);
}

LoopStatus loopfmt(Engine& engine) {
  ReadSizeRestore restore{engine.rb};
  const int64_t record = check_line_ends(engine);
  engine.record = record;
  LoopStatus status = kLoopDone;
  if (convert_packed_in_parallel(engine, record, conversion_threads(), status) ==
      Parallel::kFinished)
    return status;
  return static_cast<LoopStatus>(packed_records(engine, record, kReadSize));
}

LoopStatus loopfmt_records(Engine& engine, int64_t record) {
  ReadSizeRestore restore{engine.rb};
  engine.record = record;
  return static_cast<LoopStatus>(packed_records(engine, record, kReadSize));
}

}  // namespace kolv
