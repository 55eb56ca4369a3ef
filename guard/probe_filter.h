// The system calls that a child which decodes a file may make (probe_guard.h), and those that an external
// program may not.
#pragma once

#include <linux/filter.h>

#include <array>
#include <cstdint>

namespace koli {

/// A seccomp filter, ready to be installed; `length` 0 is no filter.
struct ProbeFilter {
    static constexpr uint16_t kMaxInstructions = 512;
    std::array<sock_filter, kMaxInstructions> instructions;
    uint16_t length;
    uint16_t own_pid;  // the instruction that compares with the pid of who is filtered; kNone = there is none
    static constexpr uint16_t kNone = kMaxInstructions;
};

/// Builds the filter: reading of open files, memory and time are allowed, a socket or another program ends
/// the process, everything else fails with EPERM; abort() does what it should.  Costs about a millisecond:
/// once per process that forks such children, not per child.  `architecture` is the kernel's name of a
/// machine (AUDIT_ARCH_...), 0 = this one: another's filter can be looked at, in that one's order of bytes,
/// but not entered.  False, with errno set and `length` 0, when it could not be built.
bool ProbeFilterBuild(ProbeFilter* filter, uint32_t architecture = 0);

/// Builds the filter of a program that reads a file: no network, no file's length, mode, owner, times or
/// attributes are changed, no device is spoken to, no other process is looked into, changed, shared memory
/// with or, but for its own group, signalled, and that group is not left; all else is allowed.  Returns as
/// ProbeFilterBuild does.
bool ProgramFilterBuild(ProbeFilter* filter, uint32_t architecture = 0);

/// Puts this process under the filter for good, with `flags` of seccomp(2).  Needs PR_SET_NO_NEW_PRIVS.
/// False, with errno set, when that fails.
bool ProbeFilterEnter(ProbeFilter* filter, unsigned flags);

}  // namespace koli
