#include "index/record/util.h"

#include <cerrno>
#include <cstring>

#include "base/path_names.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {
constexpr const char kModule[] = "util";
}

int MediaInfoFill(const char* path, MediaInfo* record) {
    if (path == nullptr || *path == '\0' || record == nullptr) {
        KOLI_LOG("%s:%d Bad parameter.");
        return -1;
    }
    uint64_t size = 0;
    if (IsFileExist(path, &size) == 0) return -1;

    CopyText(record->path, sizeof record->path, path);
    record->file_size = size;
    TitleFromPath(path, record->title, sizeof record->title);
    if (!AlbumFromPath(path, record->album, sizeof record->album)) KOLI_LOG("%s:%d Impossible error.");
    MediaInfoTimes(record);
    return 0;
}

bool MediaInfoBegin(const char* path, MediaInfo* record, LogSite site) {
    if (path == nullptr || *path == '\0' || record == nullptr) {
        LogError("%s (%d) Bad parameter.", site.module, site.line);
        return false;
    }
    uint64_t size = 0;
    if (IsFileExist(path, &size) == 0) return false;

    *record = MediaInfo{};
    CopyText(record->path, sizeof record->path, path);
    record->file_size = size;
    return true;
}

void MediaInfoNames(const char* path, NamesFromPath which, MediaInfo* record, LogSite site) {
    const bool is_preset = which == NamesFromPath::kPreset;
    if (is_preset || record->title[0] == '\0') {
        memset(record->title, 0, sizeof record->title);
        TitleFromPath(path, record->title, sizeof record->title);
    }
    if (!is_preset && record->album[0] != '\0') return;
    if (!AlbumFromPath(path, record->album, sizeof record->album))
        LogError("%s (%d) Impossible error.", site.module, site.line);
}

void MediaInfoTimes(MediaInfo* record) {
    KOLIIndexCTimeMTimeGet(record->path, record->ctime, sizeof record->ctime, record->mtime,
                           sizeof record->mtime);
}

int SaveMediaInfo(int type, const MediaInfo& record, int result, LogSite site, const char* format) {
    if (MediaInfoDBSave(type, &record) != 0) {
        LogError(format, site.module, site.line, record.path);
        return result;
    }
    return result == 1 ? 1 : 0;
}

int DeleteMediaInfo(int type, const char* path, LogSite site, const char* failure_format,
                    RemoveFailure on_failure) {
    const int kind = KLIBPathLook(path);
    if (kind == KLIB_PATH_FILE) {
        LogError("%s (%d) File exists. Skip remove it from database.", site.module, site.line);
        return -1;
    }
    if (kind == KLIB_PATH_UNKNOWN) {
        LogError("%s (%d) Failed to look at %s. Skip remove it from database. (%s)", site.module, site.line,
                 path, strerror(errno));
        return -1;
    }
    if (MediaInfoDBDelete(type, path) != 0) {
        LogError(failure_format, site.module, site.line, path);
        return on_failure == RemoveFailure::kIsError ? -1 : 0;
    }
    return 0;
}

}  // namespace koli
