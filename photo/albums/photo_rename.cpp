#include "photo/albums/photo_rename.h"

#include <cstdio>
#include <cstring>

#include "base/later_renames.h"
#include "base/log.h"
#include "base/media_info.h"
#include "index/directory.h"
#include "index/record/index_mode.h"
#include "photo/albums/sql_text.h"
#include "photo/caption.h"
#include "photo/photo_library.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_index";

bool IsMissing(const char* path) {
    return path == nullptr || *path == '\0';
}

/// Null when it failed, which has been logged.
SqlRows OpenPaths(int table, const char* where) {
    SqlRows rows(PhotoInfoDBOpen(table, "path", where, 0, nullptr, 0, 0));
    if (rows == nullptr) KOLI_LOG("Error occurred, failed to get records.");
    return rows;
}

/// A '.' anywhere and no folder.  The folder `is_directory` that has moved on, or cannot be looked at, is one
/// still.
bool IsFileName(const char* path, int is_directory) {
    if (strchr(path, '.') == nullptr) return false;
    const int kind = KLIBPathLook(path);
    const bool is_anything = kind == KLIB_PATH_FILE || kind == KLIB_PATH_OTHER;
    return kind != KLIB_PATH_DIRECTORY && (is_directory == 0 || is_anything);
}

/// The new name of a rename.
struct NewPath {
    NewPath(const char* new_path, int is_directory)
        : path(new_path), is_file(IsFileName(path, is_directory)) {
        if (is_file) kind = WebKindOf(path);
    }
    bool IsPhoto() const { return is_file && kind == WebKind::kPhoto; }

    const char* path;
    bool is_file;
    WebKind kind = WebKind::kNone;
};

bool Holds(const PhotoPathList* list, const char* path) {
    while (list != nullptr && strcmp(list->path, path) != 0)
        list = list->next;
    return list != nullptr;
}

int MoveListed(const PhotoPathList* list, const NewPath& to, const char* old_path) {
    // A rename to its own name keeps its row.  So does the new name when the old one is in use again: the
    // database tells then which of the two is right.
    if (to.IsPhoto() && strcmp(to.path, old_path) != 0 && KLIBPathLook(old_path) == KLIB_PATH_ABSENT)
        PhotoInfoDBDelete(to.path);
    if (list != nullptr && KOLIUpdatePhotoPath(list, to.path, old_path) == -1) {
        KOLI_LOG("Failed to rename to new path.");
        return -1;
    }
    return 0;
}

int MoveRows(SqlRows& rows, const NewPath& to, const char* old_path) {
    if (to.is_file && !to.IsPhoto()) {
        PhotoLibraryDelete(old_path);
        return -1;
    }
    const PathList list(PhotoPathDBGet(rows.get()));
    PhotoDBUnitBegin();
    int result = MoveListed(list.get(), to, old_path);
    if (PhotoDBUnitEnd(result == 0 ? 1 : 0) != 0) result = -1;
    // With rows of neighbours alone, the picture is new; and something may have been handed over since it
    // moved.
    if (result == 0 && to.IsPhoto() && list != nullptr &&
        (!Holds(list.get(), old_path) || CaptionWaits(to.path)))
        PhotoLibraryAdd(to.path, kModeAdd);
    return result;
}

int IndexWithoutRows(const NewPath& to) {
    if (to.is_file && !to.IsPhoto()) return -1;
    if (to.is_file) {
        PhotoLibraryAdd(to.path, kModeAdd);
    } else {
        IndexWalk(to.path, kModeAdd, kWalkPhotoLibrary);
    }
    return 0;
}

/// Writes to `moved` where the row goes; false for a row that stays where it is, such as that of a neighbour
/// whose name only begins like the old one ("Trip 2" beside "Trip") and whose file is, or may be, there, or
/// is renamed by a later request.
bool MovedPath(const char* row_path, const char* new_path, const char* old_path, char (&moved)[kPathSize]) {
    const char* found = row_path != nullptr ? strstr(row_path, old_path) : nullptr;
    if (found == nullptr) return false;
    const char* rest = found + strlen(old_path);
    const bool is_neighbour = *rest != '\0' && *rest != '/';
    if (is_neighbour && (KLIBPathLook(row_path) != KLIB_PATH_ABSENT || IsRenamedLater(row_path)))
        return false;
    const int length = snprintf(moved, sizeof moved, "%s%s", new_path, rest);
    return length >= 0 && static_cast<size_t>(length) < sizeof moved;
}

