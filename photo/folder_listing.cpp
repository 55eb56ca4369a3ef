#include "photo/folder_listing.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "photo/metadata_folder.h"
#include "photo/path_buffer.h"
#include "photo/share_fs.h"

namespace koli {
namespace {

int IsVisible(const dirent* entry) {
    return entry->d_name[0] != '.' ? 1 : 0;
}

int ByName(const dirent** left, const dirent** right) {
    return strcmp((*left)->d_name, (*right)->d_name);
}

/// What these errors of a look at a path tell is that nothing is there; others tell nothing.
bool MeansAbsent(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
}

FolderListing::Status StatusOf(int error) {
    return MeansAbsent(error) ? FolderListing::Status::kNoFolder : FolderListing::Status::kOutOfReach;
}

}  // namespace

FolderListing::~FolderListing() {
    for (int i = 0; i < count_; ++i)
        free(entries_[i]);
    free(entries_);
}

FolderListing::Status FolderListing::Read(const char* path) {
    const int folder = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
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
    return Status::kRead;
}

bool HasDot(const dirent* entry) {
    return strchr(entry->d_name, '.') != nullptr;
}

EntryKind EntryKindOf(const dirent& entry, const char* path) {
    const bool is_told = entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN;
    if (is_told && entry.d_type != DT_DIR) return EntryKind::kOther;
    if (is_told && !photo_share_needs_type_check) return EntryKind::kFolder;

    struct stat status;
    if (stat(path, &status) != 0) return MeansAbsent(errno) ? EntryKind::kOther : EntryKind::kOutOfReach;
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
