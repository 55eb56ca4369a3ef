// A picture's size from its header.
//
// What is read of each format (offsets in bytes from the start of the file):
//
//   JPEG   FF D8, then segments: FF.., marker, length (2, big-endian, itself included), data.
//          The size stands in the frame header SOFn: length 2, precision 1, height 2, width 2.
//          ITU-T T.81, Annex B.
//
//   PNG    89 "PNG" 0D 0A 1A 0A, then IHDR: length 4 (13), "IHDR", width 4, height 4, big-endian.
//          ISO 15948, 11.2.2.
//
//   GIF    "GIF87a" or "GIF89a", width 2, height 2, little-endian: the logical screen.
//
//   BMP    "BM"; at 14 the length of the information header, which begins there.
//          12: width 2, height 2 at 18, 20.  Longer: width 4, height 4 at 18, 22, signed; a negative height
//          means rows from top to bottom.
//
//   TIFF   "II" or "MM", 42, offset of directory 0: count 2, entries of 12 (tag 2, type 2, count 4, value 4).
//          BigTIFF: 43, 8, 0, offset 8: count 8, entries of 20 (tag 2, type 2, count 8, value 8).
//          TIFF 6.0, section 2.
//
//   PSD    "8BPS", version 1 or 2, 6 reserved, channels 2, height 4, width 4, big-endian.
//
//   ICO    0, 1, count (2 each, little-endian), then entries of 16 that begin with width 1, height 1; a
//          stored 0 means 256.
#pragma once

#include "platform/host/header_reader.h"

namespace koli {

struct ImageSize {
    int width;  // pixels, 1 to 2^31 - 1
    int height;
};

/// Reads the size of the picture in `source`.  False, with `size` untouched, when the format is none of those
/// above, the header is damaged or cut off before the size, or the size is 0 or above 2^31 - 1.
bool ReadImageSize(ByteSource& source, ImageSize* size);

/// The readers of the formats whose size has no fixed place.  The signature has been seen.
bool ReadJpegSize(HeaderReader& in, ImageSize* size);
bool ReadTiffSize(HeaderReader& in, ImageSize* size);

/// Sets `size`; false, without doing so, when either number is out of range.
bool SetImageSize(uint64_t width, uint64_t height, ImageSize* size);

}  // namespace koli
