#include "bench/bare_reader.h"

#include <FLAC/metadata.h>
#include <fcntl.h>
#include <libexif/exif-data.h>
#include <libexif/exif-loader.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/media_info.h"
#include "bench/measure.h"
#include "compat/aiff_file.h"
#include "compat/mp4_file.h"
#include "platform/koliindex.h"
#include "video/container_probe.h"
#include "video/metavideo.h"

namespace koli::bench {
namespace {

void ReadMp4Tracks(MP4FileHandle file) {
    for (uint32_t i = 0; i < MP4GetNumberOfTracks(file, nullptr, 0); ++i) {
        const MP4TrackId id = MP4FindTrackId(file, static_cast<uint16_t>(i), nullptr, 0);
        const char* type = MP4GetTrackType(file, id);
        if (type == nullptr || strcmp(type, "soun") != 0) continue;
        MP4GetTrackAudioChannels(file, id);
        MP4ConvertFromTrackDuration(file, id, MP4GetTrackDuration(file, id), 1);
        MP4GetTrackTimeScale(file, id);
        MP4GetTrackBitRate(file, id);
    }
}

void ReadMp4Tags(MP4FileHandle file) {
    for (auto* getter : {MP4GetMetadataName, MP4GetMetadataAlbum, MP4GetMetadataArtist, MP4GetMetadataGenre,
                         MP4GetMetadataComment, MP4GetMetadataWriter, MP4GetMetadataYear}) {
        char* text = nullptr;
        getter(file, &text);
        free(text);
    }
    uint16_t number = 0, total = 0;
    MP4GetMetadataTrack(file, &number, &total);
    MP4GetMetadataDisk(file, &number, &total);
    MP4CoverData cover{};
    uint64_t size = 0;
    uint32_t type = 0;
    MP4GetMetadataCoverArt(file, &cover, &size);
    MP4GetMetadataCoverArtFileType(file, &type);
}

}  // namespace

void ReadMp3(const char* path) {
    static constexpr char kTag[] = {'X', 'i', 'n', 'g'};
    static constexpr size_t kCarry = sizeof kTag - 1;
    static constexpr size_t kBlock = 16384;
    static char buffer[kCarry + kBlock];
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    struct stat status;
    if (fd < 0 || fstat(fd, &status) != 0) Fail(path);
    const size_t wanted = static_cast<size_t>(status.st_size / 4);
    size_t got = 0, carried = 0;
    while (got < wanted) {
        const ssize_t count = read(fd, buffer + carried, std::min(kBlock, wanted - got));
        if (count <= 0) break;
        got += static_cast<size_t>(count);
        const size_t held = carried + static_cast<size_t>(count);
        if (memmem(buffer, held, kTag, sizeof kTag) != nullptr) break;
        carried = std::min(held, kCarry);
        memmove(buffer, buffer + held - carried, carried);
    }
    close(fd);
}

void ReadPhoto(const char* path) {
    ExifLoader* loader = exif_loader_new();
    exif_loader_write_file(loader, path);
    ExifData* data = exif_loader_get_data(loader);
    exif_loader_unref(loader);
    if (data != nullptr) exif_data_unref(data);
    int width = 0, height = 0;
    KOLIIndexImgResGet(path, &width, &height);
}

void ReadFlac(const char* path) {
    FLAC__StreamMetadata stream_info;
    FLAC__StreamMetadata* tags = nullptr;
    if (!FLAC__metadata_get_streaminfo(path, &stream_info) || !FLAC__metadata_get_tags(path, &tags))
        Fail(path);
    FLAC__metadata_object_delete(tags);
}

void ReadAiff(const char* path) {
    FileReading reading(path);
    AIFF_Ref file = AIFF_OpenFile(path, F_RDONLY, reading);
    if (file == nullptr) Fail(path);
    uint64_t frames = 0;
    int channels = 0, bits = 0, segment = 0;
    double rate = 0;
    AIFF_GetAudioFormat(file, &frames, &channels, &rate, &bits, &segment);
    AIFF_CloseFile(file);
}

void ReadMp4(const char* path) {
    FileReading reading(path);
    MP4FileHandle file = MP4Read(path, 0, reading);
    if (file == nullptr) Fail(path);
    ReadMp4Tracks(file);
    ReadMp4Tags(file);
    MP4Close(file);
}

void ReadMp4AndProbe(const char* path) {
    ReadMp4(path);
    ReadContainer(path);
}

void ReadContainer(const char* path) {
    FileReading reading(path);
    MediaInfo record{};
    MiscMediaInfoProbe(path, &record, reading);
}

void ReadMpegVideo(const char* path) {
    FileReading reading(path);
    MediaInfo record{};
    if (MpegVideoInfoGet(path, &record, reading) != 0) Fail(path);
}

}  // namespace koli::bench
