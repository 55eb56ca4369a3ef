#include "audio/cover_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/file_reading.h"
#include "base/held_folder.h"
#include "base/media_info.h"
#include "base/passing_error.h"
#include "base/read_ahead.h"
#include "base/reading.h"
#include "base/regular_file.h"
#include "base/written_file_systems.h"
#include "platform/koliindex.h"

namespace koli {
namespace {

constexpr mode_t kCoverMode = 0777;        // every service of the appliance may replace a cover
constexpr int64_t kBlockSize = 65536;      // bytes per read and write
constexpr int64_t kMaxCover = 32LL << 20;  // bytes of one cover

/// Users can write to the cover folder: what stands at the path is removed and never followed or opened.
int CreateCoverFile(const AttributeFile& cover, const char* cover_path, LogSite site,
                    const CoverFileMessages& messages) {
    if (cover.Remove() != 0 && errno != ENOENT) {
        LogError(messages.unlink_failed, site.module, site.line, cover_path, strerror(errno));
        return -1;
    }
    const int fd = cover.Open(O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (fd < 0)
        LogError("%s (%d) FAILED TO OPEN %s, reason=%s", site.module, site.line, cover_path, strerror(errno));
    return fd;
}

/// Gives the cover the mode and owner it is to have.  Works on the descriptor, so that nothing can be put in
/// its way.
bool HandOver(int fd, const char* cover_path, const char* media_path, LogSite site) {
    struct stat media;
    if (stat(media_path, &media) != 0) {
        LogError("%s (%d) FAILED TO stat %s, reason: %s", site.module, site.line, media_path,
                 strerror(errno));
        return false;
    }
    if (fchmod(fd, kCoverMode) != 0) {
        LogError("%s (%d) FAILED TO chmod %s, reason: %s", site.module, site.line, cover_path,
                 strerror(errno));
        return false;
    }
    if (fchown(fd, media.st_uid, media.st_gid) != 0) {
        LogError("FAILED TO chown %s to uid=%d, gid=%d, reason: %s", cover_path,
                 static_cast<int>(media.st_uid), static_cast<int>(media.st_gid), strerror(errno));
        return false;
    }
    return true;
}

bool FillCoverFile(int fd, const char* cover_path, const char* media_path, const CoverSource& source,
                   LogSite site) {
    if (source(fd) != 0) {
        LogError("%s (%d) FAILED TO WRITE PIC FILE, reason=%s", site.module, site.line, strerror(errno));
        return false;
    }
    return HandOver(fd, cover_path, media_path, site);
}

/// Some file systems tell only at the end that there was no room.
bool CloseCoverFile(int fd, const char* cover_path, LogSite site) {
    struct stat status;
    if (fstat(fd, &status) == 0) FileSystemWritten(status.st_dev, cover_path);
    if (close(fd) == 0) return true;
    LogError("%s (%d) FAILED TO WRITE PIC FILE, reason=%s", site.module, site.line, strerror(errno));
    return false;
}

/// What is due to the media file itself, or to a share that is read-only, no further try would change.
void NoteTrouble(int error) {
    if (error != 0 && error != ENODATA && error != EROFS && IsPassingError(error))
        FileTrouble("The cover cannot be saved", error);
}

}  // namespace

int CoverFileWrite(const char* media_path, int picture_type, int index, int image_type,
                   const CoverSource& source, LogSite site, const CoverFileMessages& messages) {
    char cover_path[kPathSize];
    errno = 0;
    if (GetCoverPath(media_path, cover_path, sizeof cover_path, picture_type, index, image_type) == 0) {
        NoteTrouble(errno);
        LogError(messages.no_cover_path, site.module, site.line, media_path);
        return 0;
    }
    const AttributeFile cover(cover_path);
    const int fd = CreateCoverFile(cover, cover_path, site, messages);
    if (fd >= 0 && FillCoverFile(fd, cover_path, media_path, source, site)) {
        if (CloseCoverFile(fd, cover_path, site)) return 1;
        NoteTrouble(errno);
    } else {
        NoteTrouble(errno);
        if (fd >= 0) close(fd);
    }
    cover.Remove();
    return 0;
}

int WriteFully(int fd, const void* bytes, size_t size) {
    const auto* next = static_cast<const uint8_t*>(bytes);
    while (size > 0) {
        const ssize_t count = write(fd, next, size);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return -1;
        next += count;
        size -= static_cast<size_t>(count);
    }
    return 0;
}

int CopyFileBytes(int from, int64_t offset, int64_t length, int fd) {
    struct stat status;
    if (fstat(from, &status) != 0) return -1;
    if (length > status.st_size - offset) {
        errno = ENODATA;
        return -1;
    }
    if (length > kBlockSize) ReadAheadRequest(from, offset, offset + length);
    uint8_t block[kBlockSize];
    while (length > 0) {
        const ssize_t count = ReadAt(from, offset, block, static_cast<size_t>(std::min(length, kBlockSize)));
        if (count == 0) errno = ENODATA;  // cut off in the meantime
        if (count < 0) ReadingFailed(errno);
        if (count <= 0 || WriteFully(fd, block, static_cast<size_t>(count)) != 0) return -1;
        offset += count;
        length -= count;
    }
    return 0;
}

bool CoverIsWithinLimits(int file, int64_t offset, int64_t length, const char* media_path, LogSite site,
                         CoverLimits* limits) {
    struct stat status;
    if (fstat(file, &status) != 0 || length > status.st_size - offset) return true;
    if (length > kMaxCover) {
        if (!std::exchange(limits->size_is_logged, true))
            LogError("%s (%d) A picture of more than 32 MiB is not saved: %s", site.module, site.line,
                     media_path);
        return false;
    }
    const off_t hole = lseek(file, offset, SEEK_HOLE);
    if (hole == -1 || hole >= offset + length) return true;
    if (!std::exchange(limits->hole_is_logged, true))
        LogError("%s (%d) A picture with a hole of the file in it is not saved: %s", site.module, site.line,
                 media_path);
    return false;
}

}  // namespace koli
