// status: the daemon, its queue and its databases at a glance.
#pragma once

#include <string>

#include "platform/host/sql/database_engine.h"
#include "tools/ctl/context.h"

namespace koli::ctl {

/// What is wrong with a database (KOLIDatabase), in one line.
std::string DatabaseFaultText(int database, const host::DatabaseFault& fault);

/// Shows what can be read.  Returns kExitDone, kExitNoDaemon when the daemon does not run, or kExitDatabase
/// when something is wrong with a database.
int Status(const Context& context);

}  // namespace koli::ctl
