// The sub-albums of a renamed album.
#pragma once

namespace koli {

/// Renames the sub-albums of the album that was `old_album` to lie in `new_album` (names, not paths). Returns
/// 0, also when there are none, or -1 at the first failure (logged).
int KOLIPhotoShareRenameSubDir(const char* new_album, const char* old_album);

}  // namespace koli
