// A data set with an interrupted append pending, read as its journal says it
// was before that append: the journal's saved bytes at its start, then the
// file's own bytes up to its old length. kolvdump only reads: the data set
// and its journal stay as they are until a kolv APPEND run rolls it back.
#pragma once

#include <cstdio>

#include "base/journal.hpp"

namespace kolvdump {

// A read-only stream of the data set open as `file` as `image` says it was,
// or null when the system offers no such stream (or out of memory). The
// stream reads `file`; close the stream before `file`.
FILE* open_journal_view(FILE* file, const kolv::JournalImage& image);

}  // namespace kolvdump
