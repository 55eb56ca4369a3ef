// The searches for frames and variable-bit-rate headers, byte by byte as they are defined, for comparison.
#pragma once

#include <string>

#include "audio/vbr_header.h"
#include "fuzz/memory_file.h"

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

/// Whether the fast searches find in a file of these bytes what the ones above find.
inline bool AgreesWithModel(const std::string& bytes, int64_t start) {
    const std::string path = MemoryFile(bytes.data(), bytes.size());
    Reading reading;
    CachedFileReader reader{}, model{};
    if (!CachedFileOpen(&reader, path.c_str(), reading, LogSite("m"))) return false;
    if (!CachedFileOpen(&model, path.c_str(), reading, LogSite("m"))) return false;
    MpegHeaderInfo header{};
    const int64_t frame = MpegFirstFrame(&reader, start, &header) ? header.position : -1;
    bool agrees = frame == ModelFirstFrame(&model, bytes, start);
    if (frame >= 0 && header.bitrate != 0) {
        XingHeaderRead(&reader, start, &header);
        VbriHeaderRead(&reader, start, &header);
        agrees = agrees && reader.vbr_scan.xing == ModelMark(&model, bytes, "Xing", start) &&
                 reader.vbr_scan.vbri == ModelMark(&model, bytes, "VBRI", start);
    }
    CachedFileClose(&reader);
    CachedFileClose(&model);
    return agrees;
}

}  // namespace koli::test
