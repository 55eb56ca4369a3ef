// Short ways in deep trees.
#pragma once

#include <cstddef>

struct stat;

namespace koli {

/// Where a look at a path begins, for the calls of the *at() family.
struct Place {
    int folder;        // descriptor; not owned
    const char* name;  // what to look for from there; part of the path
};

/// Holds a folder of a walk open.  The kernel goes through every folder that a path names, so that looking at
/// a tree of n nested folders would cost n^2; while a foothold lives, looks begin at the deepest one on the
/// way.  It is taken only where the last one is 256 bytes of path away: trees as most people have them need
/// none, the deepest 16.  Where it cannot be taken, a look costs more, and that is all.
///
/// What lies below a folder that is moved meanwhile goes on being found, until the foothold ends.  Whoever
/// has to know looks at each folder itself after its visit: that look begins above it.  Nothing may be
/// removed before that because it is not there.
///
/// Footholds end in the reverse order of their beginnings.  They are not for several threads, nor for a child
/// that has closed what it inherited.
class Foothold {
  public:
    /// `path` is not copied: until the foothold ends it may only grow and shrink behind what it names now.
    explicit Foothold(const char* path);
    ~Foothold();
    Foothold(const Foothold&) = delete;
    Foothold& operator=(const Foothold&) = delete;

    bool is_taken() const { return folder_ >= 0; }

    /// The deepest foothold above what `path` names; the working directory, and the whole path, when there is
    /// none.  Valid until a foothold begins or ends.
    static Place PlaceOf(const char* path);

  private:
    static const Foothold* deepest_;

    int folder_ = -1;  // descriptor; -1 = not taken
    const char* path_;
    size_t length_ = 0;  // of path_, in bytes
    const Foothold* above_ = nullptr;
};

/// stat(), lstat() and open() from there.
int StatNear(const char* path, struct stat* status);
int LstatNear(const char* path, struct stat* status);
int OpenNear(const char* path, int flags);

}  // namespace koli
