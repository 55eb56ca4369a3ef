#include "photo/caption_removal.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/held_folder.h"
#include "base/written_file_systems.h"
#include "photo/absence.h"
#include "photo/caption.h"
#include "platform/kolidb.h"

namespace koli {
namespace {

struct Waiting {
    char* path;  // from malloc
    CaptionIdentity identity;
    int tries;  // that have failed
};

constexpr int kMostTries = 3;

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

/// False when it may be there still.
bool RemoveRead(const Waiting& file) {
    const AttributeFile caption(file.path);
    struct stat status;
    if (caption.Look(&status) != 0) return MeansAbsent(errno);
    if (!IsSame(CaptionIdentityOf(status), file.identity)) return true;
    if (caption.Remove() != 0) return false;
    FileSystemWritten(status.st_dev, file.path);
    return true;
}

}  // namespace

CaptionIdentity CaptionIdentityOf(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

void CaptionRemovalAdd(const char* path, const CaptionIdentity& identity) {
    if (waiting_count == kMostWaiting) return;
    char* copy = strdup(path);
    if (copy != nullptr) waiting[waiting_count++] = {copy, identity, 0};
}

void CaptionRemovalsRun() {
    if (waiting_count == 0) return;
    const int hardened = PhotoDBHarden();
    if (hardened > 0) return;
    size_t kept = 0;
    for (size_t i = 0; i < waiting_count; ++i) {
        const Waiting& file = waiting[i];
        const bool is_done = hardened < 0 || RemoveRead(file) || file.tries + 1 == kMostTries;
        if (is_done) {
            free(file.path);
        } else {
            waiting[kept++] = {file.path, file.identity, file.tries + 1};
        }
    }
    waiting_count = kept;
}

}  // namespace koli
