// Names that are derived from a path.
#pragma once

#include <cstddef>

namespace koli {

/// The last component of `path`: a pointer into it, behind the last '/'; the whole path when it holds none.
const char* FileNameOf(const char* path);

/// Copies `text` into the `size` bytes at `field`, cut at size - 1 bytes and terminated.
void CopyText(char* field, size_t size, const char* text);

/// The file name without its last extension: "a.b.mp3" gives "a.b", ".mp3" gives "".  The name is cut to the
/// field first and at its last '.' afterwards.
void TitleFromPath(const char* path, char* field, size_t size);

/// The name of the directory that directly holds the file, "" for a file at the root or a path without one.
/// Returns false when the cut copy holds no '/' any more (a directory name of size - 1 bytes or more):
/// `field` then keeps the cut name, and the caller logs "Impossible error." in its own form.
[[nodiscard]] bool AlbumFromPath(const char* path, char* field, size_t size);

}  // namespace koli
