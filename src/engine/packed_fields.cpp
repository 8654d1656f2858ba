// The field converters of packed records: a field's text cut from its
// record, and its conversion into an 8-byte slot.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "base/numparse.hpp"
#include "base/numwide.hpp"
#include "engine/packed.hpp"
#include "engine/scanners.hpp"
#include "format/dataset.hpp"

namespace kolv {

void scanstrtemp(Engine& engine, const char* text, char* value, int index, uint32_t& status) {
  std::memset(value, 0, 8);
  mark_character(engine, index, 1);
  status = 1;
  if (*text != '\0' && (*text == '.' || *text == engine.plan.missing_symbol) &&
      is_terminator(text[1])) {
    store_missval(value);
    return;
  }
  int n = 0;
  for (const char* p = text; !is_terminator(*p); ++p) {
    if (n == 8) {
      mark_character(engine, index, 255);
      break;
    }
    value[n++] = *p;
  }
}

void scandbltemp(Engine& engine, const char* text, char* value, int index, uint32_t& status) {
  engine.rb.cperr = text;
  const char* p = text;
  while (*p == ' ') ++p;
  if (*p != '\0' && (*p == '.' || *p == engine.plan.missing_symbol)) {
    char next = p[1];
    if (is_terminator(next) || next == 'I' || next == '}') {
      store_missval(value);
      status = 1;
      return;
    }
  }
  unsigned char first = static_cast<unsigned char>(*p);
  if (first == '_' || is_letter(first)) {
    scanstrtemp(engine, p, value, index, status);
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

namespace {

// Eight bytes at a time: blanks, then sign and digits.
bool packed_number_words(const char* field, int64_t width, int decimals, char mstring,
                         double* out) {
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
    mant = mant * numparse_detail::kPow10Int[take] +
           eight_digits(take == 8 ? x : x << (64 - 8 * take));
    q += take;
    left -= take;
  }
  if (mant > (uint64_t{1} << 53)) return false;
  const double v = static_cast<double>(mant) / numparse_detail::kPow10[decimals];
  *out = std::bit_cast<double>(std::bit_cast<uint64_t>(v) | uint64_t{neg} << 63);
  return true;
}

#if KOLV_WIDE_NUMBERS
// A field of at most 16 bytes in one 16-byte load: the blanks, the sign and
// the digits are found by masks; the digits' values, gathered by the
// multiply-add ladder, make mant times 10^(16 - width), which is exact in a
// double up to 2^53, and then one division by 10^(16 - width + decimals)
// gives mant / 10^decimals correctly rounded. A field it cannot finish (a
// product beyond 2^53, a divisor beyond 10^22) goes to the word reader,
// which decides the same fields.
bool packed_number_window(const char* field, int width, int decimals, char mstring, double* out) {
  using namespace numwide_detail;
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(field));
  const __m128i values = _mm_sub_epi8(v, _mm_set1_epi8('0'));
  const __m128i is_digit = _mm_cmpeq_epi8(_mm_min_epu8(values, _mm_set1_epi8(9)), values);
  const uint32_t inside = (uint32_t{1} << width) - 1;
  const uint32_t digits = static_cast<uint32_t>(_mm_movemask_epi8(is_digit)) & inside;
  const uint32_t blanks =
      static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8(' ')))) & inside;
  const int q = std::countr_zero(~blanks);  // the first byte that is not a blank
  if (q >= width || field[q] == '.' || field[q] == mstring) return false;
  const bool neg = field[q] == '-';
  const int s = q + (neg || field[q] == '+');
  const int left = width - s;
  if (left < 1 || left < decimals || decimals > 22) return false;
  if ((digits | ((uint32_t{1} << s) - 1)) != inside) return false;
  const int scale = 16 - width + decimals;
  const uint64_t scaled =
      sixteen_digits(_mm_and_si128(_mm_and_si128(values, is_digit), before(width)));
  if (scaled > (uint64_t{1} << 53) || scale > 22)
    return packed_number_words(field, width, decimals, mstring, out);
  const double x = static_cast<double>(scaled) / numparse_detail::kPow10[scale];
  *out = std::bit_cast<double>(std::bit_cast<uint64_t>(x) | uint64_t{neg} << 63);
  return true;
}
#endif

}  // namespace

template <bool Wide>
bool packed_number_as(const char* field, int64_t width, int decimals, char mstring, double* out) {
#if KOLV_WIDE_NUMBERS
  if (Wide && width >= 0 && width <= 16)
    return packed_number_window(field, static_cast<int>(width), decimals, mstring, out);
#endif
  return packed_number_words(field, width, decimals, mstring, out);
}

template bool packed_number_as<false>(const char*, int64_t, int, char, double*);
template bool packed_number_as<true>(const char*, int64_t, int, char, double*);

char* append_field(char* out, PackedRecord rec, int64_t start, int64_t from, int64_t to) {
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

char* numeric_text(char* out, PackedRecord rec, const PackedField& f) {
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

bool all_blanks(const char* text, const char* end) {
  for (; text != end; ++text)
    if (*text != ' ') return false;
  return true;
}

}  // namespace kolv
