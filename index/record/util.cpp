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

/// What the look at the file tells.
void FillFromLook(const char* path, const struct stat& file, MediaInfo* record) {
    CopyText(record->path, sizeof record->path, path);
    record->file_size = static_cast<uint64_t>(file.st_size);
    KOLIIndexTimeText(file.st_ctime, record->ctime, sizeof record->ctime);
    KOLIIndexTimeText(file.st_mtime, record->mtime, sizeof record->mtime);
}

}  // namespace

int MediaInfoFill(const KnownPath& path, MediaInfo* record) {
    if (path.IsEmpty() || record == nullptr) {
        KOLI_LOG("%s:%d Bad parameter.");
        return -1;
    }
    const struct stat* file = path.file();
    if (file == nullptr) return -1;

    FillFromLook(path.text(), *file, record);
    TitleFromPath(path.text(), record->title, sizeof record->title);
    if (!AlbumFromPath(path.text(), record->album, sizeof record->album)) KOLI_LOG("%s:%d Impossible error.");
    return 0;
}

int MediaInfoBegin(const KnownPath& path, MediaInfo* record, LogSite site) {
    if (path.IsEmpty() || record == nullptr) {
        LogError("%s (%d) Bad parameter.", site.module, site.line);
        return -1;
    }
    const struct stat* file = path.file();
    if (file == nullptr) return -1;

    *record = MediaInfo{};
    FillFromLook(path.text(), *file, record);
    return 0;
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
