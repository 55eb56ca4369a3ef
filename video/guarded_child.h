// A child that the daemon watches: the part that probes and external programs have in common.
#pragma once

#include <sys/mman.h>
#include <sys/types.h>

#include <functional>

#include "video/metamedia.h"

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

  private:
    void* area_;
};

/// Runs `body`, which is told the daemon's pid, in a child, whose exit status is its result; the child's log
/// lines, and what goes wrong there with `reading`, are the daemon's.  Watches the child as
/// `settings` say.  Returns as ProbeChildWatch does, or -1 (logged) when no child could be started.
int GuardedChildRun(const std::function<int(pid_t parent)>& body, FileReading& reading,
                    const WatchSettings& settings);

}  // namespace koli
