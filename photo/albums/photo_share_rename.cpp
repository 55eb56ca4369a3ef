#include "photo/albums/photo_share_rename.h"

#include <cstring>

#include "base/later_renames.h"
#include "base/log.h"
#include "index/record/share_path.h"
#include "photo/albums/album_name.h"
#include "photo/albums/photo_share.h"
#include "photo/albums/photo_share_restrict.h"
#include "photo/albums/photo_share_rows.h"
#include "photo/albums/share_fs.h"
#include "photo/albums/sql_text.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";

/// Both paths begin with the same share, of the same volume.
bool IsSameShare(const char* new_path, const char* old_path) {
    return strncmp(new_path, old_path, kShareTopLength + 1) == 0;
}

bool IsInside(const char* album, const char* top) {
    const size_t length = strlen(top);
    return strncmp(album, top, length) == 0 && album[length] == '/';
}

/// An album and those below it, but for the one that is on its way between the two names.
int DropAlbums(const char* album, const char* moving) {
    return AlbumsDelete(album, IsInside(moving, album) ? moving : nullptr);
}

/// The folder that had the name is not there any more; what stands there may have come from elsewhere.
bool HasLeft(const char* path) {
    return KLIBPathLook(path) == KLIB_PATH_ABSENT || IsBroughtLater(path);
}

/// Rows that stand at and below the new name belong to folders that are gone: the album that moves there
/// takes nothing over from them, least of all a public flag.  They stay when the old folder is there again,
/// as nobody knows then whose they are: false.
bool MakeWay(const char* new_path, const char* old_path) {
    const char* new_name = AlbumNameOf(new_path);
    const char* old_name = AlbumNameOf(old_path);
    if (strcmp(new_name, old_name) == 0) return true;
    const int there = KLIBPathLook(new_path);
    const bool is_replaced = there == KLIB_PATH_DIRECTORY && HasLeft(old_path);
    if (!is_replaced && there != KLIB_PATH_ABSENT && IsAlbum(new_name)) return false;
    DropAlbums(new_name, old_name);
    return true;
}

int RenameRow(const char* new_name, const char* old_name) {
    const SqlText sql = FormatSql(
        LogSite(kModule), "Update photo_share set sharename = '%s', is_subdir = '%s' where sharename = '%s'",
        new_name, strchr(new_name, '/') != nullptr ? "t" : "f", old_name);
    return AlbumExec(sql, LogSite(kModule));
}

int ReportMissing(const char* album) {
    KOLI_LOG_COLON("UPDATE cover failed, sharename [%s] not exists in db.", album);
    return -1;
}

/// The covers' paths go through the share's link.
int RenameCover(const char* new_name, const char* old_name) {
    const SqlText sql = FormatSql(
        LogSite(kModule),
        "UPDATE photo_share SET cover = replace(cover, '/var/services/photo/%s/', '/var/services/photo/%s/') WHERE sharename='%s'",
        old_name, new_name, new_name);
    if (sql == nullptr) return -1;
    const int affected = PhotoDBExec(sql.get());
    if (affected == -1) {
        KOLI_LOG_COLON("Failed to exec [%s]", sql.get());
        return -1;
    }
    return affected == 0 ? ReportMissing(new_name) : 0;
}

/// The sub-albums stay with an album that keeps its level, in the "#recycle" too, so that what comes back
/// from there has what it had.
int FollowWithSubAlbums(const char* new_path, const char* old_path) {
    const char* new_name = AlbumNameOf(new_path);
    const char* old_name = AlbumNameOf(old_path);
    if (AlbumLevelOf(old_path) != kTopAlbum) return 0;
    if (AlbumLevelOf(new_path) != kTopAlbum) {
        DropAlbums(old_name, new_name);
    } else if (KOLIPhotoShareRenameSubDir(new_name, old_name) == -1) {
        KOLI_LOG("KOLIPhotoShareRenameSubDir failed.");
        return -1;
    }
    return 0;
}

/// An album that lay deeper has no sub-albums yet; in the "#recycle" there may have come some.
void WalkForSubAlbums(const char* new_path, const char* old_path) {
    const bool has_new = AlbumLevelOf(old_path) != kTopAlbum || IsRecycleBinPath(old_path) != 0;
    if (has_new && AlbumLevelOf(new_path) == kTopAlbum) PhotoShareWalk(new_path);
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

/// Albums are made for the new path.  -1, as nothing was renamed.
int WalkInstead(const char* new_path) {
    PhotoShareFsCheck();
    PhotoShareWalk(new_path);
    return -1;
}

int RenameAlbum(const char* new_path, const char* old_path) {
    const SqlText new_name = QuoteText(AlbumNameOf(new_path), LogSite(kModule));
    const SqlText old_name = QuoteText(AlbumNameOf(old_path), LogSite(kModule));
    if (new_name == nullptr || old_name == nullptr) return -1;
    const bool has_rows = IsSameShare(new_path, old_path) && !IsOnOtherVolume(new_path);
    const bool is_known = has_rows && HasAlbums(AlbumNameOf(old_path));
    const bool is_free = is_known && MakeWay(new_path, old_path);
    const int renamed = has_rows ? RenameRow(new_name.get(), old_name.get()) : 0;
    if (is_known && !is_free) AlbumRestrict(AlbumNameOf(new_path), AlbumNameOf(old_path));
    if (renamed == -1) return -1;
    // The sub-albums may have rows where the album has none.
    if (renamed == 0 && is_free) FollowWithSubAlbums(new_path, old_path);
    if (renamed == 0 && IsDirExist(new_path) != 0) return WalkInstead(new_path);
    if (!has_rows) return ReportMissing(new_name.get());
    if (RenameCover(new_name.get(), old_name.get()) != 0) return -1;
    if (FollowWithSubAlbums(new_path, old_path) != 0) return -1;
    WalkForSubAlbums(new_path, old_path);
    return 0;
}

}  // namespace

int KOLIPhotoShareRenameSubDir(const char* new_album, const char* old_album) {
    if (new_album == nullptr || old_album == nullptr) {
        KOLI_LOG("Bad parameter.");
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
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    if (IsShareTop(new_path)) return IsDirExist(new_path) != 0 ? WalkInstead(new_path) : -1;
    if (AlbumLevelOf(new_path) == kNoAlbum && AlbumLevelOf(old_path) == kNoAlbum) return -1;
    PhotoDBUnitBegin();
    const int result = RenameAlbum(new_path, old_path);
    return PhotoDBUnitEnd(1) == 0 ? result : -1;
}

}  // namespace koli
