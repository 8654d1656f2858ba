// The rollback journal of an APPEND run, and the syncs that make a finished
// run durable.
//
// Before the first byte of a data set being appended to changes, the run
// writes NAME.dat-journal beside it: the data set's length before the run and
// its first bytes (the header, the variable block and whatever else the new
// variable block will cover), with a checksum. The journal is written under
// NAME.dat-journal-new, synced, renamed into place and its directory synced,
// so that it is either whole or absent. Then the rows are appended and
// synced, the header written and synced, and the journal removed: that
// removal is the commit. A journal found beside a data set by the next run
// that takes the data set's lock belongs to a run that never reached its end
// ("hot"): the data set is cut back to its old length, its old first bytes
// written back and synced, and the journal removed.
//
// The journal names the file it was made for (device and inode): a journal
// beside another file of that name (the output was replaced since) is stale.
//
// KOLV_SYNC=0 in the environment turns every sync off (the journal is still
// written: it is what undoes a killed run); any other value, or none, syncs.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "base/interrupt.hpp"

namespace kolv {

// What a journal beside a data set says.
enum class JournalState {
  kNone,     // no journal (or a stale one, made for another file)
  kHot,      // a whole journal of this data set: an unfinished append
  kDamaged,  // a journal whose checksum fails: never rolled back from
};

struct JournalImage {
  uint64_t length = 0;               // the data set's length before the append
  std::vector<unsigned char> saved;  // its first bytes before the append
};

// NAME.dat-journal for NAME.dat.
std::string journal_path(const char* dataset);

// Whether syncs are on (KOLV_SYNC is not "0"); read once.
bool sync_wanted();

// Syncs the file open on `fd`, or the directory that holds `path`, when
// syncs are on. True when done (or off).
bool sync_fd(int fd);
bool sync_directory_of(const char* path);

// Reads the journal beside the data set open on `fd`. A stale journal reads
// as kNone.
JournalState read_journal(const char* dataset, int fd, JournalImage& image);

// Puts the data set open on `fd` back as the journal says and syncs it.
bool roll_back(int fd, const JournalImage& image);

// After the append lock is taken: rolls back a hot journal (one line on
// `err`), removes a stale one and what an interrupted journal write left;
// a damaged journal ends the run, left as it is.
void recover_journal(const char* dataset, int fd, FILE* err);

// Saves the data set's bytes up to `end` for a signal (guard_cover) and, for
// a data set that existed before the run, writes them durably to its journal
// before the run overwrites them. Ends the run when the journal cannot be
// written: nothing of the data set has changed then.
void journal_cover(InterruptGuard& guard, uint64_t end);

// Makes the run's own journal the one a signal removes after its rollback:
// `dataset` is the data set the guard restores.
void journal_attach(InterruptGuard& guard, const char* dataset);

// The append is complete (the final header is written): syncs the data set,
// removes the journal and syncs the directory.
void journal_commit(InterruptGuard& guard);

// A fatal error ends the append: the rows stay, the journal goes, synced.
void journal_drop(InterruptGuard& guard);

// A fresh output replaced NAME.dat: any journal of the old file goes with it.
void journal_discard(const char* dataset);

}  // namespace kolv
