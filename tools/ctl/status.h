// status: the daemon, its queue and its databases at a glance.
#pragma once

#include "tools/ctl/context.h"

namespace koli::ctl {

/// Returns kExitDone, kExitNoDaemon when the daemon does not run, or kExitDatabase.
int Status(const Context& context);

}  // namespace koli::ctl
