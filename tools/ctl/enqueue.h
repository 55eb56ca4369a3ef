// Request lines from standard input.
#pragma once

#include "tools/ctl/context.h"
#include "tools/ctl/submit.h"

namespace koli::ctl {

/// Queues the request lines that standard input holds, all or none.  When that is a socket it serves it
/// (queue_service.h).  Returns the exit code.
int Enqueue(const Context& context, const WaitOptions& options);

}  // namespace koli::ctl
