// Takes from a child that decodes a file of anybody's everything but that open file.  The probe of media is
// such a child, and so is one that makes a small picture.
#pragma once

#include <sys/types.h>

namespace koli {

/// The mechanisms that a kernel may lack.
struct ProbeGuardStatus {
    bool system_call_filter;  // seccomp
    bool file_rules;          // Landlock
};

/// In the parent, before each child: asks the kernel what it offers and builds what all children share, once,
/// and sees to it that no code can stand on their stack.  False (logged) when it could not be done, for want
/// of memory or descriptors: no child may run, and the next call tries again.
bool ProbeGuardPrepare();

/// What the children are guarded with beyond the limits that every kernel has.
ProbeGuardStatus ProbeGuardStatusGet();

/// In the child of `parent`, before it reads from `file` (-1: from none): no descriptor but that and the
/// standard three, no other file, no writing, no network, no other program or process, no capability nor new
/// privileges, an end with its parent.  What the kernel lacks is left out.  False when a step has
/// failed (logged): the child must end.
bool ProbeGuardEnter(int file, pid_t parent);

}  // namespace koli
