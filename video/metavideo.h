// MPEG-1 and MPEG-2 video files, elementary and program streams, read without a container library.
#pragma once

#include "audio/mpeg_frame.h"
#include "base/file_reading.h"
#include "base/media_info.h"
#include "video/mpeg_sequence.h"

namespace koli {

/// Fills `width`, `height`, `duration`, `video_bitrate` (the coded value times 1000) and, for a program
/// stream with MPEG audio in its audio stream 0, `audio_bitrate`, `sample_rate` and `channels`; the others of
/// them become 0.  Returns 0, or -1 (logged) for a bad argument or a file that cannot be opened, the record
/// then untouched, and for a file without a sequence header in its first 100000 bytes.
int MpegVideoInfoGet(const char* path, MediaInfo* record, FileReading& reading);

/// Finds the first sequence header and the first audio frame of a program stream.  `audio` stays zero when
/// there is none.  Returns 0, or -1 (logged) without a sequence header.
int MpegProgramStreamParse(MpegVideoReader* reader, MpegVideoInfo* info, MpegHeaderInfo* audio);

/// Where the payload of the packet begins whose start code stands at `position`.
int64_t MpegPesPayloadOffset(MpegVideoReader* reader, int64_t position);

/// Puts the descriptions, zeroed or partly filled ones too, into the record.
void MpegVideoInfoToRecord(MediaInfo* record, const MpegVideoInfo& info, const MpegHeaderInfo& audio);

}  // namespace koli
