#include "journal_view.hpp"

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace kolvdump {

#ifdef __GLIBC__
namespace {

struct View {
  int fd = -1;
  const kolv::JournalImage* image = nullptr;
  uint64_t at = 0;
};

ssize_t view_read(void* cookie, char* to, size_t size) {
  View& v = *static_cast<View*>(cookie);
  const uint64_t length = v.image->length;
  const uint64_t saved = v.image->saved.size();
  size_t done = 0;
  while (done < size && v.at < length) {
    if (v.at < saved) {
      const size_t n = static_cast<size_t>(std::min<uint64_t>(size - done, saved - v.at));
      std::memcpy(to + done, v.image->saved.data() + v.at, n);
      done += n;
      v.at += n;
      continue;
    }
    const size_t want = static_cast<size_t>(std::min<uint64_t>(size - done, length - v.at));
    const ssize_t n = ::pread(v.fd, to + done, want, static_cast<off_t>(v.at));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return done > 0 ? static_cast<ssize_t>(done) : -1;
    if (n == 0) break;  // the file is shorter than its old length
    done += static_cast<size_t>(n);
    v.at += static_cast<uint64_t>(n);
  }
  return static_cast<ssize_t>(done);
}

int view_seek(void* cookie, off64_t* offset, int whence) {
  View& v = *static_cast<View*>(cookie);
  int64_t base = 0;
  if (whence == SEEK_CUR) base = static_cast<int64_t>(v.at);
  if (whence == SEEK_END) base = static_cast<int64_t>(v.image->length);
  const int64_t to = base + static_cast<int64_t>(*offset);
  if (to < 0) {
    errno = EINVAL;
    return -1;
  }
  v.at = static_cast<uint64_t>(to);
  *offset = to;
  return 0;
}

int view_close(void* cookie) {
  delete static_cast<View*>(cookie);
  return 0;
}

}  // namespace

FILE* open_journal_view(FILE* file, const kolv::JournalImage& image) {
  View* v = new (std::nothrow) View;
  if (v == nullptr) return nullptr;
  v->fd = ::fileno(file);
  v->image = &image;
  cookie_io_functions_t io = {};
  io.read = view_read;
  io.seek = view_seek;
  io.close = view_close;
  FILE* view = ::fopencookie(v, "rb", io);
  if (view == nullptr) delete v;
  return view;
}
#else
FILE* open_journal_view(FILE*, const kolv::JournalImage&) {
  return nullptr;
}
#endif

}  // namespace kolvdump
