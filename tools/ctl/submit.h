// Queues requests, wakes the daemon and, when told to, waits for the result.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/context.h"

namespace koli::ctl {

struct WaitOptions {
    bool wait = false;
    bool strict = false;  // files whose metadata could not be parsed count as not stored
    int timeout = 0;      // seconds, 0 = none
};

/// Requests, and what is to be so when they have been executed.
struct Submission {
    std::string lines;
    int64_t requests = 0;
    std::vector<std::string> present = {};  // every file at and below these is stored as it is
    std::vector<std::string> absent = {};   // nothing at and below these is stored
    bool photo_library = true;              // the photo library counts too
};

/// Prints what has become of the requests and returns the exit code.
int Submit(const Context& context, const Submission& submission, const WaitOptions& options);

}  // namespace koli::ctl
