// What a run undoes when a signal ends it, and the one-writer lock of a data
// set being appended to.
//
// A run that is stopped by SIGINT, SIGTERM, SIGHUP, SIGPIPE or SIGXFSZ leaves
// the disk as it found it: a fresh output's temporary file is removed (an
// existing file of the output's name was never touched), and a data set being
// appended to is cut back to its old length with its old first bytes (header
// and variable block) written back. Then the process ends by the same signal.
//
// The undo record, InterruptGuard, is built by the run with those signals
// blocked (SignalBlock), so the handler always finds it whole; the handler
// itself only calls unlink, ftruncate, pwrite, signal and raise on what the
// record already holds. The run clears the record, signals still blocked,
// at the step that completes the output (the rename of a fresh output, the
// final header of an appended data set): a signal seen before that step
// undoes the run, one seen after it finds a finished run and nothing to undo.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kolv {

// What a signal arriving now has to undo.
enum class Undo : int {
  kNothing = 0,
  kRemoveFile = 1,     // a file this run created: its temporary output (also
                       // the data set an APPEND run makes aside when none exists)
  kRestoreAppend = 2,  // a data set being appended to
};

struct InterruptGuard {
  InterruptGuard() = default;
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
  // Closes the lock descriptor, which releases the lock.
  ~InterruptGuard();

  volatile sig_atomic_t undo = static_cast<sig_atomic_t>(Undo::kNothing);
  const char* remove_name = nullptr;  // kRemoveFile: the file to remove
  int fd = -1;                        // the appended data set, open for update and locked
  off_t length = 0;                   // kRestoreAppend: its length before the run
  // Its first bytes before the run: everything the run may overwrite before
  // its final header. Grown by guard_cover before each such write.
  std::vector<unsigned char> saved;
  const unsigned char* saved_bytes = nullptr;  // saved.data() as the handler reads it
  size_t saved_size = 0;
  // The run's rollback journal (journal.hpp): its name, and whether it is
  // on disk. A signal removes it after the rollback, which it syncs first
  // when `sync` is set.
  char journal[1040] = {};
  volatile sig_atomic_t journal_written = 0;
  size_t journal_size = 0;  // the saved bytes the written journal holds
  bool sync = true;

  // Signal actions in force before arm_interrupts, restored by
  // disarm_interrupts. Only signals that were not ignored are handled.
  struct sigaction previous[5] = {};
  bool handled[5] = {};
  bool armed = false;
};

// Blocks the signals the run handles for as long as it lives: what is done
// in between is seen by a signal as all done or not begun.
class SignalBlock {
 public:
  SignalBlock();
  ~SignalBlock();
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

 private:
  sigset_t previous_;
};

// Installs the handler for every handled signal that is not ignored (a signal
// ignored by the parent, such as SIGINT for a background job or SIGXFSZ for
// a run that wants failed writes instead, stays ignored) and makes `guard` the
// record the handler reads. Returns false, installing nothing, when another
// run of this process already holds the handler.
bool arm_interrupts(InterruptGuard& guard);

// Restores the signal actions that arm_interrupts replaced. A signal that
// arrives later finds the previous action.
void disarm_interrupts(InterruptGuard& guard);

// From now on a signal removes `name` (a buffer that outlives the run).
void guard_remove(InterruptGuard& guard, const char* name);

// From now on a signal cuts the data set open on `fd` back to `length` bytes
// and writes back the first bytes that guard_cover saved; at least the
// 128-byte header is saved here. `fd` now belongs to the guard.
void guard_restore(InterruptGuard& guard, int fd, off_t length);

// Saves the data set's bytes up to `end` (at most its old length) before the
// run overwrites them. Returns false when they could not be read or held;
// a signal then restores only the bytes that were saved.
bool guard_cover(InterruptGuard& guard, uint64_t end);

// The run has completed its output: a signal from now on undoes nothing.
void guard_clear(InterruptGuard& guard);

// Takes the exclusive advisory lock of `fd`, waiting while another run holds
// it. A file system without such locks is used unlocked.
void lock_exclusive(int fd);

}  // namespace kolv
