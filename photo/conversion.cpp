#include "photo/conversion.h"

#include <fcntl.h>
#include <libgen.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/features.h"
#include "base/log.h"
#include "base/media_info.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_index";
constexpr const char kWriter[] = "WriteThumbQueue";  // named in its messages besides the module

constexpr int kQueueLineSize = 4097;  // a line and its terminator, as the look-up wants it
constexpr int kMaxOpenRetries = 16;
constexpr mode_t kQueuePermissions = 0777;

constexpr int kCreateFlags = O_RDWR | O_SYNC | O_CREAT | O_EXCL | O_TRUNC;
constexpr int kAppendFlags = O_RDWR | O_SYNC | O_APPEND;

/// One look at the queue: its file descriptor, or what to do without one.
struct QueueOpening {
    bool is_queued;  // the entry stands in the queue already
    int fd;          // -1 on failure, with errno set
};

QueueOpening OpenQueue(const char* entry, const char* queue) {
    char line[kQueueLineSize] = {};
    const int found = KLIBFileGetLine(queue, entry, line, sizeof line, KLIB_LINE_MATCH);
    if (found > 0 && strlen(line) == strlen(entry)) return {true, -1};

    const int flags = found < 0 ? kCreateFlags : kAppendFlags;
    const int fd = open(queue, flags | O_CLOEXEC, kQueuePermissions);
    if (fd < 0) {
        const int error = errno;
        LogError(LogSite(kModule, LogForm::kPair), "open(%s, %d) failed, reason=%s\n", queue, flags,
                 strerror(error));
        errno = error;
    }
    return {false, fd};
}

/// Another program may be about to change the file's permissions: only then waiting helps.
QueueOpening OpenQueueWithRetries(const char* entry, const char* queue) {
    QueueOpening opening = OpenQueue(entry, queue);
    for (int retry = 0; retry < kMaxOpenRetries; ++retry) {
        if (opening.is_queued || opening.fd >= 0 || errno != EACCES) break;
        if (retry == 0) KOLIDBFlush();
        sleep(1);
        opening = OpenQueue(entry, queue);
    }
    return opening;
}

/// The rows at hand are committed first when the lock has to be waited for.
int LockQueue(int fd) {
    if (flock(fd, LOCK_EX | LOCK_NB) == 0) return 0;
    if (errno == EWOULDBLOCK) KOLIDBFlush();
    while (flock(fd, LOCK_EX) != 0)
        if (errno != EINTR) return -1;
    return 0;
}

/// Part of a line would become the beginning of the next writer's: it is taken back.
int AppendLine(int fd, const char* entry, size_t length) {
    char line[kPathSize + 1];
    memcpy(line, entry, length);
    line[length] = '\n';
    const off_t end = lseek(fd, 0, SEEK_END);
    const ssize_t written = write(fd, line, length + 1);
    if (written == static_cast<ssize_t>(length) + 1) return 0;
    if (written >= 0) {
        if (end >= 0 && ftruncate(fd, end) != 0) return -1;
        errno = ENOSPC;
    }
    return -1;
}

int AppendLocked(int fd, const char* entry, const char* queue) {
    const size_t length = strlen(entry);
    if (LockQueue(fd) != 0) {
        LogError(LogSite(kModule, LogForm::kBare),
                 "%s: %s(%d) - failed to lock file descriptor of %s, reason=%s", kModule, kWriter, __LINE__,
                 queue, strerror(errno));
        return -1;
    }
    int result = 0;
    if (AppendLine(fd, entry, length) != 0) {
        LogError(LogSite(kModule, LogForm::kBare), "%s: %s(%d) - failed to write (%s, %d) into %s, reason=%s",
                 kModule, kWriter, __LINE__, entry, static_cast<int>(length), queue, strerror(errno));
        result = -1;
    }
    flock(fd, LOCK_UN);
    return result;
}

bool IsOneLine(const char* entry) {
    return strnlen(entry, kPathSize) < kPathSize && strchr(entry, '\n') == nullptr;
}

/// What one request has come to.
struct Request {
    bool is_queued = false;
    int pid = 0;  // of the daemon asked last
};

void QueueThumbnails(const char* path, bool is_directory, Request* request) {
    const bool is_photo = !is_directory && BlKOLIIndexIsPhotoOnWebFile(path) != 0;
    if (!is_directory && !is_photo) return;

    const std::unique_ptr<char, decltype(&free)> copy(strdup(path), &free);
    if (copy == nullptr) {
        LogError(LogSite(kModule, LogForm::kTight), "failed to strdup %s, reason=%s\n", path,
                 strerror(errno));
        return;
    }
    const char* entry = is_photo ? dirname(copy.get()) : copy.get();
    request->pid = KLIBReadPidFile(paths::kThumbDaemonPid);
    if (request->pid <= 0) {
        LogError(LogSite(kModule, LogForm::kTight), "Thumb daemon is not running .....\n");
    } else if (WriteThumbQueue(entry, paths::kThumbQueue) == 0) {
        request->is_queued = true;
    }
}

void QueueFlv(const char* path, bool is_directory, Request* request) {
    if (!is_directory && BlKOLIIndexIsVideoOnWebFile(path) == 0) return;
    request->pid = KLIBReadPidFile(paths::kFlvDaemonPid);
    if (request->pid <= 0) {
        LogError(LogSite(kModule, LogForm::kTight), "FLV daemon is not running .....\n");
    } else if (WriteThumbQueue(path, paths::kFlvQueue) == 0) {
        request->is_queued = true;
    }
}

}  // namespace

int WriteThumbQueue(const char* entry, const char* queue) {
    if (entry == nullptr || queue == nullptr || !IsOneLine(entry)) return -1;
    const QueueOpening opening = OpenQueueWithRetries(entry, queue);
    if (opening.is_queued) return 0;
    if (opening.fd < 0) return -1;
    const int result = AppendLocked(opening.fd, entry, queue);
    close(opening.fd);
    return result;
}

void ConversionRequest(const KnownPath& path, int flags) {
    const bool is_directory = path.IsDirectory();
    if (!is_directory && path.kind() != PathKind::kFile) return;

    Request request;
    if ((flags & kConvertThumbnail) != 0 && support_photo == 1)
        QueueThumbnails(path.text(), is_directory, &request);
    if ((flags & kConvertFlv) != 0 && support_photo == 1 && support_vidora == 1)
        QueueFlv(path.text(), is_directory, &request);
    if (request.is_queued && request.pid > 0) kill(request.pid, SIGUSR1);
}

void FlvConvert(const KnownPath& path) {
    if (path.kind() == PathKind::kFile || path.kind() == PathKind::kAbsent)
        KLIBExec(paths::kFlvConverter, "-f", path.text(), nullptr, nullptr);
}

}  // namespace koli
