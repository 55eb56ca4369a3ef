// What the readers of a format begin with.
#pragma once

#include "base/formats.h"

namespace koli {

/// False for the readers that open nothing: a file that the walk leaves closed stays closed.
bool ForerunnerHasWork(FormatReader reader);

/// Has the disk bring what `reader` begins with of an open regular file: waits for its head, and asks for the
/// rest.
void ForerunnerRead(int file, FormatReader reader);

}  // namespace koli
