// setup: prepares a plain machine, or takes that back.
#pragma once

#include <string>

#include "tools/ctl/context.h"
#include "tools/ctl/setup_plan.h"

namespace koli::ctl {

struct SetupOptions {
    bool apply = false;  // false: only show
    bool undo = false;   // take back what an earlier apply did
    SetupRoot root;
};

/// Returns an ExitCode.
int Setup(const Context& context, const std::string& volume, const SetupOptions& options);

}  // namespace koli::ctl
