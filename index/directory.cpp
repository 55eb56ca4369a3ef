#include "index/directory.h"

#include <cerrno>
#include <cstring>

#include "base/features.h"
#include "base/folder_way.h"
#include "base/foothold.h"
#include "base/log.h"
#include "base/media_info.h"
#include "index/forerunner.h"
#include "index/index.h"
#include "index/record/directory_listing.h"
#include "index/record/index_mode.h"
#include "index/record/share_path.h"
#include "photo/conversion.h"
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

constexpr int kFilesAhead = 8;  // of a folder; some MB each, at most

// The stores of a walk are named by the databases' bits.
static_assert(static_cast<int>(kWalkMediaStore) == KOLI_MEDIA_DB &&
              static_cast<int>(kWalkPhotoLibrary) == KOLI_PHOTO_DB);

void LogOpenFailure(const char* path) {
    KOLI_LOG("%s (%d) Failed to open directory %s ", path);
}

bool UsesPhotoLibrary(const char* path, int types) {
    return (types & kWalkPhotoLibrary) != 0 && support_photo == 1 && IsPhotoSharePath(path) != 0;
}

/// Whether anything at or below `top` can lie in a photo share, whose name begins at the tenth character.
bool MayHoldPhotos(const char* top) {
    return support_photo == 1 && (strlen(top) < sizeof "/volume1" || IsPhotoSharePath(top) != 0);
}

/// True when `path` can be listed and is the directory that `before` was.
bool IsStillThere(const char* path, const DirectoryListing& before) {
    DirectoryListing now;
    return now.Open(path) && now.device() == before.device() && now.inode() == before.inode();
}

/// One walk with modes 1 and 5.  A single path buffer serves every level.
class TreeWalk {
  public:
    /// In a rebuild, what cannot be looked at or stored now is tried twice, and told to the store as missed.
    /// kFiles leaves the folders themselves alone.
    enum Kind { kPlain, kRebuild, kFiles };
    TreeWalk(int mode, int types, Kind kind)
        : mode_(mode), is_rebuild_(kind == kRebuild), has_folders_(kind != kFiles), wanted_(types) {}

    void Run(const char* path);

  private:
    bool HasWork();
    void WalkDirectory(const FolderWay* above, bool is_link);
    void WalkEntries(DirectoryListing& listing, const FolderWay& way);
    void WalkEntry(unsigned char type, DirectoryListing& listing, const FolderWay& way);
    void WalkFile();
    int Index(bool is_directory);
    bool MayFollow(const FolderWay& way);
    void MissUnknown();
    bool Append(const char* name);
    void Cut(size_t length);
    void RunAhead(DirectoryListing& listing);

    const int mode_;
    const bool is_rebuild_;
    const bool has_folders_;
    int wanted_;     // WalkTypes that can come to anything
    int types_ = 0;  // of these, the stores that take changes
    char path_[kPathSize];
    size_t length_ = 0;  // of path_
    int depth_ = 0;      // of path_ below the top
    LinkLimit links_;
    Forerunner forerunner_;
};

void TreeWalk::Run(const char* path) {
    length_ = strnlen(path, sizeof path_);
    if (length_ == sizeof path_) return;  // longer than any path that can exist
    memcpy(path_, path, length_ + 1);
    if (!MayHoldPhotos(path_)) wanted_ &= ~kWalkPhotoLibrary;
    if (!HasWork()) return;
    const int kind = KLIBPathLook(path_);
    if (kind == KLIB_PATH_DIRECTORY) WalkDirectory(nullptr, false);
    if (kind == KLIB_PATH_FILE) WalkFile();
    if (kind == KLIB_PATH_UNKNOWN) MissUnknown();
}

/// Asked at each entry: what a store has refused nothing may overtake, and a walk for no store ends.
bool TreeWalk::HasWork() {
    KOLIDBTick();
    types_ = wanted_ & ~KOLIDBRefusing();
    return types_ != 0;
}

void TreeWalk::WalkDirectory(const FolderWay* above, bool is_link) {
    if (IsRecycleBinPath(path_) != 0) return;
    DirectoryListing listing;
    if (!listing.Open(path_)) {
        LogOpenFailure(path_);
        if (is_rebuild_) MediaRebuildMiss(path_);
        return;
    }
    if (IsOnTheWay(above, listing.device(), listing.inode())) return;
    const Foothold foothold(path_);
    if (has_folders_ && (types_ & kWalkMediaStore) != 0) Index(true);
    WalkEntries(listing, FolderWayTo(above, listing.device(), listing.inode(), is_link));
    // What was looked at from there may be no longer what its path names.
    if (is_rebuild_ && foothold.is_taken() && !IsStillThere(path_, listing)) MediaRebuildMiss(path_);
    if (listing.error() == 0) return;
    KOLI_LOG("%s (%d) Failed to read directory %s to its end. (%s)", path_, strerror(listing.error()));
    if (is_rebuild_) MediaRebuildMiss(path_);
}

