// The frames of a raw AAC stream (ADTS), counted.
//
// Frame header, ISO/IEC 13818-7 clause 6.2, in bits:
//
//     12 sync word FFF     2 layer 0             4 sampling rate index   13 frame length in bytes
//      1 MPEG version      1 no CRC              1 private               11 buffer fullness
//                          2 profile             3 channels               2 raw data blocks - 1
//                                                4 flags
//
// All but the length and what follows, and two of the flags, is the same in all headers of a stream.
#pragma once

#include <cstdint>

namespace koli {

/// Of all whole frames of a stream.  Sums are exact.
struct AdtsFigures {
    static constexpr int64_t kTicksPerSecond = 28'224'000;  // a multiple of every sampling rate

    int sample_rate = 0;  // Hz, of the first frame
    int channels = 0;     // of the first frame; 0 = told in the frame's data
    int64_t frames = 0;
    int64_t ticks = 0;  // play time
    int64_t bytes = 0;  // headers included
};

/// Reads the frames of the file at `path`, behind ID3v2 tags at its start.  A damaged frame costs that frame:
/// the next header is looked for, however often.  False when the file cannot be read to its end or is no raw
/// AAC stream: sync words turn up by chance in any data, a stream's frames follow each other.
bool AdtsRead(const char* path, AdtsFigures* figures);

/// Play time in seconds, and the frames' bits over it, cut to whole bit/s.
double AdtsSeconds(const AdtsFigures& figures);
int64_t AdtsBitrate(const AdtsFigures& figures);

}  // namespace koli
