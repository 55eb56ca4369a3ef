// Folders that are held open while something is done in them.
//
// People can write to the shares and the daemon runs as root: whoever swaps a folder for a link between two
// looks at its path would lead it out of the share.  What a descriptor stands for cannot be swapped.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string_view>

namespace koli {

/// An open folder, closed at the end of its life.  Every operation that fails sets errno; on a folder that
/// could not be opened they all fail with the errno of its opening.
class HeldFolder {
  public:
    /// Takes over a folder's descriptor; -1, with errno set, for one that could not be opened.
    explicit HeldFolder(int fd);

    /// Opens `path`; links are followed.
    static HeldFolder Open(std::string_view path);

    /// Opens the folder DIR/@eaDir/NAME, in which captions and covers lie.  Links are followed in DIR, as
    /// every walk follows them: who could swap one there could as well have laid a lasting one.  "@eaDir" and
    /// NAME are never links.  With a `mode` other than 0 these two are made when they are missing.  The
    /// folder of a path without "@eaDir" there is opened like any other.
    static HeldFolder OpenAttributes(std::string_view path, mode_t mode = 0);

    ~HeldFolder();
    HeldFolder(HeldFolder&& other) noexcept;
    HeldFolder& operator=(HeldFolder&&) = delete;

    bool ok() const { return fd_ >= 0; }

    /// Opens a folder in it, which must be none but a folder; with a `mode` other than 0 it is made when it
    /// is missing.
    HeldFolder Enter(const char* name, mode_t mode = 0) const;

    /// Opens a file in it, close-on-exec; a link is refused (ELOOP).  Returns the descriptor, or -1.
    int OpenFile(const char* name, int flags, mode_t mode = 0) const;

    /// Looks at an entry, and not at what a link leads to.  Returns 0, or -1.
    int Look(const char* name, struct stat* status) const;

    /// Removes an entry that is no folder.  Returns 0, or -1.
    int Remove(const char* name) const;

    /// Gives the folder away as the stream of its entries.  Null when there is none; else the folder is no
    /// longer ok().
    DIR* Stream();

  private:
    int Checked() const;

    int fd_;
    int error_ = 0;  // errno of an opening that failed
};

/// The file at `path` in its folder DIR/@eaDir/NAME, which is held open.
class AttributeFile {
  public:
    explicit AttributeFile(const char* path);

    int Open(int flags, mode_t mode = 0) const { return folder_.OpenFile(name_, flags, mode); }
    int Look(struct stat* status) const { return folder_.Look(name_, status); }
    int Remove() const { return folder_.Remove(name_); }

  private:
    const char* name_;  // in the path that was given
    HeldFolder folder_;
};

}  // namespace koli
