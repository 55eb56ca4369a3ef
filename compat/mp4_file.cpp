#include "compat/mp4_file.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "base/id3_genres.h"
#include "compat/mp4_boxes.h"
#include "compat/mp4_track.h"

using koli::compat::Box;
using koli::compat::BoxCursor;
using koli::compat::BoxReader;
using koli::compat::FourCc;
using koli::compat::LoadBe16;
using koli::compat::LoadBe32;
using koli::compat::Mp4Track;

namespace {

constexpr size_t kMaxTracks = 1024;
constexpr int64_t kMaxText = 4096;  // bytes of a text tag that are handed out

/// A tag: an item of the list "ilst", whose first "data" box holds the value:
///
///     offset size
///          0    4  type of the value: 1 UTF-8 text, 13 JPEG, 14 PNG, 0 told by the item
///          4    4  language
///          8       value
struct Tag {
    uint32_t item;
    Box data;  // end 0 = not there
};

constexpr int64_t kValueOffset = 8;

}  // namespace

struct MP4File {
    BoxReader reader;
    std::vector<Mp4Track> tracks;
    bool has_sound = false;  // a sound track that is not damaged
    bool has_tags = false;
    Tag tags[11] = {
        {FourCc("\251nam"), {}}, {FourCc("\251alb"), {}}, {FourCc("\251ART"), {}}, {FourCc("gnre"), {}},
        {FourCc("\251gen"), {}}, {FourCc("\251cmt"), {}}, {FourCc("\251wrt"), {}}, {FourCc("\251day"), {}},
        {FourCc("trkn"), {}},    {FourCc("disk"), {}},    {FourCc("covr"), {}},
    };
};

namespace {

/// Notes an item's value if it is the first of a known tag.  True when it was.
bool ReadItem(MP4File* file, const Box& item) {
    Box data;
    for (Tag& tag : file->tags)
        if (tag.item == item.type && tag.data.end == 0 &&
            file->reader.Find(BoxReader::Inside(item), FourCc("data"), &data)) {
            tag.data = data;
            return true;
        }
    return false;
}

void ReadTags(MP4File* file, const Box& ilst) {
    file->has_tags = true;
    BoxCursor items = BoxReader::Inside(ilst);
    Box item;
    bool is_any_read = false;
    while (file->reader.Next(&items, &item)) {
        if (ReadItem(file, item)) is_any_read = true;
        if (is_any_read) file->reader.Forgive();
    }
    if (is_any_read) file->reader.Forgive();
}

/// "meta" begins with version and flags, except in QuickTime files, where its first box "hdlr" comes at once.
void ReadUserData(MP4File* file, const Box& udta) {
    Box meta, ilst;
    uint8_t first[8];
    if (!file->reader.Find(BoxReader::Inside(udta), FourCc("meta"), &meta) ||
        !file->reader.Fields(meta, 0, first, sizeof first))
        return;
    const int64_t skip = LoadBe32(first + 4) == FourCc("hdlr") ? 0 : 4;
    if (file->reader.Find(BoxReader::Inside(meta, skip), FourCc("ilst"), &ilst)) ReadTags(file, ilst);
}

/// False when the track is needed and damaged.
bool ReadTrack(MP4File* file, const Box& trak) {
    Mp4Track track = koli::compat::Mp4TrackRead(&file->reader, trak);
    if (file->reader.is_damaged()) {
        if (!file->has_sound) return false;
        file->reader.Forgive();
        track = Mp4Track{};
    }
    file->has_sound = file->has_sound || strcmp(track.type, "soun") == 0;
    file->tracks.push_back(track);
    return true;
}

bool ReadMovie(MP4File* file) {
    Box moov, box;
    if (!file->reader.Find({0, file->reader.file().size()}, FourCc("moov"), &moov)) return false;
    BoxCursor boxes = BoxReader::Inside(moov);
    while (file->reader.Next(&boxes, &box)) {
        if (box.type == FourCc("trak")) {
            if (file->tracks.size() == kMaxTracks || !ReadTrack(file, box)) return false;
        } else if (box.type == FourCc("udta") && !file->has_tags) {
            ReadUserData(file, box);
            if (file->reader.is_damaged()) return false;
        }
    }
    return !file->reader.is_damaged() || (file->has_sound && file->has_tags);
}

const Mp4Track* FindTrack(MP4FileHandle file, MP4TrackId id) {
    if (file == nullptr || id == MP4_INVALID_TRACK_ID || id > file->tracks.size()) return nullptr;
    return &file->tracks[id - 1];
}

/// The data box of a tag, long enough to hold a value; null when there is none.
const Box* FindData(MP4FileHandle file, uint32_t item) {
    if (file == nullptr) return nullptr;
    for (const Tag& tag : file->tags)
        if (tag.item == item && tag.data.end - tag.data.payload >= kValueOffset) return &tag.data;
    return nullptr;
}

bool CopyOut(const char* text, size_t length, char** value) {
    *value = static_cast<char*>(malloc(length + 1));
    if (*value == nullptr) return false;
    memcpy(*value, text, length);
    (*value)[length] = '\0';
    return true;
}

bool ReadText(MP4FileHandle file, uint32_t item, char** value) {
    *value = nullptr;
    const Box* data = FindData(file, item);
    if (data == nullptr) return false;
    char text[kMaxText];
    const int64_t start = data->payload + kValueOffset;
    const auto length = static_cast<size_t>(std::min(data->end - start, kMaxText));
    return CopyOut(text, file->reader.file().Read(start, text, length), value);
}

/// A value of 2 reserved bytes, number and total, 2 bytes each.
bool ReadNumbers(MP4FileHandle file, uint32_t item, uint16_t* number, uint16_t* total) {
    const Box* data = FindData(file, item);
    uint8_t value[4];
    if (data == nullptr || !file->reader.Fields(*data, kValueOffset, value, sizeof value)) return false;
    *number = LoadBe16(value + 2);
    *total = file->reader.Fields(*data, kValueOffset + 4, value, 2) ? LoadBe16(value) : uint16_t{0};
    return true;
}

}  // namespace

