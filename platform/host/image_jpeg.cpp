#include "platform/host/image_size.h"

namespace koli {
namespace {

// Markers, ITU-T T.81 table B.1: the byte behind FF.
enum Marker : uint64_t {
    kSof0 = 0xC0,  // SOF0 to SOF15, but for the three below
    kDht = 0xC4,
    kJpg = 0xC8,
    kDac = 0xCC,
    kSof15 = 0xCF,
    kRst0 = 0xD0,
    kRst7 = 0xD7,
    kSoi = 0xD8,
    kEoi = 0xD9,
    kSos = 0xDA,
    kTem = 0x01,
};

bool IsFrameHeader(uint64_t marker) {
    return marker >= kSof0 && marker <= kSof15 && marker != kDht && marker != kJpg && marker != kDac;
}

bool StandsAlone(uint64_t marker) {
    return (marker >= kRst0 && marker <= kRst7) || marker == kTem;
}

/// The marker at `*at`, which then points behind it.  Any number of FF may stand before a marker (B.1.1.2).
/// 0 when there is no marker.
uint64_t NextMarker(HeaderReader& in, uint64_t* at) {
    if (in.Big((*at)++, 1) != 0xFF) return 0;
    uint64_t byte;
    do {
        byte = in.Big((*at)++, 1);
    } while (byte == 0xFF);
    return byte;
}

}  // namespace

/// Every turn moves forward, so the reader's bound on refills ends the loop.
bool ReadJpegSize(HeaderReader& in, ImageSize* size) {
    uint64_t at = 2;
    for (;;) {
        const uint64_t marker = NextMarker(in, &at);
        if (StandsAlone(marker)) continue;
        // Past the start of scan or the end of the image no frame header can follow.
        if (marker == 0 || marker == kSoi || marker == kEoi || marker == kSos) return false;
        const uint64_t length = in.Big(at, 2);
        if (IsFrameHeader(marker))
            return length >= 8 && SetImageSize(in.Big(at + 5, 2), in.Big(at + 3, 2), size);
        if (length < 2) return false;
        at += length;
    }
}

}  // namespace koli
