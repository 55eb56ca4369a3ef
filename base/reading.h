// What reading one media file in the daemon's own process may cost, and how it went.
//
// Files are untrusted: any loop over their bytes can be made long.  So every reader asks here before each
// read, and once a file has had its processor time all its reads fail, as those of a damaged file do.
#pragma once

#include <cstdint>

namespace koli {

/// Nanoseconds of this process's processor time that the reading of one file may take.  Tests set it.
extern int64_t reading_limit;

/// Called before each read when it is set: what must not wait for a file that takes long.
extern void (*reading_tick)();

/// Begins a file: what its readers use and meet is counted from here on.  FileReading calls it.
void ReadingBegin(const char* path);

/// The same, unless `path` is the file that has begun already.  Readers call it when they open a file.
void ReadingOpen(const char* path);

/// Asked before each read: false once the file has had its time, which is then logged, and becomes the reason
/// that is stored for the file.  Costs no system call until the file has taken that long by the clock.
bool ReadingMayGoOn();

/// Notes that a read failed with this errno, or the opening, when it is one that passes
/// (base/passing_error.h).  The first one of a file is logged, and is its trouble (base/file_reading.h).
void ReadingFailed(int error);

/// The same without the line, for callers that have one of their own, and for a child that reads the file.
void ReadingFailedUnlogged(int error);

/// True while every read of the file succeeded: what was found in it is all that there is to find.
bool ReadingIsWhole();

}  // namespace koli
