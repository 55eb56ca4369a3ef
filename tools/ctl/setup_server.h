// setup --database: prepares a server for this machine's library.
#pragma once

#include <string>

#include "tools/ctl/context.h"

namespace koli::ctl {

struct ServerSetupOptions {
    std::string conninfo = {};  // an administrator's; "postgresql:" may stand in front
    std::string library = {};   // '' = this machine's
    bool apply = false;         // false: only show
    bool configure = false;     // with apply: write this machine's settings, too
};

/// Returns kExitDone, kExitDifferences when something is missing and was only shown, kExitDatabase when the
/// server cannot keep a library, or kExitFiles.
int SetupServer(const Context& context, const ServerSetupOptions& options);

}  // namespace koli::ctl
