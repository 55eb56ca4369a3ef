#include <cstring>

#include "base/log.h"
#include "base/media_info.h"
#include "base/path_names.h"
#include "index/share_path.h"
#include "photo/album_name.h"
#include "photo/folder_listing.h"
#include "photo/photo_share.h"
#include "photo/photo_share_rows.h"
#include "photo/sql_text.h"
#include "platform/kolidb.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";
constexpr const char kRecycleName[] = "#recycle";

/// The statements of the resync end their message with a full stop.
int ExecStep(const SqlText& sql) {
    if (sql == nullptr) return -1;
    if (PhotoDBExec(sql.get()) != -1) return 0;
    KOLI_LOG("%s (%d) Failed to exec [%s].", sql.get());
    return -1;
}

int LinkTargetGet(char (&target)[kPathSize]) {
    if (ShareTargetGet(paths::kPhotoShare, target) == 0) return 0;
    KOLI_LOG("%s (%d) Failed to read link of %s", paths::kPhotoShare);
    return -1;
}

/// Creates the album of a name that has no row.
void CreateAlbum(const char* album) {
    char target[kPathSize];
    if (LinkTargetGet(target) != 0) return;
    const SqlText path = FormatSql(LogSite(kModule), "%s/%s", target, album);
    if (path != nullptr) PhotoShareUpdate(path.get(), kAlbumCreate);
}

/// Marks the albums of the directories inside `folder`, and with `is_top`, for the share's top, also those
/// inside each of them.  False when a directory could not be looked at: nobody knows then what is stale.
bool MarkInside(const char* folder, bool is_top) {
    bool is_complete = true;
    const FolderListing::Status result = ForEachFolder(folder, [&is_complete, is_top](const char* path) {
        if (strcmp(FileNameOf(path), kRecycleName) == 0) return;
        PhotoShareMark(AlbumNameOf(path));
        if (is_top && !MarkInside(path, false)) is_complete = false;
    });
    // A top that is not there is out of reach (a volume that is not mounted); any other may have just gone.
    const bool is_missed = result == FolderListing::Status::kOutOfReach ||
                           (is_top && result == FolderListing::Status::kNoFolder);
    if (is_missed) KOLI_LOG("%s (%d) Failed to open directory %s ", folder);
    return is_complete && !is_missed;
}

}  // namespace

int PhotoShareMarkAll(const char* album) {
    if (album == nullptr) return PhotoDBExec("Update photo_share set updated = '0'") == -1 ? -1 : 0;
    const SqlText like = LikeText(album, LogSite(kModule));
    if (like == nullptr) return -1;
    return ExecStep(FormatSql(
        LogSite(kModule), "Update photo_share set updated = '0' where sharename like '%s/%%'", like.get()));
}

int PhotoShareMark(const char* album) {
    if (album == nullptr || *album == '\0') {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    const SqlRows rows = AlbumRowOpen(album, 0, LogSite(kModule));
    if (rows == nullptr) return -1;
    if (rows->row_count > 0) {
        const SqlText name = QuoteText(album, LogSite(kModule));
        if (name == nullptr) return -1;
        ExecStep(FormatSql(LogSite(kModule), "Update photo_share set updated = '1' where sharename = '%s'",
                           name.get()));
    } else {
        CreateAlbum(album);
    }
    return -1;
}

int PhotoShareSweep(const char* album) {
    if (album == nullptr) return PhotoDBExec("Delete from photo_share where updated = '0'") == -1 ? -1 : 0;
    const SqlText like = LikeText(album, LogSite(kModule));
    if (like == nullptr) return -1;
    return ExecStep(FormatSql(LogSite(kModule),
                              "Delete from photo_share where updated = '0' and sharename like '%s/%%'",
                              like.get()));
}

int PhotoShareResync(const char* path) {
    if (path != nullptr && PhotoShareDepth(path) != kTopAlbum) return 0;
    char target[kPathSize];
    if (LinkTargetGet(target) != 0) return -1;
    if (path != nullptr) {
        MarkInside(path, false);
        return 0;
    }
    if (PhotoShareMarkAll(nullptr) == -1) {
        KOLI_LOG("%s (%d) Failed to set updated to 0 for all rows.");
        return -1;
    }
    if (!MarkInside(target, true)) return 0;
    // An album whose mark was lost or refused is there still.
    if (PhotoDBHarden() != 0 || PhotoShareSweep(nullptr) == -1) {
        KOLI_LOG("%s (%d) Failed to delete none updated rows.");
        return -1;
    }
    return 0;
}

}  // namespace koli
