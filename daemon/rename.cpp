#include "daemon/rename.h"

#include <cerrno>
#include <cstring>

#include "base/features.h"
#include "base/log.h"
#include "index/directory.h"
#include "index/index.h"
#include "index/record/index_mode.h"
#include "index/record/share_path.h"
#include "photo/albums/album_name.h"
#include "photo/albums/photo_rename.h"
#include "photo/albums/photo_share.h"
#include "photo/albums/photo_share_restrict.h"
#include "photo/albums/photo_share_rows.h"
#include "photo/albums/share_fs.h"
#include "photo/albums/sql_text.h"
#include "photo/photo_library.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {

constexpr const char kModule[] = "koliindexd";

/// The paths of an N line, null for a missing one, and what stands there (KLIBPathKind).
struct Move {
    const char* new_path = nullptr;
    const char* old_path = nullptr;
    int new_kind = KLIB_PATH_ABSENT;
    int old_kind = KLIB_PATH_ABSENT;
    bool is_doubtful = false;  // the photo library's rows stay where they are
};

/// ".." in the text would become part of the rows' new names, where nothing finds them again.
const char* PathOf(char* token) {
    if (token == nullptr) return nullptr;
    PathCollapse(token);
    return HasParentComponent(token) ? nullptr : token;
}

/// "/" and "/volume1": whole volumes.
bool HasOneComponent(const char* path) {
    return *path == '/' && strchr(path + 1, '/') == nullptr;
}

bool IsPhotoShareTop(const char* path) {
    return IsPhotoSharePath(path) != 0 && IsShareTop(path);
}

/// A line that did not reach its end may name a folder above the one that was meant, and one with a third
/// path has a ':' in one of its names.  Both show when something stands at the old path, which a move leaves
/// empty.
bool IsDoubtful(const Move& move, bool is_whole) {
    if (move.new_path == nullptr || move.old_kind == KLIB_PATH_ABSENT) return false;
    return !is_whole || strcmp(move.new_path, move.old_path) == 0 || IsPhotoShareTop(move.old_path);
}

/// A volume that is there as a whole counts as missing: nobody means all that it holds.
void TakeOldPath(const char* path, Move* move) {
    const int kind = KLIBPathLook(path);
    if (kind == KLIB_PATH_UNKNOWN)
        KOLI_LOG("Failed to look at %s. Skip remove it from database. (%s)", path, strerror(errno));
    if (kind != KLIB_PATH_ABSENT && HasOneComponent(path)) return;
    move->old_path = path;
    move->old_kind = kind;
}

/// Of two paths the second one is cut when the line did not fit its buffer: it counts as missing.
Move MoveOf(const RequestArgument& argument) {
    char* rest = nullptr;
    char* new_path = strtok_r(argument.text, ":", &rest);
    char* old_path = strtok_r(nullptr, ":", &rest);
    const bool has_third = strtok_r(nullptr, ":", &rest) != nullptr;
    if (argument.is_cut && !has_third) (old_path != nullptr ? old_path : new_path) = nullptr;

    Move move;
    move.new_path = PathOf(new_path);
    move.new_kind = KLIBPathLook(move.new_path);
    TakeOldPath(PathOf(old_path), &move);
    move.is_doubtful = IsDoubtful(move, argument.has_end && !has_third);
    return move;
}

/// What of the old path is gone goes; what stands there again, or still, keeps its rows.
void LeaveOldPath(const Move& move) {
    const bool is_directory = move.new_kind == KLIB_PATH_DIRECTORY;
    if (move.old_kind == KLIB_PATH_UNKNOWN) return;
    if (move.old_kind == KLIB_PATH_DIRECTORY) return IndexTreeAgain(move.old_path);
    if (!is_directory) IndexOnePath(move.old_path, kModeDelete);
    // What has moved on from the new path too may have been a folder.
    const bool has_moved_on = move.new_path != nullptr && move.new_kind == KLIB_PATH_ABSENT &&
                              move.old_path != nullptr && move.old_kind == KLIB_PATH_ABSENT;
    if (is_directory || has_moved_on) IndexWalk(move.old_path, kModeDelete, kWalkMediaStore);
}

void MoveInMediaStore(const Move& move) {
    LeaveOldPath(move);
    if (move.new_kind == KLIB_PATH_DIRECTORY) {
        IndexWalk(move.new_path, kModeAdd, kWalkMediaStore);
    } else if (IsRecycleBinPath(move.new_path) == 0) {  // as no walk stores what was thrown away
        IndexOnePath(move.new_path, kModeAdd);
    }
    if (move.old_kind == KLIB_PATH_FILE) IndexOnePath(move.old_path, kModeAdd);
}

