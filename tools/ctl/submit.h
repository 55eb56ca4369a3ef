// Queues requests, wakes the daemon and, when told to, waits for the result.
#pragma once

#include "tools/ctl/context.h"
#include "tools/ctl/submission.h"

namespace koli::ctl {

struct WaitOptions {
    bool wait = false;
    bool strict = false;  // files whose metadata could not be parsed count as not stored
    int timeout = 0;      // seconds, 0 = none
};

/// Prints what has become of the requests and returns the exit code.
int Submit(const Context& context, const Submission& submission, const WaitOptions& options);

}  // namespace koli::ctl
