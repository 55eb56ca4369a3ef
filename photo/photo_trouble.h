// What could not be read of a picture or an album, as a problem of the photo library.
#pragma once

#include "base/file_reading.h"

namespace koli {

/// Records the trouble of what has been read; without one, what was recorded of it before is over.
void PhotoTroubleTell(const FileReading& reading);

/// Asks for the size of a picture, in pixels.  False, with a trouble, when it does not tell.
bool PictureSizeGet(const char* path, int* width, int* height, FileReading& reading);

}  // namespace koli
