// The file systems of the shares that a batch has written to: what it wrote must be on the disk before the
// batch goes.
#pragma once

#include <sys/types.h>

#include <string>

namespace koli {

/// Notes that `path`, which lies on `device`, was written or removed.
void FileSystemWritten(dev_t device, const char* path);

/// Puts all that was noted on the disk, one call for each file system, and forgets it whether that succeeds
/// or not: what was not written is lost, and a later call would tell nothing of it.  False when one of them
/// could not be synced since the last call of WrittenFileSystemsFault.
bool WrittenFileSystemsSync();

/// What could not be synced since the last call, as one line "FOLDER: REASON"; "" = nothing.
std::string WrittenFileSystemsFault();

}  // namespace koli
