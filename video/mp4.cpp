#include "video/mp4.h"

#include "index/record/util.h"
#include "platform/kolidb.h"
#include "video/metamedia.h"

namespace koli {
namespace {

constexpr const char kModule[] = "mp4";

/// What the probe found wins over the MP4 reader's figures, which stand in for it.
void MergeProbe(const MediaInfo& probe, MediaInfo* record) {
    if (probe.audio_bitrate != 0) record->audio_bitrate = probe.audio_bitrate;
    if (probe.channels > 0) record->channels = probe.channels;
    if (probe.duration > 0.0F) record->duration = probe.duration;
    if (probe.sample_rate > 0) record->sample_rate = probe.sample_rate;
}

}  // namespace

int Mp4InfoFill(const KnownPath& path, MediaInfo* record, FileReading& reading) {
    if (!MediaInfoBegin(path, record, LogSite(kModule))) return -1;
    int result = 0;
    if (Mp4MetadataRead(record->path, record, reading) < 0) {
        KOLI_LOG("Failed to parse mp4 metadata.");
        result = 1;
    }
    MediaInfoValid(record);

    MediaInfoNames(path.text(), NamesFromPath::kOnlyEmpty, record, LogSite(kModule));
    return result;
}

int Mp4Add(const KnownPath& path, FileReading& reading) {
    MediaInfo record{};
    MediaInfo probe{};
    const int result = Mp4InfoFill(path, &record, reading);
    if (result != 0 && result != 1) return -1;
    if (MiscMediaInfoGet(path.text(), &probe, reading) == 0) MergeProbe(probe, &record);
    return SaveMediaInfo(kStoreMusic, record, result, LogSite(kModule),
                         "Failed to save media info to database.");
}

int Mp4Delete(const char* path) {
    return DeleteMediaInfo(kStoreMusic, path, LogSite(kModule), "Failed to remove [%s] from database",
                           RemoveFailure::kIsError);
}

}  // namespace koli
