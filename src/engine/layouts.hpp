// The record rules of the four delimited layouts: what is skipped around a
// field, what makes a field empty, and what the byte after a field means.
#pragma once

#include <cstdint>

#include "base/state.hpp"
#include "engine/loops.hpp"
#include "engine/plan.hpp"
#include "engine/readbuf.hpp"
#include "engine/scanners.hpp"
#include "engine/sourcerr.hpp"

namespace kolv {

enum class RowEnd { kRow, kIncomplete, kRejected };

// TAB, CR and space: skipped around every field in every layout.
inline bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}
inline bool is_blank_or_lf(char c) {
  return is_blank(c) || c == '\n';
}
inline bool is_soft_separator(char c) {
  return is_blank_or_lf(c) || c == ',';
}

// Skips bytes of the set, counting LFs, refilling at the buffer's end while
// more input follows. At return *p is the first other byte, or the zero byte
// that ends the input.
template <bool (*Set)(char)>
inline char* skip(ReadBuffer& rb, char* p, int32_t& srcrow) {
  for (;;) {
    while (Set(*p)) {
      if (*p == '\n') ++srcrow;
      ++p;
    }
    if (!at_refill(rb, p)) return p;
    p = fillbuff(rb, p);
  }
}

namespace layout_detail {

// What the bytes after a field say.
enum class FieldEnd { kNext, kRow, kIncomplete, kRejected };

// The blanks before a field: none in the soft layout (the separators after
// the previous field took them), blanks and line ends in the hard stream,
// blanks where a line end means something.
template <RowLayout L>
[[gnu::always_inline]] inline char* skip_before_field(ReadBuffer& rb, char* p, int32_t& srcrow) {
  if constexpr (L == RowLayout::kNewline || L == RowLayout::kLinePerRow)
    return skip<is_blank>(rb, p, srcrow);
  if constexpr (L == RowLayout::kHardStream) return skip<is_blank_or_lf>(rb, p, srcrow);
  return p;
}

// The separators after a field, up to the byte that ends it.
template <RowLayout L>
[[gnu::always_inline]] inline char* skip_after_field(ReadBuffer& rb, char* p, int32_t& srcrow) {
  if constexpr (L == RowLayout::kSoft) return skip<is_soft_separator>(rb, p, srcrow);
  return skip_before_field<L>(rb, p, srcrow);
}

// Whether a field that starts with c is empty (missing).
template <RowLayout L>
[[gnu::always_inline]] inline bool empty_field(char c, char delimiter) {
  if constexpr (L == RowLayout::kNewline) return c == '\n' || c == '\0';
  if constexpr (L == RowLayout::kHardStream) return c == delimiter || c == '\0';
  if constexpr (L == RowLayout::kLinePerRow) return c == delimiter || c == '\n' || c == '\0';
  return false;
}

// One field by the scanner of its kind; false after the bad-data report.
[[gnu::always_inline]] inline bool scan_field(Engine& engine, char*& p, char* slot, int k,
                                              FieldKind kind) {
  uint32_t status;
  p = kind == FieldKind::kNumeric ? scandbl(engine, p, slot, k, status)
                                  : scanstr(engine, p, slot, k, status);
  if (status != 0) return true;
  sourcerr(engine, kBadData, p, engine.srcrow);
  return false;
}

// After a field of the newline layout or the hard stream: the separator
// (LF, or the delimiter) follows unless the input ends; after the last
// field, the input must not end right behind its separator unless DELIMIT's
// N option says a delimiter ends every row.
template <RowLayout L>
[[gnu::always_inline]] inline FieldEnd separated_field_end(Engine& engine, char*& p, bool last,
                                                           char delimiter, bool ndels) {
  ReadBuffer& rb = engine.rb;
  int32_t& srcrow = engine.srcrow;
  constexpr char kNewline = '\n';
  const char separator = L == RowLayout::kNewline ? kNewline : delimiter;
  if (*p == '\0') return last && !ndels ? FieldEnd::kRow : FieldEnd::kIncomplete;
  if (*p != separator) {
    sourcerr(engine, kMissingDelimiter, p, srcrow);
    return FieldEnd::kRejected;
  }
  char* consumed = p++;
  if constexpr (L == RowLayout::kNewline) ++srcrow;
  if (!last) return FieldEnd::kNext;
  const int32_t line = srcrow;
  const uint64_t fills = rb.fills;
  if constexpr (L == RowLayout::kNewline) {
    p = skip<is_blank>(rb, p, srcrow);
  } else {
    p = skip<is_blank_or_lf>(rb, p, srcrow);
  }
  if (*p == '\0' && !ndels) {
    const char* at = rb.fills == fills ? consumed : rb.inbuff.get();
    sourcerr(engine, kUnexpectedDelimiter, at, line);
    return FieldEnd::kRejected;
  }
  return FieldEnd::kNext;
}

// After a field of a line per row: the delimiter before another field of
// the line, the line end after the last; a line that ends early leaves the
// row partial (its other fields missing).
[[gnu::always_inline]] inline FieldEnd line_field_end(Engine& engine, char*& p, bool last,
                                                      char delimiter, bool& partial) {
  const char next = *p;
  if (next == delimiter) {
    if (last) {
      sourcerr(engine, kUnexpectedDelimiter, p, engine.srcrow);
      return FieldEnd::kRejected;
    }
    ++p;
  } else if (next == '\0') {
    if (!last) partial = true;
  } else if (next != '\n') {
    sourcerr(engine, kMissingDelimiter, p, engine.srcrow);
    return FieldEnd::kRejected;
  } else if (!last) {
    partial = true;
  } else {
    ++p;
    ++engine.srcrow;
  }
  return FieldEnd::kNext;
}

// What follows a field, by the layout's rules.
template <RowLayout L>
[[gnu::always_inline]] inline FieldEnd field_end(Engine& engine, char*& p, bool last,
                                                 char delimiter, bool ndels, bool& partial) {
  if constexpr (L == RowLayout::kSoft) {
    return *p == '\0' && !last ? FieldEnd::kIncomplete : FieldEnd::kNext;
  } else if constexpr (L == RowLayout::kNewline || L == RowLayout::kHardStream) {
    return separated_field_end<L>(engine, p, last, delimiter, ndels);
  } else {
    return line_field_end(engine, p, last, delimiter, partial);
  }
}

}  // namespace layout_detail

