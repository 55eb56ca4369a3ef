#include "photo/caption_removal.h"
#include "base/written_file_systems.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "photo/caption.h"
#include "platform/kolidb.h"

namespace koli {
namespace {

struct Waiting {
    char* path;  // from malloc
    CaptionIdentity identity;
};

/// A walk inside a unit may read any number of captions.
constexpr size_t kMostWaiting = 1024;

Waiting waiting[kMostWaiting];
size_t waiting_count = 0;

bool IsSameTime(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

bool IsSame(const CaptionIdentity& left, const CaptionIdentity& right) {
    return left.device == right.device && left.inode == right.inode && left.size == right.size &&
           IsSameTime(left.mtime, right.mtime) && IsSameTime(left.ctime, right.ctime);
}

void RemoveRead(const Waiting& file) {
    struct stat status;
    if (lstat(file.path, &status) != 0 || !IsSame(CaptionIdentityOf(status), file.identity)) return;
    if (unlink(file.path) == 0) FileSystemWritten(status.st_dev, file.path);
}

}  // namespace

CaptionIdentity CaptionIdentityOf(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

void CaptionRemovalAdd(const char* path, const CaptionIdentity& identity) {
    if (waiting_count == kMostWaiting) return;
    char* copy = strdup(path);
    if (copy != nullptr) waiting[waiting_count++] = {copy, identity};
}

void CaptionRemovalsRun() {
    if (waiting_count == 0) return;
    const int hardened = PhotoDBHarden();
    if (hardened > 0) return;
    for (; waiting_count > 0; --waiting_count) {
        const Waiting& file = waiting[waiting_count - 1];
        if (hardened == 0) RemoveRead(file);
        free(file.path);
    }
}

}  // namespace koli
