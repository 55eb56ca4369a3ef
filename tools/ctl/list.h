// list and problems: rows of the media store.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/context.h"

namespace koli::ctl {

struct ListOptions {
    std::vector<std::string> kinds = {};  // music, video, photo, playlist; none = all
    std::vector<std::string> where = {};  // COLUMN=VALUE, or COLUMN~TEXT for a part of it; all must hold
    std::string below = {};               // a path; "" = everywhere
    int64_t limit = 0;                    // rows of each kind, 0 = all
};

/// The files.  Returns an ExitCode.
int List(const Context& context, const ListOptions& options);

/// The files whose metadata could not be parsed, and why.  Returns kExitDifferences when there are any.
int Problems(const Context& context, const std::string& below);

}  // namespace koli::ctl