extern "C" {

MP4FileHandle MP4Read(const char* path, uint32_t, koli::FileReading& reading) {
    auto* file = new (std::nothrow) MP4File;
    if (file == nullptr) return nullptr;
    if (path != nullptr && file->reader.Open(path, reading) && ReadMovie(file)) return file;
    delete file;
    return nullptr;
}

void MP4Close(MP4FileHandle file) {
    delete file;
}

uint32_t MP4GetNumberOfTracks(MP4FileHandle file, const char*, uint8_t) {
    return file != nullptr ? static_cast<uint32_t>(file->tracks.size()) : 0;
}

MP4TrackId MP4FindTrackId(MP4FileHandle file, uint16_t index, const char*, uint8_t) {
    return file != nullptr && index < file->tracks.size() ? index + MP4TrackId{1} : MP4_INVALID_TRACK_ID;
}

const char* MP4GetTrackType(MP4FileHandle file, MP4TrackId id) {
    const Mp4Track* track = FindTrack(file, id);
    return track != nullptr ? track->type : nullptr;
}

int MP4GetTrackAudioChannels(MP4FileHandle file, MP4TrackId id) {
    const Mp4Track* track = FindTrack(file, id);
    return track != nullptr ? track->channels : -1;
}

uint32_t MP4GetTrackTimeScale(MP4FileHandle file, MP4TrackId id) {
    const Mp4Track* track = FindTrack(file, id);
    return track != nullptr ? track->time_scale : 0;
}

uint32_t MP4GetTrackBitRate(MP4FileHandle file, MP4TrackId id) {
    const Mp4Track* track = FindTrack(file, id);
    return track != nullptr ? track->bitrate : 0;
}

uint16_t MP4GetTrackVideoWidth(MP4FileHandle file, MP4TrackId id) {
    const Mp4Track* track = FindTrack(file, id);
    return track != nullptr ? track->width : uint16_t{0};
}

uint16_t MP4GetTrackVideoHeight(MP4FileHandle file, MP4TrackId id) {
    const Mp4Track* track = FindTrack(file, id);
    return track != nullptr ? track->height : uint16_t{0};
}

MP4Duration MP4GetTrackDuration(MP4FileHandle file, MP4TrackId id) {
    const Mp4Track* track = FindTrack(file, id);
    return track != nullptr ? track->duration : MP4_INVALID_DURATION;
}

uint64_t MP4ConvertFromTrackDuration(MP4FileHandle file, MP4TrackId id, MP4Duration duration,
                                     uint32_t time_scale) {
    const uint32_t track_scale = MP4GetTrackTimeScale(file, id);
    if (track_scale == 0 || time_scale == 0) return 0;
    const uint64_t seconds = duration / track_scale;
    if (seconds >= MP4_INVALID_DURATION / time_scale) return MP4_INVALID_DURATION;
    return seconds * time_scale + duration % track_scale * time_scale / track_scale;
}

bool MP4GetMetadataName(MP4FileHandle file, char** value) {
    return ReadText(file, FourCc("\251nam"), value);
}
bool MP4GetMetadataAlbum(MP4FileHandle file, char** value) {
    return ReadText(file, FourCc("\251alb"), value);
}
bool MP4GetMetadataArtist(MP4FileHandle file, char** value) {
    return ReadText(file, FourCc("\251ART"), value);
}
bool MP4GetMetadataComment(MP4FileHandle file, char** value) {
    return ReadText(file, FourCc("\251cmt"), value);
}
bool MP4GetMetadataWriter(MP4FileHandle file, char** value) {
    return ReadText(file, FourCc("\251wrt"), value);
}
bool MP4GetMetadataYear(MP4FileHandle file, char** value) {
    return ReadText(file, FourCc("\251day"), value);
}

bool MP4GetMetadataGenre(MP4FileHandle file, char** value) {
    const Box* data = FindData(file, FourCc("gnre"));
    uint8_t number[2];
    if (data != nullptr && file->reader.Fields(*data, kValueOffset, number, sizeof number)) {
        const char* name = koli::Id3GenreName(LoadBe16(number) - 1);  // MP4 counts from 1
        if (name != nullptr) return CopyOut(name, strlen(name), value);
    }
    return ReadText(file, FourCc("\251gen"), value);
}

bool MP4GetMetadataTrack(MP4FileHandle file, uint16_t* number, uint16_t* total) {
    return ReadNumbers(file, FourCc("trkn"), number, total);
}
bool MP4GetMetadataDisk(MP4FileHandle file, uint16_t* number, uint16_t* total) {
    return ReadNumbers(file, FourCc("disk"), number, total);
}

bool MP4GetMetadataCoverArt(MP4FileHandle file, MP4CoverData* data, uint64_t* size) {
    const Box* box = FindData(file, FourCc("covr"));
    if (box == nullptr) return false;
    const int64_t start = box->payload + kValueOffset;
    if (box->end == start) return false;
    *data = {file->reader.file().descriptor(), start};
    *size = static_cast<uint64_t>(box->end - start);
    return true;
}

bool MP4GetMetadataCoverArtFileType(MP4FileHandle file, uint32_t* type) {
    const Box* box = FindData(file, FourCc("covr"));
    uint8_t code[4];
    if (box == nullptr || !file->reader.Fields(*box, 0, code, sizeof code)) return false;
    *type = LoadBe32(code) & 0xFFFFFF;  // the first byte names the set of codes
    return true;
}

}  // extern "C"
