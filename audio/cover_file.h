// Writing the picture that a media file carries to its cover file.
#pragma once

#include <cstdint>

#include "base/file_reading.h"
#include "base/log.h"

namespace koli {

/// The messages in which the callers differ.
struct CoverFileMessages {
    LogText<1> no_cover_path;  // media path
    LogText<2> unlink_failed;  // cover path, reason
};

/// Where the picture lies: bytes of an open media file.  What the file does not hold cannot be saved.
struct CoverSource {
    int file;
    int64_t offset;
    int64_t length;
};

/// Removes the covers that were saved for a media file before.  What keeps one for a reason that passes is a
/// trouble of `reading`.
void CoversRemove(const char* media_path, FileReading& reading);

/// Asks the platform for the cover path of (`media_path`, `picture_type` 0 to 20, `index` from 1,
/// `image_type` 1 = JPEG or 2 = PNG), and makes a new file there with the source's bytes, mode 0777 and the
/// media file's owner and group. False, with the failure logged in the name of `site` and
/// nothing left at the cover path, when that fails; a reason that passes is a trouble of `reading`.
bool CoverFileWrite(const char* media_path, int picture_type, int index, int image_type,
                    const CoverSource& source, FileReading& reading, LogSite site,
                    const CoverFileMessages& messages);

/// Which limits on covers have been logged for one media file.
struct CoverLimits {
    bool size_is_logged = false;
    bool hole_is_logged = false;
};

/// False for bytes of a media file that may not become a cover: more than 32 MiB, or with a hole in them,
/// which would cost the disk what the file itself does not.  Each reason is logged once for a file, in the
/// name of `site`. Bytes that the file does not hold pass: to copy them fails.
bool CoverIsWithinLimits(const CoverSource& source, const char* media_path, LogSite site,
                         CoverLimits* limits);

}  // namespace koli
