// What the container library reads of a file, as far as that can be told before.
#pragma once

#include <cstdint>

namespace koli {

/// Has the disk bring what a probe of an open regular file of `size` bytes will read of it: where its streams
/// begin, its index and its end.  Waits for a few short reads and asks for the rest, some MB at most; what
/// cannot be told is left out.  Moves the file's offset.
void ProbeReadsRequest(int file, int64_t size);

}  // namespace koli
