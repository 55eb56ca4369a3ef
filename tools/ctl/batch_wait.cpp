#include "tools/ctl/batch_wait.h"

#include <sys/stat.h>

#include <ctime>

#include "tools/ctl/queue_service.h"

namespace koli::ctl {
namespace {

constexpr int64_t kRestartGraceMs = 2000;

int64_t NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void SleepMs(int ms) {
    const timespec pause{ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&pause, nullptr);
}

bool IsNamed(const std::string& path, const struct stat& file) {
    struct stat named;
    return lstat(path.c_str(), &named) == 0 && named.st_dev == file.st_dev && named.st_ino == file.st_ino;
}

/// Something that is due once in a while, each time after `growth` times as long.
class Interval {
  public:
    Interval(int every_ms, int64_t now, int growth = 1)
        : every_ms_(every_ms), growth_(growth), due_(now + every_ms) {}
    bool IsDue(int64_t now) {
        if (now < due_) return false;
        every_ms_ *= growth_;
        due_ = now + every_ms_;
        return true;
    }

  private:
    int64_t every_ms_;
    int growth_;
    int64_t due_;
};

}  // namespace

BatchEnd BatchWait(const UniqueFd& file, const Places& places, const WaitLimits& limits,
                   const std::function<void(bool begun)>& tell) {
    const int64_t start = NowMs();
    int64_t seen_alive = start;
    Interval telling(limits.tell_every_ms, start), waking(limits.wake_after_ms, start, 2);
    struct stat status;
    while (fstat(file.get(), &status) == 0 && status.st_nlink > 0) {
        const int64_t now = NowMs();
        if (DaemonPid(places.pid_file) > 0) seen_alive = now;
        if (now - seen_alive >= kRestartGraceMs) return BatchEnd::kNoDaemon;
        if (limits.timeout > 0 && now - start >= int64_t{limits.timeout} * 1000) return BatchEnd::kTimeout;

        const bool begun = !IsNamed(places.queue, status);
        if (telling.IsDue(now)) tell(begun);
        // A run that finds an older batch executes that one and leaves the queue to the next signal; one that
        // could not store everything leaves its batch to it.  Ever less often: the daemon begins only when no
        // signal has come for ten seconds, and many may wait.
        if (waking.IsDue(now)) WakeSubmit(places);
        SleepMs(limits.look_every_ms);
    }
    return BatchEnd::kExecuted;
}

}  // namespace koli::ctl