bool HasRows(int table, const char* column, const SqlText& where) {
    if (where == nullptr) return false;
    const SqlRows rows(PhotoInfoDBOpen(table, column, where.get(), 0, nullptr, 1, 0));
    return rows != nullptr && rows->row_count > 0;
}

bool HasRowsBelow(int table, const char* path) {
    const SqlText like = LikeText(path, LogSite(kModule));
    if (like == nullptr) return false;
    return HasRows(table, "path", FormatSql(LogSite(kModule), "path like '%s/%%'", like.get()));
}

bool IsKnownAlbum(const char* path) {
    return IsPhotoSharePath(path) != 0 && *AlbumNameOf(path) != '\0' && IsAlbum(AlbumNameOf(path));
}

/// Whether the photo database knows `path` as a folder: it has rows below it, or it is an album.
bool IsKnownFolder(const char* path) {
    for (const int table : {KOLI_PHOTO_INFO, KOLI_VIDEO_DESC, KOLI_VIDEO_COMMENT})
        if (HasRowsBelow(table, path)) return true;
    return IsKnownAlbum(path);
}

/// A folder may have moved on before this line is executed: chains and swaps pass through names at which
/// nothing stands any more, and what was typed in for it has to pass through them too.
bool IsFolderMove(const Move& move) {
    if (move.new_kind == KLIB_PATH_DIRECTORY) return true;
    const bool has_moved_on = move.new_kind == KLIB_PATH_ABSENT || move.new_kind == KLIB_PATH_UNKNOWN;
    return has_moved_on && move.old_path != nullptr && IsKnownFolder(move.old_path);
}

void MoveVideoTexts(const Move& move) {
    VideoDescPathRename(KOLI_VIDEO_DESC, move.new_path, move.old_path);
    VideoDescPathRename(KOLI_VIDEO_COMMENT, move.new_path, move.old_path);
}

/// A folder that is no album may get the name of one: that of other pictures, which has not gone yet; or its
/// own, when the request comes twice, but then it has no picture left to move.
bool MayBecomeAlbum(const Move& move) {
    if (move.old_path == nullptr || move.new_path == nullptr) return false;
    if (move.new_kind != KLIB_PATH_DIRECTORY) return false;
    if (strncmp(move.new_path, move.old_path, kShareTopLength + 1) != 0 || IsKnownAlbum(move.old_path))
        return false;
    return !IsKnownAlbum(move.new_path) || HasRowsBelow(KOLI_PHOTO_INFO, move.old_path);
}

void MoveFolder(const Move& move) {
    const bool may_become_album = MayBecomeAlbum(move);
    PhotoPathRename(move.new_path, move.old_path, 1);
    PhotoShareRename(move.new_path, move.old_path);
    if (may_become_album) AlbumRestrictToOrigin(move.new_path, move.old_path);
    if (support_vidora == 1) MoveVideoTexts(move);
}

void MoveInPhotoLibrary(const Move& move) {
    if (IsFolderMove(move)) {
        MoveFolder(move);
    } else {
        PhotoPathRename(move.new_path, move.old_path, 0);
        if (support_vidora == 1 && BlKOLIIndexIsVideoOnWebFile(move.new_path) != 0) MoveVideoTexts(move);
    }
}

void AddToPhotoLibrary(const Move& move) {
    KOLI_LOG("%s exists, nothing in the photo library is moved from there.", move.old_path);
    if (move.new_kind == KLIB_PATH_FILE) PhotoLibraryIndex(move.new_path, kModeAdd);
    if (move.new_kind != KLIB_PATH_DIRECTORY) return;
    IndexWalk(move.new_path, kModeAdd, kWalkPhotoLibrary);
    PhotoShareFsCheck();
    PhotoShareWalk(move.new_path);
}

}  // namespace

void RequestRename(RequestArgument argument) {
    const Move move = MoveOf(argument);
    if (RequestWorksOn(argument, KOLI_MEDIA_DB)) MoveInMediaStore(move);
    if (!RequestWorksOnPhotos(argument, move.new_path)) return;
    if (move.is_doubtful) {
        AddToPhotoLibrary(move);
    } else {
        MoveInPhotoLibrary(move);
    }
}

}  // namespace koli
