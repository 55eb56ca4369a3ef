// What the requests that wait behind the one at work are going to rename.
#pragma once

namespace koli {

/// Tells whether a request that waits renames `path` or a folder above it; for null, anything of a photo
/// share.
using LaterRenames = bool (*)(const char* path);

/// Sets who knows; null for nobody.
void LaterRenamesSet(LaterRenames knows);

/// Asks; false when nobody knows.  Whatever looks stale or out of place may just be waiting for its request.
bool IsRenamedLater(const char* path);

}  // namespace koli
