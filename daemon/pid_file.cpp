#include "daemon/pid_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "platform/kolisdk.h"

namespace koli {
namespace {

constexpr mode_t kPidFileMode = 0644;

/// How often the file may be found replaced between opening and locking it: each time a daemon has just
/// ended.
constexpr int kLockAttempts = 16;

/// Opens the file above the standard streams, which becoming a daemon replaces.
int OpenPidFile(const char* pidfile) {
    const int fd = open(pidfile, O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, kPidFileMode);
    if (fd < 0 || fd > STDERR_FILENO) return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(fd);
    return moved;
}

/// A daemon that ends removes its file: a lock on a file that has lost its name keeps nobody out.
bool IsStillNamed(const char* pidfile, int fd) {
    struct stat named;
    struct stat opened;
    return stat(pidfile, &named) == 0 && fstat(fd, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

}  // namespace

int IsDaemonAlive(const char* pidfile) {
    if (pidfile == nullptr) return 0;
    const int pid = KLIBReadPidFile(pidfile);
    if (pid < 1) return 0;
    return kill(pid, 0) == 0 ? 1 : 0;
}

int PidFileLock(const char* pidfile) {
    for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
        const int fd = OpenPidFile(pidfile);
        if (fd < 0) return kPidFileUnusable;
        // Where a file system knows no locks the pid test alone has to do.
        const bool is_held = flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        if (!is_held && IsStillNamed(pidfile, fd)) return fd;
        close(fd);
        if (is_held) return kPidFileHeld;
    }
    return kPidFileHeld;
}

int PidFileWrite(int fd) {
    if (fchmod(fd, kPidFileMode) != 0 || ftruncate(fd, 0) != 0) return -1;
    return dprintf(fd, "%d", getpid()) < 0 ? -1 : 0;
}

}  // namespace koli
