// The time zone of the running daemon, whose local times the databases hold.
#pragma once

#include <string>

namespace koli::ctl {

/// Takes over the daemon's TZ, so that a user's own zone does not make every file look changed.  Nothing
/// happens when no daemon runs, or one that may not be looked into.
void DaemonZoneTake(const std::string& pid_file);

}  // namespace koli::ctl
