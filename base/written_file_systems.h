// The file systems of the shares that a batch has written to: what it wrote must be on the disk before the
// batch goes.
#pragma once

#include <sys/types.h>

namespace koli {

/// Notes that `path`, which lies on `device`, was written or removed.
void FileSystemWritten(dev_t device, const char* path);

/// Puts all that was noted on the disk, one call for each file system, and forgets it.  False with errno set
/// when one of them could not be synced: that one is synced again the next time.
bool WrittenFileSystemsSync();

}  // namespace koli
