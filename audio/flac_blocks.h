// Asking a disk for the metadata blocks of a FLAC file.
#pragma once

#include <cstdint>

namespace koli {

/// Has the disk bring the metadata blocks of an open regular file of `size` bytes, all of which will be read;
/// 2 MB of them at most.  Waits for their headers.
void FlacBlocksRequest(int file, int64_t size);

}  // namespace koli
