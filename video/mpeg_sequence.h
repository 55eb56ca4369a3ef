// The sequence header of an MPEG video stream and the sequence extension that MPEG-2 puts behind it.
//
// Sequence header, ISO/IEC 13818-2 clause 6.2.2.1; bits from the start code on:
//
//     32 start code 00 00 01 B3   12 width   12 height   4 aspect ratio code   4 frame rate code
//     18 bit rate in 400 bit/s    ...
//
// Sequence extension, clause 6.2.2.3; bits behind the start code 00 00 01 B5:
//
//      4 identifier 1   8 profile and level   1 progressive   2 chroma format
//      2 upper width    2 upper height       12 upper bit rate   1 marker
//      8 buffer size    1 low delay           2 frame rate n     5 frame rate d
#pragma once

#include "video/mpeg_start_code.h"

namespace koli {

/// What the headers tell about the video.  Zero it before use.
struct MpegVideoInfo {
    int32_t width;           // pixels
    int32_t height;          // pixels
    double frame_rate;       // frames per second; 0 = unknown
    uint32_t bitrate_value;  // as coded, in 400 bit/s
    double duration;         // seconds, estimated from the file's size; infinite for a bit rate of 0
    uint8_t aspect_ratio;    // code of the sequence header
    int32_t reserved;        // 0
};

/// Parses the sequence header that begins at `position`, and the sequence extensions up to the first group of
/// pictures.  Returns 0, or -1 when there is none.
int MpegSequenceHeaderParse(MpegVideoReader* reader, int64_t position, MpegVideoInfo* info);

/// Parses the sequence extension whose identifier stands at `position`, over what the header told; `info` may
/// be null.  The file counts as MPEG-2 from here on.  Returns 1, or 0 without `info`.
int MpegSequenceExtensionParse(MpegVideoReader* reader, int64_t position, MpegVideoInfo* info);

}  // namespace koli
