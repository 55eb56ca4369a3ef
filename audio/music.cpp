#include "audio/music.h"

#include "audio/mp3.h"
#include "base/log.h"
#include "base/path_names.h"
#include "index/record/util.h"
#include "platform/kolidb.h"

namespace koli {
namespace {
constexpr const char kModule[] = "music";
}

int MusicFileAdd(const KnownPath& path) {
    MediaInfo record;
    if (MediaInfoBegin(path, &record, LogSite(kModule)) != 0) return -1;
    TitleFromPath(path.text(), record.title, sizeof record.title);
    int result = -1;
    if (Mp3MetadataParse(path.text(), &record) < 0) {
        KOLI_LOG("%s (%d) Failed to parse music metadata.");
        result = 1;
    }
    MediaInfoValid(&record);
    MediaInfoNames(path.text(), NamesFromPath::kOnlyEmpty, &record, LogSite(kModule));
    return SaveMediaInfo(kStoreMusic, record, result, LogSite(kModule),
                         "%s (%d) Failed to save media info to database.");
}

int MusicFileDelete(const char* path) {
    return DeleteMediaInfo(kStoreMusic, path, LogSite(kModule), "%s (%d) Failed to remove [%s] from database",
                           RemoveFailure::kIsError);
}

}  // namespace koli
