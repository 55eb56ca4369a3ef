#include "index/playlist.h"

#include <sys/stat.h>

#include <ctime>

#include "base/log.h"
#include "base/media_info.h"
#include "base/path_names.h"
#include "index/record/util.h"

namespace koli {
namespace {

constexpr const char kModule[] = "playlist";

/// The C library's text of a time, its newline included: "Sun Nov 15 20:39:22 2026\n".  A time beyond what
/// the calendar can tell gives ''.
void TimeText(time_t when, char* field, size_t size) {
    const char* text = ctime(&when);
    CopyText(field, size, text != nullptr ? text : "");
}

}  // namespace

int PlaylistFileAdd(const char* path, FileReading&) {
    if (path == nullptr || *path == '\0') {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    struct stat status;
    if (stat(path, &status) != 0 || !S_ISREG(status.st_mode)) return -1;

    MediaInfo record{};
    CopyText(record.path, sizeof record.path, path);
    record.file_size = static_cast<uint64_t>(status.st_size);
    TimeText(status.st_ctime, record.ctime, sizeof record.ctime);
    TimeText(status.st_mtime, record.mtime, sizeof record.mtime);
    TitleFromPath(path, record.title, sizeof record.title);
    if (!AlbumFromPath(path, record.album, sizeof record.album)) KOLI_LOG("%s (%d) Impossible error.");
    return SaveMediaInfo(kStorePlaylist, record, -1, LogSite(kModule),
                         "%s (%d) Failed to save playlist info.");
}

int PlaylistFileDelete(const char* path) {
    if (path == nullptr || *path == '\0') {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    return DeleteMediaInfo(kStorePlaylist, path, LogSite(kModule),
                           "%s (%d) Failed to remove %s from database.", RemoveFailure::kIsReportedOnly);
}

}  // namespace koli
