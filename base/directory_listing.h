// The entries of one directory, one after another.
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>

#include "base/held_folder.h"
#include "base/media_info.h"

namespace koli {

/// Gives the entries of a directory in the order in which the file system returns them, without ".", ".." and
/// the platform's "@eaDir".
///
/// The directory stays open until the listing ends.  A tree can be deeper than a process may have files open:
/// Release() reads what is left into memory and closes the directory.  Only a directory with more names than
/// that memory holds stays open.
class DirectoryListing {
  public:
    DirectoryListing() = default;
    ~DirectoryListing() { Close(); }
    DirectoryListing(const DirectoryListing&) = delete;
    DirectoryListing& operator=(const DirectoryListing&) = delete;

    struct Entry {
        const char* name;    // valid until the next call
        unsigned char type;  // d_type: DT_DIR, DT_REG, DT_LNK, DT_UNKNOWN, ...
        ino_t inode;         // 0 in what Release has read ahead
    };

    /// False, with errno set, when the directory cannot be opened.
    bool Open(const char* path);
    bool Open(HeldFolder folder);

    /// The next entry; its name is null at the end, or where reading on failed.
    Entry Next();

    /// The next of the entries that Next will give, each once, at most `most` of them in front of it; its
    /// name is null when there is none.  Ends what Next has returned.
    Entry Ahead(int most);

    /// Once Next has come to the end: 0, or the errno with which reading failed before it.
    int error() const { return error_; }

    /// An "@eaDir" has been passed over so far.
    bool has_metadata() const { return has_metadata_; }

    void Release();

    /// Identity of the directory.
    dev_t device() const { return device_; }
    ino_t inode() const { return inode_; }

    /// The open directory, which stays this object's.
    int descriptor() const { return dirfd(stream_); }

  private:
    void Close();
    Entry Read();
    bool Hold(const Entry& entry);
    bool MakeRoom();

    static constexpr size_t kNameSize = kPathSize;         // a name can be longer than dirent's 255 bytes
    static constexpr size_t kHeldSize = size_t{64} << 10;  // bytes of names that one released listing holds

    DIR* stream_ = nullptr;
    std::unique_ptr<char[]> held_;  // entries read ahead: type byte, name, terminator
    size_t held_end_ = 0;
    size_t held_at_ = 0;
    int ahead_ = 0;  // how many of them Ahead has given
    dev_t device_ = 0;
    ino_t inode_ = 0;
    int error_ = 0;
    bool has_metadata_ = false;
};

}  // namespace koli
