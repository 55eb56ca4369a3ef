// A path, and what is known of what stands there.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

namespace koli {

class Picture;

/// What stands at a path, links followed.
enum class PathKind {
    kUnknown = -1,  // the look failed for a reason that says nothing: it may be there
    kAbsent,        // nothing, for certain
    kFile,          // a regular file
    kDirectory,
    kOther  // a FIFO, a device, ...
};

/// A path that is handed on from step to step, with what the first of them has found out, so that the file
/// system is asked once about a file.  It is asked when the first one wants to know; a function that takes
/// one can be called with a path alone.
class KnownPath {
  public:
    /// `path` stays the caller's and as it is; null stands for nothing.  `type` is what a directory's entry
    /// says (d_type).
    KnownPath(const char* path, unsigned char type = DT_UNKNOWN);  // NOLINT(google-explicit-constructor)

    const char* text() const { return path_; }
    bool IsEmpty() const { return path_ == nullptr || *path_ == '\0'; }

    /// Does not ask where the entry's type tells.
    PathKind kind() const;
    bool IsDirectory() const { return kind() == PathKind::kDirectory; }

    /// What the look has told; null, with errno set, when it failed.
    const struct stat* status() const;
    /// The same of a regular file; null for anything else.
    const struct stat* file() const;

    /// Where the readers of a picture, one for each store, share what they have read (photo/picture.h); null
    /// when there is only one.  Not owned.
    Picture* picture = nullptr;

  private:
    void Look() const;

    const char* path_;
    const unsigned char type_;
    mutable bool has_looked_ = false;
    mutable int error_ = 0;  // errno of a look that failed
    mutable struct stat status_;
};

}  // namespace koli
