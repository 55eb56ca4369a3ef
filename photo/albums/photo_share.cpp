#include "photo/albums/photo_share.h"

#include <strings.h>

#include <cerrno>
#include <cstring>

#include "base/later_renames.h"
#include "base/log.h"
#include "base/metadata_folder.h"
#include "base/passing_error.h"
#include "base/path_names.h"
#include "index/record/share_path.h"
#include "photo/albums/album_name.h"
#include "photo/albums/photo_share_inherit.h"
#include "photo/albums/photo_share_rows.h"
#include "photo/albums/sql_text.h"
#include "photo/caption.h"
#include "photo/photo_trouble.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";

constexpr int kFlagSize = 16;  // bytes of a public flag's text

int DeleteAllAlbums() {
    if (PhotoDBExec("Delete from photo_share;") == -1) {
        KOLI_LOG_COLON("Failed to exec [Delete from photo_share;]");
        return -1;
    }
    return 0;
}

/// What the caption says, else what the machine's setting says.  False when the setting cannot be read now.
bool ReadPublicFlag(const char* path, CaptionHold& captions, bool* is_public) {
    char value[kFlagSize] = {};
    const bool has_caption = PhotoSharePublicGet(path, value, sizeof value, captions) == 1;
    *is_public = has_caption && value[0] == '1';
    if (has_caption) return true;
    if (KLIBFileGetKeyValue(paths::kConfig, "albumdefpublic", value, sizeof value, 0) < 0) {
        const bool is_known = errno == 0 || !IsPassingError(errno);
        LogError(LogSite(kModule, LogForm::kTight), "Can't get key valude. key=%s", "supportvidora");
        return is_known;
    }
    *is_public = strcasecmp(value, "yes") == 0;
    return true;
}

int InsertAlbum(const char* album, int depth, bool is_public) {
    const SqlText name = QuoteText(album, LogSite(kModule));
    if (name == nullptr) return -1;
    const SqlText sql = FormatSql(
        LogSite(kModule), "Insert into photo_share values(%d, '%s', '', '', '%s', 0, '', 'true', '%s', '1');",
        PhotoShareNextId(), name.get(), is_public ? "true" : "false", depth == kSubAlbum ? "true" : "false");
    if (AlbumExec(sql, LogSite(kModule)) == -1) return -1;
    if (depth == kSubAlbum && KOLIPhotoShareSubDirUpdatePrivilege(album) == -1) {
        KOLI_LOG("KOLIPhotoShareSubDirUpdatePrivilege Failed.");
        return -1;
    }
    return 0;
}

/// An album whose flag cannot be read might be meant to be private: it is not made yet.  The flag that was
/// handed over for an album that exists already is gone like any other.
int CreateAlbum(const char* path, int depth) {
    const char* album = AlbumNameOf(path);
    FileReading reading(path);
    const bool may_open = reading.past() == PastReading::kNothing;
    CaptionHold captions(reading);
    bool is_public = false;
    const bool is_known = may_open && ReadPublicFlag(path, captions, &is_public);
    PhotoTroubleTell(reading);
    if (!is_known || captions.HasUnreadable()) {
        KOLI_LOG("The public flag of [%s] cannot be read. The album is not made yet.", album);
        return -1;
    }
    PhotoDBUnitBegin();
    const int result = InsertAlbum(album, depth, is_public);
    const bool is_taken = captions.HasCaptions() && (result == 0 || IsAlbum(album));
    if (PhotoDBUnitEnd(1) != 0) return -1;
    if (is_taken) captions.Release();
    return result;
}

/// What the indexer does not look into; and where one that has its row already is still to be renamed from,
/// or to.
bool IsNoPlaceForAlbums(const char* path) {
    return IsRecycleBinPath(path) != 0 || MentionsMetadataFolder(AlbumNameOf(path)) || IsRenamedLater(path) ||
           IsBroughtLater(path);
}

}  // namespace

int PhotoSharePublicGet(const char* path, char* buffer, int size, CaptionHold& captions) {
    char value[kCaptionSize] = {};
    if (buffer == nullptr || size <= 0 ||
        CaptionRead(path, kPublicStream, value, sizeof value, captions) != 0)
        return 0;
    CopyText(buffer, static_cast<size_t>(size), value);
    return 1;
}

int PhotoShareUpdate(const char* path, int operation) {
    if (path == nullptr || *path == '\0' || (operation != kAlbumCreate && operation != kAlbumDelete)) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    if (IsOnOtherVolume(path)) return 0;
    if (operation == kAlbumDelete && IsShareTop(path)) return DeleteAllAlbums();
    const int depth = PhotoShareDepth(path);
    if (depth == kNoAlbum) return 0;
    if (operation == kAlbumDelete) return AlbumsDelete(AlbumNameOf(path), nullptr);
    return IsNoPlaceForAlbums(path) ? 0 : CreateAlbum(path, depth);
}

}  // namespace koli
