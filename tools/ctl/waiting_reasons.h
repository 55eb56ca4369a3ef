// What the daemon is about to do for a path, and what keeps it from that.
#pragma once

#include <cstdint>
#include <string>

#include "tools/ctl/context.h"
#include "tools/ctl/path_reasons.h"

namespace koli::ctl {

/// The first line of a file of requests that is about a path.
struct WaitingRequest {
    int64_t line = 0;   // from 1; 0 = there is none
    int64_t lines = 0;  // of the whole file
    int error = 0;      // errno when the file cannot be read; that it is not there is none
};

/// A request is about what it names and what lies below; for a folder (`path`), also one for what lies in it.
WaitingRequest RequestFind(const std::string& file, const std::string& path);

/// Whether the daemon runs, what waits for it, and what it makes of this file.
Reasons WaitingReasons(const Places& places, const std::string& path);

}  // namespace koli::ctl
