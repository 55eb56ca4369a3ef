// Landlock (Linux 5.13 and later): a process gives up access to files by itself.  The C library has no calls
// for it.
#pragma once

namespace koli {

/// The version of the kernel's Landlock interface, 1 or more; 0 when the kernel has none, or it is off.
int LandlockAbi();

/// Gives up, for this process and for good, every access to files but reading `path`, and TCP, abstract
/// sockets and signals to others where `abi` knows them.  A missing file leaves nothing to read.  Needs
/// PR_SET_NO_NEW_PRIVS.  Returns 0, or -1 with errno set.
int LandlockAllowOnly(int abi, const char* path);

}  // namespace koli
