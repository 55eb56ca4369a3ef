// AIFF and AIFF-C files: the audio format alone; title and album come from the path.
#pragma once

#include "base/file_reading.h"
#include "base/known_path.h"
#include "base/media_info.h"

namespace koli {

/// Stores an AIFF file as music, a damaged one too.  0 stored, -1 otherwise.
int AiffFileAdd(const KnownPath& path, FileReading& reading);

/// Removes the row of a file that is gone.  0, or -1 (logged) when the file still exists or the store
/// refused.
int AiffFileDelete(const char* path);

/// Zeroes and fills a whole record: names, size and times, and for a readable file `channels`, `sample_rate`,
/// `duration` and `audio_bitrate` (the uncompressed rate in bit/s).  0, or -1 for a bad argument (logged) or
/// a missing file.
int AiffMetadataRead(const KnownPath& path, MediaInfo* record, FileReading& reading);

}  // namespace koli
