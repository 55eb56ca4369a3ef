#include "audio/flac_blocks.h"

#include <algorithm>
#include <cstring>

#include "base/read_ahead.h"
#include "base/regular_file.h"

namespace koli {

void FlacBlocksRequest(int file, int64_t size) {
    constexpr int64_t kHead = 16384;  // bytes that are read in any case
    constexpr int kMostBlocks = 64;
    const int64_t most = std::min(size, ReadAhead::kMost);
    uint8_t header[4];  // of a block: last or not and its type, length; at first, the marker
    ReadAheadRequest(file, 0, std::min(kHead, most));
    if (ReadAt(file, 0, header, sizeof header) != sizeof header || memcmp(header, "fLaC", 4) != 0) return;
    int64_t at = sizeof header;
    for (int blocks = 0; blocks < kMostBlocks && at < most; ++blocks) {
        if (ReadAt(file, at, header, sizeof header) != sizeof header) return;
        const int64_t end = at + 4 + (int64_t{header[1]} << 16 | int64_t{header[2]} << 8 | header[3]);
        ReadAheadRequest(file, std::max(at, kHead), std::min(end, most));
        at = end;
        if ((header[0] & 0x80) != 0) return;
    }
}

}  // namespace koli
