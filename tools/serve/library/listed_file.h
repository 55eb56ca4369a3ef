// Files of the library, opened so that nothing else can be had in their place.
#pragma once

#include <string>

#include "tools/serve/library/library.h"

namespace koli::serve {

/// Opens a regular file to read.  Its path's first two folders, "/volume1/music", are the share's, and may be
/// links; below it no link is followed, whenever it was laid.
OpenVerdict OpenBelowShare(const std::string& path, UniqueFd* file);

/// Opens the first cover of the file at `path`: the one of the smallest number in DIR/@eaDir/NAME.
OpenVerdict OpenFirstCover(const std::string& path, UniqueFd* file);

}  // namespace koli::serve
