#include "platform/host/image_size.h"

#include <algorithm>
#include <climits>

namespace koli {

bool SetImageSize(uint64_t width, uint64_t height, ImageSize* size) {
    if (width == 0 || width > INT_MAX || height == 0 || height > INT_MAX) return false;
    *size = {static_cast<int>(width), static_cast<int>(height)};
    return true;
}

namespace {

constexpr uint64_t kIcoEntriesMax = 1024;  // a directory with more is taken for a damaged one

bool ReadPngSize(HeaderReader& in, ImageSize* size) {
    constexpr uint64_t kLength = 13, kType = 0x49484452;  // "IHDR"
    if (in.Big(8, 4) != kLength || in.Big(12, 4) != kType) return false;
    return SetImageSize(in.Big(16, 4), in.Big(20, 4), size);
}

bool ReadGifSize(HeaderReader& in, ImageSize* size) {
    return SetImageSize(in.Little(6, 2), in.Little(8, 2), size);
}

/// Lengths of the information header: 16 to 64 are those of OS/2 2 and Windows 3 with what they append, 108
/// and 124 versions 4 and 5.
bool IsBmpInfoHeader(uint64_t length) {
    return (length >= 16 && length <= 64) || length == 108 || length == 124;
}

bool ReadBmpSize(HeaderReader& in, ImageSize* size) {
    const uint64_t header = in.Little(14, 4);
    if (header == 12) return SetImageSize(in.Little(18, 2), in.Little(20, 2), size);
    if (!IsBmpInfoHeader(header)) return false;
    // The magnitude of the lowest number, 2^31, is out of range; so is a negative width, taken as unsigned.
    const uint64_t height = in.Little(22, 4);
    return SetImageSize(in.Little(18, 4), height > INT_MAX ? (uint64_t{1} << 32) - height : height, size);
}

bool ReadPsdSize(HeaderReader& in, ImageSize* size) {
    const uint64_t version = in.Big(4, 2);
    if (version != 1 && version != 2) return false;
    return SetImageSize(in.Big(18, 4), in.Big(14, 4), size);
}

bool ReadIcoSize(HeaderReader& in, ImageSize* size) {
    const uint64_t count = in.Little(4, 2);
    if (count > kIcoEntriesMax) return false;
    const auto stored = [&in](uint64_t at) { return in.Little(at, 1) != 0 ? in.Little(at, 1) : 256; };
    uint64_t width = 0, height = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t at = 6 + 16 * i;
        const uint64_t entry_width = stored(at), entry_height = stored(at + 1);
        if (entry_width * entry_height <= width * height) continue;
        width = entry_width;
        height = entry_height;
    }
    return in.ok() && SetImageSize(width, height, size);
}

struct Format {
    const char* signature;
    size_t length;
    bool (*read)(HeaderReader& in, ImageSize* size);
};

constexpr Format kFormats[] = {
    {"\xff\xd8\xff", 3, ReadJpegSize},
    {"\x89PNG\r\n\x1a\n", 8, ReadPngSize},
    {"GIF87a", 6, ReadGifSize},
    {"GIF89a", 6, ReadGifSize},
    {"BM", 2, ReadBmpSize},
    {"II\x2a\0", 4, ReadTiffSize},
    {"MM\0\x2a", 4, ReadTiffSize},
    {"II\x2b\0", 4, ReadTiffSize},
    {"MM\0\x2b", 4, ReadTiffSize},
    {"8BPS", 4, ReadPsdSize},
    {"\0\0\1\0", 4, ReadIcoSize},
};

}  // namespace

bool ReadImageSize(ByteSource& source, ImageSize* size) {
    HeaderReader in(source);
    for (const Format& format : kFormats)
        if (in.StartsWith(format.signature, format.length)) return format.read(in, size);
    return false;
}

}  // namespace koli
