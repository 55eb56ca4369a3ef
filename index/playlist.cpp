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

int PlaylistFileAdd(const KnownPath& path, FileReading&) {
    MediaInfo record;
    if (!MediaInfoBegin(path, &record, LogSite(kModule))) return -1;
    TimeText(path.file()->st_ctime, record.ctime, sizeof record.ctime);
    TimeText(path.file()->st_mtime, record.mtime, sizeof record.mtime);
    MediaInfoNames(path.text(), NamesFromPath::kPreset, &record, LogSite(kModule));
    return SaveMediaInfo(kStorePlaylist, record, -1, LogSite(kModule), "Failed to save playlist info.");
}

int PlaylistFileDelete(const char* path) {
    if (path == nullptr || *path == '\0') {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    return DeleteMediaInfo(kStorePlaylist, path, LogSite(kModule), "Failed to remove %s from database.",
                           RemoveFailure::kIsReportedOnly);
}

}  // namespace koli
