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
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "base/fatal.hpp"
#include "engine/elements.hpp"
#include "engine/loops.hpp"
#include "engine/packed.hpp"
#include "engine/rowblock.hpp"
#include "engine/scanners.hpp"
#include "engine/sourcerr.hpp"

namespace kolv {

void scanstrtemp(Run& run, const char* text, char* value, int index, uint32_t& status) {
  std::memset(value, 0, 8);
  mark_character(run.vars, index, 1);
  status = 1;
  if (*text != '\0' && (*text == '.' || *text == run.set.mstring) && is_terminator(text[1])) {
    store_missval(value);
    return;
  }
  int n = 0;
  for (const char* p = text; !is_terminator(*p); ++p) {
    if (n == 8) {
      mark_character(run.vars, index, 255);
      break;
    }
    value[n++] = *p;
  }
}

void scandbltemp(Run& run, const char* text, char* value, int index, uint32_t& status) {
  run.rb.cperr = text;
  const char* p = text;
  while (*p == ' ') ++p;
  if (*p != '\0' && (*p == '.' || *p == run.set.mstring)) {
    char next = p[1];
    if (is_terminator(next) || next == 'I' || next == '}') {
      store_missval(value);
      status = 1;
      return;
    }
  }
  unsigned char first = static_cast<unsigned char>(*p);
  if (first == '_' || is_letter(first)) {
    scanstrtemp(run, p, value, index, status);
    return;
  }
  double x;
  const char* end = parse_double(p, &x);
  if (end == p) {
    status = 0;
    return;
  }
  std::memcpy(value, &x, 8);
  status = 1;
}

bool packed_number(const char* field, int64_t width, int decimals, char mstring, double* out) {
  using numparse_detail::eight_digits;
  using numparse_detail::load8;
  using numparse_detail::nondigit_bytes;
  const char* const end = field + width;
  const char* q = field;
  while (q < end) {
    // The top bit of every byte that is not a blank (exact: no carries).
    const uint64_t y = load8(q) ^ 0x2020202020202020ULL;
    const uint64_t other =
        (((y & 0x7F7F7F7F7F7F7F7FULL) + 0x7F7F7F7F7F7F7F7FULL) | y) & 0x8080808080808080ULL;
    if (other != 0) {
      q += std::countr_zero(other) >> 3;
      break;
    }
    q += 8;
  }
  if (q >= end || *q == '.' || *q == mstring) return false;
  const bool neg = *q == '-';
  q += neg || *q == '+';
  int64_t left = end - q;
  if (left < 1 || left > 19 || left < decimals || decimals > 22) return false;
  uint64_t mant = 0;
  while (left > 0) {
    const uint64_t x = load8(q) ^ 0x3030303030303030ULL;
    const int take = left < 8 ? static_cast<int>(left) : 8;
    const uint64_t field_bytes = take == 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * take)) - 1;
    if ((nondigit_bytes(x) & field_bytes) != 0) return false;
    mant = mant * numparse_detail::kPow10Int[take] + eight_digits(take == 8 ? x : x << (64 - 8 * take));
    q += take;
    left -= take;
  }
  if (mant > (uint64_t{1} << 53)) return false;
  const double v = static_cast<double>(mant) / numparse_detail::kPow10[decimals];
  *out = std::bit_cast<double>(std::bit_cast<uint64_t>(v) | uint64_t{neg} << 63);
  return true;
}

