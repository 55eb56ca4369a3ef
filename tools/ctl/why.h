// why: what keeps a file or folder from being stored, or from being stored as it is.
#pragma once

#include <string>

#include "tools/ctl/context.h"

namespace koli::ctl {

/// Tells every reason, what has to be mended first before the others.  Returns kExitDone when the path is
/// stored and in step, else kExitDifferences, or another ExitCode.
int Why(const Context& context, const std::string& path);

}  // namespace koli::ctl
