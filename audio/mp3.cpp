#include "audio/mp3.h"

#include <algorithm>

#include "audio/cached_file_reader.h"
#include "audio/cover_file.h"
#include "audio/id3_merge.h"
#include "audio/id3v1.h"
#include "audio/id3v2.h"
#include "audio/mpeg_frame.h"
#include "audio/vbr_header.h"
#include "base/log.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metaid3";

/// Reads the ID3v2 tag.  Returns where it ends: 0 when there is none.
int64_t ReadId3v2(CachedFileReader* reader, Id3v2Fields* fields, const char* path) {
    int version = 0;
    const int64_t end = Id3v2Probe(reader, &version);
    if (end > 0 && version > 2)
        Id3v23FramesRead(fields, reader, version, path);
    else if (end > 0 && version == 2)
        Id3v22FramesRead(fields, reader, version, path);
    return end;
}

int ParseOpenFile(CachedFileReader* reader, const char* path, MediaInfo* record) {
    ReadAheadRequest(fileno(reader->fp), 0,
                     std::min(kReadAhead, reader->size));  // while the trailer is waited for
    Id3v1Block v1{};
    if (Id3v1Read(reader, &v1) == -1) KOLI_LOG("Failed to parse ID3V1.");
    Id3v2Fields v2{};
    const int64_t start = ReadId3v2(reader, &v2, path);

    MpegHeaderInfo header{};
    if (!MpegFirstFrame(reader, start, &header)) {
        KOLI_LOG("Can't find valid mpeg header: %s", path);
        reader->reading->CannotParse("there is no MPEG audio in it");
        return -1;
    }
    if (XingHeaderRead(reader, start, &header) == -1) VbriHeaderRead(reader, start, &header);
    Id3MergeIntoRecord(record, &header, &v1, &v2);
    return 0;
}

}  // namespace

int Mp3MetadataParse(const char* path, MediaInfo* record, FileReading& reading) {
    if (path == nullptr || *path == '\0' || record == nullptr) {
        KOLI_LOG("Bad parameters.");
        return -1;
    }
    CoversRemove(path, reading);
    CachedFileReader reader{};
    if (!CachedFileOpen(&reader, path, reading, LogSite(kModule))) return -1;
    const int result = ParseOpenFile(&reader, path, record);
    MpegFrameLogSuppressed(&reader);
    CachedFileClose(&reader);
    return result;
}

bool Mp3TagsRead(const char* path, MediaInfo* record, FileReading& reading) {
    CachedFileReader reader{};
    if (!CachedFileOpen(&reader, path, reading, LogSite(kModule))) return false;
    Id3v1Block v1{};
    Id3v1Read(&reader, &v1);
    Id3v2Fields v2{};
    v2.picture_count = 1;  // as if one had been saved: no other is
    ReadId3v2(&reader, &v2, path);
    const MpegHeaderInfo header{};
    Id3MergeIntoRecord(record, &header, &v1, &v2);
    record->has_cover = 0;
    CachedFileClose(&reader);
    return true;
}

}  // namespace koli
