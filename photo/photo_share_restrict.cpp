#include "photo/photo_share_restrict.h"

#include <cstring>

#include "base/log.h"
#include "photo/photo_share_rows.h"
#include "photo/sql_text.h"
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
    AlbumExec(FormatSql(LogSite(kModule),
                        "Delete from photo_access_right where shareid in (Select shareid from photo_share"
                        " where sharename = '%s' or sharename like '%s/%%') and userid not in"
                        " (Select userid from photo_access_right where shareid = '%s')",
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

}  // namespace

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
