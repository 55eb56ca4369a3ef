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
struct Texts {
    const char* bad_parameter;
    const char* save_failed;
};
constexpr Texts kAddTexts = {"%s (%d) Bad parameter.", "%s (%d) Failed to save media info to database."};
constexpr Texts kSaveTexts = {"%s:%d Bad parameter.", "%s:%d Failed to save media info to database."};

/// The head of every add handler: fills the zeroed record from the path.  Returns 0, or -1.
int Prefill(const KnownPath& path, MediaInfo* record, const Texts& texts, LogSite site) {
    if (path.IsEmpty()) {
        LogError(texts.bad_parameter, site.module, site.line);
        return -1;
    }
    *record = MediaInfo{};
    return MediaInfoFill(path, record);
}

int Save(int type, MediaInfo* record, int result, const Texts& texts, LogSite site) {
    MediaInfoValid(record);
    return SaveMediaInfo(type, *record, result, site, texts.save_failed);
}

int Delete(int type, const char* path, LogSite site) {
    return DeleteMediaInfo(type, path, site, "%s (%d) Failed to remove [%s] from database",
                           RemoveFailure::kIsError);
}

/// Stores a file with nothing but what its path tells.
int SaveUnread(int type, const KnownPath& path, LogSite site) {
    MediaInfo record;
    if (Prefill(path, &record, kSaveTexts, site) != 0) return -1;
    return Save(type, &record, -1, kSaveTexts, site);
}

}  // namespace

int MediaVideoAdd(const KnownPath& path) {
    MediaInfo record;
    if (Prefill(path, &record, kAddTexts, LogSite(kModule)) != 0) return -1;
    int result = -1;
    if (MiscMediaInfoGet(path.text(), &record) != 0) {
        KOLI_LOG("%s (%d) Failed to parse media metadata from file [%s].", path.text());
        result = 1;
    }
    return Save(kStoreVideo, &record, result, kAddTexts, LogSite(kModule));
}

int MediaMusicAdd(const KnownPath& path) {
    MediaInfo record;
    if (Prefill(path, &record, kAddTexts, LogSite(kModule)) != 0) return -1;
    int result = -1;
    if (MiscMediaInfoGet(record.path, &record) != 0) {
        KOLI_LOG("%s:%d Failed to parse music metadata from file [%s].", record.path);
        result = 1;
    }
    return Save(kStoreMusic, &record, result, kAddTexts, LogSite(kModule));
}

int MediaVideoSave(const KnownPath& path) {
    return SaveUnread(kStoreVideo, path, LogSite(kModule));
}

int MediaMusicSave(const KnownPath& path) {
    return SaveUnread(kStoreMusic, path, LogSite(kModule));
}

int MediaVideoDelete(const char* path) {
    return Delete(kStoreVideo, path, LogSite(kModule));
}

int MediaMusicDelete(const char* path) {
    return Delete(kStoreMusic, path, LogSite(kModule));
}

}  // namespace koli
