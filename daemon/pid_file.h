// The pid file, and the lock on it that keeps a second daemon out.
//
// Whoever reads the file finds a pid in it: it is written under another name and gets its own by a rename,
// and its lock goes with it.  That other name is for one start at a time, which holds the lock of the file
// there.
#pragma once

namespace koli {

/// 1 when `pidfile` names a process that runs, else 0, also for null.
int IsDaemonAlive(const char* pidfile);

/// Results of PidFileLock other than a descriptor.
enum PidFileLockFailure : int {
    kPidFileUnusable = -1,  // it cannot be made; errno tells why
    kPidFileHeld = -2       // another daemon holds it, or is about to
};

/// Makes and locks the file that is to be `pidfile`; what stands there stays as it is.  The lock, which the
/// daemon keeps for its whole life, survives fork() and ends with the last copy of the descriptor, so it
/// needs no cleaning up after a crash; a child that starts no other program closes its copy, or it would keep
/// the next daemon out.  Returns the descriptor (close-on-exec, none of the standard three), or a
/// PidFileLockFailure.
int PidFileLock(const char* pidfile);

/// Writes this process's pid, decimal and without a newline, into a file that PidFileLock has made; readable
/// for all.  False, with errno set, when that fails.
bool PidFileWrite(int fd);

/// Gives that file its name, in the place of what has it.  False, with errno set, when that fails.
bool PidFilePublish(const char* pidfile);

}  // namespace koli
