#include "photo/albums/photo_share_inherit.h"

#include <cstring>
#include <ctime>

#include "base/log.h"
#include "base/media_info.h"
#include "base/path_names.h"
#include "photo/albums/photo_share_rows.h"
#include "photo/albums/sql_text.h"
#include "platform/kolidb.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";

constexpr int kValueSize = 128;  // bytes of a column's text

/// The name before the first '/'; false for a top-level album and a name that no path can hold.
bool TopAlbumOf(const char* album, char (&top)[kPathSize]) {
    const char* slash = album != nullptr ? strchr(album, '/') : nullptr;
    if (slash == nullptr || slash - album >= static_cast<ptrdiff_t>(sizeof top)) return false;
    CopyText(top, static_cast<size_t>(slash - album) + 1, album);
    return true;
}

/// Other programs write these columns, and their values stand in a statement without quotes.
bool IsInteger(const char* text) {
    if (text == nullptr) return false;
    if (*text == '-') ++text;
    return *text != '\0' && text[strspn(text, "0123456789")] == '\0';
}

/// asctime's text of now, its newline included.
const char* TimeText() {
    const time_t now = time(nullptr);
    const struct tm* local = localtime(&now);
    const char* text = local != nullptr ? asctime(local) : nullptr;
    return text != nullptr ? text : "";
}

int AddRight(const char* user_id, const char* share_id) {
    const SqlText sql = FormatSql(LogSite(kModule), "Insert into photo_access_right Values (%s, %s, '%s')",
                                  user_id != nullptr ? user_id : "", share_id, TimeText());
    if (sql == nullptr) return -1;
    if (!IsInteger(user_id) || !IsInteger(share_id)) {
        KOLI_LOG("Failed to exec [%s]", sql.get());
        return -1;
    }
    return AlbumExec(sql, LogSite(kModule)) == -1 ? -1 : 0;
}

int ShareIdGet(const char* album, char (&share_id)[kValueSize]) {
    if (KOLIPhotoShareGetFieldValue(album, "shareid", share_id, sizeof share_id) == 0) return 0;
    KOLI_LOG("KOLIPhotoShareGetFieldValue failed.");
    return -1;
}

}  // namespace

int KOLIPhotoShareSubDirUpdatePublic(const char* album, const char* value) {
    if (album == nullptr || value == nullptr) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    const SqlText name = QuoteText(album, LogSite(kModule));
    const SqlText flag = QuoteText(value, LogSite(kModule));
    if (name == nullptr || flag == nullptr) return -1;
    const SqlText sql =
        FormatSql(LogSite(kModule), "Update photo_share set public = '%s' where sharename = '%s';",
                  flag.get(), name.get());
    return AlbumExec(sql, LogSite(kModule)) == -1 ? -1 : 0;
}

int KOLIPhotoShareSubDirPrivilegeAdd(const char* sub_album, const char* top_album) {
    char share_id[kValueSize] = {};
    if (ShareIdGet(top_album, share_id) != 0) return -1;
    const SqlText quoted = QuoteText(share_id, LogSite(kModule));
    if (quoted == nullptr) return -1;
    const SqlText where = FormatSql(LogSite(kModule), "shareid = '%s'", quoted.get());
    if (where == nullptr) return -1;
    const SqlRows rows = AlbumRowsOpen(KOLI_PHOTO_ACCESS_RIGHT, where.get(), nullptr, 0, LogSite(kModule));
    if (rows == nullptr) return -1;
    if (rows->row_count <= 0) return 0;

    if (ShareIdGet(sub_album, share_id) != 0) return -1;
    while (KOLIDBFetchRow(rows->result, &rows->row) == 0)
        if (AddRight(KOLIDBFetchField(rows->result, rows->row, "userid"), share_id) != 0) return -1;
    return 0;
}

int KOLIPhotoShareSubDirUpdatePrivilege(const char* album) {
    char top_album[kPathSize];
    if (!TopAlbumOf(album, top_album)) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    char is_public[kValueSize] = {};
    if (KOLIPhotoShareGetFieldValue(top_album, "public", is_public, sizeof is_public) == -1) {
        KOLI_LOG("KOLIPhotoShareGetFieldValue failed.");
        return -1;
    }
    if (KOLIPhotoShareSubDirUpdatePublic(album, is_public) == -1) {
        KOLI_LOG("KOLIPhotoShareSubDirUpdatePublic failed.");
        return -1;
    }
    if (strcmp(is_public, "t") == 0) return 0;
    if (KOLIPhotoShareSubDirPrivilegeAdd(album, top_album) == -1) {
        KOLI_LOG("KOLIPhotoShareSubDirPrivilegeAdd failed.");
        return -1;
    }
    return 0;
}

}  // namespace koli
