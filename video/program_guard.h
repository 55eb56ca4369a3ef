// Takes from a child that runs another program, and from that program, what a reader of one file does not
// need.
#pragma once

#include <sys/types.h>

namespace koli {

/// In the daemon, before each child: builds what all of them share, once.  False (logged) when it could
/// not be built, for want of memory or descriptors: no child may run, and the next call tries again.
bool ProgramGuardPrepare();

/// In the child of `parent`, before it starts the program, which inherits it: a process group of its own,
/// which ends with the parent, 120 s of processor time, half of the machine's memory as address space, no
/// descriptor but the standard three, no network, no writing to files, no new privileges, and no capability
/// but that to read any file.  What the kernel lacks is left out.  False when a step has failed
/// (logged): the child must end.
bool ProgramGuardEnter(pid_t parent);

/// Ends the child `pid` with its whole group, and waits for it.  Returns what waitpid() returned.
pid_t ProgramChildKill(pid_t pid);

}  // namespace koli
