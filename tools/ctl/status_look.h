// One look at the daemon, its queue, its batch and the watchers: what every form of status is made of.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/ctl/batch_state.h"
#include "tools/ctl/output.h"
#include "tools/ctl/watch_state.h"

namespace koli::ctl {

struct StatusLook {
    int pid = 0;  // 0 = the daemon does not run
    time_t since = 0;
    int64_t waiting = -1, in_batch = -1;  // requests; -1 = this user may not know
    BatchState batch;
    bool is_reported = false;  // the daemon tells of its work:
    WorkReport report = {};
    std::vector<RunningWatcher> watchers;

    bool IsAtWork() const { return is_reported && report.batch_begun != 0; }
    /// Files in a second since the batch began, to one decimal; 0 when it is too soon to tell.
    double FilesPerSecond() const;
};

StatusLook StatusLookNow(const Places& places);

/// The fields of a look, but for the watchers.
Record RecordOf(const StatusLook& look);

/// The watched folders: for programs a section, for people a field for each.
Section WatchedOf(const StatusLook& look);
Record WatchedTexts(const StatusLook& look);

}  // namespace koli::ctl
