// The searches for frames and variable-bit-rate headers, byte by byte as they are defined, for comparison.
#pragma once

#include <memory>
#include <string>

#include "audio/vbr_header.h"
#include "fuzz/memory_file.h"

namespace koli::test {

/// For each offset, where the run of zeros ends that begins there.
inline std::unique_ptr<int32_t[]> EndsOfZeros(const std::string& bytes) {
    auto end = static_cast<int32_t>(bytes.size());
    std::unique_ptr<int32_t[]> ends(new int32_t[bytes.size() + 1]);
    ends[bytes.size()] = end;
    for (int32_t i = end; i-- > 0; ends[static_cast<size_t>(i)] = end)
        if (bytes[static_cast<size_t>(i)] != 0) end = i;
    return ends;
}

/// The position of the first confirmed frame at or behind `start`, -1 for none.  `reader` only decodes.
inline int64_t ModelFirstFrame(CachedFileReader* reader, const std::string& bytes, int64_t start) {
    std::unique_ptr<int32_t[]> ends;
    for (auto p = static_cast<size_t>(start); (p = bytes.find('\xFF', p)) != std::string::npos; ++p) {
        const auto position = static_cast<int64_t>(p);
        if (position >= reader->size - 10) break;
        MpegHeaderInfo header{};
        int64_t next = position;
        if ((bytes[p + 1] & 0xE0) != 0xE0 || MpegFrameFind(reader, &next, &header) == 0) continue;
        next = position + header.frame_length;
        if (next < reader->size) {
            if (ends == nullptr) ends = EndsOfZeros(bytes);
            next = ends[static_cast<size_t>(next) + 1] - 1;
        }
        if (MpegFrameCheck(reader, next) == 0) return position;
    }
    return -1;
}

/// The offset of `mark` in the first quarter, -1 for none.
inline int64_t ModelMark(const CachedFileReader* reader, const std::string& bytes, const char* mark,
                         int64_t start) {
    const size_t found = bytes.find(mark, static_cast<size_t>(start));
    return found < static_cast<size_t>(reader->size / 4) ? static_cast<int64_t>(found) : -1;
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
