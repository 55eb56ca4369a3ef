// Which files the daemon stores, and in which table.
#pragma once

namespace koli::ctl {

inline constexpr int kNotIndexed = -1;

/// The table of a file by its path: a StoreType, or kNotIndexed (index/record/stored_name.h tells why).
int MediaKindOf(const char* path);

/// The photo library takes pictures that a browser can show, are not hidden and hold 1 to 20971519 bytes.
bool IsLibraryPhoto(const char* path, long long size);

}  // namespace koli::ctl