namespace {

// Blanks past a record's end that one field text keeps in a row. A longer
// run of blanks means the same (leading blanks are skipped, any blank ends a
// value) and the bad-data dump shows only 16 bytes, so texts stay within
// record + a few bytes however wide a field is declared.
constexpr int64_t kBlankRun = 17;

struct Field {
  uint8_t type;
  uint8_t decimals;
  int64_t start;
  int64_t width;
};

struct Record {
  const char* bytes;
  int64_t length;
};

// Appends bytes [from, to) of the field at `start` to out.
char* append_field(char* out, Record rec, int64_t start, int64_t from, int64_t to) {
  int64_t a = start + from;
  const int64_t b = start + to;
  const int64_t inside = std::min(b, rec.length);
  if (a < inside) {
    std::memcpy(out, rec.bytes + a, static_cast<size_t>(inside - a));
    out += inside - a;
    a = inside;
  }
  const int64_t blanks = std::min(b - a, kBlankRun);
  if (blanks > 0) {
    std::memset(out, ' ', static_cast<size_t>(blanks));
    out += blanks;
  }
  return out;
}

// The text scandbltemp reads: the field, with d decimals rebuilt as its first
// width - d bytes, a point and its last d bytes. The point is inserted even
// when the field holds one. With more decimals than bytes the point stands
// before the whole field. Returns the position of the ending NUL.
char* numeric_text(char* out, Record rec, const Field& f) {
  if (f.decimals == 0) {
    out = append_field(out, rec, f.start, 0, f.width);
  } else {
    const int64_t lead = std::max<int64_t>(0, f.width - f.decimals);
    out = append_field(out, rec, f.start, 0, lead);
    *out++ = '.';
    out = append_field(out, rec, f.start, lead, f.width);
  }
  *out = '\0';
  return out;
}

char field_byte(Record rec, int64_t at) { return at < rec.length ? rec.bytes[at] : ' '; }

// Only the space is a blank: a tab-filled numeric field is bad data.
bool all_blanks(const char* text, const char* end) {
  for (; text != end; ++text)
    if (*text != ' ') return false;
  return true;
}

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
// tell. Under CHECK the line end joins the record; under NOCHECK a warning.
void check_line_ends(Run& run) {
  FILE* in = run.rb.infp;
  int& record = run.vars.record;
  const int first = byte_at(in, record);
  const int second = byte_at(in, 2 * static_cast<int64_t>(record));
  std::rewind(in);
  auto line_end = [](int c) { return c == '\r' || c == '\n'; };
  if (!line_end(first) && !line_end(second)) return;
  const bool crlf = first == '\r';
  FILE* out = run.io.out;
  if (run.set.noauto == 0) {
    std::fputs(crlf ? "Records beginning with CR/LF..." : "Records beginning with newline...", out);
    record += crlf ? 2 : 1;
    std::fprintf(out, " Setting record length to %d\n", record);
  } else {
    std::fputs(crlf ? "KOLV WARNING: some records begin with CR/LF\n"
                    : "KOLV WARNING: some records begin with newlines\n",
               out);
  }
}

// Moves the unread tail [at, have) to the buffer's start and reads up to
// read_size bytes behind it while there is more input; NUL-terminated.
// The tail is measured up to a NUL, so a NUL in it shortens it. Returns the
// number of bytes now in the buffer.
size_t refill(ReadBuffer& rb, size_t at, size_t have) {
  char* buffer = rb.inbuff.get();
  const size_t tail = strnlen(buffer + at, have - at);
  std::memmove(buffer, buffer + at, tail);
  size_t count = 0;
  const size_t read_size = static_cast<size_t>(rb.read_size);
  if (rb.theresmore && tail < read_size) {
    const size_t want = read_size - tail;
    count = std::fread(buffer + tail, 1, want, rb.infp);
    rb.readbytes = static_cast<int>(count);
    if (count < want) rb.theresmore = 0;
  }
  buffer[tail + count] = '\0';
  ++rb.fills;
  return tail + count;
}

// The bad-data report for the field whose text scandbltemp rejected; the run
// then ends and its temporary output is removed.
[[noreturn]] void bad_data(Run& run, int64_t index, const Field& f) {
  FILE* out = run.io.out;
  const double line = static_cast<double>(index + 1);
  const double offset = static_cast<double>(index * run.vars.record + f.start);
  std::fputs("Bad data - file ", out);
  std::fprintf(out, "%s,  line %1.0f,  file offset %1.0f hex, %1.0f decimal:\n", run.set.infile,
               line, offset, offset);
  dump_bytes(out, run.rb.cperr, 16, true);
  getout("%s", "");
}

// A trailing partial record, unless it is only a line end.
void report_extra_bytes(Run& run, const char* bytes, size_t available, int64_t extra) {
  if (available == 0 || *bytes == '\n' || *bytes == '\r') return;
  std::fprintf(run.io.out, "%u extra bytes at end of file %s:\n", static_cast<unsigned>(extra),
               run.set.infile);
  dump_bytes(run.io.out, bytes, std::min<size_t>(available, static_cast<size_t>(extra)), false);
}

// read_size is the record-rounded size only while loopfmt runs.
struct ReadSizeRestore {
  ReadBuffer& rb;
  ~ReadSizeRestore() { rb.read_size = kReadSize; }
};

template <int W>
int convert(Run& run, int buffer_bytes) {
  Variables& v = run.vars;
  ReadBuffer& rb = run.rb;
  // Every input variable is output; the row holds them all.
  const int n = v.varin;
  if (n <= 0 || v.record <= 0) return kLoopDone;
  const size_t row_bytes = static_cast<size_t>(W) * static_cast<size_t>(n);
  if (row_bytes > static_cast<size_t>(kBlockBytes)) return kLoopNoMemory;

  const int64_t record = v.record;
  std::vector<Field> fields;
  std::unique_ptr<char[]> text;
  try {
    fields.resize(static_cast<size_t>(n));
    for (int j = 0; j < n; ++j) {
      const FieldLayout& f = v.fmv[static_cast<size_t>(j)];
      fields[static_cast<size_t>(j)] = {f.type, f.decimals, f.start, f.width};
    }
    text.reset(new char[static_cast<size_t>(record + 2 * kBlankRun + 8)]);
    if (v.vrec.size() < static_cast<size_t>(n)) v.vrec.resize(static_cast<size_t>(n), 0);
  } catch (const std::bad_alloc&) {
    return kLoopNoMemory;
  }
  // As many rows as a block holds; short of memory, one row fewer at a time.
  size_t rows_per_block = static_cast<size_t>(kBlockBytes) / row_bytes;
  std::unique_ptr<char[]> block;
  while (rows_per_block > 0) {
    block.reset(new (std::nothrow) char[rows_per_block * row_bytes]());
    if (block) break;
    --rows_per_block;
  }
  if (!block) return kLoopNoMemory;
  const size_t block_bytes = rows_per_block * row_bytes;

  rb.read_size = static_cast<int>(record > buffer_bytes ? record : buffer_bytes - buffer_bytes % record);
  const int64_t size = input_size(rb.infp);
  const int64_t records = size / record;
  const int64_t extra = size % record;

  char* const buffer = rb.inbuff.get();
  size_t have = refill(rb, 0, 0);
  size_t at = 0;
  size_t buffered = 0;
  char slot[8];
  uint32_t status = 0;
  int64_t index = 0;
  for (; index < records; ++index) {
    if (at + static_cast<size_t>(record) > have) {
      have = refill(rb, at, have);
      at = 0;
      // The input ended before the records its size promised.
      if (static_cast<size_t>(record) > have) break;
    }
    const Record rec{buffer + at, record};
    char* out = block.get() + buffered * row_bytes;
    for (int j = 0; j < n; ++j) {
      const Field& f = fields[static_cast<size_t>(j)];
      char* element = out + static_cast<size_t>(j) * W;
      const int64_t keep = std::min<int64_t>(f.width, W);
      if (f.type == 0) {
        for (int64_t k = 0; k < keep; ++k) element[k] = field_byte(rec, f.start + k);
        continue;
      }
      const unsigned char first = static_cast<unsigned char>(field_byte(rec, f.start));
      if (f.width > 0 && (first == '_' || is_letter(first))) {
        // Text in a numeric field. A letter MSYM standing alone there is the
        // whole missing element of its size: a part of the missing pattern
        // would read back as a number.
        *append_field(text.get(), rec, f.start, 0, f.width) = '\0';
        scanstrtemp(run, text.get(), slot, j, status);
        if (slot_bits(slot) == kMissvalBits) {
          put_missing<W>(element);
        } else {
          std::memcpy(element, slot, static_cast<size_t>(keep));
        }
        continue;
      }
      double number;
      if (f.start + f.width <= record &&
          packed_number(rec.bytes + f.start, f.width, f.decimals, run.set.mstring, &number)) {
        run.rb.cperr = text.get();  // where scandbltemp would have left it
        std::memcpy(slot, &number, 8);
        put_element<W>(element, slot);
        continue;
      }
      const char* end = numeric_text(text.get(), rec, f);
      scandbltemp(run, text.get(), slot, j, status);
      if (status == 1) {
        put_element<W>(element, slot);
      } else if (all_blanks(text.get(), end)) {
        put_missing<W>(element);
      } else {
        bad_data(run, index, f);
      }
    }
    at += static_cast<size_t>(record);
    ++run.cnt.row;
    if (++buffered == rows_per_block) {
      if (!write_block(run, block.get(), buffered, row_bytes)) return kLoopWriteFailed;
      std::memset(block.get(), 0, block_bytes);
      buffered = 0;
    }
  }
  if (buffered > 0 && !write_block(run, block.get(), buffered, row_bytes)) return kLoopWriteFailed;

  if (extra > 0 && index == records) {
    // The bytes after the last record may still be unread.
    if (at >= have) {
      have = refill(rb, at, have);
      at = 0;
    }
    report_extra_bytes(run, buffer + at, have - at, extra);
  }
  return kLoopDone;
}

}  // namespace

int loopfmt_buffered(Run& run, int buffer_bytes) {
  ReadSizeRestore restore{run.rb};
  check_line_ends(run);
  switch (run.set.otyp) {
    case 2:
      return convert<2>(run, buffer_bytes);
    case 4:
      return convert<4>(run, buffer_bytes);
    case 8:
      return convert<8>(run, buffer_bytes);
    default:
      return kLoopNoType;
  }
}

int loopfmt(Run& run) { return loopfmt_buffered(run, kReadSize); }

}  // namespace kolv
