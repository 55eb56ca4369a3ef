#include "index/directory.h"

#include <cerrno>
#include <cstring>

#include "base/directory_listing.h"
#include "base/features.h"
#include "base/folder_way.h"
#include "base/foothold.h"
#include "base/log.h"
#include "base/media_info.h"
#include "base/path_buffer.h"
#include "index/both_stores.h"
#include "index/forerunner.h"
#include "index/index.h"
#include "index/record/index_mode.h"
#include "index/record/share_path.h"
#include "platform/kolidb.h"
#include "platform/paths.h"
#include "video/probe_ahead.h"

namespace koli {
namespace {

constexpr const char kModule[] = "directory";

/// Levels of a tree whose directories stay open during the walk.  Deeper ones are read ahead and closed, so
/// that neither the limit of open files nor the 32 KiB of each open directory counts.
constexpr int kMaxOpenLevels = 32;

constexpr int kFilesAhead = 16;  // of a folder; some MB each, at most
static_assert(kFilesAhead <= ProbeAhead::kMost);

// The stores of a walk are named by the databases' bits.
static_assert(static_cast<int>(kWalkMediaStore) == KOLI_MEDIA_DB &&
              static_cast<int>(kWalkPhotoLibrary) == KOLI_PHOTO_DB);

void LogOpenFailure(const char* path) {
    KOLI_LOG("Failed to open directory %s ", path);
}

/// What is left of `types` for a path: the photo library has its share alone.
int TypesAt(const char* path, int types) {
    return support_photo == 1 && IsPhotoSharePath(path) != 0 ? types : types & ~kWalkPhotoLibrary;
}

/// Whether anything at or below `top` can lie in a photo share, whose name begins at the tenth character.
bool MayHoldPhotos(const char* top) {
    return support_photo == 1 && (strlen(top) <= kVolumeLength || IsPhotoSharePath(top) != 0);
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
    /// `top` must live as long as the walk.
    TreeWalk(const KnownPath& top, int mode, int types, Kind kind)
        : top_(top),
          path_(top.text()),
          mode_(mode),
          is_rebuild_(kind == kRebuild),
          has_folders_(kind != kFiles),
          wanted_(types) {}

    void Run();

  private:
    bool HasWork();
    void WalkDirectory(const KnownPath& directory, const FolderWay* above, bool is_link);
    void WalkEntries(DirectoryListing& listing, const FolderWay& way);
    void WalkEntry(unsigned char type, DirectoryListing& listing, const FolderWay& way);
    void WalkFile(const KnownPath& file);
    void Index(const KnownPath& path);
    void MissUnknown();
    void RunAhead(DirectoryListing& listing, ProbeAhead& probes);

    const KnownPath& top_;
    PathBuffer path_;
    const int mode_;
    const bool is_rebuild_;
    const bool has_folders_;
    int wanted_;     // WalkTypes that can come to anything
    int types_ = 0;  // of these, the stores that take changes
    int depth_ = 0;  // of path_ below the top
    LinkLimit links_;
    Forerunner forerunner_;
};

void TreeWalk::Run() {
    if (path_.length() == 0) return;  // longer than any path that can exist
    if (!MayHoldPhotos(path_.text())) wanted_ &= ~kWalkPhotoLibrary;
    if (!HasWork()) return;
    const PathKind kind = top_.kind();
    if (kind == PathKind::kDirectory) WalkDirectory(top_, nullptr, false);
    if (kind == PathKind::kFile) WalkFile(top_);
    if (kind == PathKind::kUnknown) MissUnknown();
}

/// Asked at each entry: what a store has refused nothing may overtake, and a walk for no store ends.
bool TreeWalk::HasWork() {
    KOLIDBTick();
    types_ = wanted_ & ~KOLIDBRefusing();
    return types_ != 0;
}

void TreeWalk::WalkDirectory(const KnownPath& directory, const FolderWay* above, bool is_link) {
    if (IsRecycleBinPath(path_.text()) != 0) return;
    DirectoryListing listing;
    if (!listing.Open(path_.text())) {
        LogOpenFailure(path_.text());
        if (is_rebuild_) MediaRebuildMiss(path_.text());
        return;
    }
    if (IsOnTheWay(above, listing.device(), listing.inode())) return;
    const Foothold foothold(path_.text());
    if (has_folders_ && (types_ & kWalkMediaStore) != 0) Index(directory);
    WalkEntries(listing, FolderWayTo(above, listing.device(), listing.inode(), is_link));
    // What was looked at from there may be no longer what its path names.
    if (is_rebuild_ && foothold.is_taken() && !IsStillThere(path_.text(), listing))
        MediaRebuildMiss(path_.text());
    if (listing.error() == 0) return;
    KOLI_LOG("Failed to read directory %s to its end. (%s)", path_.text(), strerror(listing.error()));
    if (is_rebuild_) MediaRebuildMiss(path_.text());
}

void TreeWalk::WalkEntries(DirectoryListing& listing, const FolderWay& way) {
    const size_t length = path_.length();
    ProbeAhead probes;
    ++depth_;
    for (;;) {
        RunAhead(listing, probes);
        const auto entry = listing.Next();
        if (entry.name == nullptr || !HasWork()) break;
        if (path_.Append(entry.name)) WalkEntry(entry.type, listing, way);
        path_.CutTo(length);
    }
    --depth_;
}

/// Where the disk is slow: the files behind the next entry of a folder are on their way while it is indexed.
/// Where there are processors: those of them that are probed are at it.
void TreeWalk::RunAhead(DirectoryListing& listing, ProbeAhead& probes) {
    const bool are_read = forerunner_.IsWanted();
    const bool are_probed = probes.IsWanted() && mode_ == kModeAdd && (types_ & kWalkMediaStore) != 0;
    if (!are_read && !are_probed) return;
    const size_t length = path_.length();
    for (auto entry = listing.Ahead(kFilesAhead); entry.name != nullptr; entry = listing.Ahead(kFilesAhead)) {
        const bool is_folder = entry.type == DT_DIR;
        const bool is_probed = are_probed && entry.type == DT_REG && IndexIsProbed(entry.name);
        if ((is_folder || entry.type == DT_REG) && path_.Append(entry.name)) {
            if (is_probed) probes.Announce(path_.text());
            if (are_read && (!is_folder || path_.Append(""))) forerunner_.Announce(path_.text());
        }
        path_.CutTo(length);
    }
}

void TreeWalk::WalkEntry(unsigned char type, DirectoryListing& listing, const FolderWay& way) {
    const KnownPath entry(path_.text(), type);
    const PathKind kind = entry.kind();
    if (kind == PathKind::kDirectory) {
        const bool is_link = IsLink(type, path_.text());
        if (is_link && !links_.MayFollow(way, path_.text(), LogSite(kModule))) return;
        if (depth_ >= kMaxOpenLevels) listing.Release();
        WalkDirectory(entry, &way, is_link);
    } else if (kind == PathKind::kFile) {
        WalkFile(entry);
    } else if (kind == PathKind::kUnknown) {
        MissUnknown();
    }
}

void TreeWalk::WalkFile(const KnownPath& file) {
    if (is_rebuild_) {
        Index(file);
    } else {
        IndexInStores(file, mode_, TypesAt(path_.text(), types_));
    }
    if (IndexIsProbed(path_.text())) forerunner_.ForgetWaits();
}

/// In a rebuild the row of what is there depends on this call: one look that fails must not cost it.
void TreeWalk::Index(const KnownPath& path) {
    const int result = IndexOnePath(path, mode_);
    if (!is_rebuild_ || (result == 0 && !path.IsDirectory()) || MediaRebuildSavedLast(path_.text()) != 0)
        return;
    const KnownPath again(path_.text());
    const PathKind kind = again.kind();
    if (kind == PathKind::kUnknown) MissUnknown();
    if (kind == PathKind::kFile || kind == PathKind::kDirectory) IndexOnePath(again, mode_);
}

/// A look at the path has failed, with errno set.
void TreeWalk::MissUnknown() {
    KOLI_LOG("Failed to look at %s. (%s)", path_.text(), strerror(errno));
    if (is_rebuild_) MediaRebuildMiss(path_.text());
}

void DeleteTree(const char* path, int types) {
    if ((types & kWalkMediaStore) != 0) MediaInfoDBDelete(kStoreBelowDirectory, path);
    if ((TypesAt(path, types) & kWalkPhotoLibrary) != 0) PhotoInfoDBDirDelete(path);
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
            KOLI_LOG("index type must be KOLIINDEX_MEDIA");
    }
}

}  // namespace

int IndexWalk(const KnownPath& path, int mode, int types) {
    if (mode == kModeRebuild) {
        Rebuild(types);
    } else if (!path.IsEmpty() && mode == kModeDelete) {
        DeleteTree(path.text(), types);
    } else if (!path.IsEmpty() && (mode == kModeAdd || mode == kModeUpdate)) {
        TreeWalk(path, mode, types, TreeWalk::kPlain).Run();
    } else {
        KOLI_LOG("Bad parameter.");
    }
    return 0;
}

void IndexFilesBelow(const char* directory) {
    TreeWalk(directory, kModeAdd, kWalkMediaStore, TreeWalk::kFiles).Run();
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
    TreeWalk(directory, kModeAdd, kWalkMediaStore, TreeWalk::kRebuild).Run();
    MediaRebuildEnd(IsStillThere(directory, top) ? 1 : 0);
}

void ReindexShare(const char* share_link) {
    char target[kPathSize];
    if (share_link == nullptr || *share_link == '\0' || !ShareTargetGet(share_link, target)) return;
    IndexTreeAgain(target);
}

}  // namespace koli
