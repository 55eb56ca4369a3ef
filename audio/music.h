// The handler pair of MP3 files.
#pragma once

#include "base/file_reading.h"
#include "base/known_path.h"

namespace koli {

/// Stores the file's record as music.  Returns 0; 1 when its metadata could not be parsed (the record then
/// holds what the path and the file system tell); -1 for a bad argument, a missing file or a record that the
/// store refused.
int MusicFileAdd(const KnownPath& path, FileReading& reading);

/// Removes the record of a file that is gone.  Returns 0, or -1 when the file still exists or the store
/// refused.
int MusicFileDelete(const char* path);

}  // namespace koli
