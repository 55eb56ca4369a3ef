#include "photo/albums/photo_share_rows.h"

#include <climits>

#include "base/parse_number.h"
#include "base/path_names.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";

constexpr int kIdSize = 16;  // bytes of an album's number as text

}  // namespace

int AlbumExec(const SqlText& sql, LogSite site) {
    if (sql == nullptr) return -1;
    const int affected = PhotoDBExec(sql.get());
    if (affected == -1) LogError(site, "Failed to exec [%s]", sql.get());
    return affected;
}

SqlRows AlbumRowsOpen(int table, const char* where, const char* order, int limit, LogSite site) {
    SqlRows rows(PhotoInfoDBOpen(table, "*", where, 0, order, limit, 0));
    if (rows == nullptr) LogError(site, "Error occurred, failed to get records.");
    return rows;
}

SqlRows AlbumRowOpen(const char* album, int limit, LogSite site) {
    const SqlText name = QuoteText(album, site);
    if (name == nullptr) return nullptr;
    const SqlText where = FormatSql(site, "sharename = '%s'", name.get());
    return where != nullptr ? AlbumRowsOpen(KOLI_PHOTO_SHARE, where.get(), nullptr, limit, site) : nullptr;
}

bool IsAlbum(const char* album) {
    char share_id[kIdSize];
    return KOLIPhotoShareGetFieldValue(album, "shareid", share_id, sizeof share_id) == 0;
}

bool HasAlbums(const char* album) {
    if (IsAlbum(album)) return true;
    const SqlText like = LikeText(album, LogSite(kModule));
    const SqlText where =
        like != nullptr ? FormatSql(LogSite(kModule), "sharename like '%s/%%'", like.get()) : nullptr;
    if (where == nullptr) return false;
    const SqlRows rows = AlbumRowsOpen(KOLI_PHOTO_SHARE, where.get(), nullptr, 1, LogSite(kModule));
    return rows != nullptr && rows->row_count > 0;
}

int AlbumsDelete(const char* album, const char* but) {
    const SqlText name = QuoteText(album, LogSite(kModule));
    const SqlText like = LikeText(album, LogSite(kModule));
    const SqlText kept = QuoteText(but != nullptr ? but : "", LogSite(kModule));
    if (name == nullptr || like == nullptr || kept == nullptr) return -1;
    const SqlText sql =
        but == nullptr
            ? FormatSql(LogSite(kModule),
                        "Delete from photo_share where sharename = '%s' or sharename like '%s/%%';",
                        name.get(), like.get())
            : FormatSql(
                  LogSite(kModule),
                  "Delete from photo_share where (sharename = '%s' or sharename like '%s/%%') and sharename <> '%s';",
                  name.get(), like.get(), kept.get());
    return AlbumExec(sql, LogSite(kModule)) == -1 ? -1 : 0;
}

int KOLIPhotoShareGetFieldValue(const char* album, const char* column, char* buffer, int size) {
    if (album == nullptr || column == nullptr || buffer == nullptr || size <= 0) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    const SqlRows rows = AlbumRowOpen(album, 1, LogSite(kModule));
    if (rows == nullptr || KOLIDBFetchRow(rows->result, &rows->row) != 0) return -1;
    const char* value = KOLIDBFetchField(rows->result, rows->row, column);
    if (value == nullptr) return -1;
    CopyText(buffer, static_cast<size_t>(size), value);
    return 0;
}

int PhotoShareNextId() {
    const SqlRows rows = AlbumRowsOpen(KOLI_PHOTO_SHARE, "shareid > 0", "shareid desc", 1, LogSite(kModule));
    if (rows == nullptr || KOLIDBFetchRow(rows->result, &rows->row) != 0) return 1;
    const char* value = KOLIDBFetchField(rows->result, rows->row, "shareid");
    const int32_t highest = value != nullptr ? ParseInt32(value) : 0;
    return highest < INT32_MAX ? highest + 1 : INT32_MAX;
}

}  // namespace koli
