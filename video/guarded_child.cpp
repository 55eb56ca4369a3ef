#include "video/guarded_child.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "base/log.h"
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
                           FileReading& reading, Failure* failure) noexcept {
    if (signal(SIGTERM, SIG_DFL) == SIG_ERR) {
        KOLI_LOG_COLON("signal(SIGTERM, SIG_DFL) failed.");
        _exit(1);
    }
    signal(SIGUSR1, SIG_IGN);  // a request is the daemon's business; one sent to the whole group is no harm
    signal(SIGCHLD, SIG_DFL);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    reading.ForgetFailure();
    const int result = body(parent);
    *failure = reading.failure();
    _exit(result);
}

}  // namespace

int GuardedChildRun(const std::function<int(pid_t parent)>& body, FileReading& reading,
                    const WatchSettings& settings) {
    const ProbeMessages messages;
    const Shared<Failure> failure;
    if (!messages.valid() || !failure.valid()) {
        reading.ReadFailedUnlogged(errno);
        KOLI_LOG_COLON("mmap() failed.");
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
            RunChild(body, parent, child_end.outer_mask(), reading, failure.get());
        }
    }
    if (pid < 0) {
        reading.ReadFailedUnlogged(errno);
        KOLI_LOG_COLON("fork failed.");
        return -1;
    }
    const int result = ProbeChildWatch(pid, reading, settings);
    messages.Relay();
    failure.get()->reason[sizeof failure.get()->reason - 1] = '\0';  // a child may have left anything there
    reading.TakeOver(*failure.get());
    return result;
}

}  // namespace koli
