#include "base/fatal.hpp"

#include <cstdarg>
#include <cstdio>
#include <string>

#include "base/state.hpp"

namespace kolv {

void getout(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list copy;
  va_copy(copy, args);
  int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string message(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(message.data(), message.size() + 1, format, args);
  va_end(args);
  throw FatalError{std::move(message)};
}

void end_quietly() {
  throw FatalError{};
}

}  // namespace kolv
