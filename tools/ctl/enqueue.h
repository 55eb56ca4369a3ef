// Request lines from standard input.
#pragma once

#include "tools/ctl/context.h"
#include "tools/ctl/submit.h"

namespace koli::ctl {

/// Queues the request lines that standard input holds, all or none.  Returns the exit code.
int Enqueue(const Context& context, const WaitOptions& options);

/// Is the queue's service (queue_service.h) for one caller, who is at the other end of the socket `peer`, and
/// may name what lies in these shares.  The exit code is for the service's log: the caller gets the answer.
int QueueServe(const Places& places, const std::vector<std::string>& shares, int peer);

}  // namespace koli::ctl
