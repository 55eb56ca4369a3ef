// When an album cannot take the name that its folder has got, or its folder had none.
#pragma once

namespace koli {

/// Makes the album `album` and those below it no more public than those of the same names at and below
/// `model` (names, not paths): what is not public there is not public here, and open to nobody who has no
/// right there.  Failures are logged.
void AlbumRestrict(const char* album, const char* model);

/// A folder that was no album has become one: makes the albums at and below its new path no more public than
/// the nearest album around its old one (paths of the same share).  Failures are logged.
void AlbumRestrictToOrigin(const char* new_path, const char* old_path);

}  // namespace koli
