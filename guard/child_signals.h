// The signals of a process that waits for one child.
#pragma once

#include <csignal>

namespace koli {

/// While it lives, the end of a child is held back as a blocked SIGCHLD with an empty handler, so that a
/// sleep which opens the mask (ppoll) is ended by it and none is lost in between; a stopped child makes no
/// signal. SIGUSR1 is held back to the end, in the sleeps, too: requests that keep coming must not cut short
/// every sleep of a long wait.  Afterwards mask and action are as before.  Scopes may be nested.
class ChildEndScope {
  public:
    ChildEndScope();
    ~ChildEndScope();
    ChildEndScope(const ChildEndScope&) = delete;
    ChildEndScope& operator=(const ChildEndScope&) = delete;

    /// The mask of before, with SIGCHLD let through and SIGUSR1 held back.
    const sigset_t& sleep_mask() const { return sleep_mask_; }
    /// The mask of before.
    const sigset_t& outer_mask() const { return outer_mask_; }

  private:
    sigset_t outer_mask_;
    sigset_t sleep_mask_;
    struct sigaction outer_action_;
};

/// Holds every signal back while it lives: around a fork, so that no handler of the parent runs in the child
/// before it has put its own actions in place.
class AllSignalsBlocked {
  public:
    AllSignalsBlocked();
    ~AllSignalsBlocked();
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

  private:
    sigset_t outer_mask_;
};

}  // namespace koli
