#include "audio/cover_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/held_folder.h"
#include "base/media_info.h"
#include "base/passing_error.h"
#include "base/read_ahead.h"
#include "base/regular_file.h"
#include "base/written_file_systems.h"
#include "platform/koliindex.h"

namespace koli {
namespace {

constexpr mode_t kCoverMode = 0777;    // every service of the appliance may replace a cover
constexpr int64_t kBlockSize = 65536;  // bytes per read and write
constexpr char kUnsaved[] = "the cover cannot be saved";
constexpr int64_t kMaxCover = 32LL << 20;  // bytes of one cover

bool WriteFully(int fd, const void* bytes, size_t size) {
    const auto* next = static_cast<const uint8_t*>(bytes);
    while (size > 0) {
        const ssize_t count = write(fd, next, size);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        next += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

/// A file that ends before the picture does (ENODATA) is refused before anything is written.  False with
/// errno set when that fails.
bool CopyCover(CoverSource source, int fd, FileReading& reading) {
    struct stat status;
    if (fstat(source.file, &status) != 0) return false;
    if (source.length > status.st_size - source.offset) {
        errno = ENODATA;
        return false;
    }
    if (source.length > kBlockSize)
        ReadAheadRequest(source.file, source.offset, source.offset + source.length);
    uint8_t block[kBlockSize];
    while (source.length > 0) {
        const ssize_t count = ReadAt(source.file, source.offset, block,
                                     static_cast<size_t>(std::min(source.length, kBlockSize)));
        if (count == 0) errno = ENODATA;  // cut off in the meantime
        if (count < 0) reading.ReadFailed(errno);
        if (count <= 0 || !WriteFully(fd, block, static_cast<size_t>(count))) return false;
        source.offset += count;
        source.length -= count;
    }
    return true;
}

/// Users can write to the cover folder: what stands at the path is removed and never followed or opened.
int CreateCoverFile(const AttributeFile& cover, const char* cover_path, LogSite site,
                    const CoverFileMessages& messages) {
    if (cover.Remove() != 0 && errno != ENOENT) {
        LogError(site, messages.unlink_failed.text, cover_path, strerror(errno));
        return -1;
    }
    const int fd = cover.Open(O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (fd < 0) LogError(site, "FAILED TO OPEN %s, reason=%s", cover_path, strerror(errno));
    return fd;
}

/// Gives the cover the mode and owner it is to have.  Works on the descriptor, so that nothing can be put in
/// its way.
bool HandOver(int fd, const char* cover_path, const char* media_path, LogSite site) {
    struct stat media;
    if (stat(media_path, &media) != 0) {
        LogError(site, "FAILED TO stat %s, reason: %s", media_path, strerror(errno));
        return false;
    }
    if (fchmod(fd, kCoverMode) != 0) {
        LogError(site, "FAILED TO chmod %s, reason: %s", cover_path, strerror(errno));
        return false;
    }
    if (fchown(fd, media.st_uid, media.st_gid) != 0) {
        LogError(site.As(LogForm::kBare), "FAILED TO chown %s to uid=%d, gid=%d, reason: %s", cover_path,
                 static_cast<int>(media.st_uid), static_cast<int>(media.st_gid), strerror(errno));
        return false;
    }
    return true;
}

bool FillCoverFile(int fd, const char* cover_path, const char* media_path, const CoverSource& source,
                   FileReading& reading, LogSite site) {
    if (!CopyCover(source, fd, reading)) {
        LogError(site, "FAILED TO WRITE PIC FILE, reason=%s", strerror(errno));
        return false;
    }
    return HandOver(fd, cover_path, media_path, site);
}

/// Some file systems tell only at the end that there was no room.
bool CloseCoverFile(int fd, const char* cover_path, LogSite site) {
    struct stat status;
    if (fstat(fd, &status) == 0) FileSystemWritten(status.st_dev, cover_path);
    if (close(fd) == 0) return true;
    LogError(site, "FAILED TO WRITE PIC FILE, reason=%s", strerror(errno));
    return false;
}

/// What is due to the media file itself, or to a share that is read-only, no further try would change.
void NoteTrouble(FileReading& reading, const char* what, int error) {
    if (error != 0 && error != ENODATA && error != EROFS && IsPassingError(error))
        reading.Trouble(what, error);
}

}  // namespace

void CoversRemove(const char* media_path, FileReading& reading) {
    char folder[kPathSize] = {};
    if (GetCoverFolder(media_path, folder, sizeof folder) == 0) return;
    CleanOldCover(folder);
    NoteTrouble(reading, "an old cover cannot be removed", errno);
}

bool CoverFileWrite(const char* media_path, int picture_type, int index, int image_type,
                    const CoverSource& source, FileReading& reading, LogSite site,
                    const CoverFileMessages& messages) {
    char cover_path[kPathSize];
    errno = 0;
    if (GetCoverPath(media_path, cover_path, sizeof cover_path, picture_type, index, image_type) == 0) {
        NoteTrouble(reading, kUnsaved, errno);
        LogError(site, messages.no_cover_path.text, media_path);
        return false;
    }
    const AttributeFile cover(cover_path);
    const int fd = CreateCoverFile(cover, cover_path, site, messages);
    if (fd >= 0 && FillCoverFile(fd, cover_path, media_path, source, reading, site)) {
        if (CloseCoverFile(fd, cover_path, site)) return true;
        NoteTrouble(reading, kUnsaved, errno);
    } else {
        NoteTrouble(reading, kUnsaved, errno);
        if (fd >= 0) close(fd);
    }
    cover.Remove();
    return false;
}

bool CoverIsWithinLimits(const CoverSource& source, const char* media_path, LogSite site,
                         CoverLimits* limits) {
    struct stat status;
    if (fstat(source.file, &status) != 0 || source.length > status.st_size - source.offset) return true;
    if (source.length > kMaxCover) {
        if (!std::exchange(limits->size_is_logged, true))
            LogError(site, "A picture of more than 32 MiB is not saved: %s", media_path);
        return false;
    }
    const off_t hole = lseek(source.file, source.offset, SEEK_HOLE);
    if (hole == -1 || hole >= source.offset + source.length) return true;
    if (!std::exchange(limits->hole_is_logged, true))
        LogError(site, "A picture with a hole of the file in it is not saved: %s", media_path);
    return false;
}

}  // namespace koli
