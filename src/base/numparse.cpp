// The out-of-line parts of parse_double: from_chars for decimals the fast
// path cannot convert exactly, strtod for everything else, and the whole
// padded conversion behind parse_double_padded's straight line.
#include "base/numparse.hpp"

#include <charconv>
#include <cstdlib>
#include <system_error>

namespace kolv::numparse_detail {

const char* parse_decimal_slow(const char* p, const char* num, const char* end, double* out) {
  double v;
  const auto r = std::from_chars(num, end, v);
  // Out-of-range results (overflow, or a nonzero value that rounds to zero)
  // leave v unset; strtod gives them as +-HUGE_VAL or a signed zero.
  if (r.ec == std::errc() && r.ptr == end) {
    *out = v;
    return end;
  }
  return parse_with_strtod(p, out);
}

const char* parse_padded_whole(const char* p, double* out) {
  return parse_double_as<true>(p, out);
}

const char* parse_with_strtod(const char* p, double* out) {
  char* end;
  *out = std::strtod(p, &end);
  return end;
}

}  // namespace kolv::numparse_detail
