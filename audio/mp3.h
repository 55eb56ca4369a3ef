// MPEG audio files: tags, cover and stream figures.
#pragma once

#include "base/file_reading.h"
#include "base/media_info.h"

namespace koli {

/// Fills `record` from the file's ID3 tags and audio frames, and saves its first usable picture as its cover;
/// covers that were saved before are removed first, in any case.  Returns 0, or -1 when no MPEG audio stream
/// is found or the file cannot be read (logged; the record is then untouched).
int Mp3MetadataParse(const char* path, MediaInfo* record, FileReading& reading);

/// Fills in what the file's ID3 tags alone tell, and changes nothing of its covers.  False when it cannot be
/// opened (logged).
bool Mp3TagsRead(const char* path, MediaInfo* record, FileReading& reading);

}  // namespace koli
