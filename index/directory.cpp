#include "index/directory.h"

#include <cstring>

#include "base/features.h"
#include "base/folder_way.h"
#include "base/log.h"
#include "base/media_info.h"
#include "index/directory_listing.h"
#include "index/index.h"
#include "index/index_mode.h"
#include "index/share_path.h"
#include "photo/photo_library.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "directory";

/// Levels of a tree whose directories stay open during the walk.  Deeper ones are read ahead and closed, so
/// that neither the limit of open files nor the 32 KiB of each open directory counts.
constexpr int kMaxOpenLevels = 32;

void LogOpenFailure(const char* path) {
    KOLI_LOG("%s (%d) Failed to open directory %s ", path);
}

bool UsesPhotoLibrary(const char* path, int types) {
    return (types & kWalkPhotoLibrary) != 0 && support_photo == 1 && IsPhotoSharePath(path) != 0;
}

/// A file that the media store took goes on to the photo library; any other may be something to convert.
void WalkFile(const char* path, int mode, int types) {
    int result = 0;
    if ((types & kWalkMediaStore) != 0) result = IndexOneFile(path, mode);
    if (!UsesPhotoLibrary(path, types)) return;
    if (result == 0) {
        PhotoLibraryIndex(path, mode);
    } else {
        KLIBExec(paths::kFlvConverter, "-f", path, nullptr, nullptr);
    }
}

/// One walk with modes 1 and 5.  A single path buffer serves every level.
class TreeWalk {
  public:
    TreeWalk(int mode, int types) : mode_(mode), types_(types) {}
    void Run(const char* path);

  private:
    void WalkDirectory(const FolderWay* above, bool is_link);
    void WalkEntry(unsigned char type, DirectoryListing& listing, const FolderWay& way);
    bool Append(const char* name);

    const int mode_;
    const int types_;
    char path_[kPathSize];
    size_t length_ = 0;  // of path_
    int depth_ = 0;      // of path_ below the top
    LinkLimit links_;
};

void TreeWalk::Run(const char* path) {
    length_ = strnlen(path, sizeof path_);
    if (length_ == sizeof path_) return;  // longer than any path that can exist
    memcpy(path_, path, length_ + 1);
    if (IsDirExist(path_) != 0) {
        WalkDirectory(nullptr, false);
    } else if (IsFileExist(path_, nullptr) != 0) {
        WalkFile(path_, mode_, types_);
    }
}

void TreeWalk::WalkDirectory(const FolderWay* above, bool is_link) {
    if (IsRecycleBinPath(path_) != 0) return;
    DirectoryListing listing;
    if (!listing.Open(path_)) {
        LogOpenFailure(path_);
        return;
    }
    if (IsOnTheWay(above, listing.device(), listing.inode())) return;
    const FolderWay way = FolderWayTo(above, listing.device(), listing.inode(), is_link);
    if ((types_ & kWalkMediaStore) != 0) IndexOnePath(path_, mode_);

    const size_t length = length_;
    ++depth_;
    for (auto entry = listing.Next(); entry.name != nullptr; entry = listing.Next()) {
        if (Append(entry.name)) WalkEntry(entry.type, listing, way);
        length_ = length;
        path_[length_] = '\0';
    }
    --depth_;
}

/// The file system is asked only where the directory did not already tell what the entry is.
void TreeWalk::WalkEntry(unsigned char type, DirectoryListing& listing, const FolderWay& way) {
    const bool is_open = type == DT_LNK || type == DT_UNKNOWN;
    if (type == DT_DIR || (is_open && IsDirExist(path_) != 0)) {
        const bool is_link = IsLink(type, path_);
        if (is_link && !links_.MayFollow(way)) return;
        if (depth_ >= kMaxOpenLevels) listing.Release();
        WalkDirectory(&way, is_link);
    } else if (type == DT_REG || (is_open && IsFileExist(path_, nullptr) != 0)) {
        WalkFile(path_, mode_, types_);
    }
}

/// Adds "/name" to the path; false when that does not fit, the path is then unchanged.
bool TreeWalk::Append(const char* name) {
    const size_t slash = length_ > 0 && path_[length_ - 1] == '/' ? 0 : 1;
    const size_t name_length = strlen(name);
    if (length_ + slash + name_length >= sizeof path_) return false;
    if (slash != 0) path_[length_] = '/';
    memcpy(path_ + length_ + slash, name, name_length + 1);
    length_ += slash + name_length;
    return true;
}

void DeleteTree(const char* path, int types) {
    if ((types & kWalkMediaStore) != 0) MediaInfoDBDelete(kStoreBelowDirectory, path);
    if (UsesPhotoLibrary(path, types)) PhotoInfoDBDirDelete(path);
}

void Rebuild(int types) {
    switch (types) {
        case kRebuildMusic:
            ReindexShare(paths::kMusicShare);
            return;
        case kRebuildVideo:
            ReindexShare(paths::kVideoShare);
            return;
        case kRebuildAll:
            ReindexShare(paths::kMusicShare);
            ReindexShare(paths::kVideoShare);
            ReindexShare(paths::kPhotoShare);
            return;
        default:
            KOLI_LOG("%s (%d) index type must be KOLIINDEX_MEDIA");
    }
}

}  // namespace

int IndexWalk(const char* path, int mode, int types) {
    const bool has_path = path != nullptr && *path != '\0';
    if (mode == kModeRebuild) {
        Rebuild(types);
    } else if (has_path && mode == kModeDelete) {
        DeleteTree(path, types);
    } else if (has_path && (mode == kModeAdd || mode == kModeUpdate)) {
        TreeWalk(mode, types).Run(path);
    } else {
        KOLI_LOG("%s (%d) Bad parameter.");
    }
    return 0;
}

void ReindexShare(const char* share_link) {
    char target[kPathSize];
    if (share_link == nullptr || *share_link == '\0' || ShareTargetGet(share_link, target) != 0) return;
    // Asked before anything is forgotten: a volume that is not mounted must not empty its library.
    if (!DirectoryListing().Open(target)) {
        LogOpenFailure(target);
        return;
    }
    MediaInfoDBDelete(kStoreBelowDirectory, target);
    IndexWalk(target, kModeAdd, kWalkMediaStore);
}

}  // namespace koli