// Reads one row of n fields into slots (8 bytes each), each field by the
// scanner of its kind.
template <RowLayout L>
inline RowEnd read_row(Engine& engine, char*& pos, char* slots, int n, const FieldKind* types,
                       bool& partial) {
  using namespace layout_detail;
  ReadBuffer& rb = engine.rb;
  const char delimiter = engine.plan.delimiter;
  const bool ndels = engine.plan.delimiter_after_last;
  char* p = pos;
  for (int k = 0; k < n; ++k) {
    char* slot = slots + 8 * static_cast<size_t>(k);
    p = skip_before_field<L>(rb, p, engine.srcrow);
    if (empty_field<L>(*p, delimiter)) {
      store_missval(slot);
    } else if (!scan_field(engine, p, slot, k, types[k])) {
      return RowEnd::kRejected;
    }
    p = skip_after_field<L>(rb, p, engine.srcrow);
    const FieldEnd end = field_end<L>(engine, p, k == n - 1, delimiter, ndels, partial);
    if (end == FieldEnd::kNext) continue;
    if (end == FieldEnd::kRejected) return RowEnd::kRejected;
    pos = p;
    return end == FieldEnd::kRow ? RowEnd::kRow : RowEnd::kIncomplete;
  }
  pos = p;
  return RowEnd::kRow;
}

}  // namespace kolv
