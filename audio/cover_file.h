// Writing the picture that a media file carries to its cover file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "base/log.h"

namespace koli {

/// The messages in which the callers differ.
struct CoverFileMessages {
    const char* no_cover_path;  // module, line, media path
    const char* unlink_failed;  // module, line, cover path, reason
};

/// Writes the picture's bytes to a descriptor, in blocks.  Returns 0, or -1 with errno set.
using CoverSource = std::function<int(int fd)>;

/// Asks the platform for the cover path of (`media_path`, `picture_type` 0 to 20, `index` from 1,
/// `image_type` 1 = JPEG or 2 = PNG), and makes a new file there with the source's bytes, mode 0777 and the
/// media file's owner and group. Returns 1; or 0 with the failure logged in the name of `site`, and nothing
/// left at the cover path.
int CoverFileWrite(const char* media_path, int picture_type, int index, int image_type,
                   const CoverSource& source, LogSite site, const CoverFileMessages& messages);

/// For sources.  Writes all of `size` bytes; returns 0, or -1 with errno set.
int WriteFully(int fd, const void* bytes, size_t size);

/// For sources.  Appends `length` bytes of the file `from`, from `offset` on, to `fd`.  A file that ends
/// before them (ENODATA) is refused before anything is written.  Returns 0, or -1 with errno set.
int CopyFileBytes(int from, int64_t offset, int64_t length, int fd);

/// Which limits on covers have been logged for one media file.
struct CoverLimits {
    bool size_is_logged = false;
    bool hole_is_logged = false;
};

/// False for bytes of a media file that may not become a cover: more than 32 MiB, or with a hole in them,
/// which would cost the disk what the file itself does not.  Each reason is logged once for a file, in the
/// name of `site`. Bytes that the file does not hold pass: to copy them fails.
bool CoverIsWithinLimits(int file, int64_t offset, int64_t length, const char* media_path, LogSite site,
                         CoverLimits* limits);

}  // namespace koli
