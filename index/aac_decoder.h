// Where the program is found that tells the figures of a raw AAC file.
#pragma once

#include "base/media_info.h"

namespace koli {

/// Copies a command's first word: the path that the build has set, absolute, or relative to the folder of the
/// running daemon's program and then quoted for the shell.  So an installed daemon starts what is installed
/// with it, and one of a build tree what was built with it.  False when it cannot be told (logged).
bool AacDecoderGet(char (&word)[kPathSize]);

}  // namespace koli
