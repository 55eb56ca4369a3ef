// The working parts of the guarded probe, with what the daemon fixes left open: for metamedia.cpp, its tests
// and its benchmark.
#pragma once

#include <sys/types.h>
#include <csignal>
#include <cstdint>
#include <ctime>

#include "base/media_info.h"
#include "video/metamedia.h"
#include "video/probe_guard.h"

namespace koli {

/// What runs in the child: 0 is success.  `file` is the open file `path`, -1 when it could not be opened, or
/// is no regular file.
using ProbeFunction = int (*)(int file, const char* path, MediaInfo* record);

/// Waits for `interval` with the signal mask `mask`; any signal with a handler ends the wait.
void ProbePollSleep(const timespec& interval, const sigset_t& mask);

/// How a child is watched.  The defaults are the daemon's.
struct WatchSettings {
    timespec interval{0, 100000000};  // between two polls
    uint32_t poll_limit = 900;        // the child is killed when the counter of polls is above it
    const char* proc = "/proc";       // where the memory sizes are read
    void (*sleep)(const timespec& interval, const sigset_t& mask) = ProbePollSleep;
    pid_t (*fork_child)() = nullptr;  // null: fork()
    pid_t (*kill_child)(pid_t) = ProbeChildKill;
    ProbeGuardStatus (*guards)() = ProbeGuardStatusGet;
};

/// MiscMediaInfoGet, ProbeChildWatch and ProbeChildMemoryExceeded with these settings.
int GuardedProbeRun(const char* path, MediaInfo* record, ProbeFunction probe, const WatchSettings& settings);
int ProbeChildWatchWith(pid_t pid, const WatchSettings& settings);
int ProbeChildMemoryExceededIn(pid_t pid, const char* proc);

}  // namespace koli
