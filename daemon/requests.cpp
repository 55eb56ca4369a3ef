#include "daemon/requests.h"

#include <cstring>

#include "base/features.h"
#include "base/log.h"
#include "index/directory.h"
#include "index/index.h"
#include "index/index_mode.h"
#include "index/share_path.h"
#include "photo/photo_library.h"
#include "photo/photo_rename.h"
#include "photo/photo_resync.h"
#include "photo/photo_share.h"
#include "photo/share_fs.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "koliindexd";

constexpr int kBothStores = kWalkMediaStore | kWalkPhotoLibrary;

bool IsPhotoEnabled(const char* path) {
    return support_photo == 1 && IsPhotoSharePath(path) != 0;
}

bool IsDirectory(const char* path) {
    return path != nullptr && IsDirExist(path) != 0;
}

/// Whatever was created again between the request and now keeps its entries.
bool IsGone(const char* path) {
    if (IsDirExist(path) == 0 && IsFileExist(path, nullptr) == 0) return true;
    KOLI_LOG("%s (%d) Dir or File exists (%s). Skip remove it from database.", path);
    return false;
}

void AddTree(RequestArgument argument) {
    const char* path = argument.text;
    IndexWalk(path, kModeAdd, kBothStores);
    if (!IsPhotoEnabled(path) || IsDirExist(path) == 0) return;
    PhotoShareFsCheck();
    PhotoShareWalk(path);
}

void DeleteTree(RequestArgument argument) {
    const char* path = argument.text;
    if (!IsGone(path)) return;
    IndexWalk(path, kModeDelete, kBothStores);
    if (IsPhotoEnabled(path)) PhotoShareUpdate(path, kAlbumDelete);
}

void AddFile(RequestArgument argument) {
    const char* path = argument.text;
    const int result = IndexOnePath(path, kModeAdd);
    if (!IsPhotoEnabled(path)) return;
    if (result == 0) {
        PhotoLibraryIndex(path, kModeAdd);
    } else {
        KLIBExec(paths::kFlvConverter, "-f", path, nullptr, nullptr);
    }
    if (IsDirExist(path) != 0) PhotoShareUpdate(path, kAlbumCreate);
}

void DeleteFile(RequestArgument argument) {
    const char* path = argument.text;
    if (!IsGone(path)) return;
    IndexOnePath(path, kModeDelete);
    if (IsPhotoEnabled(path)) PhotoLibraryIndex(path, kModeDelete);
}

void RenameVideoTexts(const char* new_path, const char* old_path) {
    VideoDescPathRename(KOLI_VIDEO_DESC, new_path, old_path);
    VideoDescPathRename(KOLI_VIDEO_COMMENT, new_path, old_path);
}

void RenameDirectory(const char* new_path, const char* old_path) {
    IndexWalk(old_path, kModeDelete, kWalkMediaStore);
    IndexWalk(new_path, kModeAdd, kWalkMediaStore);
    if (!IsPhotoEnabled(new_path)) return;
    PhotoPathRename(new_path, old_path, 1);
    PhotoShareRename(new_path, old_path);
    if (support_vidora == 1) RenameVideoTexts(new_path, old_path);
}

void RenameFile(const char* new_path, const char* old_path) {
    IndexOnePath(old_path, kModeDelete);
    IndexOnePath(new_path, kModeAdd);
    if (!IsPhotoEnabled(new_path)) return;
    PhotoPathRename(new_path, old_path, 0);
    if (support_vidora == 1 && BlKOLIIndexIsVideoOnWebFile(new_path) != 0)
        RenameVideoTexts(new_path, old_path);
}

/// Of two paths the second one is cut when the line did not fit its buffer.  Removing below what is left of
/// it could empty a whole share, so it counts as missing.
void Rename(RequestArgument argument) {
    char* rest = nullptr;
    char* new_path = strtok_r(argument.text, ":", &rest);
    char* old_path = strtok_r(nullptr, ":", &rest);
    if (argument.is_cut && strtok_r(nullptr, ":", &rest) == nullptr)
        (old_path != nullptr ? old_path : new_path) = nullptr;
    if (new_path != nullptr) PathCollapse(new_path);
    if (old_path != nullptr) PathCollapse(old_path);
    if (IsDirectory(new_path)) {
        RenameDirectory(new_path, old_path);
    } else {
        RenameFile(new_path, old_path);
    }
}

void RebuildPhotoLibrary() {
    PhotoShareFsCheck();
    PhotoFolderResync(nullptr);
    PhotoDBVacuum();
    PhotoShareResync(nullptr);
}

void Rebuild(RequestArgument argument) {
    if (strcmp(argument.text, "photo") == 0) {
        RebuildPhotoLibrary();
    } else if (strcmp(argument.text, "music") == 0) {
        IndexWalk(nullptr, kModeRebuild, kRebuildMusic);
    } else if (strcmp(argument.text, "video") == 0) {
        IndexWalk(nullptr, kModeRebuild, kRebuildVideo);
    } else {
        IndexWalk(nullptr, kModeRebuild, kRebuildAll);
    }
}

void Truncate(RequestArgument argument) {
    KOLITruncateTable(argument.text);
}

void Update(RequestArgument argument) {
    if (strcmp(argument.text, "photo") != 0) return;
    char target[kPathSize];
    if (ShareTargetGet(paths::kPhotoShare, target) != 0) {
        KOLI_LOG("%s (%d) Failed to read link of %s", paths::kPhotoShare);
        return;
    }
    PhotoShareFsCheck();
    IndexWalk(target, kModeUpdate, kWalkPhotoLibrary);
}

struct Request {
    char code;
    bool takes_path;  // the argument is one path: the '/'s at its end go
    void (*execute)(RequestArgument argument);
};

constexpr Request kRequests[] = {
    {'A', true, AddTree}, {'D', true, DeleteTree}, {'a', true, AddFile},   {'d', true, DeleteFile},
    {'N', false, Rename}, {'R', false, Rebuild},   {'T', false, Truncate}, {'U', false, Update},
};

}  // namespace

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
