// What the requests that wait behind the one at work are going to rename.
#pragma once

namespace koli {

/// Tells something of a path and the requests that wait.
using LaterRenames = bool (*)(const char* path);

/// Sets who knows what is renamed, and what is brought; null for nobody.
void LaterRenamesSet(LaterRenames renames, LaterRenames brings = nullptr);

/// Whether a request that waits renames `path` or a folder above it; for null, anything of a photo share.
/// False when nobody knows.  Whatever looks stale or out of place may just be waiting for its request.
bool IsRenamedLater(const char* path);

/// Whether what stands at `path` has come there, alone or with a folder above it, by a rename whose request
/// waits: then it is not what the rows there speak of.  False when nobody knows.
bool IsBroughtLater(const char* path);

}  // namespace koli
