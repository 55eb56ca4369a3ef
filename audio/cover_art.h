// Pictures in an ID3v2 tag.
//
//   2.3, 2.4  "APIC":  encoding 1, MIME type and a zero byte, picture type 1,
//                      description and a zero byte, image
//   2.2       "PIC":   encoding 1, image format 3 ("JPG", "PNG"), the rest as above
#pragma once

#include <cstdint>

#include "audio/cached_file_reader.h"

namespace koli {

/// Saves the picture of the frame at file offset `frame` as cover `index` (from 1) of the audio file `path`.
/// `size` is the declared length of the frame's data: untrusted, it may be negative or lead past the file's
/// end.  `version` 2 means the 2.2 layout.  Returns 1 when a cover file was written, 0 when not (logged,
/// unless the image is too short to be one).
int CoverPictureSave(CachedFileReader* reader, int64_t frame, int32_t size, const char* path, int index,
                     int version);

}  // namespace koli
