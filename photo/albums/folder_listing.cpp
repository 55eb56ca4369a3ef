#include "photo/albums/folder_listing.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/foothold.h"
#include "base/passing_error.h"
#include "photo/albums/path_buffer.h"
#include "photo/albums/share_fs.h"
#include "photo/metadata_folder.h"

namespace koli {
namespace {

int IsVisible(const dirent* entry) {
    return entry->d_name[0] != '.' ? 1 : 0;
}

int ByName(const dirent** left, const dirent** right) {
    return strcmp((*left)->d_name, (*right)->d_name);
}

FolderListing::Status StatusOf(int error) {
    return MeansAbsent(error) ? FolderListing::Status::kNoFolder : FolderListing::Status::kOutOfReach;
}

/// The next entry that is not the indexer's or its neighbours' own work.
const dirent* const* SkipMetadata(const dirent* const* at, const dirent* const* end) {
    while (at != end && MentionsMetadataFolder((*at)->d_name))
        ++at;
    return at;
}

bool HoldsSame(const FolderListing& left, const FolderListing& right) {
    const dirent* const* l = left.begin();
    const dirent* const* r = right.begin();
    for (;; ++l, ++r) {
        l = SkipMetadata(l, left.end());
        r = SkipMetadata(r, right.end());
        if (l == left.end() || r == right.end()) return l == left.end() && r == right.end();
        if ((*l)->d_ino != (*r)->d_ino || strcmp((*l)->d_name, (*r)->d_name) != 0) return false;
    }
}

}  // namespace

FolderListing::~FolderListing() {
    for (int i = 0; i < count_; ++i)
        free(entries_[i]);
    free(entries_);
}

FolderListing::Status FolderListing::Read(const char* path) {
    const int folder = OpenNear(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return StatusOf(errno);
    struct stat status;
    // Opening "." once more is what needs the right to enter.
    const int count = fstat(folder, &status) == 0 ? scandirat(folder, ".", &entries_, IsVisible, ByName) : -1;
    const int error = errno;
    close(folder);
    if (count < 0) {
        entries_ = nullptr;
        count_ = 0;
        return StatusOf(error);
    }
    count_ = count;
    device_ = status.st_dev;
    inode_ = status.st_ino;
    changed_ = status.st_ctim;
    return Status::kRead;
}

bool FolderListing::IsStill(const char* path) const {
    struct stat status;
    if (StatNear(path, &status) != 0 || status.st_dev != device_ || status.st_ino != inode_) return false;
    if (status.st_ctim.tv_sec == changed_.tv_sec && status.st_ctim.tv_nsec == changed_.tv_nsec) return true;
    FolderListing now;
    if (now.Read(path) != Status::kRead) return false;
    return HoldsSame(*this, now);
}

bool HasDot(const dirent* entry) {
    return strchr(entry->d_name, '.') != nullptr;
}

EntryKind EntryKindOf(const dirent& entry, const char* path) {
    const bool is_told = entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN;
    if (is_told && entry.d_type != DT_DIR) return EntryKind::kOther;
    if (is_told && !photo_share_needs_type_check) return EntryKind::kFolder;

    struct stat status;
    if (StatNear(path, &status) != 0) return MeansAbsent(errno) ? EntryKind::kOther : EntryKind::kOutOfReach;
    return S_ISDIR(status.st_mode) ? EntryKind::kFolder : EntryKind::kOther;
}

FolderListing::Status ForEachFolder(const char* path, const std::function<void(const char* folder)>& each) {
    FolderListing listing;
    FolderListing::Status result = listing.Read(path);
    PathBuffer folder(path);
    const size_t length = folder.length();
    for (const dirent* entry : listing) {
        if (MentionsMetadataFolder(entry->d_name) || !folder.Append(entry->d_name)) continue;
        const EntryKind kind = EntryKindOf(*entry, folder.text());
        if (kind == EntryKind::kFolder) each(folder.text());
        if (kind == EntryKind::kOutOfReach) result = FolderListing::Status::kOutOfReach;
        folder.CutTo(length);
    }
    return result;
}

}  // namespace koli
