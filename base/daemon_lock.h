// The lock that marks the one running daemon.
#pragma once

namespace koli {

/// The descriptor of the pid file, on which the daemon holds an exclusive flock() until it ends; -1 before
/// the start.
extern int daemon_lock_fd;

/// Gives this process's copy of the lock away.  A forked child that does not start another program calls it
/// first: the lock lasts as long as any copy of the descriptor, and a child that outlives a killed daemon
/// must not keep the next one from starting.
void DaemonLockClose();

}  // namespace koli
