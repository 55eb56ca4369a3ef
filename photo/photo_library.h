// The photo library: one record for each picture of the photo share that a browser can show.
#pragma once

#include <cstdint>

#include "base/known_path.h"
#include "base/photo_record.h"

namespace koli {

/// The largest width or height, in pixels, that is believed.
inline constexpr int32_t kMaxPhotoPixels = 8000;

/// What a browser can do with a file.
enum class WebKind { kNone, kPhoto, kVideo };

/// Tells the kind by what follows the last '.' of the whole path; kNone when there is none.
WebKind WebKindOf(const char* path);

/// What has come of one picture.
enum class PhotoOutcome {
    kStored,
    kLeftOut,  // nothing for the photo library
    kGone,     // nothing is there any more
    kMissed,  // it may be there, but cannot be looked at or stored now: nobody knows whether its row is right
};

/// Applies `mode` (kModeAdd, kModeDelete or kModeUpdate of IndexMode) to one file of the photo share.  Plain
/// videos are handed to the converter, whatever the mode.  Returns 0, whether or not a record was stored; -1
/// for bad arguments (logged), a directory, and files that are neither picture nor video.
int PhotoLibraryIndex(const KnownPath& path, int mode);

/// The same, and tells what has come of the picture; of files that are none kLeftOut, or kMissed.
int PhotoLibraryIndex(const KnownPath& path, int mode, PhotoOutcome* outcome);

/// Stores the record of one picture.  A hand-entered title or description that waits for the picture is taken
/// when the record is stored, and is gone from its file then (see caption.h).  `mode` goes on to
/// PhotoInfoDBSave.  Returns 0 when the record was stored; -1 for a null path (logged), a path with "@eaDir",
/// a hidden file, a file of 0 or more than kMaxPhotoSize bytes, a file that cannot be looked at, and a
/// refused save (logged).
int PhotoLibraryAdd(const KnownPath& path, int mode);

/// Removes the record of a picture that is gone.  Returns 0, also when the database refused (logged); -1 for
/// a null path or a file that still exists, or cannot be looked at (logged), and for a path with "@eaDir".
int PhotoLibraryDelete(const char* path);

/// Cleans a record before its save: a width or height outside 0 to kMaxPhotoPixels becomes 0; the date, the
/// make and the model are emptied when they hold anything but ASCII without control characters (0x7F is
/// allowed). Returns 0, or -1 for null.
int PhotoRecordSanitize(PhotoRecord* record);

}  // namespace koli
