#include "audio/music.h"

#include <cstring>

#include "audio/mp3.h"
#include "base/log.h"
#include "base/path_names.h"
#include "index/util.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {
constexpr const char kModule[] = "music";
}

int MusicFileAdd(const char* path) {
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
    int result = -1;
    if (Mp3MetadataParse(path, &record) < 0) {
        KOLI_LOG("%s (%d) Failed to parse music metadata.");
        result = 1;
    }
    KOLIIndexCTimeMTimeGet(path, record.ctime, sizeof record.ctime, record.mtime, sizeof record.mtime);
    MediaInfoValid(&record);
    if (record.title[0] == '\0') {
        memset(record.title, 0, sizeof record.title);
        TitleFromPath(path, record.title, sizeof record.title);
    }
    if (record.album[0] == '\0' && !AlbumFromPath(path, record.album, sizeof record.album))
        KOLI_LOG("%s (%d) Impossible error.");
    return SaveMediaInfo(kStoreMusic, record, result, LogSite(kModule),
                         "%s (%d) Failed to save media info to database.");
}

int MusicFileDelete(const char* path) {
    return DeleteMediaInfo(kStoreMusic, path, LogSite(kModule), "%s (%d) Failed to remove [%s] from database",
                           RemoveFailure::kIsError);
}

}  // namespace koli
