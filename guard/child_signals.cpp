#include "guard/child_signals.h"

namespace koli {
namespace {

void Ignore(int) {}

}  // namespace

ChildEndScope::ChildEndScope() {
    sigset_t held_back;
    sigemptyset(&held_back);
    sigaddset(&held_back, SIGCHLD);
    sigaddset(&held_back, SIGUSR1);
    sigprocmask(SIG_BLOCK, &held_back, &outer_mask_);
    sleep_mask_ = outer_mask_;
    sigaddset(&sleep_mask_, SIGUSR1);
    sigdelset(&sleep_mask_, SIGCHLD);

    // A signal without a handler does not end a sleep; an inherited SIG_IGN would even reap the child.
    struct sigaction action {};
    action.sa_handler = Ignore;
    action.sa_flags = SA_NOCLDSTOP | SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGCHLD, &action, &outer_action_);
}

ChildEndScope::~ChildEndScope() {
    sigprocmask(SIG_SETMASK, &outer_mask_, nullptr);  // a child's last end goes to the empty handler
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
