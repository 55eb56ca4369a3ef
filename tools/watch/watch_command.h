// koliindexctl watch
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/context.h"

namespace koli::watch {

/// Watches the folders until SIGTERM or SIGINT.  Returns an ExitCode.
int Watch(const ctl::Context& context, const std::vector<std::string>& folders);

}  // namespace koli::watch
