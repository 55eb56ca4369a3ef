#include "video/video.h"

#include "base/log.h"
#include "base/media_info.h"
#include "index/record/util.h"
#include "platform/kolidb.h"
#include "video/metavideo.h"

namespace koli {
namespace {
constexpr const char kModule[] = "video";
}

int VideoAdd(const KnownPath& path, FileReading& reading) {
    MediaInfo record;
    if (!MediaInfoBegin(path, &record, LogSite(kModule))) return -1;
    MediaInfoNames(path.text(), NamesFromPath::kPreset, &record, LogSite(kModule));

    int result = -1;
    if (MpegVideoInfoGet(path.text(), &record, reading) < 0) {
        KOLI_LOG("Failed to parse dat metadata.");
        result = 1;
    }
    MediaInfoValid(&record);
    return SaveMediaInfo(kStoreVideo, record, result, LogSite(kModule),
                         "Failed to save media info to database.");
}

int VideoDelete(const char* path) {
    return DeleteMediaInfo(kStoreVideo, path, LogSite(kModule), "Failed to remove [%s] from database",
                           RemoveFailure::kIsError);
}

}  // namespace koli
