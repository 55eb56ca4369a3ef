#include "video/media.h"

#include "base/log.h"
#include "base/media_info.h"
#include "index/record/util.h"
#include "platform/kolidb.h"
#include "video/metamedia.h"

namespace koli {
namespace {

constexpr const char kModule[] = "media";

/// The two forms of message that these handlers use side by side.
/// The head of every add handler: fills the zeroed record from the path.  Returns 0, or -1.
int Prefill(const KnownPath& path, MediaInfo* record, LogSite site) {
    if (path.IsEmpty()) {
        LogError(site, "Bad parameter.");
        return -1;
    }
    *record = MediaInfo{};
    return MediaInfoFill(path, record);
}

int Save(int type, MediaInfo* record, int result, LogSite site) {
    MediaInfoValid(record);
    return SaveMediaInfo(type, *record, result, site, "Failed to save media info to database.");
}

int Delete(int type, const char* path, LogSite site) {
    return DeleteMediaInfo(type, path, site, "Failed to remove [%s] from database", RemoveFailure::kIsError);
}

/// Stores a file with nothing but what its path tells.
int SaveUnread(int type, const KnownPath& path, LogSite site) {
    MediaInfo record;
    if (Prefill(path, &record, site) != 0) return -1;
    return Save(type, &record, -1, site);
}

}  // namespace

int MediaVideoAdd(const KnownPath& path, FileReading& reading) {
    MediaInfo record;
    if (Prefill(path, &record, LogSite(kModule)) != 0) return -1;
    int result = -1;
    if (MiscMediaInfoGet(path.text(), &record, reading) != 0) {
        KOLI_LOG("Failed to parse media metadata from file [%s].", path.text());
        result = 1;
    }
    return Save(kStoreVideo, &record, result, LogSite(kModule));
}

int MediaMusicAdd(const KnownPath& path, FileReading& reading) {
    MediaInfo record;
    if (Prefill(path, &record, LogSite(kModule)) != 0) return -1;
    int result = -1;
    if (MiscMediaInfoGet(record.path, &record, reading) != 0) {
        KOLI_LOG_COLON("Failed to parse music metadata from file [%s].", record.path);
        result = 1;
    }
    return Save(kStoreMusic, &record, result, LogSite(kModule));
}

int MediaVideoSave(const KnownPath& path, FileReading&) {
    return SaveUnread(kStoreVideo, path, LogSite(kModule, LogForm::kColon));
}

int MediaMusicSave(const KnownPath& path, FileReading&) {
    return SaveUnread(kStoreMusic, path, LogSite(kModule, LogForm::kColon));
}

int MediaVideoDelete(const char* path) {
    return Delete(kStoreVideo, path, LogSite(kModule));
}

int MediaMusicDelete(const char* path) {
    return Delete(kStoreMusic, path, LogSite(kModule));
}

}  // namespace koli
