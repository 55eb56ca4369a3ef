// A child that the daemon watches: the part that probes and external programs have in common.
#pragma once

#include <sys/mman.h>
#include <sys/types.h>

#include <functional>

#include "base/media_info.h"
#include "video/metamedia.h"
#include "video/probe_messages.h"

namespace koli {

/// A T in memory that is shared with the children forked while it lives; zeroed.
template <typename T>
class Shared {
  public:
    Shared() : area_(mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {}
    ~Shared() { munmap(area_, sizeof(T)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    bool valid() const { return area_ != MAP_FAILED; }
    T* get() const { return static_cast<T*>(area_); }
    /// From here on no further child gets it.  False with errno set.
    bool KeepFromOthers() const { return madvise(area_, sizeof(T), MADV_DONTFORK) == 0; }

  private:
    void* area_;
};

/// What runs in a child, which is told the daemon's pid: its result is the exit status.
using ChildBody = std::function<int(pid_t parent, FileReading& reading)>;

/// A child at work for one file.  Its log lines, and what goes wrong with its reading, are kept until the
/// daemon asks for them.
class GuardedChild {
  public:
    GuardedChild() = default;
    ~GuardedChild() { Stop(); }
    GuardedChild(const GuardedChild&) = delete;
    GuardedChild& operator=(const GuardedChild&) = delete;

    /// False, with errno set by the constructor, when there is no memory to share.
    bool valid() const { return area_.valid(); }
    /// What the child may leave there: set it before the start.
    MediaInfo& record() const { return area_.get()->record; }

    /// Starts `body` for the file `path`; null is fork().  Children that are started later do not get the
    /// memory of this one.  False with errno set.
    bool Start(const char* path, const ChildBody& body, pid_t (*fork_child)() = nullptr);

    /// 0 when it does not run.
    pid_t pid() const { return pid_; }
    /// Looks, without waiting, whether it runs no more.
    bool HasEnded();
    /// Waits for it as ProbeChildWait does.
    bool Watch(FileReading& reading, const WatchSettings& settings);
    /// As waitpid tells it, once it has ended.
    int status() const { return status_; }

    /// After its end: what went wrong there.
    const Failure& failure() const;
    /// After its end: logs its lines, and hands `reading` what went wrong.
    void Tell(FileReading& reading) const;
    /// Kills it where it runs.
    void Stop();

  private:
    struct Area {
        MediaInfo record;
        Failure failure;
        ProbeMessages messages;
    };
    const Shared<Area> area_;
    pid_t pid_ = 0;
    int status_ = 0;
};

/// Runs `body`, which is told the daemon's pid, in a child, whose exit status is its result; the child's log
/// lines, and what goes wrong there with its reading, are the daemon's.  Watches the child as
/// `settings` say.  Returns as ProbeChildWatch does, or -1 (logged) when no child could be started.
int GuardedChildRun(const ChildBody& body, FileReading& reading, const WatchSettings& settings);

/// The same with a child of the caller's, which is valid; its record stays there.
int GuardedChildRun(GuardedChild& child, const ChildBody& body, FileReading& reading,
                    const WatchSettings& settings);

}  // namespace koli
