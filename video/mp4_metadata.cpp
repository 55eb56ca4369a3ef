// What the MP4 reader tells about a file, put into the record.
#include <cstdlib>
#include <memory>
#include <string_view>

#include "audio/cover_file.h"
#include "base/log.h"
#include "base/parse_number.h"
#include "base/path_names.h"
#include "video/mp4.h"

namespace koli {
namespace {

constexpr const char kModule[] = "mp4";

struct CloseFile {
    void operator()(MP4File* file) const { MP4Close(file); }
};
struct FreeText {
    void operator()(char* text) const { free(text); }
};
using Text = std::unique_ptr<char, FreeText>;
using TextGetter = bool(MP4FileHandle, char**);

/// The tracks that count; MP4_INVALID_TRACK_ID for one that there is not.
struct ChosenTracks {
    MP4TrackId audio = MP4_INVALID_TRACK_ID;  // the first sound track
    MP4TrackId video = MP4_INVALID_TRACK_ID;  // the last video track
};

ChosenTracks ChooseTracks(MP4FileHandle file, uint32_t count) {
    ChosenTracks chosen;
    for (uint32_t index = 0; index < count; ++index) {
        const MP4TrackId id = MP4FindTrackId(file, static_cast<uint16_t>(index), nullptr, 0);
        const std::string_view type = MP4GetTrackType(file, id);
        if (type == "soun" && chosen.audio == MP4_INVALID_TRACK_ID) chosen.audio = id;
        if (type == "vide") chosen.video = id;
    }
    return chosen;
}

void StoreTracks(MP4FileHandle file, const ChosenTracks& tracks, MediaInfo* record) {
    if (tracks.audio != MP4_INVALID_TRACK_ID) {
        const int channels = MP4GetTrackAudioChannels(file, tracks.audio);
        record->channels = channels > 0 ? static_cast<uint32_t>(channels) : 0;
        record->duration = static_cast<float>(Mp4TrackSeconds(file, tracks.audio));
        record->sample_rate = MP4GetTrackTimeScale(file, tracks.audio);
        record->audio_bitrate = MP4GetTrackBitRate(file, tracks.audio);
    }
    if (tracks.video != MP4_INVALID_TRACK_ID) {
        record->duration = static_cast<float>(Mp4TrackSeconds(file, tracks.video));
        record->video_bitrate = MP4GetTrackBitRate(file, tracks.video);
        record->width = MP4GetTrackVideoWidth(file, tracks.video);
        record->height = MP4GetTrackVideoHeight(file, tracks.video);
    }
}

/// A text tag; null when there is none.
Text GetText(MP4FileHandle file, TextGetter* getter) {
    char* value = nullptr;
    return Text(getter(file, &value) ? value : nullptr);
}

void StoreText(MP4FileHandle file, TextGetter* getter, char (&field)[kTextSize]) {
    const Text text = GetText(file, getter);
    if (text != nullptr) CopyText(field, sizeof field, text.get());
}

void StoreTexts(MP4FileHandle file, MediaInfo* record) {
    StoreText(file, MP4GetMetadataName, record->title);
    StoreText(file, MP4GetMetadataAlbum, record->album);
    StoreText(file, MP4GetMetadataArtist, record->artist);
    StoreText(file, MP4GetMetadataGenre, record->genre);
    StoreText(file, MP4GetMetadataComment, record->comment);
    StoreText(file, MP4GetMetadataWriter, record->composer);
}

void StoreNumbers(MP4FileHandle file, MediaInfo* record) {
    if (const Text text = GetText(file, MP4GetMetadataYear); text != nullptr) {
        const char* end = nullptr;
        const int32_t year = ParseInt32(text.get(), &end);
        record->year = *end == '\0' ? year : 0;
    }
    uint16_t number = 0, total = 0;
    if (MP4GetMetadataTrack(file, &number, &total)) record->track = number;
    if (MP4GetMetadataDisk(file, &number, &total)) record->disc = number;
}

}  // namespace

uint32_t Mp4TrackSeconds(MP4FileHandle file, MP4TrackId track) {
    const MP4Duration duration = MP4GetTrackDuration(file, track);
    if (duration == MP4_INVALID_DURATION) return 0;
    return static_cast<uint32_t>(MP4ConvertFromTrackDuration(file, track, duration, 1));
}

int Mp4MetadataRead(const char* path, MediaInfo* record, FileReading& reading) {
    if (path == nullptr || *path == '\0' || record == nullptr) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    CoversRemove(path, reading);
    const std::unique_ptr<MP4File, CloseFile> file(MP4Read(path, 0, reading));
    if (file == nullptr) {
        KOLI_LOG_COLON("Failed to parse mp4 metadata from [%s].", path);
        reading.CannotParse("it is no readable MP4 file");
        return -1;
    }
    const uint32_t count = MP4GetNumberOfTracks(file.get(), nullptr, 0);
    if (count == 0) {
        KOLI_LOG("No tracks in mp4.");
        reading.CannotParse("there are no tracks in it");
        return -1;
    }
    StoreTracks(file.get(), ChooseTracks(file.get(), count), record);
    StoreTexts(file.get(), record);
    if (Mp4CoverArtSave(file.get(), path, reading) != 0) record->has_cover = 1;
    StoreNumbers(file.get(), record);
    return 0;
}

}  // namespace koli
