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

// Reads one row of n fields into slots (8 bytes each), each field by the
// scanner of its kind.
template <RowLayout L>
inline RowEnd read_row(Engine& engine, char*& pos, char* slots, int n, const FieldKind* types,
                       bool& partial) {
  ReadBuffer& rb = engine.rb;
  int32_t& srcrow = engine.srcrow;
  const char delimiter = engine.plan.delimiter;
  const bool ndels = engine.plan.delimiter_after_last;
  char* p = pos;
  for (int k = 0; k < n; ++k) {
    char* slot = slots + 8 * static_cast<size_t>(k);
    const bool last = k == n - 1;

    if constexpr (L == RowLayout::kNewline || L == RowLayout::kLinePerRow)
      p = skip<is_blank>(rb, p, srcrow);
    if constexpr (L == RowLayout::kHardStream) p = skip<is_blank_or_lf>(rb, p, srcrow);

    const char c = *p;
    bool empty = false;
    if constexpr (L == RowLayout::kNewline) empty = c == '\n' || c == '\0';
    if constexpr (L == RowLayout::kHardStream) empty = c == delimiter || c == '\0';
    if constexpr (L == RowLayout::kLinePerRow) empty = c == delimiter || c == '\n' || c == '\0';
    if (empty) {
      store_missval(slot);
    } else {
      uint32_t status;
      p = types[k] == FieldKind::kNumeric ? scandbl(engine, p, slot, k, status)
                                          : scanstr(engine, p, slot, k, status);
      if (status == 0) {
        sourcerr(engine, kBadData, p, srcrow);
        return RowEnd::kRejected;
      }
    }

    if constexpr (L == RowLayout::kSoft) p = skip<is_soft_separator>(rb, p, srcrow);
    if constexpr (L == RowLayout::kHardStream) p = skip<is_blank_or_lf>(rb, p, srcrow);
    if constexpr (L == RowLayout::kNewline || L == RowLayout::kLinePerRow)
      p = skip<is_blank>(rb, p, srcrow);

    const char next = *p;
    const bool at_end = next == '\0';
    if constexpr (L == RowLayout::kSoft) {
      if (at_end && !last) {
        pos = p;
        return RowEnd::kIncomplete;
      }
    } else if constexpr (L == RowLayout::kNewline || L == RowLayout::kHardStream) {
      constexpr char kNewline = '\n';
      const char separator = L == RowLayout::kNewline ? kNewline : delimiter;
      if (at_end) {
        pos = p;
        if (last && !ndels) return RowEnd::kRow;
        return RowEnd::kIncomplete;
      }
      if (next != separator) {
        sourcerr(engine, kMissingDelimiter, p, srcrow);
        return RowEnd::kRejected;
      }
      char* consumed = p++;
      if constexpr (L == RowLayout::kNewline) ++srcrow;
      if (last) {
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
          return RowEnd::kRejected;
        }
      }
    } else {  // line per row
      if (next == delimiter) {
        if (last) {
          sourcerr(engine, kUnexpectedDelimiter, p, srcrow);
          return RowEnd::kRejected;
        }
        ++p;
      } else if (at_end) {
        if (!last) partial = true;
      } else if (next != '\n') {
        sourcerr(engine, kMissingDelimiter, p, srcrow);
        return RowEnd::kRejected;
      } else if (!last) {
        partial = true;
      } else {
        ++p;
        ++srcrow;
      }
    }
  }
  pos = p;
  return RowEnd::kRow;
}

}  // namespace kolv
