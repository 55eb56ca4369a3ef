// The life of the daemon from its start to the main loop.
#pragma once

namespace koli {

/// Refuses a second instance, becomes a daemon, locks and writes the pid file; the process that was started
/// ends when the file is there.  SIGUSR1 and SIGTERM are held back from here until SignalsInstall; SIGHUP,
/// SIGPIPE, SIGALRM and SIGUSR2 are ignored.  Returns 0, or -1 when the caller must exit; leaves with status
/// 0 itself when the pid file cannot be created, which the error stream tells.
int DaemonStart();

/// Handler of SIGTERM: removes the pid file and ends the process with status 0, wherever it stands.  The
/// batch at work stays and is finished at the next start.
void Die(int signo);

/// Installs SetDirty and Die and lets their signals in.  False (logged) when that fails.
bool SignalsInstall();

/// Counts the file in the middle of which an earlier daemon was brought down (base/reading_mark.h).
void ReadingTakeOver();

/// Runs the queue for a batch that an earlier daemon left, then for a queue that waits.
void LeftoversRun();

/// Everything from DaemonStart to the main loop.  Leaves through exit() only.
[[noreturn]] void DaemonRun();

}  // namespace koli
