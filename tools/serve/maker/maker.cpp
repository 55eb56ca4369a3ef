#include "tools/serve/maker/maker.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <vector>

#include "base/log.h"
#include "guard/child_signals.h"
#include "guard/guard_steps.h"
#include "guard/landlock.h"
#include "guard/probe_guard.h"
#include "tools/serve/maker/decoded_picture.h"
#include "tools/serve/maker/picture_child.h"

namespace koli::serve {
namespace {

using Clock = std::chrono::steady_clock;

constexpr rlim_t kMaxMemory = 512U << 20;  // bytes of a child's own
constexpr int kNiceLevel = 10;  // as the daemon: a page of pictures takes all processors for a while
constexpr int kLookMs = 500;    // between two looks at the clock, while a child runs
constexpr std::chrono::seconds kChildLimit{20};  // by the clock: a disk may not answer, a machine be busy

/// Address space of this process, bytes.
rlim_t AddressSpace() {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

class Maker {
  public:
    Maker(int socket, const PictureSlots& slots) : socket_(socket), slots_(slots), children_(slots.count()) {
        const rlim_t share = MachineMemory() / 2 / slots.count();
        limits_.address_space = AddressSpace() + std::min(kMaxMemory, share);
    }

    /// Until the server is gone.
    void Run() {
        is_alone_ = !AnswerSend(socket_, {PictureAnswer::kReady, PictureAnswer::kMade});
        while (!is_alone_) {
            pollfd order{socket_, POLLIN, 0};
            const timespec look{kLookMs / 1000, kLookMs % 1000 * 1000000L};
            const bool has_order = ppoll(&order, 1, HasChildren() ? &look : nullptr, &ends_.sleep_mask()) > 0;
            Reap();
            if (has_order) Take();
        }
    }

  private:
    struct Child {
        pid_t pid = 0;
        Clock::time_point begin;
        bool is_late = false;
    };

    bool HasChildren() const {
        return std::any_of(children_.begin(), children_.end(),
                           [](const Child& child) { return child.pid > 0; });
    }

    void Take() {
        PictureOrder order{};
        UniqueFd file;
        if (!OrderReceive(socket_, &order, &file)) {
            is_alone_ = errno != EINTR;
            return;
        }
        if (order.slot >= slots_.count() || children_[order.slot].pid > 0) return;
        children_[order.slot] = {Begin(order, file.get()), Clock::now(), false};
        if (children_[order.slot].pid < 0) Answer(order.slot, PictureAnswer::kNotNow);
    }

    /// The child gets no slot but its own.
    pid_t Begin(const PictureOrder& order, int file) {
        slots_[order.slot].size = 0;
        if (file < 0 || !slots_.ShareWithChildren(order.slot, true)) return -1;
        const pid_t maker = getpid();
        const pid_t pid = fork();
        if (pid == 0) _exit(PictureMakeInChild(slots_[order.slot], file, order.side, limits_, maker));
        slots_.ShareWithChildren(order.slot, false);
        return pid;
    }

    void Reap() {
        for (uint32_t slot = 0; slot < children_.size(); ++slot) {
            Child& child = children_[slot];
            if (child.pid <= 0) continue;
            int status = 0;
            if (waitpid(child.pid, &status, WNOHANG) == 0) {
                // One that a disk holds does not end before the disk answers, and keeps its slot until then.
                child.is_late = Clock::now() - child.begin > kChildLimit;
                if (child.is_late) kill(child.pid, SIGKILL);
                continue;
            }
            Answer(slot, child.is_late ? PictureAnswer::kNotNow : ResultOf(status));
        }
    }

    /// A child that crashed or used up what it may would do so again.
    static PictureAnswer::Result ResultOf(int status) {
        if (!WIFEXITED(status)) return PictureAnswer::kNoPicture;
        const int code = WEXITSTATUS(status);
        return code == PictureAnswer::kMade || code == PictureAnswer::kNotNow
                   ? static_cast<PictureAnswer::Result>(code)
                   : PictureAnswer::kNoPicture;
    }

    void Answer(uint32_t slot, PictureAnswer::Result result) {
        children_[slot].pid = 0;
        if (!AnswerSend(socket_, {slot, result})) is_alone_ = true;
    }

    const int socket_;
    const PictureSlots& slots_;
    const ChildEndScope ends_;
    PictureLimits limits_{};
    std::vector<Child> children_;  // of each slot
    bool is_alone_ = false;
};

/// Gives up what neither this process nor its children need.
bool GuardItself() {
    const int abi = KernelGuardsGet().landlock_abi;
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && KeepCapabilities(0) &&
           (abi <= 0 || LandlockAllowNothing(abi));
}

}  // namespace

int MakerRun(int socket, int slots_file) noexcept {
    for (const int signal_number :
         {SIGINT, SIGTERM, SIGHUP})  // the server's business, which ends this process
        signal(signal_number, SIG_IGN);
    setpriority(PRIO_PROCESS, 0, kNiceLevel);
    log_sink = [](const char*) {};  // nothing here may connect to the system log
    const ProbeGuardStatus guards = ProbeGuardStatusGet();
    if (!guards.system_call_filter && !guards.file_rules) return MakerExit::kUnguarded;
    const PictureSlots slots{UniqueFd(slots_file)};
    if (!slots.valid() || !ProbeGuardPrepare()) return MakerExit::kFailed;
    CloseInherited(socket);
    PictureDecodeWarmUp();
    Maker maker(socket, slots);
    if (!slots.HideFromChildren() || !GuardItself()) return MakerExit::kFailed;
    maker.Run();
    return MakerExit::kDone;
}

}  // namespace koli::serve
