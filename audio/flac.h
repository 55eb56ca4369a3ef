// FLAC files: stream properties and Vorbis comments, through libFLAC's metadata interface.
#pragma once

#include "base/file_reading.h"
#include "base/known_path.h"
#include "base/media_info.h"

namespace koli {

/// Stores a FLAC file as music.  0 stored; 1 the metadata could not be read (the record is stored all the
/// same, with the names derived from the path and whatever stream values there were); -1 bad argument
/// (logged), missing file, or a fully parsed record that the store refused (logged).
int FlacFileAdd(const KnownPath& path, FileReading& reading);

/// Fills `channels`, `sample_rate`, `duration` (whole seconds) and `audio_bitrate` (of the whole file, in
/// bit/s) from the stream information and the texts, year and track from the comments, later ones overwriting
/// earlier ones. A field without a comment stays as it is.  0, or -1 (logged) for a bad argument, for what is
/// no regular file, and without a readable stream information or comment block; the fields that were read
/// before that stay filled.
int FlacMetadataRead(const KnownPath& path, MediaInfo* record, FileReading& reading);

}  // namespace koli
