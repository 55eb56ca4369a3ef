// Which file is being read, for the daemon that comes after this one.
//
// The path stands in a small file while its file is read.  A daemon that is brought down leaves it there, and
// the next one counts: a file that has brought two down is not opened again until it changes, so that it does
// not keep the queue from its end.
//
// The file lies in memory (/run) and is mapped: a mark costs no system call.  A forked child does not have
// the mapping, so it must not mark anything.
#pragma once

#include "base/media_info.h"

namespace koli {

/// The reason that is told of a file that must not be opened.
inline constexpr char kBroughtDown[] =
    "the file has brought the daemon down twice and is not opened until it changes";

/// What is remembered of the file that is about to be read.
enum class PastReading {
    kNothing,
    kDownTwice,     // it has brought two daemons down: do not open it
    kDownUnopened,  // a further one, with nothing of it but its name stored: leave it alone
};

/// Opens the file at `mark_file`, makes it when it is missing, and takes over what an earlier daemon has left
/// there.  False, with errno set, when that fails: then nothing is remembered.
bool ReadingMarkOpen(const char* mark_file);

/// The same for a process that only asks: the file stays as it is.  False also when there is none.
bool ReadingMarkOpenToAsk(const char* mark_file);

/// Whether the earlier daemon was brought down in the middle of a file; `path` is then that file.  It is
/// counted with `counts`, which says that the file is going to be read again.  Returns how often it has been
/// counted, 0 when it is not, or there is none.
int ReadingMarkTakeOver(bool counts, char (&path)[kPathSize]);

/// An orderly end: no file is being read.  A signal handler may call it.
void ReadingMarkClear();

/// Marks `path` as the file that is being read; null for none.
void ReadingMarkSet(const char* path);

/// What is remembered of the file as it is now.
PastReading ReadingMarkLook(const char* path);

/// The batch is done: what was counted once, and has been read since, is forgotten.
void ReadingMarkForgive();

}  // namespace koli
