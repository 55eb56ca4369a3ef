// A file on its way into both stores.
#pragma once

#include "base/known_path.h"

namespace koli {

/// Applies `mode` (kModeAdd or kModeUpdate) to one file, or the record of one directory, in the stores that
/// `types` names (WalkTypes).  What the media store took goes on to the photo library, and so does what it
/// could not take now, which says nothing about the file; any other may be something to convert.
void IndexInStores(const KnownPath& path, int mode, int types);

}  // namespace koli
