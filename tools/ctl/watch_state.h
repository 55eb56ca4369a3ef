// What a watcher says of itself while it runs, for other watchers and for whoever looks.
//
// Each has a file of its own in a folder below /run, "PID", written whole:
//   pid=PID
//   share=STATE SECONDS PATH   for each folder; STATE is "in-step" (since SECONDS of the epoch), "pending" or
//                              "away" (in step until then; 0 = never yet)
// The watcher holds a lock on its file, which ends with it: one that nobody holds was left by a watcher that
// was killed, and counts for nothing.
#pragma once

#include <sys/types.h>

#include <ctime>
#include <string>
#include <vector>

#include "base/unique_fd.h"

namespace koli::ctl {

struct ShareState {
    enum Kind { kPending, kInStep, kAway };
    std::string path;
    Kind kind = kPending;
    time_t in_step = 0;  // when that began, or ended; 0 = it never was
};

/// One that runs.
struct RunningWatcher {
    pid_t pid = 0;
    std::vector<ShareState> shares;
};

/// The watchers that run and may be looked at.
std::vector<RunningWatcher> RunningWatchers(const std::string& folder);

/// The entry of this process; it goes at its end.
class WatchState {
  public:
    explicit WatchState(std::string folder) : folder_(std::move(folder)) {}
    ~WatchState();
    WatchState(const WatchState&) = delete;
    WatchState& operator=(const WatchState&) = delete;

    /// Enters the shares, unless a watcher runs that has one of them, or a folder in or around one: then its
    /// pid is the result.  Else 0, or -1 with errno set when no entry could be made.
    pid_t Enter(const std::vector<std::string>& shares);

    /// Replaces what is said, once entered.
    void Tell(const std::vector<ShareState>& shares);

  private:
    bool Write(const std::vector<ShareState>& shares);

    const std::string folder_;
    std::string file_;  // '' = not entered
    UniqueFd held_;
};

}  // namespace koli::ctl
