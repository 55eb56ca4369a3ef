// What is told about one track of an MP4 file.
#pragma once

#include "compat/mp4_boxes.h"

namespace koli::compat {

struct Mp4Track {
    char type[5] = {};                // handler type: "soun", "vide", ...; '' = none
    uint32_t time_scale = 0;          // units per second; 0 = unknown
    uint64_t duration = ~uint64_t{};  // in those units; all bits set = unknown
    uint32_t bitrate = 0;             // bit/s, average; 0 = unknown
    int channels = -1;                // sound only; -1 = unknown
    uint16_t width = 0;               // pictures only, pixels; 0 = unknown
    uint16_t height = 0;
};

/// Reads the track in the box "trak" (ISO/IEC 14496-12 clause 8.3).  A box that is missing or too short
/// leaves its fields unknown.  Look at `reader->is_damaged()` afterwards.
Mp4Track Mp4TrackRead(BoxReader* reader, const Box& trak);

}  // namespace koli::compat
