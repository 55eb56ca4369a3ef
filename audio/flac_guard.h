// What a FLAC file must keep to before libFLAC is let loose on it.
#pragma once

#include <cstdint>

namespace koli {

/// libFLAC searches a whole file for its first marker and follows a chain of metadata blocks of any length: a
/// sparse file of a terabyte would hold the daemon for hours.  False for a file of more than 64 MiB whose
/// marker stands neither at its start nor behind one ID3v2 tag, or whose chain does not end, at its last
/// block or at the file's end, within a bounded number of blocks and bytes.  Only block headers are read;
/// smaller files are not looked at at all.  `size` is the file's, in bytes.
bool FlacMetadataIsBounded(const char* path, int64_t size);

}  // namespace koli
