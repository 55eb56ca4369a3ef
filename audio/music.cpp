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

int MusicFileAdd(const KnownPath& path, FileReading& reading) {
    MediaInfo record;
    if (!MediaInfoBegin(path, &record, LogSite(kModule))) return -1;
    TitleFromPath(path.text(), record.title, sizeof record.title);
    int result = -1;
    if (Mp3MetadataParse(path.text(), &record, reading) < 0) {
        KOLI_LOG("Failed to parse music metadata.");
        result = 1;
    }
    MediaInfoValid(&record);
    MediaInfoNames(path.text(), NamesFromPath::kOnlyEmpty, &record, LogSite(kModule));
    return SaveMediaInfo(kStoreMusic, record, result, LogSite(kModule),
                         "Failed to save media info to database.");
}

int MusicFileDelete(const char* path) {
    return DeleteMediaInfo(kStoreMusic, path, LogSite(kModule), "Failed to remove [%s] from database",
                           RemoveFailure::kIsError);
}

}  // namespace koli
