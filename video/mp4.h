// MP4 audio files: tags, tracks and the cover picture, then the guarded probe's figures over them.
#pragma once

#include "base/file_reading.h"
#include "base/known_path.h"
#include "base/media_info.h"
#include "compat/mp4_file.h"

namespace koli {

/// Stores an MP4 file as music.  0 when the tags were read, 1 when they could not be (the record is stored
/// all the same); a store that refuses the record is logged and changes neither.  -1 bad argument (logged) or
/// missing file.
int Mp4Add(const KnownPath& path, FileReading& reading);

/// Removes the row of a file that is gone.  0, or -1 (logged) when the file still exists or the store
/// refused.
int Mp4Delete(const char* path);

/// Zeroes and fills a whole record: path, size and times, what Mp4MetadataRead finds, and title and album
/// from the path where the tags gave none.  0; 1 when the MP4 file could not be read (logged); -1 for a bad
/// argument (logged) or a missing file.
int Mp4InfoFill(const KnownPath& path, MediaInfo* record, FileReading& reading);

/// Removes the file's old covers, then fills tags, tracks and `has_cover`, and stores the cover picture.  0,
/// or -1 (logged) when the file cannot be read or has no tracks.
int Mp4MetadataRead(const char* path, MediaInfo* record, FileReading& reading);

/// Whole seconds of a track, modulo 2^32; 0 when they are not known.
uint32_t Mp4TrackSeconds(MP4FileHandle file, MP4TrackId track);

/// Stores the cover picture of the media file `path`.  1 stored, 0 otherwise (logged, unless there is none or
/// it is too short to be one).
int Mp4CoverArtSave(MP4FileHandle file, const char* path, FileReading& reading);

}  // namespace koli
