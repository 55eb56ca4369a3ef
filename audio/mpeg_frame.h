// MPEG audio frame headers: ISO/IEC 11172-3 clause 2.4.1.3 and ISO/IEC 13818-3.
//
//   byte 0  11111111   sync
//   byte 1  1111vllp   v: 1 = MPEG-1, 0 = MPEG-2; l: 3 = Layer I, 2 = II, 1 = III; p: 0 = with checksum
//   byte 2  bbbbssd.   bit-rate index, sample-rate index, padding
//   byte 3  mmeecoxx   mode, mode extension, copyright, original, emphasis
//
// The lower-rate extension MPEG-2.5 clears the sync's last bit (1110....).  Its frames are never accepted.
#pragma once

#include <cstdint>

#include "audio/cached_file_reader.h"

namespace koli {

/// A decoded frame header and what is known about the stream that it begins.  Zero it before use.
struct MpegHeaderInfo {
    int32_t version;        // 1 = MPEG-1, 2 = MPEG-2
    int32_t layer;          // 1 to 3
    int32_t crc_protected;  // 1 = a checksum follows the header
    uint32_t bitrate;       // bit/s; of this frame, or of the stream when a variable-bit-rate header tells it
    float bytes_per_second;  // of this frame
    uint32_t sample_rate;    // Hz
    int32_t channel_mode;    // 0 stereo, 1 joint stereo, 2 dual channel, 3 mono
    int32_t padding;         // 0 or 1
    int32_t mode_extension;  // 0 to 3 in joint stereo, else -1
    int32_t emphasis;        // 0 to 3
    int32_t copyright;       // 0 or 1
    int32_t original;        // 0 or 1
    double duration;         // seconds, estimated from the file's size; infinite for the bit-rate index 0
    int32_t frame_length;    // bytes, header included
    int64_t position;        // file offset of the header
};

/// Searches the next frame sync from `*position` on and decodes the header there.  `*position` moves to the
/// sync, or, when there is none, to the end of the search.  Returns 1 when the header is valid, else 0.  The
/// message about a missing sync is limited for each file: MpegFrameLogSuppressed tells the rest.
int MpegFrameFind(CachedFileReader* reader, int64_t* position, MpegHeaderInfo* header);

/// Where a search with MpegFrameFind goes on that has come to `position`: behind the syncs there that are
/// followed by no header, as far as the buffer tells.  One call of MpegFrameFind for each byte of a file of
/// FF would take minutes for some gigabytes.
int64_t MpegSkipBadSyncs(CachedFileReader* reader, int64_t position);

/// Returns 0 when a valid header stands at `position`, else -1.
int MpegFrameCheck(CachedFileReader* reader, int64_t position);

/// Searches from `start` on for a valid header whose frame is followed by another one, zero bytes between
/// them allowed.  The time is linear in the file's size.  True with `header` filled, else false (it is then
/// without meaning).
bool MpegFirstFrame(CachedFileReader* reader, int64_t start, MpegHeaderInfo* header);

/// Logs how many of MpegFrameFind's messages about this file were not written, if any.  Call it when the file
/// is done.
void MpegFrameLogSuppressed(const CachedFileReader* reader);

/// Samples per frame by version (1, 2) and layer (1 to 3).
int MpegSamplesPerFrame(int32_t version, int32_t layer);

}  // namespace koli
