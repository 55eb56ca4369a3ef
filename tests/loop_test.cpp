// The debounce rule, the overflow rule and the vacuum schedule, without sleeping.
#include "daemon/loop.h"

#include "daemon/queue.h"
#include "tests/fixture.h"

static bool signal_during_run = false;

/// Stands in for the queue run.
void koli::ProcessIndexQueue() {
    test::fake.calls.emplace_back("ProcessIndexQueue");
    if (signal_during_run) SetDirty(SIGUSR1);
    signal_during_run = false;
}

namespace koli::test {

const Lines kRun{"ProcessIndexQueue"};
const Lines kVacuumRun{"MediaDBVacuum", "PhotoDBVacuum", "ProcessIndexQueue"};

struct Loop : Fixture {
    Loop() {
        dirty = 0;
        dirty_seen = 0;
        signal_count = 0;
        last_vacuum = time(nullptr);
    }
    static Lines Pass() {
        fake.calls.clear();
        LoopPass();
        return fake.calls;
    }
};

TEST_F(Loop, OneSignalGivesOneRunOnTheSecondPass) {
    signal(SIGUSR1, SetDirty);
    raise(SIGUSR1);
    EXPECT_EQ(Pass(), Lines{});
    signal_during_run = true;
    EXPECT_EQ(Pass(), kRun);
    EXPECT_EQ(signal_count, 1);  // the signal of the run itself brings one more
    EXPECT_EQ(Pass(), Lines{});
    EXPECT_EQ(Pass(), kRun);
}

TEST_F(Loop, ASignalInEveryTickPutsTheRunOffUntilTheOverflow) {
    last_vacuum = 0;
    for (int i = 0; i < 9999; ++i) {
        SetDirty(SIGUSR1);
        ASSERT_EQ(Pass(), Lines{});
    }
    SetDirty(SIGUSR1);
    signal_during_run = true;
    EXPECT_EQ(Pass(), kVacuumRun);
    EXPECT_EQ(Pass(), kRun);  // the same pass has already looked at the signal of the run; no second vacuum
    EXPECT_EQ(Pass(), Lines{});
}

TEST_F(Loop, VacuumsBeforeARunMoreThanTwelveHoursAfterTheLast) {
    const LoopFlags quiet{.dirty_seen = 1, .dirty = 0, .last_vacuum = 1000000};
    for (const auto& [now, action] : {std::pair(1043200, LoopAction::kRun),
                                      {1043201, LoopAction::kVacuumAndRun},
                                      {0, LoopAction::kRun}})  // the clock was set back
        EXPECT_EQ(LoopDecide(quiet, now), action);

    last_vacuum = 0;
    EXPECT_EQ(Pass(), Lines{});  // never while idle
    SetDirty(SIGUSR1);
    EXPECT_EQ(Pass(), Lines{});
    fake.failing = {"MediaDBVacuum", "PhotoDBVacuum"};
    EXPECT_EQ(Pass(), kVacuumRun);
    EXPECT_EQ(fake.log, (Lines{"koliindexd (#) vaccuum mediaserver failed.",
                               "koliindexd (#) vaccuum photodb failed."}));
}

}  // namespace koli::test
