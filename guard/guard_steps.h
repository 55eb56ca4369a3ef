// The steps by which a child gives up what it does not need, and what the kernel offers for it.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <cstdint>

namespace koli {

/// The mechanisms that a kernel may lack.
struct KernelGuards {
    bool has_filters;       // of system calls: seccomp
    unsigned filter_flags;  // for seccomp(2)
    int landlock_abi;       // 0 = not there
};

/// Asks the kernel at the first call.
const KernelGuards& KernelGuardsGet();

/// Bytes of memory in this machine.
rlim_t MachineMemory();

// Each step is false, with errno set, when it has failed.

/// Has the stack of the first thread hold no code any more, nor that of children of this process. Libraries
/// that say nothing of it (x264 for ARM) have it made executable when they are loaded.
bool RefuseCodeOnStack();

/// Has `signal` sent to this process when `parent` ends.  Fails when that has ended already.
bool SignalAtParentsEnd(pid_t parent, int signal);

/// Closes everything but the standard three descriptors and `file` (-1: none).
void CloseInherited(int file);

/// Lowers a limit, hard and soft.
bool LimitResource(__rlimit_resource resource, rlim_t value);

/// Processor time, descriptors, address space (bytes; not under the sanitizers), and no writing to files.
bool LimitWork(rlim_t address_space);

/// Gives up every capability but those of the set `kept` (bits 0 to 31) that the process has.
bool KeepCapabilities(uint32_t kept);

/// Logs that `step` failed, with errno.  Returns false.
bool GuardFailed(const char* step);

}  // namespace koli
