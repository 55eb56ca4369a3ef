#include "photo/photo_resync.h"

#include <algorithm>
#include <cstring>

#include "base/folder_way.h"
#include "base/log.h"
#include "index/share_path.h"
#include "photo/folder_listing.h"
#include "photo/metadata_folder.h"
#include "photo/path_buffer.h"
#include "platform/kolidb.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_index";

/// One resync.  Absolute paths alone are used, and one buffer for all of them: the working directory stays
/// what it is, and a level costs little stack.
class TreeResync {
  public:
    explicit TreeResync(const char* directory) : path_(directory) {}

    /// False when something that is there could not be looked at: nobody knows then what is stale.
    bool Run();

  private:
    void Visit(const FolderWay* above, bool is_link);
    void VisitFolders(const FolderListing& listing, const FolderWay& way);
    void MissFolder();

    PathBuffer path_;
    bool is_complete_ = true;
    LinkLimit links_;
};

bool TreeResync::Run() {
    Visit(nullptr, false);
    return is_complete_;
}

void TreeResync::MissFolder() {
    KOLI_LOG("%s (%d) Failed to open directory %s ", path_.text());
    is_complete_ = false;
}

/// A top that is not there is out of reach (a volume that is not mounted); any other may have just gone.
void TreeResync::Visit(const FolderWay* above, bool is_link) {
    if (IsRecycleBinPath(path_.text()) != 0) return;
    FolderListing listing;
    const FolderListing::Status result = listing.Read(path_.text());
    if (result != FolderListing::Status::kRead) {
        if (result == FolderListing::Status::kOutOfReach || above == nullptr) MissFolder();
        return;
    }
    if (IsOnTheWay(above, listing.device(), listing.inode())) return;

    if (std::any_of(listing.begin(), listing.end(), HasDot) && PhotoFolderSync(path_.text(), &listing) != 0)
        is_complete_ = false;
    VisitFolders(listing, FolderWayTo(above, listing.device(), listing.inode(), is_link));
}

void TreeResync::VisitFolders(const FolderListing& listing, const FolderWay& way) {
    const size_t length = path_.length();
    for (const dirent* entry : listing) {
        if (MentionsMetadataFolder(entry->d_name) || !path_.Append(entry->d_name)) continue;
        const EntryKind kind = EntryKindOf(*entry, path_.text());
        if (kind == EntryKind::kOutOfReach) MissFolder();
        if (kind == EntryKind::kFolder) {
            const bool is_link = IsLink(entry->d_type, path_.text());
            if (!is_link || links_.MayFollow(way)) Visit(&way, is_link);
        }
        path_.CutTo(length);
    }
}

/// -1, logged, when the resync must not begin.
int BeginShare(char (&target)[kPathSize]) {
    if (ShareTargetGet(paths::kPhotoShare, target) != 0) {
        KOLI_LOG("%s (%d) Failed to read link of %s", paths::kPhotoShare);
        return -1;
    }
    if (KOLIPhotoInitAllRows() == -1) {
        KOLI_LOG("%s (%d) Failed to set updated to 0 for all rows.");
        return -1;
    }
    return 0;
}

bool IsLinkTarget(const char* directory) {
    char target[kPathSize];
    return ShareTargetGet(paths::kPhotoShare, target) == 0 && strcmp(directory, target) == 0;
}

}  // namespace

int PhotoFolderResync(const char* directory) {
    char target[kPathSize];
    const bool is_whole_share = directory == nullptr;
    if (is_whole_share && BeginShare(target) != 0) return -1;
    const char* top = is_whole_share ? target : directory;
    if (IsRecycleBinPath(top) != 0) return 0;

    const bool is_complete = TreeResync(top).Run();
    if (!is_complete || !(is_whole_share || IsLinkTarget(top))) return 0;
    // A row whose mark was lost or refused has its photo still.
    if (PhotoDBHarden() != 0 || KOLIPhotoDeleteNoUpdateRows() == -1) {
        KOLI_LOG("%s (%d) Failed to delete none updated rows.");
        return -1;
    }
    return 0;
}

}  // namespace koli
