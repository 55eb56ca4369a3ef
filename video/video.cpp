#include "video/video.h"

#include "base/log.h"
#include "base/media_info.h"
#include "base/path_names.h"
#include "index/util.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "video/metavideo.h"

namespace koli {
namespace {
constexpr const char kModule[] = "video";
}

int VideoAdd(const char* path) {
    if (path == nullptr || *path == '\0') {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    uint64_t size = 0;
    if (IsFileExist(path, &size) == 0) return -1;

    MediaInfo record{};
    CopyText(record.path, sizeof record.path, path);
    record.file_size = size;
    TitleFromPath(path, record.title, sizeof record.title);
    if (!AlbumFromPath(path, record.album, sizeof record.album)) KOLI_LOG("%s (%d) Impossible error.");

    int result = -1;
    if (MpegVideoInfoGet(path, &record) < 0) {
        KOLI_LOG("%s (%d) Failed to parse dat metadata.");
        result = 1;
    }
    KOLIIndexCTimeMTimeGet(record.path, record.ctime, sizeof record.ctime, record.mtime, sizeof record.mtime);
    MediaInfoValid(&record);
    return SaveMediaInfo(kStoreVideo, record, result, LogSite(kModule),
                         "%s (%d) Failed to save media info to database.");
}

int VideoDelete(const char* path) {
    return DeleteMediaInfo(kStoreVideo, path, LogSite(kModule), "%s (%d) Failed to remove [%s] from database",
                           RemoveFailure::kIsError);
}

}  // namespace koli
