// Landlock (Linux 5.13 and later): a process gives up access to files by itself.  The C library has no calls
// for it.
#pragma once

namespace koli {

/// The version of the kernel's Landlock interface, 1 or more; 0 when the kernel has none, or it is off.
int LandlockAbi();

/// Gives up, for this process and for good, every access to files that are not open yet, and TCP, abstract
/// sockets and signals to others where `abi` knows them.  Needs PR_SET_NO_NEW_PRIVS and, for a moment, one
/// descriptor.  False, with errno set, when that fails.
bool LandlockAllowNothing(int abi);

/// The same, but for reading, listing and running files, and for writing to /dev/null.
bool LandlockRefuseWriting(int abi);

}  // namespace koli
