#include "daemon/pid_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>

#include "platform/kolisdk.h"

namespace koli {
namespace {

constexpr mode_t kPidFileMode = 0644;

/// How often the file may be found gone between opening and locking it: each time a start has just made it
/// the pid file of a daemon that has ended already.
constexpr int kLockAttempts = 16;

std::string NewFile(const char* pidfile) {
    return std::string(pidfile) + ".new";
}

/// Opens a file above the standard streams, which becoming a daemon replaces.
int OpenAboveStreams(const char* path, int flags) {
    const int fd = open(path, O_RDWR | O_CLOEXEC | O_NONBLOCK | flags, kPidFileMode);
    if (fd < 0 || fd > STDERR_FILENO) return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(fd);
    return moved;
}

/// A lock on a file that has lost its name keeps nobody out.
bool IsStillNamed(const char* path, int fd) {
    struct stat named;
    struct stat opened;
    return stat(path, &named) == 0 && fstat(fd, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

/// Where a file system knows no locks the pid test alone has to do.
bool IsLockHeld(int fd) {
    return flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

/// Makes the file that one start at a time holds.
int LockNewFile(const char* path) {
    for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
        const int fd = OpenAboveStreams(path, O_CREAT | O_NOFOLLOW);
        if (fd < 0) return kPidFileUnusable;
        const bool is_held = IsLockHeld(fd);
        if (!is_held && IsStillNamed(path, fd)) return fd;
        close(fd);
        if (is_held) return kPidFileHeld;
    }
    return kPidFileHeld;
}

/// Looks at a pid file that is there: 0 when it may be replaced, else a PidFileLockFailure.
int LookAtOldFile(const char* pidfile) {
    const int fd = OpenAboveStreams(pidfile, 0);
    if (fd < 0) return errno == ENOENT ? 0 : kPidFileUnusable;
    const bool is_held = IsLockHeld(fd);
    close(fd);
    return is_held ? kPidFileHeld : 0;
}

}  // namespace

int IsDaemonAlive(const char* pidfile) {
    if (pidfile == nullptr) return 0;
    const int pid = KLIBReadPidFile(pidfile);
    if (pid < 1) return 0;
    return kill(pid, 0) == 0 ? 1 : 0;
}

int PidFileLock(const char* pidfile) {
    const std::string new_file = NewFile(pidfile);
    const int fd = LockNewFile(new_file.c_str());
    if (fd < 0) return fd;
    // Only now: a start that was faster has either given its file the name, or is kept out.
    const int old = LookAtOldFile(pidfile);
    if (old == 0) return fd;
    const int error = errno;
    unlink(new_file.c_str());
    close(fd);
    errno = error;
    return old;
}

bool PidFileWrite(int fd) {
    if (fchmod(fd, kPidFileMode) != 0 || ftruncate(fd, 0) != 0) return false;
    return dprintf(fd, "%d", getpid()) >= 0;
}

bool PidFilePublish(const char* pidfile) {
    return rename(NewFile(pidfile).c_str(), pidfile) == 0;
}

}  // namespace koli
