#include "tools/ctl/request_writer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/kolisdk.h"
#include "tools/ctl/request_line.h"

namespace koli::ctl {
namespace {

constexpr mode_t kQueueMode = 0640;
constexpr int kOpenAttempts = 100;             // each time the daemon has just taken the queue over
constexpr int kLockAttempts = 1000;            // ten seconds in all
constexpr timespec kLockPause{0, 10'000'000};  // 10 ms
constexpr const char kDaemonName[] = "koliindexd";

/// Whatever `error` says stays for the caller.
UniqueFd OpenQueue(const char* queue) {
    const mode_t mask = umask(0);
    UniqueFd file(open(queue, O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kQueueMode));
    const int error = errno;
    umask(mask);
    errno = error;
    return file;
}

bool Lock(int fd) {
    for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK && errno != EINTR) return false;
        nanosleep(&kLockPause, nullptr);
    }
    errno = EBUSY;
    return false;
}

/// The daemon renames the queue when it takes it over: a lock may be one on the batch of a run that is over.
bool IsStillNamed(const char* queue, int fd) {
    struct stat named;
    struct stat opened;
    return lstat(queue, &named) == 0 && fstat(fd, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

/// Opens and locks the file that is the queue now.
UniqueFd OpenLocked(const char* queue) {
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        UniqueFd file = OpenQueue(queue);
        if (!file.valid() || !Lock(file.get())) return {};
        if (IsStillNamed(queue, file.get())) return file;
    }
    errno = EAGAIN;
    return {};
}

/// What ends a line that somebody did not finish, so that the first of ours does not become its tail; "" when
/// there is none.  A rename that was cut may name another folder than was meant: with a third path the daemon
/// leaves alone what stands there.
std::string EndOfOpenLine(int fd, off_t size) {
    char tail[kRequestLineMax];
    const ssize_t length = pread(fd, tail, sizeof tail, std::max<off_t>(size - off_t{sizeof tail}, 0));
    const std::string_view text(tail, static_cast<size_t>(std::max<ssize_t>(length, 0)));
    if (text.empty() || text.back() == '\n') return "";
    return text.substr(text.rfind('\n') + 1).starts_with("N:") ? ":?\n" : "\n";
}

/// One write; of what did not fit nothing is left behind, unless a writer without a lock has come in between.
/// Returns the reason of a failure, or "".
std::string AppendWhole(int fd, off_t size, const std::string& text) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written == static_cast<ssize_t>(text.size())) return "";
    std::string error = strerror(written < 0 ? errno : ENOSPC);
    struct stat now;
    if (written > 0 && (fstat(fd, &now) != 0 || now.st_size != size + written || ftruncate(fd, size) != 0))
        error += "; a part of the requests is left in the queue";
    return error;
}

bool IsDaemon(int pid) {
    char file[64];
    char name[sizeof kDaemonName + 1] = "";
    snprintf(file, sizeof file, "/proc/%d/comm", pid);
    FILE* comm = fopen(file, "re");
    if (comm == nullptr) return false;
    const size_t length = fread(name, 1, sizeof name - 1, comm);
    fclose(comm);
    return std::string_view(name, length) == std::string(kDaemonName) + '\n';
}

}  // namespace

QueuedBatch QueueAppend(const std::string& queue, const std::string& lines, int64_t limit) {
    UniqueFd file = OpenLocked(queue.c_str());
    if (!file.valid()) return {{}, strerror(errno), errno};
    struct stat status;
    if (fstat(file.get(), &status) != 0) return {{}, strerror(errno), errno};
    if (!S_ISREG(status.st_mode)) return {{}, "it is no regular file"};
    if (status.st_size > limit - static_cast<int64_t>(lines.size()))
        return {{}, "too many requests wait there already"};
    const std::string end = EndOfOpenLine(file.get(), status.st_size);
    std::string error = AppendWhole(file.get(), status.st_size, end.empty() ? lines : end + lines);
    flock(file.get(), LOCK_UN);
    if (!error.empty()) return {{}, std::move(error)};
    const int64_t begin = status.st_size + static_cast<int64_t>(end.size());
    return {.file = std::move(file),
            .error = "",
            .was_empty = status.st_size == 0,
            .begin = begin,
            .end = begin + static_cast<int64_t>(lines.size())};
}

int DaemonPid(const std::string& pid_file) {
    const int pid = KLIBReadPidFile(pid_file.c_str());
    return pid > 0 && IsDaemon(pid) ? pid : 0;
}

Wake DaemonWake(const std::string& pid_file) {
    // The signal ends a process that does not expect it.  Through a descriptor of the process it cannot reach
    // another one that has got the pid meanwhile.
    const int pid = KLIBReadPidFile(pid_file.c_str());
    if (pid <= 0) return Wake::kNotRunning;
    const UniqueFd process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    const bool has_call = process.valid() || errno != ENOSYS;
    if ((has_call && !process.valid()) || !IsDaemon(pid)) return Wake::kNotRunning;
    const auto sent =
        has_call ? syscall(SYS_pidfd_send_signal, process.get(), SIGUSR1, nullptr, 0) : kill(pid, SIGUSR1);
    if (sent == 0) return Wake::kWoken;
    return errno == EPERM ? Wake::kNotPermitted : Wake::kNotRunning;
}

}  // namespace koli::ctl
