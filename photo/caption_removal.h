// Caption files whose values have been taken, on their way out.
#pragma once

#include <sys/types.h>

#include <ctime>

struct stat;

namespace koli {

/// Tells a caption file from one that was put in its place, or written anew.
struct CaptionIdentity {
    dev_t device;
    ino_t inode;
    off_t size;
    timespec mtime;
    timespec ctime;
};

CaptionIdentity CaptionIdentityOf(const struct stat& status);

/// Leaves a file to CaptionRemovalsRun (caption.h).  `path` is copied.  Without room for it the file stays,
/// and is read again the next time.
void CaptionRemovalAdd(const char* path, const CaptionIdentity& identity);

}  // namespace koli