/// Runs `format` with both paths in quotes.
int ExecWithPaths(KOLIDB* db, const char* format, const char* first, const char* second) {
    const SqlText quoted_first = QuoteText(first, LogSite(kModule));
    const SqlText quoted_second = QuoteText(second, LogSite(kModule));
    if (quoted_first == nullptr || quoted_second == nullptr) return -1;
    const SqlText sql = FormatSql(LogSite(kModule), format, quoted_first.get(), quoted_second.get());
    if (sql == nullptr) return -1;
    KOLIDBResult* result = nullptr;
    if (KOLIDBExecute(db, sql.get(), &result) == -1) {
        KOLI_LOG("Failed to exec [%s] (%s)", sql.get(), KOLIDBErrorGet(db));
        return -1;
    }
    return 0;
}

bool HasDescription(const char* path) {
    const SqlText name = QuoteText(path, LogSite(kModule));
    const SqlText where = name != nullptr ? FormatSql(LogSite(kModule), "path = '%s'", name.get()) : nullptr;
    const SqlRows rows = where != nullptr ? OpenPaths(KOLI_VIDEO_DESC, where.get()) : nullptr;
    return rows != nullptr && rows->row_count > 0;
}

/// A video has one description: that of whatever was at the new path gives way, unless the old path is in use
/// again, for then the rename may have been done before; not so when a later request tells what is there.
int MoveDescription(KOLIDB* db, const char* row_path, const char* moved) {
    if (HasDescription(moved)) {
        if (KLIBPathLook(row_path) != KLIB_PATH_ABSENT && !IsBroughtLater(row_path)) return 0;
        if (ExecWithPaths(db, "Delete from video_desc where path = '%s' and path <> '%s'", moved, row_path) !=
            0)
            return -1;
    }
    return ExecWithPaths(db, "Update video_desc set path = '%s' where path = '%s'", moved, row_path);
}

int MoveText(KOLIDB* db, int table, const char* row_path, const char* moved) {
    if (table == KOLI_VIDEO_COMMENT)
        return ExecWithPaths(db, "Update video_comment set path = '%s' where path = '%s'", moved, row_path);
    PhotoDBUnitBegin();
    const int result = MoveDescription(db, row_path, moved);
    return PhotoDBUnitEnd(result == 0 ? 1 : 0) == 0 ? result : -1;
}

}  // namespace

int PhotoPathRename(const char* new_path, const char* old_path, int is_directory) {
    if (IsMissing(new_path) || IsMissing(old_path)) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    const NewPath to(new_path, is_directory);
    const SqlText old_like = LikeText(old_path, LogSite(kModule));
    if (old_like == nullptr) return -1;
    const SqlText where = is_directory != 0 ? FormatSql(LogSite(kModule), "path like '%s/%%'", old_like.get())
                                            : FormatSql(LogSite(kModule), "path like '%s%%'", old_like.get());
    if (where == nullptr) return -1;
    SqlRows rows = OpenPaths(KOLI_PHOTO_INFO, where.get());
    if (rows == nullptr) return -1;
    return rows->row_count > 0 ? MoveRows(rows, to, old_path) : IndexWithoutRows(to);
}

int VideoDescPathRename(int table, const char* new_path, const char* old_path) {
    if (IsMissing(new_path) || IsMissing(old_path) ||
        (table != KOLI_VIDEO_DESC && table != KOLI_VIDEO_COMMENT)) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    const SqlText old_like = LikeText(old_path, LogSite(kModule));
    if (old_like == nullptr) return -1;
    const SqlText where = FormatSql(LogSite(kModule), "path like '%s%%'", old_like.get());
    if (where == nullptr) return -1;
    const SqlRows rows = OpenPaths(table, where.get());
    if (rows == nullptr || rows->row_count <= 0) return -1;

    while (KOLIDBFetchRow(rows->result, &rows->row) == 0) {
        const char* row_path = KOLIDBFetchField(rows->result, rows->row, "path");
        char moved[kPathSize];
        if (!MovedPath(row_path, new_path, old_path, moved)) continue;
        if (MoveText(rows->db, table, row_path, moved) != 0) return -1;
    }
    return 0;
}

}  // namespace koli
