// The guarded probe: an untrusted media file is looked at in a short-lived child, watched by the daemon.
#pragma once

#include <sys/types.h>

#include "base/media_info.h"

namespace koli {

/// Probes the media file `path` in a child of its own and adds what it found to `record`, which keeps what
/// the child had written even when the child had to be stopped.  Returns 0 when the probe succeeded; 1 when
/// the child ended by itself but could not read the file, or no child may run unguarded (logged); -1 when no
/// child could be started, or it was killed or crashed.  Takes at most about 90 seconds; no child is left
/// behind.
int MiscMediaInfoGet(const char* path, MediaInfo* record);

/// Waits for the child `pid`, looking at it every 100 ms, and at once when it ends; kills it when it takes
/// more than 901 polls or too much memory.  Returns its exit status, or -1 when it did not exit by itself.
/// The signal mask and the action of SIGCHLD are as before when it returns.
int ProbeChildWatch(pid_t pid);

/// 1 when the resident memory of `pid` is above half of the machine's memory, else 0, also when unknown.
int ProbeChildMemoryExceeded(pid_t pid);

/// Ends `pid` with SIGKILL and waits for its end.  Returns what waitpid() returned.
pid_t ProbeChildKill(pid_t pid);

}  // namespace koli
