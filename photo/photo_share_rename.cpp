#include "photo/photo_share_rename.h"

#include <cstring>

#include "base/log.h"
#include "index/share_path.h"
#include "photo/album_name.h"
#include "photo/photo_share.h"
#include "photo/photo_share_rows.h"
#include "photo/share_fs.h"
#include "photo/sql_text.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";

/// The share's top and everything in its "#recycle": what is moved there has no album any more.
bool IsNoPlaceForAlbums(const char* path) {
    return *AlbumNameOf(path) == '\0' || IsRecycleBinPath(path) != 0;
}

/// Both paths begin with the same share, of the same volume.
bool IsSameShare(const char* new_path, const char* old_path) {
    return strncmp(new_path, old_path, kShareTopLength + 1) == 0;
}

int RenameRow(const char* new_name, const char* old_name) {
    const SqlText sql = FormatSql(
        LogSite(kModule), "Update photo_share set sharename = '%s', is_subdir = '%s' where sharename = '%s'",
        new_name, strchr(new_name, '/') != nullptr ? "t" : "f", old_name);
    return AlbumExec(sql, LogSite(kModule));
}

int ReportMissing(const char* album) {
    KOLI_LOG("%s:%d UPDATE cover failed, sharename [%s] not exists in db.", album);
    return -1;
}

/// The covers' paths go through the share's link.
int RenameCover(const char* new_name, const char* old_name) {
    const SqlText sql = FormatSql(LogSite(kModule),
                                  "UPDATE photo_share SET cover = replace(cover, '/var/services/photo/%s/', "
                                  "'/var/services/photo/%s/') WHERE sharename='%s'",
                                  old_name, new_name, new_name);
    if (sql == nullptr) return -1;
    const int affected = PhotoDBExec(sql.get());
    if (affected == -1) {
        KOLI_LOG("%s:%d Failed to exec [%s]", sql.get());
        return -1;
    }
    return affected == 0 ? ReportMissing(new_name) : 0;
}

/// The sub-albums, when their album changes its level.
int FollowWithSubAlbums(const char* new_path, const char* old_path) {
    const int new_depth = PhotoShareDepth(new_path);
    const int old_depth = PhotoShareDepth(old_path);
    if (old_depth == kTopAlbum && new_depth == kTopAlbum) {
        if (KOLIPhotoShareRenameSubDir(AlbumNameOf(new_path), AlbumNameOf(old_path)) == -1) {
            KOLI_LOG("%s (%d) KOLIPhotoShareRenameSubDir failed.");
            return -1;
        }
    } else if (old_depth == kTopAlbum && new_depth == kSubAlbum) {
        PhotoShareUpdate(old_path, kAlbumDelete);
    } else if (old_depth == kSubAlbum && new_depth == kTopAlbum) {
        PhotoShareWalk(new_path);
    }
    return 0;
}

/// `row_name` is what the row of a sub-album has now.
int RenameSubAlbum(const char* row_name, const char* new_album, size_t old_length) {
    const SqlText moved = FormatSql(LogSite(kModule), "%s%s", new_album, row_name + old_length);
    if (moved == nullptr) return -1;
    const SqlText to = QuoteText(moved.get(), LogSite(kModule));
    const SqlText from = QuoteText(row_name, LogSite(kModule));
    if (to == nullptr || from == nullptr) return -1;
    const SqlText sql =
        FormatSql(LogSite(kModule), "Update photo_share set sharename = '%s' where sharename = '%s'",
                  to.get(), from.get());
    return AlbumExec(sql, LogSite(kModule)) == -1 ? -1 : 0;
}

}  // namespace

int KOLIPhotoShareRenameSubDir(const char* new_album, const char* old_album) {
    if (new_album == nullptr || old_album == nullptr) {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    const SqlText like = LikeText(old_album, LogSite(kModule));
    if (like == nullptr) return -1;
    const SqlText where = FormatSql(LogSite(kModule), "sharename like '%s/%%'", like.get());
    if (where == nullptr) return -1;
    const SqlRows rows = AlbumRowsOpen(KOLI_PHOTO_SHARE, where.get(), nullptr, 0, LogSite(kModule));
    if (rows == nullptr) return -1;

    const size_t old_length = strlen(old_album);
    while (KOLIDBFetchRow(rows->result, &rows->row) == 0) {
        const char* row_name = KOLIDBFetchField(rows->result, rows->row, "sharename");
        if (row_name == nullptr || strncmp(row_name, old_album, old_length) != 0) continue;
        if (RenameSubAlbum(row_name, new_album, old_length) != 0) return -1;
    }
    return 0;
}

int PhotoShareRename(const char* new_path, const char* old_path) {
    if (new_path == nullptr || *new_path == '\0' || old_path == nullptr || *old_path == '\0') {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    const bool is_dropped = IsNoPlaceForAlbums(new_path);
    if (PhotoShareDepth(old_path) == kNoAlbum && (is_dropped || PhotoShareDepth(new_path) == kNoAlbum))
        return -1;
    const bool is_same_share = IsSameShare(new_path, old_path);
    if (is_dropped) return is_same_share ? PhotoShareUpdate(old_path, kAlbumDelete) : -1;

    const SqlText new_name = QuoteText(AlbumNameOf(new_path), LogSite(kModule));
    const SqlText old_name = QuoteText(AlbumNameOf(old_path), LogSite(kModule));
    if (new_name == nullptr || old_name == nullptr) return -1;
    KOLIDBFlush();  // so that the steps fall into one group: a process killed between them leaves all or none
    const int renamed = is_same_share ? RenameRow(new_name.get(), old_name.get()) : 0;
    if (renamed == -1) return -1;
    if (renamed == 0 && IsDirExist(new_path) != 0) {
        PhotoShareFsCheck();
        PhotoShareWalk(new_path);
        return -1;
    }
    if (!is_same_share) return ReportMissing(new_name.get());
    if (RenameCover(new_name.get(), old_name.get()) != 0) return -1;
    return FollowWithSubAlbums(new_path, old_path);
}

}  // namespace koli
