// The record of a directory in the media store.
#pragma once

namespace koli {

/// Records the existing directory `path`.  Returns 0, or -1: for a bad argument or a store that refuses
/// (logged), or when `path` is no directory (silent).
int DirectoryInfoSave(const char* path);

}  // namespace koli
