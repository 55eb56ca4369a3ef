// show: everything that is stored for one file or folder.
#pragma once

#include <string>

#include "tools/ctl/context.h"

namespace koli::ctl {

/// Returns kExitDone, kExitDifferences when nothing is stored, or another ExitCode.
int Show(const Context& context, const std::string& path);

}  // namespace koli::ctl
