// Captions: values that people enter for a picture or an album, handed over in an extended-attribute file of
// its path.  Each is read once; its file is gone afterwards.
#pragma once

#include "base/photo_record.h"

namespace koli {

inline constexpr const char kTitleStream[] = "KOLIPHOTO:TITLE";
inline constexpr const char kDescriptionStream[] = "KOLIPHOTO:DESC";
inline constexpr const char kPublicStream[] = "KOLIPHOTO:PUBLIC";  // of an album: '1' for public

inline constexpr int kCaptionSize = 255;  // bytes of a caption, terminator included

/// Reads the first line, its newline included, of the caption file of (path, stream) into the `size` bytes at
/// `buffer`, cut at size - 1 bytes, and removes the file.  Returns 0 when the line holds anything; -1 when
/// not, when there is no such file (silently), and on failure (logged; a file that could not be read is
/// kept).
int CaptionRead(const char* path, const char* stream, char* buffer, int size);

/// Take the title or description that waits for the picture into its record.  Return 1 when there was one,
/// else 0 (the record is then unchanged).  A null argument is logged.
int CaptionTitleGet(const char* path, PhotoRecord* record);
int CaptionDescGet(const char* path, PhotoRecord* record);

}  // namespace koli
