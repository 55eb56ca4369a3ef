// The entries of one folder in the order of their names.
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <ctime>
#include <functional>

namespace koli {

/// The visible entries of a folder, in the byte order of their names: what the shell's pattern "*" matches.
/// The whole listing is held in memory and the folder is closed at once, so that a deep tree needs no open
/// files.
class FolderListing {
  public:
    FolderListing() = default;
    ~FolderListing();
    FolderListing(const FolderListing&) = delete;
    FolderListing& operator=(const FolderListing&) = delete;

    enum class Status {
        kRead,
        kNoFolder,    // there is no folder of this path
        kOutOfReach,  // there is one, or may be, that cannot be listed now
    };

    /// Lists `path`, once for each object.  A folder that may be listed but not entered is out of reach too.
    Status Read(const char* path);

    /// Identity of the folder.
    dev_t device() const { return device_; }
    ino_t inode() const { return inode_; }
    /// When the folder changed last before it was listed (ctime, which no program can set).
    const timespec& changed() const { return changed_; }

    /// Whether `path` is the same folder still and holds what it held, "@eaDir" apart.
    bool IsStill(const char* path) const;

    const dirent* const* begin() const { return entries_; }
    const dirent* const* end() const { return entries_ + count_; }

  private:
    dirent** entries_ = nullptr;  // from scandir: each entry and the array come from malloc
    int count_ = 0;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    timespec changed_{};
};

/// What the shell's pattern "*.*" matches, of the visible entries.
bool HasDot(const dirent* entry);

/// What an entry of a listing is.
enum class EntryKind { kFolder, kOther, kOutOfReach };

/// Tells whether the entry, whose full path is `path`, is a folder, links followed.  The file system is asked
/// where the listing does not tell, and always where it is not to be trusted (photo_share_needs_type_check).
EntryKind EntryKindOf(const dirent& entry, const char* path);

/// Calls `each` with the full path of every folder directly inside `path`, in the order of their names.
/// Passed over are hidden ones, "@eaDir" and what would not fit into 4095 bytes.  kOutOfReach is also
/// returned when an entry could not be looked at.
FolderListing::Status ForEachFolder(const char* path, const std::function<void(const char* folder)>& each);

}  // namespace koli
