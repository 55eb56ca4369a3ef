// Audio and video files without a parser of their own: read by the guarded probe, or not read at all.
#pragma once

#include "base/file_reading.h"
#include "base/known_path.h"

namespace koli {

/// Store the record of the file `path` with what the guarded probe finds in it.  Return 0, 1 when it was
/// stored but the file could not be read, or not wholly, -1 when nothing was stored (logged, except for a
/// file that is not there).
int MediaVideoAdd(const KnownPath& path, FileReading& reading);
int MediaMusicAdd(const KnownPath& path, FileReading& reading);

/// Store the record of a file that is not looked into: disc images, subtitles, raw samples.  Return 0 or -1.
int MediaVideoSave(const KnownPath& path, FileReading& reading);
int MediaMusicSave(const KnownPath& path, FileReading& reading);

/// Remove the record of `path`.  Return 0; -1 when the file still exists or the store refused (logged).
int MediaVideoDelete(const char* path);
int MediaMusicDelete(const char* path);

}  // namespace koli
