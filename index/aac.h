// Raw AAC files: their figures come from an external decoder program.
#pragma once

#include "base/file_reading.h"
#include "base/known_path.h"
#include "base/media_info.h"

namespace koli {

/// Stores a raw AAC file as music.  0 stored with the decoder's figures; 1 the figures could not be had (the
/// record is stored all the same, with the names derived from the path); -1 bad argument (logged), missing
/// file, or a store that refused a record with its figures (logged).
int AacFileAdd(const KnownPath& path, FileReading& reading);

/// Runs the decoder on `path`, waits for it, for 90 seconds at most, and fills `duration`, `sample_rate`,
/// `channels` and `audio_bitrate` from the first line that it prints:
///
///     WORD duration;SECONDS;samplerate;HZ;channel;COUNT;bitrate;BITS_PER_SECOND;
///
/// 0, or -1 (logged, except when the decoder prints nothing); the record is then untouched.
int AacInfoGet(const char* path, MediaInfo* record, FileReading& reading);

}  // namespace koli
