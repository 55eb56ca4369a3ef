// The pid file, and the lock on it that keeps a second daemon out.
#pragma once

namespace koli {

/// 1 when `pidfile` names a process that runs, else 0, also for null.
int IsDaemonAlive(const char* pidfile);

/// Results of PidFileLock other than a descriptor.
enum PidFileLockFailure : int {
    kPidFileUnusable = -1,  // it cannot be opened; errno tells why
    kPidFileHeld = -2       // another daemon holds it
};

/// Opens `pidfile`, creating it, and takes the lock that the daemon keeps for its whole life; what the file
/// holds stays as it is.  The lock survives fork() and ends with the last copy of the descriptor, so it needs
/// no cleaning up after a crash; a child that starts no other program closes its copy, or it would keep the
/// next daemon out.  Returns the descriptor (close-on-exec, none of the standard three), or a
/// PidFileLockFailure.
int PidFileLock(const char* pidfile);

/// Replaces what the locked file holds by this process's pid, decimal and without a newline, and makes it
/// readable for all.  Returns 0, or -1 with errno set.
int PidFileWrite(int fd);

}  // namespace koli
