// Which files the daemon stores, and in which table.
#pragma once

namespace koli::ctl {

inline constexpr int kNotIndexed = -1;

/// The table of a file by its path: a StoreType, or kNotIndexed for an extension that is not in the table, no
/// extension at all, an AppleDouble companion ("._name"), and a picture in an "@eaDir".
int MediaKindOf(const char* path);

/// The photo library takes pictures that a browser can show, are not hidden and hold 1 to 20971519 bytes.
inline constexpr long long kLibraryPhotoMaxSize = 20971519;
bool IsLibraryPhoto(const char* path, long long size);

}  // namespace koli::ctl
