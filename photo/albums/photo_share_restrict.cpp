#include "photo/albums/photo_share_restrict.h"

#include <cstring>

#include "base/log.h"
#include "base/media_info.h"
#include "base/path_names.h"
#include "photo/albums/album_name.h"
#include "photo/albums/photo_share.h"
#include "photo/albums/photo_share_rows.h"
#include "photo/albums/sql_text.h"
#include "platform/kolidb.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";

/// Everything at and below `album` becomes private, for users of the album numbered `model_id` alone.
void RestrictBelow(const char* album, const char* model_id) {
    const SqlText name = QuoteText(album, LogSite(kModule));
    const SqlText like = LikeText(album, LogSite(kModule));
    const SqlText id = QuoteText(model_id, LogSite(kModule));
    if (name == nullptr || like == nullptr || id == nullptr) return;
    AlbumExec(
        FormatSql(LogSite(kModule),
                  "Update photo_share set public = 'f' where sharename = '%s' or sharename like '%s/%%'",
                  name.get(), like.get()),
        LogSite(kModule));
    AlbumExec(
        FormatSql(
            LogSite(kModule),
            "Delete from photo_access_right where shareid in (Select shareid from photo_share where sharename = '%s' or sharename like '%s/%%') and userid not in (Select userid from photo_access_right where shareid = '%s')",
            name.get(), like.get(), id.get()),
        LogSite(kModule));
}

/// The albums at and below `model` that are not public.
SqlRows PrivateRowsOpen(const char* model) {
    const SqlText name = QuoteText(model, LogSite(kModule));
    const SqlText like = LikeText(model, LogSite(kModule));
    if (name == nullptr || like == nullptr) return nullptr;
    const SqlText where =
        FormatSql(LogSite(kModule), "(sharename = '%s' or sharename like '%s/%%') and public = 'f'",
                  name.get(), like.get());
    return where != nullptr ? AlbumRowsOpen(KOLI_PHOTO_SHARE, where.get(), nullptr, 0, LogSite(kModule))
                            : nullptr;
}

/// Copies the name of the nearest album around `name` that has a row; false when there is none.
bool AlbumAround(const char* name, char (&album)[kPathSize]) {
    CopyText(album, sizeof album, name);
    for (char* slash; (slash = strrchr(album, '/')) != nullptr;) {
        *slash = '\0';
        if (IsAlbum(album)) return true;
    }
    return false;
}

}  // namespace

void AlbumRestrictToOrigin(const char* new_path, const char* old_path) {
    char album[kPathSize], value[8], id[32];
    if (PhotoShareDepth(new_path) == kNoAlbum || !AlbumAround(AlbumNameOf(old_path), album)) return;
    const bool is_private =
        KOLIPhotoShareGetFieldValue(album, "public", value, sizeof value) == 0 && strcmp(value, "f") == 0;
    if (is_private && KOLIPhotoShareGetFieldValue(album, "shareid", id, sizeof id) == 0)
        RestrictBelow(AlbumNameOf(new_path), id);
}

void AlbumRestrict(const char* album, const char* model) {
    const SqlRows rows = PrivateRowsOpen(model);
    if (rows == nullptr) return;
    while (KOLIDBFetchRow(rows->result, &rows->row) == 0) {
        const char* name = KOLIDBFetchField(rows->result, rows->row, "sharename");
        const char* id = KOLIDBFetchField(rows->result, rows->row, "shareid");
        if (name == nullptr || id == nullptr || strlen(name) < strlen(model)) continue;
        const SqlText counterpart = FormatSql(LogSite(kModule), "%s%s", album, name + strlen(model));
        if (counterpart != nullptr) RestrictBelow(counterpart.get(), id);
    }
}

}  // namespace koli
