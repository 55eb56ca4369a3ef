// When the queue is run: the idle loop, its debounce rule and the vacuum schedule.
//
// Requests come with a signal each.  A burst of signals is answered by one run, after a whole tick of ten
// seconds without a signal; every signal cuts the tick short, so the run starts about ten seconds after the
// last one.
#pragma once

#include <csignal>
#include <ctime>

namespace koli {

// Shared with the signal handler.  A signal may land between any two statements of the loop: the worst it
// does is to put a run off by one tick, or to cause one run more.
extern volatile sig_atomic_t dirty;         ///< 1: a signal came since the loop last looked
extern volatile sig_atomic_t dirty_seen;    ///< 1: the loop has to do with a burst (set by each signal too)
extern volatile sig_atomic_t signal_count;  ///< signals since the last run, stops at INT_MAX
extern time_t last_vacuum;                  ///< when the databases were last vacuumed; the loop's alone

/// Handler of SIGUSR1: notes that requests wait.
void SetDirty(int signo);

/// A look at the state above, taken in this order, which is SetDirty's: a signal in the middle of it gives
/// (0, 1), the beginning of a burst, and never (1, 0), a tick without one.
struct LoopFlags {
    int dirty_seen;
    int dirty;
    time_t last_vacuum;
};

/// What one pass of the loop has to do.
enum class LoopAction {
    kIdle,          // nothing has come
    kClearDirty,    // a burst is seen for the first time: give it one more tick
    kSetDirtySeen,  // a signal came between the two flags: count it as a burst
    kRun,           // a whole tick was quiet: run the queue
    kVacuumAndRun   // the same, and the last vacuum is more than 12 hours ago
};

/// The decision of one pass; depends on nothing but its arguments.
LoopAction LoopDecide(const LoopFlags& flags, time_t now);

/// One pass of the loop, without its sleep.  10000 signals without a quiet tick force a run, with a vacuum.
void LoopPass();

/// Passes forever, with up to ten seconds of sleep before each.
[[noreturn]] void MainLoop();

/// Vacuums both databases; failures are logged.
void VacuumDatabases();

}  // namespace koli
