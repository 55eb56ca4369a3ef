// The EXIF block of a picture (JEITA CP-3451).
#pragma once

#include "base/file_reading.h"
#include "base/photo_record.h"
#include "base/regular_file.h"

namespace koli {

/// Fills the record from the EXIF block of the file that its path names.  Values are the texts that libexif
/// renders (at most 127 bytes), cut to their fields:
///
/// | tag   | name             | field          | kept                                                    |
/// |-------|------------------|----------------|---------------------------------------------------------|
/// | 271   | Make             | camera_make    | as rendered                                             |
/// | 272   | Model            | camera_model   | as rendered                                             |
/// | 33434 | ExposureTime     | exposure_time  | as rendered, such as "1/125 sec."                       |
/// | 33437 | FNumber          | f_number       | as rendered, such as "f/2.8"                            |
/// | 34855 | ISOSpeedRatings  | iso_speed      | its leading number                                      |
/// | 36867 | DateTimeOriginal | date_taken     | when it begins with a date "%Y:%m:%d %H:%M:%S"          |
/// | 40962 | PixelXDimension  | width          | its leading number                                      |
/// | 40963 | PixelYDimension  | height         | its leading number                                      |
///
/// A tag that stands in several directories has its last value (of two in one directory libexif keeps the
/// first).  What the file does not tell stays as it is.  A block that cannot be read is a
/// trouble of `reading`.  Returns 0, also for a file without EXIF or one that cannot be read; -1 for null
/// (logged).
int ExifFillPhotoRecord(PhotoRecord* record, FileReading& reading);

/// The same from an open file.  False for a block that cannot be read.
bool ExifRead(const MediaFile& file, PhotoRecord* record);

/// The trouble that this is.
inline constexpr char kExifUnreadable[] = "the EXIF block cannot be read";

}  // namespace koli
