// The headers with which encoders tell the length of a variable-bit-rate stream.
//
//   Xing   0  4  "Xing"                          VBRI   0  4  "VBRI"
//          4  4  flags: 1 = frames, 2 = bytes          10  4  bytes of the stream
//          8  4  number of frames                      14  4  number of frames
//         12  4  bytes of the stream
//
// Numbers are big-endian.  Either is taken where it is found, anywhere in the first quarter of the file.
#pragma once

#include <cstdint>

#include "audio/mpeg_frame.h"

namespace koli {

/// Search from `start` on, in the first quarter of the file, and replace the header's duration and bit rate
/// with what is told there, each if it is plausible.  Both together read that part of the file once.  Return
/// 0 when the header was found and usable, also when nothing was replaced, else -1.
int XingHeaderRead(CachedFileReader* reader, int64_t start, MpegHeaderInfo* header);
int VbriHeaderRead(CachedFileReader* reader, int64_t start, MpegHeaderInfo* header);

/// Where the last buffer ends that these searches fill, from `start` on, when they find nothing in a file of
/// `size` bytes; the buffer that ends at `buffered` is there.
int64_t VbrScanEnd(int64_t start, int64_t buffered, int64_t size);

}  // namespace koli
