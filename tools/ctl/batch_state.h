// What has become of the batch: executed at this moment, or kept because a database took no changes.
#pragma once

#include <ctime>
#include <string>

#include "base/work_report.h"
#include "tools/ctl/context.h"

namespace koli::ctl {

struct BatchState {
    enum Kind { kNone, kRunning, kKept, kLeftOver } kind = kNone;
    // Of one that is kept:
    std::string database = {};  // its file's name; several are separated by ", "
    std::string reason = {};
    time_t since = 0;
    time_t retry = 0;  // when the daemon tries again
};

/// One word, or two: "none", "running", "kept", "left over".
const char* BatchStateName(BatchState::Kind kind);

/// What the daemon with this pid (0 = none runs) has said about its batch.  What an earlier daemon has said
/// about it does not count.
BatchState BatchStateOf(const Places& places, int pid);

/// What the daemon with this pid tells of its work.  False when it tells nothing, or this user may not know.
bool WorkReportOf(const Places& places, int pid, WorkReport* report);

/// "2024-01-31 10:11:12", "" for 0.
std::string TimeText(time_t when);

/// When a file was changed last; 0 when there is none.
time_t ChangeTime(const std::string& file);

}  // namespace koli::ctl
