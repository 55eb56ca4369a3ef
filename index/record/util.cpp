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
        KOLI_LOG_COLON("Bad parameter.");
        return -1;
    }
    const struct stat* file = path.file();
    if (file == nullptr) return -1;

    FillFromLook(path.text(), *file, record);
    TitleFromPath(path.text(), record->title, sizeof record->title);
    if (!AlbumFromPath(path.text(), record->album, sizeof record->album)) KOLI_LOG_COLON("Impossible error.");
    return 0;
}

bool MediaInfoBegin(const KnownPath& path, MediaInfo* record, LogSite site) {
    if (path.IsEmpty() || record == nullptr) {
        LogError(site, "Bad parameter.");
        return false;
    }
    const struct stat* file = path.file();
    if (file == nullptr) return false;

    *record = MediaInfo{};
    FillFromLook(path.text(), *file, record);
    return true;
}

void MediaInfoNames(const char* path, NamesFromPath which, MediaInfo* record, LogSite site) {
    const bool is_preset = which == NamesFromPath::kPreset;
    if (is_preset || record->title[0] == '\0') {
        memset(record->title, 0, sizeof record->title);
        TitleFromPath(path, record->title, sizeof record->title);
    }
    if (!is_preset && record->album[0] != '\0') return;
    if (!AlbumFromPath(path, record->album, sizeof record->album)) LogError(site, "Impossible error.");
}

int SaveMediaInfo(int type, const MediaInfo& record, int result, LogSite site, LogText<1> failure) {
    if (MediaInfoDBSave(type, &record) != 0) {
        LogError(site, failure.text, record.path);
        return result;
    }
    return result == 1 ? 1 : 0;
}

int DeleteMediaInfo(int type, const char* path, LogSite site, LogText<1> failure, RemoveFailure on_failure) {
    const int kind = KLIBPathLook(path);
    if (kind == KLIB_PATH_FILE) {
        LogError(site, "File exists. Skip remove it from database.");
        return -1;
    }
    if (kind == KLIB_PATH_UNKNOWN) {
        LogError(site, "Failed to look at %s. Skip remove it from database. (%s)", path, strerror(errno));
        return -1;
    }
    if (MediaInfoDBDelete(type, path) != 0) {
        LogError(site, failure.text, path);
        return on_failure == RemoveFailure::kIsError ? -1 : 0;
    }
    return 0;
}

}  // namespace koli