void TreeWalk::WalkEntries(DirectoryListing& listing, const FolderWay& way) {
    const size_t length = length_;
    ++depth_;
    for (;;) {
        RunAhead(listing);
        const auto entry = listing.Next();
        if (entry.name == nullptr || !HasWork()) break;
        if (Append(entry.name)) WalkEntry(entry.type, listing, way);
        Cut(length);
    }
    --depth_;
}

/// Where the disk is slow: the files behind the next entry of a folder are on their way while it is indexed.
void TreeWalk::RunAhead(DirectoryListing& listing) {
    if (!forerunner_.IsWanted()) return;
    const size_t length = length_;
    for (auto entry = listing.Ahead(kFilesAhead); entry.name != nullptr; entry = listing.Ahead(kFilesAhead)) {
        const bool is_folder = entry.type == DT_DIR;
        if ((is_folder || entry.type == DT_REG) && Append(entry.name) && (!is_folder || Append("")))
            forerunner_.Announce(path_);
        Cut(length);
    }
}

/// The file system is asked only where the directory did not already tell what the entry is.
void TreeWalk::WalkEntry(unsigned char type, DirectoryListing& listing, const FolderWay& way) {
    const bool is_open = type == DT_LNK || type == DT_UNKNOWN;
    const int kind = is_open ? KLIBPathLook(path_) : KLIB_PATH_OTHER;
    if (type == DT_DIR || kind == KLIB_PATH_DIRECTORY) {
        const bool is_link = IsLink(type, path_);
        if (is_link && !MayFollow(way)) return;
        if (depth_ >= kMaxOpenLevels) listing.Release();
        WalkDirectory(&way, is_link);
    } else if (type == DT_REG || kind == KLIB_PATH_FILE) {
        WalkFile();
    } else if (kind == KLIB_PATH_UNKNOWN) {
        MissUnknown();
    }
}

/// A file that the media store took goes on to the photo library; any other may be something to convert.
/// What the store could not take now says nothing about the file.
void TreeWalk::WalkFile() {
    int result = 0;
    if ((types_ & kWalkMediaStore) != 0) result = Index(false);
    if (!UsesPhotoLibrary(path_, types_)) return;
    if (result == 0 || (KOLIDBRefusing() & KOLI_MEDIA_DB) != 0) {
        PhotoLibraryIndex(path_, mode_);
    } else {
        FlvConvert(path_);
    }
}

/// In a rebuild the row of what is there depends on this call: one look that fails must not cost it.
int TreeWalk::Index(bool is_directory) {
    const auto index = is_directory ? IndexOnePath : IndexOneFile;
    const int result = index(path_, mode_);
    if (!is_rebuild_ || (result == 0 && !is_directory) || MediaRebuildSavedLast(path_) != 0) return result;
    const int kind = KLIBPathLook(path_);
    if (kind == KLIB_PATH_UNKNOWN) MissUnknown();
    return kind == KLIB_PATH_FILE || kind == KLIB_PATH_DIRECTORY ? index(path_, mode_) : result;
}

bool TreeWalk::MayFollow(const FolderWay& way) {
    if (links_.MayFollow(way)) return true;
    if (links_.IsFirstLeftOut())
        KOLI_LOG("%s (%d) Too many links below links: %s and those after it are not followed.", path_);
    return false;
}

/// A look at the path has failed, with errno set.
void TreeWalk::MissUnknown() {
    KOLI_LOG("%s (%d) Failed to look at %s. (%s)", path_, strerror(errno));
    if (is_rebuild_) MediaRebuildMiss(path_);
}

void TreeWalk::Cut(size_t length) {
    length_ = length;
    path_[length_] = '\0';
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
        TreeWalk(mode, types, TreeWalk::kPlain).Run(path);
    } else {
        KOLI_LOG("%s (%d) Bad parameter.");
    }
    return 0;
}

void IndexFilesBelow(const char* directory) {
    TreeWalk(kModeAdd, kWalkMediaStore, TreeWalk::kFiles).Run(directory);
}

void IndexTreeAgain(const char* directory) {
    // Asked before anything is forgotten: a volume that is not mounted must not empty its library.
    DirectoryListing top;
    if (!top.Open(directory)) {
        LogOpenFailure(directory);
        return;
    }
    if ((KOLIDBRefusing() & KOLI_MEDIA_DB) != 0) return;
    MediaRebuildBegin(directory);
    TreeWalk(kModeAdd, kWalkMediaStore, TreeWalk::kRebuild).Run(directory);
    MediaRebuildEnd(IsStillThere(directory, top) ? 1 : 0);
}

void ReindexShare(const char* share_link) {
    char target[kPathSize];
    if (share_link == nullptr || *share_link == '\0' || ShareTargetGet(share_link, target) != 0) return;
    IndexTreeAgain(target);
}

}  // namespace koli
