// What could not be read of a picture or an album, as a problem of the photo library.
#pragma once

#include "base/file_reading.h"

namespace koli {

/// Records the trouble of what has been read; without one, what was recorded of it before is over.
void PhotoTroubleTell(const FileReading& reading);

}  // namespace koli
