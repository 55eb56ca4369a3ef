// Making the names in a folder durable.
#pragma once

namespace koli {

/// Puts a folder's entries on the disk: what was made, renamed or removed in it.  False with errno set.
bool FolderSync(const char* folder);

/// The same of the folder that holds `path`.
bool FolderSyncOf(const char* path);

}  // namespace koli
