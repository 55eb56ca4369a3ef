// Requests, and what is to be so when they have been executed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/ctl/output.h"

namespace koli::ctl {

struct Submission {
    std::string lines;
    int64_t requests = 0;
    std::vector<std::string> present = {};  // every file at and below these is stored as it is
    std::vector<std::string> absent = {};   // nothing at and below these is stored
    bool media_store = true;                // which of the two count
    bool photo_library = true;
    std::vector<Section> told = {};  // what JSON tells beside the result
};

}  // namespace koli::ctl
