#include "audio/flac.h"

#include <strings.h>
#include <cerrno>
#include <cstring>

#include "audio/flac_blocks.h"
#include "audio/flac_stream.h"
#include "base/float_to_uint.h"
#include "base/parse_number.h"
#include "base/path_names.h"
#include "index/record/util.h"

namespace koli {
namespace {

constexpr const char kModule[] = "flac";

void StoreStreamInfo(const FLAC__StreamMetadata_StreamInfo& info, int64_t file_size, MediaInfo* record) {
    record->channels = info.channels;
    record->sample_rate = info.sample_rate;
    record->duration = 0;
    record->audio_bitrate = 0;
    if (info.sample_rate == 0) return;

    const uint64_t whole_seconds = info.total_samples / info.sample_rate;
    record->duration = static_cast<float>(whole_seconds);
    if (info.total_samples == 0) return;
    // The play time is single precision on purpose: its rounding shows in the stored number.
    const float seconds = static_cast<float>(info.total_samples) / static_cast<float>(info.sample_rate);
    record->audio_bitrate =
        FloatToUint32(static_cast<double>(file_size) * 8.0 / static_cast<double>(seconds));
}

/// What follows `name` ("TITLE=") in a comment of that name; null for another name and when nothing follows.
/// libFLAC terminates each entry with a NUL behind its `length` bytes.
const char* CommentValue(const FLAC__StreamMetadata_VorbisComment_Entry& entry, const char* name) {
    const char* text = reinterpret_cast<const char*>(entry.entry);
    const size_t name_length = strlen(name);
    if (text == nullptr || entry.length <= name_length || strncasecmp(text, name, name_length) != 0)
        return nullptr;
    return text + name_length;
}

void StoreComment(const FLAC__StreamMetadata_VorbisComment_Entry& entry, MediaInfo* record) {
    const char* end = nullptr;
    if (const char* title = CommentValue(entry, "TITLE=")) {
        CopyText(record->title, sizeof record->title, title);
    } else if (const char* artist = CommentValue(entry, "ARTIST=")) {
        CopyText(record->artist, sizeof record->artist, artist);
    } else if (const char* album = CommentValue(entry, "ALBUM=")) {
        CopyText(record->album, sizeof record->album, album);
    } else if (const char* date = CommentValue(entry, "DATE=")) {
        const int32_t year = ParseInt32(date, &end);
        record->year = *end == '\0' ? year : 0;
    } else if (const char* genre = CommentValue(entry, "GENRE=")) {
        CopyText(record->genre, sizeof record->genre, genre);
    } else if (const char* track = CommentValue(entry, "TRACKNUMBER=")) {
        record->track = ParseInt32(track, &end);
    }
}

}  // namespace

int FlacMetadataRead(const KnownPath& path, MediaInfo* record, FileReading& reading) {
    if (path.IsEmpty() || record == nullptr) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    if (path.status() == nullptr) reading.ReadFailed(errno);
    if (path.file() == nullptr) {
        KOLI_LOG("Stat file error: %s.", path.text());
        reading.CannotParse("it is no regular file");
        return -1;
    }

    MediaFile file;
    if (file.Open(path.text(), reading)) FlacBlocksRequest(file.descriptor(), file.size());
    const FlacBlock stream_info = file.ok() ? FlacBlockRead(file, FLAC__METADATA_TYPE_STREAMINFO) : nullptr;
    if (stream_info == nullptr) {
        KOLI_LOG("Can't get Flac stream info: %s.", path.text());
        reading.CannotParse("there is no readable FLAC stream information in it");
        return -1;
    }
    StoreStreamInfo(stream_info->data.stream_info, path.file()->st_size, record);

    const FlacBlock tags = FlacBlockRead(file, FLAC__METADATA_TYPE_VORBIS_COMMENT);
    if (tags == nullptr) {
        KOLI_LOG("Can't get Flac comment tags: %s.", path.text());
        reading.CannotParse("there are no readable FLAC comments in it");
        return -1;
    }
    const FLAC__StreamMetadata_VorbisComment& comments = tags->data.vorbis_comment;
    for (FLAC__uint32 i = 0; i < comments.num_comments; ++i)
        StoreComment(comments.comments[i], record);
    return 0;
}

int FlacFileAdd(const KnownPath& path, FileReading& reading) {
    MediaInfo record;
    if (!MediaInfoBegin(path, &record, LogSite(kModule))) return -1;
    MediaInfoNames(path.text(), NamesFromPath::kPreset, &record, LogSite(kModule));

    int result = -1;
    if (FlacMetadataRead(path, &record, reading) < 0) {
        KOLI_LOG("Failed to parse music metadata.");
        result = 1;
    }
    return SaveMediaInfo(kStoreMusic, record, result, LogSite(kModule),
                         "Failed to save media info to database.");
}

}  // namespace koli
