#include "engine/readbuf.hpp"

#include <cstring>

namespace kolv {

void first_fill(ReadBuffer& rb) {
  char* buffer = rb.inbuff.get();
  size_t count = 0;
  if (rb.theresmore) {
    count = std::fread(buffer, 1, static_cast<size_t>(rb.read_size), rb.infp);
    rb.readbytes = static_cast<int>(count);
    if (count < static_cast<size_t>(rb.read_size)) rb.theresmore = 0;
  }
  buffer[count] = '\0';
  rb.buffered = count;
}

char* fillbuff(ReadBuffer& rb, char* pos) {
  char* buffer = rb.inbuff.get();
  size_t tail = strnlen(pos, static_cast<size_t>(buffer + kInbuffSize - 1 - pos));
  std::memmove(buffer, pos, tail);
  size_t count = 0;
  if (rb.theresmore && tail < static_cast<size_t>(rb.read_size)) {
    size_t want = static_cast<size_t>(rb.read_size) - tail;
    count = std::fread(buffer + tail, 1, want, rb.infp);
    rb.readbytes = static_cast<int>(count);
    if (count < want) rb.theresmore = 0;
  }
  buffer[tail + count] = '\0';
  rb.buffered = tail + count;
  ++rb.fills;
  return buffer;
}

}  // namespace kolv
