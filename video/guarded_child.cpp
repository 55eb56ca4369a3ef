#include "video/guarded_child.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "base/file_reading.h"
#include "base/log.h"
#include "base/reading.h"
#include "platform/kolidb.h"
#include "video/child_signals.h"
#include "video/probe_messages.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metamedia";

/// Everything that the child does.  It comes from the daemon's middle, so it leaves with _exit: a normal exit
/// would flush the daemon's open streams and move the offsets that both share.  An exception (memory at its
/// limit) ends it here instead of unwinding into the daemon's code.
[[noreturn]] void RunChild(const std::function<int(pid_t)>& body, pid_t parent, const sigset_t& mask,
                           int* trouble) noexcept {
    if (signal(SIGTERM, SIG_DFL) == SIG_ERR) {
        KOLI_LOG("%s:%d signal(SIGTERM, SIG_DFL) failed.");
        _exit(1);
    }
    signal(SIGUSR1, SIG_IGN);  // a request is the daemon's business; one sent to the whole group is no harm
    signal(SIGCHLD, SIG_DFL);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    const int result = body(parent);
    *trouble = PassingFileTrouble();
    _exit(result);
}

}  // namespace

int GuardedChildRun(const std::function<int(pid_t parent)>& body, const WatchSettings& settings) {
    const ProbeMessages messages;
    const Shared<int> trouble;  // errno, 0 = none
    if (!messages.valid() || !trouble.valid()) {
        ReadingFailedUnlogged(errno);
        KOLI_LOG("%s:%d mmap() failed.");
        return -1;
    }
    KOLIDBFlush();
    const pid_t parent = getpid();
    const ChildEndScope child_end;
    pid_t pid = 0;
    {
        const AllSignalsBlocked until_the_child_has_its_own;
        pid = settings.fork_child != nullptr ? settings.fork_child() : fork();
        if (pid == 0) {
            messages.Collect();
            RunChild(body, parent, child_end.outer_mask(), trouble.get());
        }
    }
    if (pid < 0) {
        ReadingFailedUnlogged(errno);
        KOLI_LOG("%s:%d fork failed.");
        return -1;
    }
    const int result = ProbeChildWatchWith(pid, settings);
    messages.Relay();
    if (*trouble.get() != 0) ReadingFailed(*trouble.get());
    return result;
}

}  // namespace koli
