// copy-database: takes a library from one place to another.
#pragma once

#include <string>

#include "tools/ctl/context.h"

namespace koli::ctl {

struct CopyOptions {
    std::string from, to;      // sqlite:DIRECTORY or postgresql:CONNINFO
    std::string library = {};  // on the server; '' = this machine's
};

/// Returns kExitDone, kExitDifferences when some rows could not be copied, kExitUsage for a place that makes
/// no sense, or kExitDatabase: what has been copied stays then, and the same command goes on with it.
int CopyDatabase(const Context& context, const CopyOptions& options);

}  // namespace koli::ctl
