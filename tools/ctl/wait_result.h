// What is stored after requests have been executed, against what is there.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/ctl/context.h"
#include "tools/ctl/submission.h"

namespace koli::ctl {

struct WaitResult {
    int64_t files = 0;                    // found at and below the paths
    std::vector<std::string> missing;     // not stored, or not as they are; at most kNamesMax
    std::vector<std::string> unparsable;  // stored without metadata; at most kNamesMax
    int64_t missing_count = 0, unparsable_count = 0;
    int64_t still_stored = 0;  // rows that should be gone
    std::string error;         // of a database; "" = none
    static constexpr size_t kNamesMax = 1000;
};

/// The number of files that are to be present.
int64_t FilesFound(const Submission& submission);

WaitResult WaitResultOf(const Context& context, const Submission& submission);

}  // namespace koli::ctl
