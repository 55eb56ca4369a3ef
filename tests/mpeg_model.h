// The searches for frames and variable-bit-rate headers, byte by byte as they are defined, for comparison.
#pragma once

#include <string>

#include "audio/mpeg_frame.h"

namespace koli::test {

/// The position of the first confirmed frame at or behind `start`, -1 for none.  `reader` only decodes.
inline int64_t ModelFirstFrame(CachedFileReader* reader, const std::string& bytes, int64_t start) {
    const auto at = [&](int64_t i) {
        return i < static_cast<int64_t>(bytes.size()) ? static_cast<uint8_t>(bytes[static_cast<size_t>(i)])
                                                      : 17;
    };
    for (int64_t p = start; p < reader->size - 10; ++p) {
        MpegHeaderInfo header{};
        int64_t next = p;
        if (at(p) != 0xFF || (at(p + 1) & 0xE0) != 0xE0 || MpegFrameFind(reader, &next, &header) == 0)
            continue;
        next = p + header.frame_length;
        while (reader->size > next && at(next + 1) == 0)
            ++next;
        if (MpegFrameCheck(reader, next) == 0) return p;
    }
    return -1;
}

/// The offset of `mark` in the first quarter, -1 for none.
inline int64_t ModelMark(const CachedFileReader* reader, const std::string& bytes, const char* mark,
                         int64_t start) {
    for (int64_t s = start; s < reader->size / 4; ++s)
        if (bytes.compare(static_cast<size_t>(s), 4, mark) == 0) return s;
    return -1;
}

}  // namespace koli::test
