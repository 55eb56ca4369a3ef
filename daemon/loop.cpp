#include "daemon/loop.h"

#include <unistd.h>

#include <algorithm>
#include <climits>

#include "base/log.h"
#include "daemon/kept_batch.h"
#include "daemon/queue.h"
#include "platform/kolidb.h"

namespace koli {

volatile sig_atomic_t dirty = 0;
volatile sig_atomic_t dirty_seen = 0;
volatile sig_atomic_t signal_count = 0;
time_t last_vacuum = 0;

namespace {

constexpr const char kModule[] = "koliindexd";
constexpr unsigned kTickSeconds = 10;
constexpr int kMaxSignals = 9999;  // more than these force a run
constexpr double kVacuumHours = 12.0;

void VacuumNow() {
    VacuumDatabases();
    last_vacuum = time(nullptr);
}

void RunQueue() {
    dirty_seen = 0;
    dirty = 0;
    ProcessIndexQueue();
}

void ForceRunAfterOverflow() {
    signal_count = 0;
    VacuumNow();
    RunQueue();
}

void RunAfterQuietTick(bool with_vacuum) {
    signal_count = 0;
    if (with_vacuum) VacuumNow();
    RunQueue();
}

/// A batch is tried again when its time has come, whatever signals come meanwhile.
void RetryKeptBatch() {
    if (IsBatchKept() && BatchRetrySeconds() == 0) ProcessIndexQueue();
}

/// A burst has its whole tick; otherwise the loop wakes up when a batch is to be tried again.
unsigned SleepSeconds() {
    if (!IsBatchKept() || dirty_seen != dirty) return kTickSeconds;
    return std::clamp(static_cast<unsigned>(BatchRetrySeconds()), 1U, kTickSeconds);
}

}  // namespace

void SetDirty(int) {
    dirty_seen = 1;
    dirty = 1;
    if (signal_count < INT_MAX) signal_count = signal_count + 1;
}

LoopAction LoopDecide(const LoopFlags& flags, time_t now) {
    if (flags.dirty_seen == flags.dirty)
        return flags.dirty == 1 ? LoopAction::kClearDirty : LoopAction::kIdle;
    if (flags.dirty_seen == 0 && flags.dirty == 1) return LoopAction::kSetDirtySeen;
    const double hours = difftime(now, flags.last_vacuum) / 3600.0;
    return hours > kVacuumHours ? LoopAction::kVacuumAndRun : LoopAction::kRun;
}

void LoopPass() {
    if (signal_count > kMaxSignals) ForceRunAfterOverflow();

    switch (
        LoopDecide({.dirty_seen = dirty_seen, .dirty = dirty, .last_vacuum = last_vacuum}, time(nullptr))) {
        case LoopAction::kIdle:
            RetryKeptBatch();
            return;
        case LoopAction::kClearDirty:
            dirty = 0;
            RetryKeptBatch();
            return;
        case LoopAction::kSetDirtySeen:
            dirty_seen = 1;
            return;
        case LoopAction::kRun:
            RunAfterQuietTick(false);
            return;
        case LoopAction::kVacuumAndRun:
            RunAfterQuietTick(true);
            return;
    }
}

void MainLoop() {
    for (;;) {
        sleep(SleepSeconds());
        LoopPass();
    }
}

void VacuumDatabases() {
    if (MediaDBVacuum() < 0) KOLI_LOG("vaccuum mediaserver failed.");
    if (PhotoDBVacuum() < 0) KOLI_LOG("vaccuum photodb failed.");
}

}  // namespace koli
