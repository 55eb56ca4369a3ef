// sync: queues exactly what differs between the folders and the databases.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/submit.h"

namespace koli::ctl {

struct SyncOptions {
    bool dry_run = false;  // print the differences, queue nothing
    // Where a missing or empty folder means that its files are gone.
    std::vector<std::string> allow_empty = {};
    WaitOptions wait = {};
};

/// Without paths: the three shares.  A folder that cannot be compared is told and left out; the others are
/// done, and kExitFiles is returned unless something worse comes.  Returns an ExitCode.
int Sync(const Context& context, const std::vector<std::string>& paths, const SyncOptions& options);

}  // namespace koli::ctl
