#include "video/child_signals.h"

namespace koli {
namespace {

void Ignore(int) {}

}  // namespace

ChildEndScope::ChildEndScope() {
    sigset_t child_end;
    sigemptyset(&child_end);
    sigaddset(&child_end, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child_end, &outer_mask_);
    sleep_mask_ = outer_mask_;
    sigdelset(&sleep_mask_, SIGCHLD);

    // A signal without a handler does not end a sleep; an inherited SIG_IGN would even reap the child.
    struct sigaction action {};
    action.sa_handler = Ignore;
    action.sa_flags = SA_NOCLDSTOP | SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGCHLD, &action, &outer_action_);
}

ChildEndScope::~ChildEndScope() {
    sigprocmask(SIG_SETMASK, &outer_mask_, nullptr);  // the last end of a child goes to the empty handler
    sigaction(SIGCHLD, &outer_action_, nullptr);
}

AllSignalsBlocked::AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &outer_mask_);
}

AllSignalsBlocked::~AllSignalsBlocked() {
    sigprocmask(SIG_SETMASK, &outer_mask_, nullptr);
}

}  // namespace koli
