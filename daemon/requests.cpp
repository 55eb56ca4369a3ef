#include "daemon/requests.h"

#include <cerrno>
#include <cstring>

#include "base/features.h"
#include "base/known_path.h"
#include "base/log.h"
#include "daemon/rename.h"
#include "index/both_stores.h"
#include "index/directory.h"
#include "index/index.h"
#include "index/record/index_mode.h"
#include "index/record/share_path.h"
#include "photo/albums/photo_resync.h"
#include "photo/albums/photo_share.h"
#include "photo/albums/share_fs.h"
#include "photo/photo_library.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "koliindexd";

/// Whatever was created again between the request and now keeps its entries, and so does what cannot be
/// looked at.
bool IsGone(const char* path) {
    switch (KLIBPathLook(path)) {
        case KLIB_PATH_FILE:
        case KLIB_PATH_DIRECTORY:
            KOLI_LOG("Dir or File exists (%s). Skip remove it from database.", path);
            return false;
        case KLIB_PATH_UNKNOWN:
            KOLI_LOG("Failed to look at %s. Skip remove it from database. (%s)", path, strerror(errno));
            return false;
        default:
            return true;
    }
}

/// The stores that are left, as the types of a walk.
int WalkTypesOf(const RequestArgument& argument) {
    return argument.stores & ~KOLIDBRefusing();
}

/// A directory may have gone while it was walked through.
void AddTree(RequestArgument argument) {
    const KnownPath path(argument.text);
    IndexWalk(path, kModeAdd, WalkTypesOf(argument));
    if (!RequestWorksOnPhotos(argument, path.text()) || !path.IsDirectory() || IsDirExist(path.text()) == 0)
        return;
    PhotoShareFsCheck();
    PhotoShareWalk(path.text());
}

void DeleteTree(RequestArgument argument) {
    const char* path = argument.text;
    if (!IsGone(path)) return;
    IndexWalk(path, kModeDelete, WalkTypesOf(argument));
    if (RequestWorksOnPhotos(argument, path)) PhotoShareUpdate(path, kAlbumDelete);
}

void AddFile(RequestArgument argument) {
    const KnownPath path(argument.text);
    const bool is_directory = path.IsDirectory();
    const bool has_photos = RequestWorksOnPhotos(argument, path.text());
    IndexInStores(path, kModeAdd, WalkTypesOf(argument) & ~(has_photos ? 0 : kWalkPhotoLibrary));
    if (is_directory && RequestWorksOnPhotos(argument, path.text()))
        PhotoShareUpdate(path.text(), kAlbumCreate);
}

void DeleteFile(RequestArgument argument) {
    const char* path = argument.text;
    if (!IsGone(path)) return;
    if (RequestWorksOn(argument, KOLI_MEDIA_DB)) IndexOnePath(path, kModeDelete);
    if (RequestWorksOnPhotos(argument, path)) PhotoLibraryIndex(path, kModeDelete);
}

void RebuildPhotoLibrary() {
    PhotoShareFsCheck();
    PhotoFolderResync(nullptr);
    PhotoDBVacuum();
    PhotoShareResync(nullptr);
}

/// What the resync has found new is in the photo library already, but may be missing in the media store.
void IndexPhotoShare() {
    char target[kPathSize];
    if (ShareTargetGet(paths::kPhotoShare, target)) IndexFilesBelow(target);
}

void Rebuild(RequestArgument argument) {
    if (strcmp(argument.text, "photo") == 0) {
        if (RequestWorksOn(argument, KOLI_PHOTO_DB)) return RebuildPhotoLibrary();
        if ((argument.stores & KOLI_PHOTO_DB) == 0) IndexPhotoShare();
    } else if (!RequestWorksOn(argument, KOLI_MEDIA_DB)) {
        return;
    } else if (strcmp(argument.text, "music") == 0) {
        IndexWalk(nullptr, kModeRebuild, kRebuildMusic);
    } else if (strcmp(argument.text, "video") == 0) {
        IndexWalk(nullptr, kModeRebuild, kRebuildVideo);
    } else {
        IndexWalk(nullptr, kModeRebuild, kRebuildAll);
    }
}

/// A name that is no table's goes to the store all the same, which refuses it.
void Truncate(RequestArgument argument) {
    const int store = KOLITableDatabase(argument.text);
    if (store == 0 || RequestWorksOn(argument, store)) KOLITruncateTable(argument.text);
}

void Update(RequestArgument argument) {
    if (strcmp(argument.text, "photo") != 0 || !RequestWorksOn(argument, KOLI_PHOTO_DB)) return;
    char target[kPathSize];
    if (!ShareTargetGet(paths::kPhotoShare, target)) {
        KOLI_LOG("Failed to read link of %s", paths::kPhotoShare);
        return;
    }
    PhotoShareFsCheck();
    IndexWalk(target, kModeUpdate, kWalkPhotoLibrary);
}

struct Request {
    char code;
    bool takes_path;  // the argument is one path
    void (*execute)(RequestArgument argument);
};

constexpr Request kRequests[] = {
    {'A', true, AddTree},        {'D', true, DeleteTree}, {'a', true, AddFile},   {'d', true, DeleteFile},
    {'N', false, RequestRename}, {'R', false, Rebuild},   {'T', false, Truncate}, {'U', false, Update},
};

}  // namespace

bool RequestWorksOn(const RequestArgument& argument, int store) {
    return (argument.stores & store & ~KOLIDBRefusing()) != 0;
}

bool RequestWorksOnPhotos(const RequestArgument& argument, const char* path) {
    return support_photo == 1 && IsPhotoSharePath(path) != 0 && RequestWorksOn(argument, KOLI_PHOTO_DB);
}

bool RequestExecute(char code, RequestArgument argument) {
    for (const Request& request : kRequests) {
        if (request.code != code) continue;
        if (request.takes_path) PathCollapse(argument.text);
        request.execute(argument);
        return true;
    }
    return false;
}

}  // namespace koli
