#include "base/journal.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/fatal.hpp"
#include "base/paths.hpp"

namespace kolv {

namespace {

// The journal's messages, kept together.
constexpr char kRolledBack[] = "KOLV - Interrupted append to %s rolled back from %s\n";
constexpr char kDamaged[] =
    "KOLV - Journal %s fails its checksum: left alone, %s not appended to\n";
constexpr char kCantRollBack[] = "KOLV - Can't roll back %s from %s\n";
constexpr char kCantWriteJournal[] = "KOLV - Can't write journal %s\n";

// The journal file: a fixed head of little-endian words, then the saved
// bytes.
//   0  magic "KOLVJNL1"
//   8  the data set's length before the append
//  16  how many saved bytes follow the head
//  24  the data set's device and 32 its inode (the file it was made for)
//  40  checksum: 64-bit FNV-1a over bytes 0-39, then over the saved bytes
//  48  the saved bytes: the data set's first bytes before the append
constexpr unsigned char kMagic[8] = {'K', 'O', 'L', 'V', 'J', 'N', 'L', '1'};
constexpr size_t kHead = 48;

void put64(unsigned char* at, uint64_t value) {
  for (int i = 0; i < 8; ++i) at[i] = static_cast<unsigned char>(value >> (8 * i));
}

uint64_t get64(const unsigned char* at) {
  uint64_t value = 0;
  for (int i = 7; i >= 0; --i) value = (value << 8) | at[i];
  return value;
}

uint64_t fnv1a(uint64_t hash, const unsigned char* bytes, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    hash ^= bytes[i];
    hash *= 0x100000001b3ULL;
  }
  return hash;
}

uint64_t checksum(const unsigned char* head, const unsigned char* saved, size_t size) {
  return fnv1a(fnv1a(0xcbf29ce484222325ULL, head, 40), saved, size);
}

bool write_all(int fd, const unsigned char* bytes, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, bytes, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool pwrite_all(int fd, const unsigned char* bytes, size_t size) {
  size_t at = 0;
  while (at < size) {
    const ssize_t n = ::pwrite(fd, bytes + at, size - at, static_cast<off_t>(at));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    at += static_cast<size_t>(n);
  }
  return true;
}

// The journal, whole, under `name`: written, synced, closed.
bool write_file(const char* name, const unsigned char* head, const unsigned char* saved,
                size_t size) {
  const int fd = ::open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  bool ok = write_all(fd, head, kHead) && write_all(fd, saved, size) && sync_fd(fd);
  if (::close(fd) != 0) ok = false;
  return ok;
}

// Whether new files can be made in the directory of `path`: false only when
// the directory refuses them (permissions, a read-only file system).
bool can_create_beside(const char* path) {
  std::string directory(path);
  const size_t slash = directory.rfind('/');
  directory = slash == std::string::npos ? "." : directory.substr(0, slash == 0 ? 1 : slash);
  if (::access(directory.c_str(), W_OK | X_OK) == 0) return true;
  return errno != EACCES && errno != EPERM && errno != EROFS;
}

bool remove_if_there(const std::string& name) {
  return ::unlink(name.c_str()) == 0;
}

}  // namespace

std::string journal_path(const char* dataset) {
  return std::string(dataset) + "-journal";
}

bool sync_wanted() {
  static const bool wanted = [] {
    const char* value = std::getenv("KOLV_SYNC");
    return value == nullptr || std::strcmp(value, "0") != 0;
  }();
  return wanted;
}

bool sync_fd(int fd) {
  if (!sync_wanted()) return true;
  while (::fsync(fd) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

bool sync_directory_of(const char* path) {
  if (!sync_wanted()) return true;
  std::string directory(path);
  const size_t slash = directory.rfind('/');
  if (slash == std::string::npos) {
    directory = ".";
  } else {
    directory.resize(slash == 0 ? 1 : slash);
  }
  const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = sync_fd(fd);
  ::close(fd);
  return ok;
}

JournalState read_journal(const char* dataset, int fd, JournalImage& image) {
  const std::string name = journal_path(dataset);
  const int jfd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (jfd < 0) return JournalState::kNone;
  struct stat js;
  struct stat ds;
  std::vector<unsigned char> bytes;
  bool whole = ::fstat(jfd, &js) == 0 && js.st_size >= static_cast<off_t>(kHead);
  if (whole) {
    try {
      bytes.resize(static_cast<size_t>(js.st_size));
    } catch (const std::bad_alloc&) {
      whole = false;
    }
  }
  size_t got = 0;
  while (whole && got < bytes.size()) {
    const ssize_t n = ::pread(jfd, bytes.data() + got, bytes.size() - got, static_cast<off_t>(got));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  ::close(jfd);
  if (!whole || got != bytes.size() || std::memcmp(bytes.data(), kMagic, 8) != 0)
    return JournalState::kDamaged;
  const unsigned char* head = bytes.data();
  const uint64_t saved = get64(head + 16);
  if (saved != bytes.size() - kHead || get64(head + 8) < saved ||
      checksum(head, head + kHead, bytes.size() - kHead) != get64(head + 40))
    return JournalState::kDamaged;
  if (::fstat(fd, &ds) != 0 || get64(head + 24) != static_cast<uint64_t>(ds.st_dev) ||
      get64(head + 32) != static_cast<uint64_t>(ds.st_ino))
    return JournalState::kNone;  // made for a file this name no longer holds
  image.length = get64(head + 8);
  image.saved.assign(bytes.begin() + kHead, bytes.end());
  return JournalState::kHot;
}

bool roll_back(int fd, const JournalImage& image) {
  if (::ftruncate(fd, static_cast<off_t>(image.length)) != 0) return false;
  return pwrite_all(fd, image.saved.data(), image.saved.size()) && sync_fd(fd);
}

void recover_journal(const char* dataset, int fd, FILE* err) {
  const std::string name = journal_path(dataset);
  // What a run stopped while writing its journal left: never the journal.
  if (remove_if_there(name + "-new")) sync_directory_of(dataset);
  JournalImage image;
  switch (read_journal(dataset, fd, image)) {
    case JournalState::kDamaged:
      getout(kDamaged, name.c_str(), dataset);
    case JournalState::kNone:
      if (remove_if_there(name)) sync_directory_of(dataset);  // a stale one
      return;
    case JournalState::kHot:
      break;
  }
  if (!roll_back(fd, image)) getout(kCantRollBack, dataset, name.c_str());
  ::unlink(name.c_str());
  sync_directory_of(dataset);
  std::fprintf(err, kRolledBack, dataset, name.c_str());
}

void journal_attach(InterruptGuard& guard, const char* dataset) {
  SignalBlock block;
  g_strlcpy(guard.journal, journal_path(dataset).c_str(), sizeof guard.journal);
  guard.journal_written = 0;
  guard.journal_size = 0;
  guard.sync = sync_wanted();
}

void journal_cover(InterruptGuard& guard, uint64_t end) {
  const bool read = guard_cover(guard, end);
  if (guard.journal[0] == '\0' || guard.fd < 0) return;
  if (guard.journal_written != 0 && guard.saved_size <= guard.journal_size) return;
  if (!read) getout(kCantWriteJournal, guard.journal);
  struct stat ds;
  if (::fstat(guard.fd, &ds) != 0) getout(kCantWriteJournal, guard.journal);
  unsigned char head[kHead];
  std::memcpy(head, kMagic, 8);
  put64(head + 8, static_cast<uint64_t>(guard.length));
  put64(head + 16, guard.saved_size);
  put64(head + 24, static_cast<uint64_t>(ds.st_dev));
  put64(head + 32, static_cast<uint64_t>(ds.st_ino));
  put64(head + 40, checksum(head, guard.saved_bytes, guard.saved_size));
  const std::string fresh = std::string(guard.journal) + "-new";
  // Written aside and renamed into place, with the signals held back: the
  // journal is whole or absent, and a signal finds it recorded once it is
  // there.
  SignalBlock block;
  if (guard.journal_written == 0 && !can_create_beside(guard.journal)) {
    // A directory that refuses new files (the data set itself may be
    // written): the append goes on as it always did, without a journal.
    guard.journal[0] = '\0';
    return;
  }
  bool ok = write_file(fresh.c_str(), head, guard.saved_bytes, guard.saved_size) &&
            ::rename(fresh.c_str(), guard.journal) == 0;
  if (ok) {
    guard.journal_written = 1;
    guard.journal_size = guard.saved_size;
    ok = sync_directory_of(guard.journal);
  } else {
    ::unlink(fresh.c_str());
  }
  if (!ok) getout(kCantWriteJournal, guard.journal);
}

void journal_commit(InterruptGuard& guard) {
  SignalBlock block;
  if (guard.fd >= 0) sync_fd(guard.fd);
  if (guard.journal_written == 0) return;
  ::unlink(guard.journal);
  guard.journal_written = 0;
  sync_directory_of(guard.journal);
}

void journal_drop(InterruptGuard& guard) {
  journal_commit(guard);
}

void journal_discard(const char* dataset) {
  const std::string name = journal_path(dataset);
  const bool removed = remove_if_there(name);
  if (remove_if_there(name + "-new") || removed) sync_directory_of(dataset);
}

}  // namespace kolv
