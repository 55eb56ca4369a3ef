#include "photo/photo_share.h"

#include <strings.h>

#include <cstring>

#include "base/log.h"
#include "base/path_names.h"
#include "index/share_path.h"
#include "photo/album_name.h"
#include "photo/caption.h"
#include "photo/photo_share_inherit.h"
#include "photo/photo_share_rows.h"
#include "photo/sql_text.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";

constexpr int kFlagSize = 16;  // bytes of a public flag's text
constexpr int kIdSize = 16;    // bytes of an album's number as text

int DeleteAllAlbums() {
    if (PhotoDBExec("Delete from photo_share;") == -1) {
        KOLI_LOG("%s:%d Failed to exec [Delete from photo_share;]");
        return -1;
    }
    return 0;
}

/// What the caption says, else what the machine's setting says.
bool IsPublicAlbum(const char* path) {
    char value[kFlagSize] = {};
    if (PhotoSharePublicGet(path, value, sizeof value) == 1) return value[0] == '1';
    if (KLIBFileGetKeyValue(paths::kConfig, "albumdefpublic", value, sizeof value, 0) < 0) {
        KOLI_LOG("%s(%d) Can't get key valude. key=%s", "supportvidora");
        return false;
    }
    return strcasecmp(value, "yes") == 0;
}

bool IsAlbum(const char* album) {
    char share_id[kIdSize];
    return KOLIPhotoShareGetFieldValue(album, "shareid", share_id, sizeof share_id) == 0;
}

/// The flag that was handed over for an album that exists already is gone like any other.
int CreateAlbum(const char* path, int depth) {
    const SqlText name = QuoteText(AlbumNameOf(path), LogSite(kModule));
    if (name == nullptr) return -1;
    CaptionHold captions;
    if (depth == kSubAlbum) KOLIDBFlush();  // so that album and rights fall into one group: all or nothing
    const char* is_public = IsPublicAlbum(path) ? "true" : "false";
    const SqlText sql = FormatSql(
        LogSite(kModule), "Insert into photo_share values(%d, '%s', '', '', '%s', 0, '', 'true', '%s', '1');",
        PhotoShareNextId(), name.get(), is_public, depth == kSubAlbum ? "true" : "false");
    if (AlbumExec(sql, LogSite(kModule)) == -1) {
        if (captions.HasCaptions() && !IsAlbum(AlbumNameOf(path))) captions.Keep();
        return -1;
    }

    if (depth == kSubAlbum && KOLIPhotoShareSubDirUpdatePrivilege(AlbumNameOf(path)) == -1) {
        KOLI_LOG("%s (%d) KOLIPhotoShareSubDirUpdatePrivilege Failed.");
        return -1;
    }
    return 0;
}

int DeleteAlbum(const char* album) {
    const SqlText name = QuoteText(album, LogSite(kModule));
    const SqlText like = LikeText(album, LogSite(kModule));
    if (name == nullptr || like == nullptr) return -1;
    const SqlText sql = FormatSql(LogSite(kModule),
                                  "Delete from photo_share where sharename = '%s' or sharename like '%s/%%';",
                                  name.get(), like.get());
    return AlbumExec(sql, LogSite(kModule)) == -1 ? -1 : 0;
}

}  // namespace

int PhotoSharePublicGet(const char* path, char* buffer, int size) {
    char value[kCaptionSize] = {};
    if (buffer == nullptr || size <= 0 || CaptionRead(path, kPublicStream, value, sizeof value) != 0)
        return 0;
    CopyText(buffer, static_cast<size_t>(size), value);
    return 1;
}

int PhotoShareUpdate(const char* path, int operation) {
    if (path == nullptr || *path == '\0' || (operation != kAlbumCreate && operation != kAlbumDelete)) {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    if (operation == kAlbumDelete && IsShareTop(path)) return DeleteAllAlbums();
    const int depth = PhotoShareDepth(path);
    if (depth == kNoAlbum) return 0;
    if (operation == kAlbumDelete) return DeleteAlbum(AlbumNameOf(path));
    if (IsRecycleBinPath(path) != 0) return 0;
    return CreateAlbum(path, depth);
}

}  // namespace koli
