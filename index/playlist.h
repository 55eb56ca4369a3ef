// Playlist files: recorded with what the file system and the path give, never opened.
#pragma once

#include "base/file_reading.h"
#include "base/known_path.h"

namespace koli {

/// Stores the playlist `path`.  Returns 0, or -1 for a bad argument or a store that refuses (logged), or when
/// it is no regular file (silent).
int PlaylistFileAdd(const KnownPath& path, FileReading& reading);

/// Removes the entry of a playlist that is gone.  Returns 0, also when the store refuses (logged), or -1 for
/// a bad argument or a file that still exists (logged).
int PlaylistFileDelete(const char* path);

}  // namespace koli
