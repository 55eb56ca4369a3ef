#include "video/guarded_child.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "base/log.h"
#include "guard/child_signals.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metamedia";

/// Everything that the child does.  It comes from the daemon's middle, so it leaves with _exit: a normal exit
/// would flush the daemon's open streams and move the offsets that both share.  An exception (memory at its
/// limit) ends it here instead of unwinding into the daemon's code.
[[noreturn]] void RunChild(const char* path, const ChildBody& body, pid_t parent, Failure* failure) noexcept {
    if (signal(SIGTERM, SIG_DFL) == SIG_ERR) {
        KOLI_LOG_COLON("signal(SIGTERM, SIG_DFL) failed.");
        _exit(1);
    }
    signal(SIGUSR1, SIG_IGN);  // a request is the daemon's business; one sent to the whole group is no harm
    signal(SIGCHLD, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    FileReading reading(path, FileReading::kInChild);
    const int result = body(parent, reading);
    *failure = reading.failure();
    _exit(result);
}

int NoMemoryToShare(FileReading& reading) {
    reading.ReadFailedUnlogged(errno);
    KOLI_LOG_COLON("mmap() failed.");
    return -1;
}

}  // namespace

bool GuardedChild::Start(const char* path, const ChildBody& body, pid_t (*fork_child)()) {
    const pid_t parent = getpid();
    const AllSignalsBlocked until_the_child_has_its_own;
    const pid_t pid = fork_child != nullptr ? fork_child() : fork();
    if (pid == 0) {
        area_.get()->messages.Collect();
        RunChild(path, body, parent, &area_.get()->failure);
    }
    if (pid < 0) return false;
    pid_ = pid;
    if (area_.KeepFromOthers()) return true;
    const int error = errno;
    Stop();
    errno = error;
    return false;
}

bool GuardedChild::HasEnded() {
    if (pid_ > 0 && waitpid(pid_, &status_, WNOHANG) > 0) pid_ = 0;
    return pid_ <= 0;
}

bool GuardedChild::Watch(FileReading& reading, const WatchSettings& settings) {
    const pid_t pid = pid_;
    pid_ = 0;
    return ProbeChildWait(pid, &status_, reading, settings);
}

const Failure& GuardedChild::failure() const {
    Failure& failure = area_.get()->failure;
    failure.reason[sizeof failure.reason - 1] = '\0';  // a child may have left anything there
    return failure;
}

void GuardedChild::Tell(FileReading& reading) const {
    area_.get()->messages.Relay();
    reading.TakeOver(failure());
}

void GuardedChild::Stop() {
    if (pid_ > 0) ProbeChildKill(pid_);
    pid_ = 0;
}

int GuardedChildRun(const ChildBody& body, FileReading& reading, const WatchSettings& settings) {
    GuardedChild child;
    if (!child.valid()) return NoMemoryToShare(reading);
    return GuardedChildRun(child, body, reading, settings);
}

int GuardedChildRun(GuardedChild& child, const ChildBody& body, FileReading& reading,
                    const WatchSettings& settings) {
    const ChildEndScope child_end;
    if (!child.Start(reading.path(), body, settings.fork_child)) {
        reading.ReadFailedUnlogged(errno);
        KOLI_LOG_COLON("fork failed.");
        return -1;
    }
    const pid_t pid = child.pid();
    const int result = child.Watch(reading, settings) ? ProbeExitResult(pid, child.status(), reading) : -1;
    child.Tell(reading);
    return result;
}

}  // namespace koli
