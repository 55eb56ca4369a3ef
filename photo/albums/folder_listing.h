// The entries of one folder in the order of their names.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "base/known_path.h"

namespace koli {

/// The visible entries of a folder, in the byte order of their names: what the shell's pattern "*" matches.
/// The whole listing is held in memory and the folder is closed at once, so that a deep tree needs no open
/// files.
class FolderListing {
  public:
    struct Entry {
        std::string name;
        unsigned char type;  // d_type
        ino_t inode;
    };

    enum class Status {
        kRead,
        kNoFolder,    // there is no folder of this path
        kOutOfReach,  // there is one, or may be, that cannot be listed now
    };

    /// Lists `path`.  A folder that may be listed but not entered is out of reach too.
    Status Read(const char* path);

    /// Identity of the folder.
    dev_t device() const { return status_.st_dev; }
    ino_t inode() const { return status_.st_ino; }
    /// When the folder changed last before it was listed (ctime, which no program can set).
    const timespec& changed() const { return status_.st_ctim; }

    /// Nothing that is visible is in it, "@eaDir" included.
    bool is_empty() const { return is_empty_; }

    /// Whether `path` is the same folder still and holds what it held, "@eaDir" apart.
    bool IsStill(const char* path) const;

    std::vector<Entry>::const_iterator begin() const { return entries_.begin(); }
    std::vector<Entry>::const_iterator end() const { return entries_.end(); }

  private:
    std::vector<Entry> entries_;
    struct stat status_ {};
    bool is_empty_ = true;
};

/// What the shell's pattern "*.*" matches, of the visible entries.
bool HasDot(const FolderListing::Entry& entry);

/// The entry, whose full path is `path`, with what the listing has told of it: nothing where it is not to be
/// trusted (photo_share_needs_type_check).
KnownPath EntryAt(const FolderListing::Entry& entry, const char* path);

/// Calls `each` with the full path of every folder directly inside `path`, in the order of their names.
/// Passed over are hidden ones, "@eaDir" and what would not fit into 4095 bytes.  kOutOfReach is also
/// returned when an entry could not be looked at.
FolderListing::Status ForEachFolder(const char* path, const std::function<void(const char* folder)>& each);

}  // namespace koli
