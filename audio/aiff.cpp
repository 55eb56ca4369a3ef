#include "audio/aiff.h"

#include "base/float_to_uint.h"
#include "compat/aiff_file.h"
#include "index/record/util.h"
#include "platform/kolidb.h"

namespace koli {
namespace {

constexpr const char kModule[] = "aiff";

void StoreAudioFormat(const char* path, MediaInfo* record, FileReading& reading) {
    AIFF_Ref file = AIFF_OpenFile(path, F_RDONLY, reading);
    if (file == nullptr) return;
    uint64_t frames = 0;
    int channels = 0, bits = 0, segment_size = 0;
    double rate = 0;
    if (AIFF_GetAudioFormat(file, &frames, &channels, &rate, &bits, &segment_size) == 1) {
        record->channels = static_cast<uint32_t>(channels);
        record->duration = rate > 0.0 ? DoubleToFloat(static_cast<double>(frames) / rate) : 0.0F;
        record->audio_bitrate = FloatToUint32(bits * rate * channels);
        record->sample_rate = FloatToUint32(rate);
    }
    AIFF_CloseFile(file);
}

}  // namespace

int AiffMetadataRead(const KnownPath& path, MediaInfo* record, FileReading& reading) {
    if (!MediaInfoBegin(path, record, LogSite(kModule))) return -1;
    StoreAudioFormat(path.text(), record, reading);
    MediaInfoValid(record);

    MediaInfoNames(path.text(), NamesFromPath::kOnlyEmpty, record, LogSite(kModule));
    return 0;
}

int AiffFileAdd(const KnownPath& path, FileReading& reading) {
    MediaInfo record;
    if (AiffMetadataRead(path, &record, reading) < 0) return -1;
    return SaveMediaInfo(kStoreMusic, record, -1, LogSite(kModule), "Failed to save media info to database.");
}

int AiffFileDelete(const char* path) {
    return DeleteMediaInfo(kStoreMusic, path, LogSite(kModule), "Failed to remove [%s] from database",
                           RemoveFailure::kIsError);
}

}  // namespace koli
