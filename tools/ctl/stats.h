// stats: what the library holds, in numbers.
#pragma once

#include <string>

#include "tools/ctl/context.h"

namespace koli::ctl {

/// Counts everything, or what lies at and below a path.  Returns an ExitCode; kExitDifferences when nothing
/// at all is stored at `below`.
int Stats(const Context& context, const std::string& below);

}  // namespace koli::ctl
