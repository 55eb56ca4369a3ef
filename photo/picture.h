// The inside of a picture.
#pragma once

#include <optional>

#include "base/file_reading.h"
#include "base/photo_record.h"
#include "base/regular_file.h"

namespace koli {

/// A picture that is opened once and of which each part is read once, by whichever reader asks first: that of
/// the media store, or that of the photo library, to which the request hands it on (KnownPath::picture).
class Picture {
  public:
    /// Opens nothing yet.  `path` is not copied.
    explicit Picture(const char* path) : path_(path) {}

    /// A record with the values of its EXIF block alone (photo/exif.h).  A block that cannot be read is a
    /// trouble of each `reading` that asks.
    const PhotoRecord& Exif(FileReading& reading);

    /// The size in pixels that its header tells.  False, with neither touched and a trouble, when it tells
    /// none.
    bool SizeGet(int* width, int* height, FileReading& reading);

    /// What was read is not all: whoever asks next opens the picture anew.
    void Forget();

  private:
    struct Size {
        int width, height;
        bool is_known;
    };

    bool Open(FileReading& reading);

    const char* path_;
    MediaFile file_;
    bool is_opened_ = false;  // or could not be opened
    std::optional<PhotoRecord> exif_;
    bool is_exif_read_ = false;
    std::optional<Size> size_;
};

}  // namespace koli
