// Where the extended-attribute files and covers of a file lie: for DIR/NAME in the folder DIR/@eaDir/NAME.
#pragma once

namespace koli {

/// Writes DIR/@eaDir/NAME, followed by '/' and `leaf` when `leaf` is not null.  Trailing '/'s of `path` are
/// dropped. False, with an empty buffer, when it does not fit into `size` bytes (it is never cut) or `path`
/// has no name of its own (null, empty, "/", "..").
bool EaPath(const char* path, const char* leaf, char* buffer, int size);

}  // namespace koli
