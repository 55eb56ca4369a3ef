#include "audio/cover_art.h"

#include <algorithm>
#include <cstring>

#include <strings.h>

#include "audio/cover_file.h"
#include "base/log.h"
#include "platform/koliindex.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metaid3";

constexpr int64_t kMaxMimeType = 31;  // bytes of it that are read
constexpr int kMaxPictureType = 20;   // ID3v2.4, APIC: "publisher/studio logotype"
constexpr int64_t kMinJpegSize = 10;  // bytes; anything shorter is no image
constexpr int64_t kMinPngSize = 8;

constexpr CoverFileMessages kMessages = {
    "FAILED to get CoverPath :%s",
    "FAILED to unlink :%s,  reason=%s",
};

/// Reads a picture frame's data from its start.  Offsets count from the data's first byte.
struct PictureFrame {
    CachedFileReader* reader;
    int64_t data;    // file offset
    int64_t size;    // declared
    int64_t offset;  // of the next byte; byte 0 is the encoding of the description

    int NextByte() { return CachedByteAt(reader, data + offset++); }

    void ReadFormat(char (&type)[kMaxMimeType + 1]) {
        for (int i = 0; i < 3; ++i)
            type[i] = static_cast<char>(NextByte());
    }

    void ReadMimeType(char (&type)[kMaxMimeType + 1]) {
        for (int64_t i = 0; i < kMaxMimeType && offset < size; ++i) {
            type[i] = static_cast<char>(NextByte());
            if (type[i] == '\0') return;
        }
    }

    /// To behind the first zero byte, or to the frame's end.  Bytes behind the file's end are not zero.
    void SkipDescription() {
        while (offset < size) {
            const ByteWindow window = CachedWindowAt(reader, data + offset);
            const int64_t count = std::min(window.length, size - offset);
            if (count == 0) {
                offset = size;
                return;
            }
            const void* zero = memchr(window.data, 0, static_cast<size_t>(count));
            if (zero != nullptr) {
                offset += static_cast<const uint8_t*>(zero) - window.data + 1;
                return;
            }
            offset += count;
        }
    }
};

/// KOLI_COVER_JPEG, KOLI_COVER_PNG, or 0 for any other image.
int ImageTypeOf(const char* type, bool is_v22) {
    if (is_v22) {
        if (strcasecmp(type, "jpg") == 0) return KOLI_COVER_JPEG;
        return strcasecmp(type, "png") == 0 ? KOLI_COVER_PNG : 0;
    }
    if (strcasecmp(type, "image/jpeg") == 0 || strcasecmp(type, "image/jpg") == 0) return KOLI_COVER_JPEG;
    return strcasecmp(type, "image/png") == 0 ? KOLI_COVER_PNG : 0;
}

}  // namespace

int CoverPictureSave(CachedFileReader* reader, int64_t frame, int32_t size, const char* path, int index,
                     int version) {
    if (reader == nullptr || path == nullptr || *path == '\0') {
        KOLI_LOG("Bad parameters.");
        return 0;
    }
    const bool is_v22 = version == 2;
    PictureFrame picture = {reader, frame + (is_v22 ? 6 : 10), size, 1};

    char type[kMaxMimeType + 1] = {};
    if (is_v22)
        picture.ReadFormat(type);
    else
        picture.ReadMimeType(type);
    const int image_type = ImageTypeOf(type, is_v22);
    if (image_type == 0) {
        KOLI_LOG("Wrong MIME type: %s, file:%s", type, path);
        return 0;
    }
    const int picture_type = picture.NextByte();
    if (picture_type > kMaxPictureType) {
        KOLI_LOG("Wrong cover type: %d", picture_type);
        return 0;
    }
    picture.SkipDescription();

    const int64_t length = size - picture.offset;
    if (length < (image_type == KOLI_COVER_JPEG ? kMinJpegSize : kMinPngSize)) return 0;
    const CoverSource source = {fileno(reader->fp), picture.data + picture.offset, length};
    if (!CoverIsWithinLimits(source, path, LogSite(kModule), &reader->cover_limits)) return 0;
    return CoverFileWrite(path, picture_type, index, image_type, source, *reader->reading, LogSite(kModule),
                          kMessages)
               ? 1
               : 0;
}

}  // namespace koli
