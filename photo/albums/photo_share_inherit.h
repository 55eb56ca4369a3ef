// What a sub-album takes over from the album that it lies in.  Albums are given by their names.
#pragma once

namespace koli {

/// Gives a new sub-album the public flag of its album, and when that is not public, the access rights too.
/// Returns 0, or -1 for an album that is no sub-album and on failure (logged).
int KOLIPhotoShareSubDirUpdatePrivilege(const char* album);

/// Sets the public flag of an album to the text that was read from another's ("t" or "f").  Returns 0, or -1
/// on failure (logged).
int KOLIPhotoShareSubDirUpdatePublic(const char* album, const char* value);

/// Copies the access rights of an album to its sub-album.  Returns 0, also when there are none, or -1 on
/// failure (logged), with the rights before the failing one copied.
int KOLIPhotoShareSubDirPrivilegeAdd(const char* sub_album, const char* top_album);

}  // namespace koli
