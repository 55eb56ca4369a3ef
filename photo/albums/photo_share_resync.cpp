#include <cstring>

#include "base/log.h"
#include "base/media_info.h"
#include "base/metadata_folder.h"
#include "base/path_buffer.h"
#include "index/record/share_path.h"
#include "photo/albums/album_name.h"
#include "photo/albums/folder_listing.h"
#include "photo/albums/photo_resync.h"
#include "photo/albums/photo_share.h"
#include "photo/albums/photo_share_rows.h"
#include "photo/albums/resync_guard.h"
#include "photo/albums/sql_text.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";

/// The statements of the resync end their message with a full stop.
int ExecStep(const SqlText& sql) {
    if (sql == nullptr) return -1;
    if (PhotoDBExec(sql.get()) != -1) return 0;
    KOLI_LOG("Failed to exec [%s].", sql.get());
    return -1;
}

bool LinkTargetGet(char (&target)[kPathSize]) {
    if (ShareTargetGet(paths::kPhotoShare, target)) return true;
    KOLI_LOG("Failed to read link of %s", paths::kPhotoShare);
    return false;
}

int MarkFresh(const char* album) {
    const SqlText name = QuoteText(album, LogSite(kModule));
    if (name == nullptr) return -1;
    return ExecStep(FormatSql(LogSite(kModule), "Update photo_share set updated = '1' where sharename = '%s'",
                              name.get()));
}

/// Creates the album of a name that has no row.
void CreateAlbum(const char* album) {
    char target[kPathSize];
    if (!LinkTargetGet(target)) return;
    const SqlText path = FormatSql(LogSite(kModule), "%s/%s", target, album);
    if (path != nullptr) PhotoShareUpdate(path.get(), kAlbumCreate);
}

/// Marks the albums of the directories inside `folder`, and with `is_top`, for the share's top, also those
/// inside each of them.
void MarkInside(const char* folder, bool is_top, ResyncGuard* guard) {
    FolderListing listing;
    if (!guard->List(folder, &listing)) return;
    PathBuffer path(folder);
    const size_t length = path.length();
    for (const FolderListing::Entry& entry : listing) {
        if (guard->IsStopped()) return;
        const char* const name = entry.name.c_str();
        const bool is_skipped = MentionsMetadataFolder(name) || strcmp(name, kRecycleFolder) == 0;
        if (is_skipped || !path.Append(name)) continue;
        const PathKind kind = EntryAt(entry, path.text()).kind();
        if (kind == PathKind::kUnknown) guard->MissFolder(path.text());
        if (kind == PathKind::kDirectory) {
            PhotoShareMark(AlbumNameOf(path.text()));
            if (is_top) MarkInside(path.text(), false, guard);
        }
        path.CutTo(length);
    }
    guard->Leave(folder, listing);
}

/// An album that was renamed into the share's "#recycle" stays as long as its folder.
void MarkRecycled(const char* top, ResyncGuard* guard) {
    PathBuffer path(top);
    const size_t length = path.length();
    if (!path.Append(kRecycleFolder) || KLIBPathLook(path.text()) == KLIB_PATH_ABSENT) return;
    path.CutTo(length);
    const SqlRows rows =
        AlbumRowsOpen(KOLI_PHOTO_SHARE, "sharename like '#recycle/%'", nullptr, 0, LogSite(kModule));
    if (rows == nullptr) return guard->Miss();
    while (KOLIDBFetchRow(rows->result, &rows->row) == 0 && !guard->IsStopped()) {
        const char* album = KOLIDBFetchField(rows->result, rows->row, "sharename");
        if (album == nullptr || !path.Append(album)) continue;
        const int kind = KLIBPathLook(path.text());
        if ((kind == KLIB_PATH_DIRECTORY || kind == KLIB_PATH_UNKNOWN) && MarkFresh(album) != 0)
            guard->Miss();
        path.CutTo(length);
    }
}

/// An album whose mark was lost or refused is there still.  None goes while the photos' resync saw less than
/// everything: its rename may be on its way.
int Sweep(const char* top, ResyncGuard* guard) {
    MarkRecycled(top, guard);
    if (!PhotoFolderResyncSawAll() || !guard->MaySweep()) return 0;
    if (PhotoDBHarden() == 0 && PhotoShareSweep(nullptr) != -1) return 0;
    KOLI_LOG("Failed to delete none updated rows.");
    return -1;
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
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    const SqlRows rows = AlbumRowOpen(album, 0, LogSite(kModule));
    if (rows == nullptr) return -1;
    if (rows->row_count > 0) {
        MarkFresh(album);
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
    if (!LinkTargetGet(target)) return -1;
    const char* top = path != nullptr ? path : target;
    ResyncGuard guard(top, LogSite(kModule));
    if (path == nullptr && PhotoShareMarkAll(nullptr) == -1) {
        KOLI_LOG("Failed to set updated to 0 for all rows.");
        return -1;
    }
    MarkInside(top, path == nullptr, &guard);
    return path == nullptr ? Sweep(top, &guard) : 0;
}

}  // namespace koli
