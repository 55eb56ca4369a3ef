#include "video/mpeg_start_code.h"

#include <algorithm>
#include <cstring>

#include "audio/mpeg_frame.h"
#include "base/log.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metavideo";

constexpr int64_t kSearchedBytes = 100000;  // of a file, for start codes
constexpr int64_t kSearchMargin = 4;        // a start code needs a byte behind it
constexpr uint8_t kPrefix[] = {0, 0, 1};

}  // namespace

int MpegByteAt(MpegVideoReader* reader, int64_t position) {
    if (position < 0) {
        KOLI_LOG("AT EOF ");
        return kUnreadable;
    }
    const ByteWindow window = CachedWindowAt(&reader->file, position);
    if (window.length == 0) {
        if (reader->invalid_offset.Admit()) KOLI_LOG("Invalid offset ");
        return kUnreadable;
    }
    return window.data[0];
}

int MpegWordAt(MpegVideoReader* reader, int64_t position) {
    const int high = MpegByteAt(reader, position);
    return high * 256 + MpegByteAt(reader, position + 1);
}

bool MpegStartCodeAt(MpegVideoReader* reader, int64_t position, int code) {
    return MpegByteAt(reader, position) == 0 && MpegByteAt(reader, position + 1) == 0 &&
           MpegByteAt(reader, position + 2) == 1 && MpegByteAt(reader, position + 3) == code;
}

int64_t MpegStartCodePrefixFind(MpegVideoReader* reader, int64_t position) {
    constexpr auto kLength = static_cast<int64_t>(sizeof kPrefix);
    const int64_t end = std::min(reader->file.size - kSearchMargin, kSearchedBytes);
    while (position < end) {
        const ByteWindow window = CachedWindowAt(&reader->file, position, kLength);
        if (window.length < kLength) return -1;
        // The last prefix may begin at end - 1; one that the window cuts off begins in its last two bytes.
        const int64_t count = std::min(window.length, end - position + kLength - 1);
        const void* found = memmem(window.data, static_cast<size_t>(count), kPrefix, sizeof kPrefix);
        if (found != nullptr) return position + (static_cast<const uint8_t*>(found) - window.data);
        position += count - (kLength - 1);
    }
    return -1;
}

int64_t MpegStartCodeFind(MpegVideoReader* reader, int64_t position, int code) {
    while ((position = MpegStartCodePrefixFind(reader, position)) != -1) {
        if (MpegStartCodeAt(reader, position, code)) return position;
        ++position;
    }
    return -1;
}

int64_t MpegStartCodeNext(MpegVideoReader* reader, int64_t position, int* code) {
    const int64_t found = MpegStartCodePrefixFind(reader, position);
    if (found != -1) *code = MpegByteAt(reader, found + 3);
    return found;
}

void MpegLogSuppressed(const MpegVideoReader* reader) {
    const int64_t count = reader->invalid_offset.Suppressed();
    if (count > 0) KOLI_LOG("Invalid offset, %lld more times", static_cast<long long>(count));
    MpegFrameLogSuppressed(&reader->file);
}

}  // namespace koli
