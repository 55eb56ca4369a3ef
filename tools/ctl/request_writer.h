// Appends requests to the daemon's queue so that none is lost, and wakes the daemon.
#pragma once

#include <cstdint>
#include <string>

#include "base/unique_fd.h"
#include "tools/ctl/context.h"

namespace koli::ctl {

/// The queue file that took the lines.  It loses its last name when the daemon has executed them.
struct QueuedBatch {
    UniqueFd file;         // not valid: nothing was written
    std::string error;     // then the reason
    int error_number = 0;  // and its errno, 0 = it has none
    bool was_empty = false;
    int64_t begin = 0, end = 0;  // where in the file the lines are
};

/// Appends whole lines, all or none, under the lock that the daemon takes before it removes a batch: what is
/// written is in the file that the daemon reads or will read.  The queue is made when it is missing; it names
/// files, which is not for everybody.  It gets no larger than `limit` bytes.
QueuedBatch QueueAppend(const std::string& queue, const std::string& lines, int64_t limit = INT64_MAX);

enum class Wake { kWoken, kNotRunning, kNotPermitted };

/// Sends the daemon its signal.
Wake DaemonWake(const std::string& pid_file);

/// The daemon's pid; 0 when it does not run, or the pid file names something else.
int DaemonPid(const std::string& pid_file);

}  // namespace koli::ctl
