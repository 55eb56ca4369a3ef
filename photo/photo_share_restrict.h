// When an album cannot take the name that its folder has got.
#pragma once

namespace koli {

/// Makes the album `album` and those below it no more public than those of the same names at and below
/// `model` (names, not paths): what is not public there is not public here, and open to nobody who has no
/// right there.  Failures are logged.
void AlbumRestrict(const char* album, const char* model);

}  // namespace koli
