// Takes from the child of a guarded probe everything but the one open file that it is to read.
#pragma once

#include <sys/types.h>

namespace koli {

/// The mechanisms that a kernel may lack.
struct ProbeGuardStatus {
    bool system_call_filter;  // seccomp
    bool file_rules;          // Landlock
};

/// In the daemon, before each child: asks the kernel what it offers and builds what all children share, once.
/// False (logged) when it could not be built, for want of memory or descriptors: no child may run, and the
/// next call tries again.
bool ProbeGuardPrepare();

/// What the children are guarded with beyond the limits that every kernel has.
ProbeGuardStatus ProbeGuardStatusGet();

/// Whether media may be probed with these mechanisms: with one of them always, with neither unless the
/// setting "unguardedprobe" of this machine is "no", in any case.  errno is 0; else the setting cannot be
/// read for this reason, which passes, and media is not to be probed now.
bool ProbeGuardSuffices(const ProbeGuardStatus& status);

/// At the daemon's start: writes one line below error level for a kernel that lacks a mechanism, else
/// nothing.
void ProbeGuardReport();

/// In the child of `parent`, before it reads from `file` (-1: from none): no descriptor but that and the
/// standard three, no other file, no writing, no network, no other program or process, no capability nor new
/// privileges, an end with its parent.  What the kernel lacks is left out.  False when a step has
/// failed (logged): the child must end.
bool ProbeGuardEnter(int file, pid_t parent);

}  // namespace koli
