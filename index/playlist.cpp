#include "index/playlist.h"

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

int PlaylistFileAdd(const KnownPath& path) {
    if (path.IsEmpty()) {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    const struct stat* file = path.file();
    if (file == nullptr) return -1;

    MediaInfo record{};
    CopyText(record.path, sizeof record.path, path.text());
    record.file_size = static_cast<uint64_t>(file->st_size);
    TimeText(file->st_ctime, record.ctime, sizeof record.ctime);
    TimeText(file->st_mtime, record.mtime, sizeof record.mtime);
    TitleFromPath(path.text(), record.title, sizeof record.title);
    if (!AlbumFromPath(path.text(), record.album, sizeof record.album)) KOLI_LOG("%s (%d) Impossible error.");
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
