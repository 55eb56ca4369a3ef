// The guarded probe: an untrusted media file is looked at in a short-lived child, watched by the daemon.
#pragma once

#include <sys/types.h>
#include <csignal>
#include <cstdint>
#include <ctime>

#include "base/file_reading.h"
#include "base/media_info.h"
#include "guard/probe_guard.h"

namespace koli {

/// Waits for `interval` with the signal mask `mask`; any signal with a handler ends the wait.  `pid` is the
/// child whose end is waited for.
void ProbePollSleep(pid_t pid, const timespec& interval, const sigset_t& mask);

/// Ends `pid` with SIGKILL and waits for its end.  Returns what waitpid() returned.
pid_t ProbeChildKill(pid_t pid);

/// How a child is watched.  The defaults are the daemon's; others are for its tests.
struct WatchSettings {
    timespec interval{0, 100000000};  // between two polls
    uint32_t poll_limit = 900;        // the child is killed when the counter of polls is above it
    uint32_t polls = 0;               // that count already: the child runs longer than it is watched
    const char* proc = "/proc";       // where the memory sizes are read
    void (*sleep)(pid_t pid, const timespec& interval, const sigset_t& mask) = ProbePollSleep;
    pid_t (*fork_child)() = nullptr;  // null: fork()
    pid_t (*kill_child)(pid_t) = ProbeChildKill;
    ProbeGuardStatus (*guards)() = ProbeGuardStatusGet;
};

/// Probes the media file `path` in a child of its own and adds what it found to `record`, which keeps what
/// the child had written even when the child had to be stopped.  Returns 0 when the probe succeeded; 1 when
/// the child ended by itself but could not read the file, or no child may run unguarded (logged); -1 when no
/// child could be started, or it was killed or crashed; `reading` then knows why.  Takes at most about 90
/// seconds; no child is left behind but those that run ahead (video/probe_ahead.h).
int MiscMediaInfoGet(const char* path, MediaInfo* record, FileReading& reading);

/// What runs in the child: 0 is success.  `file` is the open file `path`, -1 when it could not be opened, or
/// is no regular file.
using ProbeFunction = int (*)(int file, const char* path, MediaInfo* record, FileReading& reading);

/// MiscMediaInfoGet with any probe.
int GuardedProbeRun(const char* path, MediaInfo* record, FileReading& reading, ProbeFunction probe,
                    const WatchSettings& settings = {});

/// Waits for the child `pid`, looking at it at each poll, every 100 ms, and at once when it ends; kills it
/// when it takes more than 901 polls or too much memory.  Returns its exit status, or -1 when it did not exit
/// by itself; `reading` then knows why.  The signal mask and the action of SIGCHLD are as before when it
/// returns.
int ProbeChildWatch(pid_t pid, FileReading& reading, const WatchSettings& settings = {});

/// The same without judging its end, which `status` gets as waitpid tells it.  False when it had to be killed
/// (logged).
bool ProbeChildWait(pid_t pid, int* status, FileReading& reading, const WatchSettings& settings = {});

/// What that status means: the exit status, or -1 (logged).
int ProbeExitResult(pid_t pid, int status, FileReading& reading);

/// The resident memory of `pid` in kB, 0 when unknown.
int32_t ProbeChildResidentGet(pid_t pid, const char* proc = "/proc");

/// 1 when the resident memory of `pid` is above half of the machine's memory, else 0, also when unknown.
/// `proc` is where that is read.
int ProbeChildMemoryExceeded(pid_t pid, const char* proc = "/proc");

}  // namespace koli
