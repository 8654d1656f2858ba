// The field scanners of delimited input: scandbl for a field of a numeric
// variable, scanstr for a field of a character variable. Each fills one
// 8-byte slot (a double, the missing-value pattern, or up to 8 characters) and
// returns the first byte it did not consume; the buffer may have been
// refilled, so older pointers into it are void.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "base/numparse.hpp"
#include "base/numwide.hpp"
#include "base/state.hpp"
#include "engine/loops.hpp"
#include "engine/readbuf.hpp"
#include "format/dataset.hpp"

namespace kolv {

// Bytes that end a field: NUL, TAB, LF, CR, space, comma.
inline bool is_terminator(char c) {
  unsigned char u = static_cast<unsigned char>(c);
  return u == 0 || u == '\t' || u == '\n' || u == '\r' || u == ' ' || u == ',';
}

// A letter of the "C" locale, the one kolv runs in: what isalpha tests there.
inline bool is_letter(unsigned char c) {
  return static_cast<unsigned char>((c | 0x20) - 'a') < 26;
}

inline void store_missval(char* slot) {
  uint64_t bits = kMissvalBits;
  std::memcpy(slot, &bits, 8);
}

// Marks input variable `variable` as holding character data; 255 (text cut to
// 8 bytes) is kept once set.
inline void mark_character(Engine& engine, int variable, uint8_t flag) {
  uint8_t& v = engine.vrec[static_cast<size_t>(variable)];
  if (v != 255) v = flag;
}

// The missing-value test of both scanners at p ("." or the MSYM character):
// looks at the byte after it, refilling first when that byte is the buffer's
// end and more input follows. Returns the byte after the missing-value
// character; p may have moved to the buffer's start.
inline char peek_after_missing(ReadBuffer& rb, char*& p) {
  if (p[1] == '\0' && rb.theresmore) p = fillbuff(rb, p);
  return p[1];
}

namespace scan_detail {

// Every step of scanstr: the missing value, then the bytes up to a
// terminator, the first 8 kept, refilling where the text ends and more
// follows.
inline char* scanstr_steps(Engine& engine, char* pos, char* slot, int field, uint32_t& status) {
  ReadBuffer& rb = engine.rb;
  const int variable = field / engine.plan.parts();
  std::memset(slot, 0, 8);
  mark_character(engine, variable, 1);
  status = 1;
  if (*pos == '.' || *pos == engine.plan.missing_symbol) {
    if (is_terminator(peek_after_missing(rb, pos))) {
      store_missval(slot);
      return pos + 1;
    }
  }
  int n = 0;
  while (!is_terminator(*pos)) {
    if (n < 8) {
      slot[n++] = *pos;
    } else {
      mark_character(engine, variable, 255);
    }
    if (pos[1] == '\0' && rb.theresmore) {
      pos = fillbuff(rb, pos + 1);
    } else {
      ++pos;
    }
  }
  return pos;
}

}  // namespace scan_detail

#if KOLV_WIDE_NUMBERS
namespace scan_detail {

// Bit i set when byte i of the 16 at p ends a field: NUL, TAB, LF, CR,
// space or comma.
inline uint32_t terminators16(const char* p) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i t = _mm_or_si128(
      _mm_or_si128(_mm_cmpeq_epi8(v, _mm_setzero_si128()), _mm_cmpeq_epi8(v, _mm_set1_epi8('\t'))),
      _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('\n')),
                                _mm_cmpeq_epi8(v, _mm_set1_epi8('\r'))),
                   _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8(' ')),
                                _mm_cmpeq_epi8(v, _mm_set1_epi8(',')))));
  return static_cast<uint32_t>(_mm_movemask_epi8(t));
}

}  // namespace scan_detail
#endif

// A character field. Wide: a field that is not a missing value and ends
// within 16 bytes at a terminator other than the text's zero byte is taken
// in one step (its steps would copy the same bytes, refill nothing and stop
// at the same terminator); every other field takes the steps.
template <bool Wide>
inline char* scanstr_as(Engine& engine, char* pos, char* slot, int field, uint32_t& status) {
#if KOLV_WIDE_NUMBERS
  if constexpr (Wide) {
    const char c = *pos;
    const uint32_t ends =
        c == '.' || c == engine.plan.missing_symbol ? 0 : scan_detail::terminators16(pos);
    if (ends != 0) {
      const int t = std::countr_zero(ends);
      if (pos[t] != '\0') {
        const int variable = field / engine.plan.parts();
        mark_character(engine, variable, 1);
        if (t > 8) mark_character(engine, variable, 255);
        // The read buffer keeps kReadSlack bytes after its text: 8 may be loaded.
        uint64_t bytes = numparse_detail::load8(pos);
        if (t < 8) bytes &= (uint64_t{1} << (8 * t)) - 1;
        std::memcpy(slot, &bytes, 8);
        status = 1;
        return pos + t;
      }
    }
  }
#endif
  return scan_detail::scanstr_steps(engine, pos, slot, field, status);
}

