#include "base/interrupt.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <new>

namespace kolv {

namespace {

// Repeats a positional read or write (io(at) moves the bytes from offset at
// on) from `done` until `size` bytes are done, the call fails or it moves
// nothing (the end of the file); returns how far it got. It makes no other
// call, so the signal handler may use it.
template <class Io>
size_t repeat_io(size_t done, size_t size, Io io) {
  while (done < size) {
    const ssize_t n = io(done);
    if (n > 0) {
      done += static_cast<size_t>(n);
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else {
      break;
    }
  }
  return done;
}

constexpr int kHandled[5] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ};

// The one mutable file-scope object of the library: the undo record of the
// run in progress, for the signal handler, which can reach nothing else. It
// is a lock-free atomic pointer, so the handler reads it whole whenever it
// runs; it is set before the first handler is installed and cleared after
// the last is removed. One run per process holds it at a time.
std::atomic<InterruptGuard*> g_active{nullptr};
static_assert(std::atomic<InterruptGuard*>::is_always_lock_free);

sigset_t handled_set() {
  sigset_t set;
  sigemptyset(&set);
  for (int sig : kHandled) sigaddset(&set, sig);
  return set;
}

// Only async-signal-safe calls, on what the record holds: the run changes
// the record only with these signals blocked, so it is whole here.
extern "C" void on_interrupt(int sig) {
  const int saved_errno = errno;
  if (InterruptGuard* guard = g_active.load()) {
    const Undo undo = static_cast<Undo>(guard->undo);
    guard->undo = static_cast<sig_atomic_t>(Undo::kNothing);
    if (undo == Undo::kRemoveFile && guard->remove_name != nullptr) {
      ::unlink(guard->remove_name);
    } else if (undo == Undo::kRestoreAppend && guard->fd >= 0) {
      // Rows appended so far go first, then the old header and variable
      // block go back over whatever the run wrote there.
      if (::ftruncate(guard->fd, guard->length) != 0) {
        // Nothing more can be done from here; the bytes are still written back.
      }
      repeat_io(0, guard->saved_size, [guard](size_t at) {
        return ::pwrite(guard->fd, guard->saved_bytes + at, guard->saved_size - at,
                        static_cast<off_t>(at));
      });
      // The journal goes only once the data set is back on disk.
      if (guard->journal_written != 0) {
        if (!guard->sync || ::fsync(guard->fd) == 0) ::unlink(guard->journal);
        guard->journal_written = 0;
      }
    }
  }
  // End by the same signal, with its usual action, once this handler returns
  // (the signal stays blocked until then).
  ::signal(sig, SIG_DFL);
  ::raise(sig);
  errno = saved_errno;
}

}  // namespace

InterruptGuard::~InterruptGuard() {
  if (fd >= 0) ::close(fd);
}

SignalBlock::SignalBlock() {
  const sigset_t set = handled_set();
  ::sigprocmask(SIG_BLOCK, &set, &previous_);
}

SignalBlock::~SignalBlock() {
  ::sigprocmask(SIG_SETMASK, &previous_, nullptr);
}

bool arm_interrupts(InterruptGuard& guard) {
  SignalBlock block;
  InterruptGuard* none = nullptr;
  if (!g_active.compare_exchange_strong(none, &guard)) return false;
  struct sigaction action = {};
  action.sa_handler = on_interrupt;
  action.sa_mask = handled_set();
  action.sa_flags = SA_RESTART;
  for (size_t i = 0; i < 5; ++i) {
    guard.handled[i] = false;
    if (::sigaction(kHandled[i], nullptr, &guard.previous[i]) != 0) continue;
    if (guard.previous[i].sa_handler == SIG_IGN) continue;  // ignored at start: kept so
    guard.handled[i] = ::sigaction(kHandled[i], &action, nullptr) == 0;
  }
  guard.armed = true;
  return true;
}

void disarm_interrupts(InterruptGuard& guard) {
  if (!guard.armed) return;
  SignalBlock block;
  for (size_t i = 0; i < 5; ++i) {
    if (guard.handled[i]) ::sigaction(kHandled[i], &guard.previous[i], nullptr);
    guard.handled[i] = false;
  }
  g_active.store(nullptr);
  guard.armed = false;
}

void guard_remove(InterruptGuard& guard, const char* name) {
  SignalBlock block;
  guard.remove_name = name;
  guard.undo = static_cast<sig_atomic_t>(Undo::kRemoveFile);
}

void guard_restore(InterruptGuard& guard, int fd, off_t length) {
  {
    SignalBlock block;
    if (guard.fd >= 0 && guard.fd != fd) ::close(guard.fd);
    guard.fd = fd;
    guard.length = length;
    guard.saved_bytes = nullptr;
    guard.saved_size = 0;
    guard.saved.clear();
    guard.undo = static_cast<sig_atomic_t>(Undo::kRestoreAppend);
  }
  guard_cover(guard, 128);
}

bool guard_cover(InterruptGuard& guard, uint64_t end) {
  if (guard.fd < 0) return true;
  if (end > static_cast<uint64_t>(guard.length)) end = static_cast<uint64_t>(guard.length);
  const size_t have = guard.saved_size;
  if (end <= have) return true;
  // Grow a copy first; the record the handler reads changes only while the
  // signals are blocked. The bytes saved already are kept as they are: the
  // run may have overwritten them since.
  std::vector<unsigned char> grown;
  try {
    grown.reserve(static_cast<size_t>(end));
    grown.assign(guard.saved.begin(), guard.saved.end());
    grown.resize(static_cast<size_t>(end));
  } catch (const std::bad_alloc&) {
    return false;
  }
  const size_t done = repeat_io(have, grown.size(), [&](size_t at) {
    return ::pread(guard.fd, grown.data() + at, grown.size() - at, static_cast<off_t>(at));
  });
  if (done <= have) return false;
  grown.resize(done);
  SignalBlock block;
  guard.saved.swap(grown);
  guard.saved_bytes = guard.saved.data();
  guard.saved_size = guard.saved.size();
  return done == static_cast<size_t>(end);
}

void guard_clear(InterruptGuard& guard) {
  SignalBlock block;
  guard.undo = static_cast<sig_atomic_t>(Undo::kNothing);
}

void lock_exclusive(int fd) {
#ifdef F_OFD_SETLKW
  // A write lock over the whole file, owned by this open file description:
  // it lasts as long as `fd`, whatever other opens and closes of the same
  // file the run makes, and it does not meet the flock locks a wrapper
  // script may hold on the data set.
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  whole.l_start = 0;
  whole.l_len = 0;
  for (;;) {
    if (::fcntl(fd, F_OFD_SETLKW, &whole) == 0) return;
    if (errno == EINTR) continue;
    if (errno != EINVAL) return;  // the file system keeps no locks: used unlocked
    break;                        // a system without such locks: flock below
  }
#endif
  while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
  }
}

}  // namespace kolv
