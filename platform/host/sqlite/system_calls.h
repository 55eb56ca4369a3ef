// The engine's system calls, as this process makes them.
#pragma once

namespace koli::host {

/// From now on the engine's shared memory is this process's alone, and its reads are watched.
void TakeOverSystemCalls();

/// errno of this thread's last read that failed since it was forgotten, 0 = none: the engine takes a disk
/// that does not answer for a damaged file.
int ReadError();
void ForgetReadError();

}  // namespace koli::host
