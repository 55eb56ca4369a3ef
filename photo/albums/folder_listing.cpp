#include "photo/albums/folder_listing.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "base/directory_listing.h"
#include "base/foothold.h"
#include "base/metadata_folder.h"
#include "base/passing_error.h"
#include "base/path_buffer.h"
#include "photo/albums/share_fs.h"

namespace koli {
namespace {

FolderListing::Status StatusOf(int error) {
    return MeansAbsent(error) ? FolderListing::Status::kNoFolder : FolderListing::Status::kOutOfReach;
}

/// Whether an entry is the indexer's or its neighbours' own work.
bool IsMetadata(const FolderListing::Entry& entry) {
    return MentionsMetadataFolder(entry.name.c_str());
}

bool HoldsSame(const FolderListing& left, const FolderListing& right) {
    auto l = left.begin();
    auto r = right.begin();
    for (;; ++l, ++r) {
        l = std::find_if_not(l, left.end(), IsMetadata);
        r = std::find_if_not(r, right.end(), IsMetadata);
        if (l == left.end() || r == right.end()) return l == left.end() && r == right.end();
        if (l->inode != r->inode || l->name != r->name) return false;
    }
}

}  // namespace

FolderListing::Status FolderListing::Read(const char* path) try {
    DirectoryListing folder;
    // A look at "." is what needs the right to enter.
    if (!folder.Open(path) || fstatat(folder.descriptor(), ".", &status_, 0) != 0) return StatusOf(errno);
    entries_.clear();
    for (auto entry = folder.Next(); entry.name != nullptr; entry = folder.Next())
        if (entry.name[0] != '.') entries_.push_back({entry.name, entry.type, entry.inode});
    is_empty_ = entries_.empty() && !folder.has_metadata();
    std::sort(entries_.begin(), entries_.end(),
              [](const Entry& left, const Entry& right) { return left.name < right.name; });
    if (folder.error() == 0) return Status::kRead;
    entries_.clear();
    return StatusOf(folder.error());
} catch (const std::bad_alloc&) {
    entries_.clear();
    return Status::kOutOfReach;
}

bool FolderListing::IsStill(const char* path) const {
    const timespec& was = changed();
    struct stat now;
    if (StatNear(path, &now) != 0 || now.st_dev != device() || now.st_ino != inode()) return false;
    if (now.st_ctim.tv_sec == was.tv_sec && now.st_ctim.tv_nsec == was.tv_nsec) return true;
    FolderListing again;
    return again.Read(path) == Status::kRead && HoldsSame(*this, again);
}

bool HasDot(const FolderListing::Entry& entry) {
    return entry.name.find('.') != std::string::npos;
}

KnownPath EntryAt(const FolderListing::Entry& entry, const char* path) {
    const bool is_doubtful = photo_share_needs_type_check && entry.type == DT_DIR;
    return KnownPath(path, is_doubtful ? static_cast<unsigned char>(DT_UNKNOWN) : entry.type);
}

FolderListing::Status ForEachFolder(const char* path, const std::function<void(const char* folder)>& each) {
    FolderListing listing;
    FolderListing::Status result = listing.Read(path);
    PathBuffer folder(path);
    const size_t length = folder.length();
    for (const FolderListing::Entry& entry : listing) {
        if (IsMetadata(entry) || !folder.Append(entry.name.c_str())) continue;
        const PathKind kind = EntryAt(entry, folder.text()).kind();
        if (kind == PathKind::kDirectory) each(folder.text());
        if (kind == PathKind::kUnknown) result = FolderListing::Status::kOutOfReach;
        folder.CutTo(length);
    }
    return result;
}

}  // namespace koli
