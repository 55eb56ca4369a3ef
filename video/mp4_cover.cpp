// The cover picture of an MP4 file.
#include "audio/cover_file.h"
#include "base/log.h"
#include "platform/koliindex.h"
#include "video/mp4.h"

namespace koli {
namespace {

constexpr const char kModule[] = "mp4";

// Type codes of a cover's data (QuickTime File Format, well-known types).
constexpr uint32_t kTypeJpeg = 13;
constexpr uint32_t kTypePng = 14;

constexpr uint64_t kMinJpegSize = 10;  // bytes; anything shorter is no picture
constexpr uint64_t kMinPngSize = 8;

constexpr int kFrontCover = 3;  // ID3's picture type
constexpr int kFirstPicture = 1;

constexpr CoverFileMessages kMessages = {
    "FAILED to get CoverPath of %s",
    "FAILED to unlink :%s, reason=%s",
};

}  // namespace

int Mp4CoverArtSave(MP4FileHandle file, const char* path, FileReading& reading) {
    if (file == nullptr || path == nullptr || *path == '\0') {
        KOLI_LOG("Bad parameters.");
        return 0;
    }
    MP4CoverData data{};
    uint64_t size = 0;
    uint32_t type = 0;
    if (!MP4GetMetadataCoverArt(file, &data, &size) || !MP4GetMetadataCoverArtFileType(file, &type)) return 0;
    if (type != kTypeJpeg && type != kTypePng) {
        KOLI_LOG("Wrong file type %d of cover art of %s.", static_cast<int>(type), path);
        return 0;
    }
    if (size < (type == kTypeJpeg ? kMinJpegSize : kMinPngSize)) return 0;
    const CoverSource source = {data.descriptor, data.offset, static_cast<int64_t>(size)};
    CoverLimits limits;
    if (!CoverIsWithinLimits(source, path, LogSite(kModule), &limits)) return 0;
    return CoverFileWrite(path, kFrontCover, kFirstPicture,
                          type == kTypeJpeg ? KOLI_COVER_JPEG : KOLI_COVER_PNG, source, reading,
                          LogSite(kModule), kMessages)
               ? 1
               : 0;
}

}  // namespace koli
