// Video CD files ("dat"), read by the MPEG video parser.
#pragma once

#include "base/file_reading.h"
#include "base/known_path.h"

namespace koli {

/// Stores the video record of the file `path`.  Returns 0, 1 when it was stored but the file could not be
/// parsed, -1 when nothing was stored (logged, except for a file that is not there).
int VideoAdd(const KnownPath& path, FileReading& reading);

/// Removes the video record of `path`.  Returns 0; -1 when the file still exists or the store refused
/// (logged).
int VideoDelete(const char* path);

}  // namespace koli