inline char* scanstr(Engine& engine, char* pos, char* slot, int field, uint32_t& status) {
  return scanstr_as<kWideNumbers>(engine, pos, slot, field, status);
}

// A digit or a sign: the bytes '+' (0x2B), '-' (0x2D) and '0' to '9' (0x30 to
// 0x39) as bits of one mask over the bytes from 0x2B, tested without a
// branch (signs come in random order: a branch on them would be mispredicted
// for every other field).
inline bool starts_number(char c) {
  const unsigned d = static_cast<unsigned char>(c) - 0x2Bu;
  return (d < 15) & ((0x7FE5u >> (d & 15)) & 1);
}

namespace scan_detail {

// Every step of scandbl in order: the early refill, blanks, the missing value,
// a word, the number with its refills.
[[gnu::noinline]] inline char* scandbl_steps(Engine& engine, char* pos, char* slot, int field,
                                             uint32_t& status) {
  ReadBuffer& rb = engine.rb;
  char* const buffer_end = rb.inbuff.get() + kReadSize;
  if (buffer_end - pos < 80 && rb.theresmore) pos = fillbuff(rb, pos);

  char* start = pos;
  for (;;) {
    rb.cperr = start;
    while (*pos == ' ') ++pos;
    if (!at_refill(rb, pos)) break;
    // A run of blanks as long as the buffer cannot be kept whole.
    start = fillbuff(rb, pos - start < rb.read_size ? start : pos);
    pos = start;
  }

  if (*pos == '.' || *pos == engine.plan.missing_symbol) {
    rb.cperr = pos;
    char next = peek_after_missing(rb, pos);
    if (is_terminator(next) || next == 'I' || next == '}') {
      store_missval(slot);
      status = 1;
      return pos + 1;
    }
  }
  unsigned char first = static_cast<unsigned char>(*pos);
  if (first == '_' || is_letter(first)) return scanstr(engine, pos, slot, field, status);

  bool refilled = false;
  double value;
  const char* end;
  for (;;) {
    end = parse_double(pos, &value);
    if (*end != '\0' && (end != pos || refilled)) break;
    if (!rb.theresmore) break;
    // A number as long as the whole buffer cannot be seen whole: bad data.
    if (end - pos >= rb.read_size || strnlen(pos, kReadSize) >= static_cast<size_t>(rb.read_size)) {
      end = pos;
      break;
    }
    pos = fillbuff(rb, pos);
    refilled = true;
  }
  if (end == pos) {
    status = 0;
    return pos;
  }
  std::memcpy(slot, &value, 8);
  status = 1;
  return const_cast<char*>(end);
}

}  // namespace scan_detail

// The common field is decided in a few steps: no early refill is due (the
// position lies at least 80 bytes before the buffer's read limit), the field
// begins with a digit or a sign that is not the missing-value character, and
// its number ends before the buffer's zero byte. The full steps would find no
// blank, no missing value and no word there, convert the same number and
// keep it; every other field takes the full steps. Wide: the number is read
// by the 16-byte window first (where it is built); otherwise by the padded
// conversion alone. Both give strtod's value and end.
template <bool Wide>
inline char* scandbl_as(Engine& engine, char* pos, char* slot, int field, uint32_t& status) {
  const char* const buffer = engine.rb.inbuff.get();
  if (reinterpret_cast<uintptr_t>(pos) - reinterpret_cast<uintptr_t>(buffer) <=
      static_cast<uintptr_t>(kReadSize - 80)) {
    const char c = *pos;
    if (c != engine.plan.missing_symbol && starts_number(c)) {
      double value;
      // The text lies in the read buffer, which keeps kReadSlack bytes after it.
      const char* end = Wide ? parse_field(pos, &value) : parse_double_padded(pos, &value);
      if (end != pos && *end != '\0') {
        engine.rb.cperr = pos;
        std::memcpy(slot, &value, 8);
        status = 1;
        return const_cast<char*>(end);
      }
    }
  }
  return scan_detail::scandbl_steps(engine, pos, slot, field, status);
}

inline char* scandbl(Engine& engine, char* pos, char* slot, int field, uint32_t& status) {
  return scandbl_as<kWideNumbers>(engine, pos, slot, field, status);
}

}  // namespace kolv
