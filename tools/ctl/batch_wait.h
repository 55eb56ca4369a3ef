// Waits until the daemon has executed queued requests.
#pragma once

#include <functional>
#include <string>

#include "tools/ctl/context.h"
#include "tools/ctl/request_writer.h"

namespace koli::ctl {

enum class BatchEnd { kExecuted, kNoDaemon, kTimeout };

struct WaitLimits {
    int timeout = 0;            // seconds, 0 = none
    int look_every_ms = 100;    // how often the batch is looked at
    int tell_every_ms = 100;    // how often `tell` is called
    int wake_after_ms = 30000;  // when the daemon is woken again, for a queue or a batch that it has kept
};

/// Waits until the file that took the requests has lost its last name.  `tell` hears whether the daemon has
/// begun, that is, has taken the queue over.  A daemon that does not run for two seconds has died.
BatchEnd BatchWait(const UniqueFd& file, const Places& places, const WaitLimits& limits,
                   const std::function<void(bool begun)>& tell);

}  // namespace koli::ctl
