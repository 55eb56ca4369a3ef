// Whether media may be probed on this machine.
#pragma once

#include "guard/probe_guard.h"

namespace koli {

/// Whether media may be probed with these mechanisms: with one of them always, with neither unless the
/// setting "unguardedprobe" of this machine is "no", in any case.  errno is 0; else the setting cannot be
/// read for this reason, which passes, and media is not to be probed now.
bool ProbeGuardSuffices(const ProbeGuardStatus& status);

/// At the daemon's start: writes one line below error level for a kernel that lacks a mechanism, else
/// nothing.
void ProbeGuardReport();

}  // namespace koli
