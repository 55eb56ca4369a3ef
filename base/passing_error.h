// Which failures of a system call pass by themselves.
#pragma once

#include <cerrno>

namespace koli {

/// Whether an errno says nothing lasting about the file that was asked for: no descriptor or memory free, no
/// room, a disk or a file server that does not answer now.  False for what is so until somebody changes it:
/// not there, not permitted, of another kind.
bool IsPassingError(int error);

/// True when the errno of a look at a path tells for certain that nothing is there; all others tell nothing.
inline bool MeansAbsent(int error) {
    return error == ENOENT || error == ENOTDIR;
}

/// Whether something stands at `path` (links followed), or may stand there: the look failed for a reason that
/// passes.
bool MayExist(const char* path);

}  // namespace koli
