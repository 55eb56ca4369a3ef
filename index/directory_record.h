// The record of a directory in the media store.
#pragma once

#include "base/known_path.h"

namespace koli {

/// Records the existing directory `path`.  Returns 0, or -1: for a bad argument or a store that refuses
/// (logged), or when `path` is no directory (silent).
int DirectoryInfoSave(const KnownPath& path);

}  // namespace koli
