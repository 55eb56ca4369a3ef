// Captions: values that people enter for a picture or an album, handed over in an extended-attribute file of
// its path.  Each is read once; its file is gone afterwards.
#pragma once

#include <cstddef>

#include "base/photo_record.h"

namespace koli {

inline constexpr const char kTitleStream[] = "KOLIPHOTO:TITLE";
inline constexpr const char kDescriptionStream[] = "KOLIPHOTO:DESC";
inline constexpr const char kPublicStream[] = "KOLIPHOTO:PUBLIC";  // of an album: '1' for public

inline constexpr int kCaptionSize = 255;  // bytes of a caption, terminator included

inline constexpr int kCaptionPathSize = 4095;  // bytes of a caption file's path, terminator included

/// Puts off the removal of the caption files that are read while it lives until its end, when the row that
/// took them has been saved: a process killed at any moment, or a power cut, leaves the value in at least one
/// of the two places.  At its end the photo database is made durable and the files go; they stay when that
/// fails.  There is one at a time.
class CaptionHold {
  public:
    CaptionHold();
    ~CaptionHold();
    CaptionHold(const CaptionHold&) = delete;
    CaptionHold& operator=(const CaptionHold&) = delete;

    bool HasCaptions() const { return count_ > 0; }
    /// For a save that failed: the files stay where they are, for the next time.
    void Keep() { count_ = 0; }

  private:
    friend int CaptionRead(const char* path, const char* stream, char* buffer, int size);
    static void Remove(const char* caption_path);

    static constexpr size_t kMostCaptions = 2;  // a picture's title and description
    char paths_[kMostCaptions][kCaptionPathSize];
    size_t count_ = 0;
};

/// Reads the first line, its newline included, of the caption file of (path, stream) into the `size` bytes at
/// `buffer`, cut at size - 1 bytes, and removes the file (see CaptionHold).  Returns 0 when the line holds
/// anything; -1 when not, when there is no such file (silently), and on failure (logged; a file that could
/// not be read is kept).
int CaptionRead(const char* path, const char* stream, char* buffer, int size);

/// Take the title or description that waits for the picture into its record.  Return 1 when there was one,
/// else 0 (the record is then unchanged).  A null argument is logged.
int CaptionTitleGet(const char* path, PhotoRecord* record);
int CaptionDescGet(const char* path, PhotoRecord* record);

}  // namespace koli
