#include "output.hpp"

#include <cerrno>

namespace kolvdump {

bool Output::flush() {
  if (error_ == 0 && used_ > 0) {
    errno = 0;
    if (std::fwrite(buffer_.data(), 1, used_, stream_) != used_ || std::fflush(stream_) != 0) {
      error_ = errno != 0 ? errno : EIO;
    }
  }
  used_ = 0;
  return error_ == 0;
}

}  // namespace kolvdump
