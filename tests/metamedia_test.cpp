// The guarded probe: the watch over the child.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "base/log.h"
#include "guard/child_signals.h"
#include "guard/probe_guard.h"
#include "tests/fixture.h"
#include "tests/media_bytes.h"
#include "video/guarded_child.h"
#include "video/metamedia.h"
#include "video/probe_ahead.h"
#include "video/program_guard.h"

namespace koli::test {

struct Probe : Fixture {
    static void CountSleep(pid_t, const timespec&, const sigset_t&) { ++sleeps_; }
    ~Probe() override {
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // no child is left
        EXPECT_EQ(errno, ECHILD);
    }
    WatchSettings settings_;
    static inline int sleeps_;
};

template <typename Body>
pid_t StartChild(Body body) {
    const pid_t pid = fork();
    if (pid == 0) {
        body();
        _exit(99);
    }
    return pid;
}

/// False for a zombie, too, as whoever inherits an orphan may be slow to reap it.
bool IsRunning(pid_t pid) {
    const std::string text = ReadFile("/proc/" + std::to_string(pid) + "/status");
    return !text.empty() && text.find("State:\tZ") == std::string::npos;
}

std::string Process(pid_t pid, const std::string& text) {
    return "metamedia:# Process " + std::to_string(pid) + text;
}

int Succeed(int, const char*, MediaInfo*, FileReading&) {
    return 0;
}

int HalfWayProbe(int, const char*, MediaInfo* record, FileReading&) {
    memset(static_cast<void*>(record), 'x', sizeof *record);  // as one that was taken over
    strcpy(record->title, "half way");
    record->duration = 7;
    for (;;)
        sched_yield();
}

int FailingProbe(int, const char* path, MediaInfo* record, FileReading&) {
    record->track = 7;
    LogError(LogSite("probe"), "seen [%s]", path);
    return 3;
}

/// The first test: the filter is built once in a process.
TEST_F(Probe, DoesNotRunWithoutTheFilterOfTheKernelAndTriesAgain) {
    if (!ProbeGuardStatusGet().system_call_filter) GTEST_SKIP() << "the kernel has none";
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    MediaInfo record{};
    Reading reading;
    const auto run = [&] { return GuardedProbeRun("/x", &record, reading, Succeed); };
    setrlimit(RLIMIT_NOFILE, &none);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(run(), 1);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(run(), 0);
    const std::string reason = "metamedia (#) Cannot guard the probe: building the filter failed, errno=24.";
    EXPECT_EQ(fake.log, (Lines{reason, reason}));
    EXPECT_STREQ(reading.file.failure().reason, "the probe cannot be guarded: Too many open files");
}

TEST_F(Probe, RunsUnguardedUnlessTheSettingForbidsIt) {
    const auto run = [&](FileReading& reading) {
        MediaInfo record{};
        return GuardedProbeRun("/x", &record, reading, Succeed, settings_);
    };
    std::string& setting = Setting("unguardedprobe");
    settings_.guards = [] { return ProbeGuardStatus{false, false}; };
    for (const auto& [value, result] : {std::pair{"", 0}, {"yes", 0}, {"No", 1}}) {
        setting = value;
        EXPECT_EQ(run(Reading()), result) << value;
    }
    EXPECT_EQ(fake.log, Lines{"metamedia (#) Not probed, as nothing guards the probe on this kernel. [/x]"});
    for (const auto& [error, result] : {std::pair{EACCES, 0}, {EMFILE, 1}}) {
        fake.unreadable = error;
        Reading reading;
        EXPECT_EQ(run(reading), result);
        EXPECT_EQ(reading.file.IsWhole(), result == 0);  // not for good
    }
    settings_.guards = [] { return ProbeGuardStatus{false, true}; };
    EXPECT_EQ(run(Reading()), 0);
}

TEST_F(Probe, TellsHowTheChildEndedAndKillsOnThe902ndPoll) {
    for (const int status : {0, 1, 255})
        EXPECT_EQ(ProbeChildWatch(StartChild([=] { _exit(status); }), Reading()), status);
    const pid_t crashed = StartChild([] { raise(SIGKILL); });
    EXPECT_EQ(ProbeChildWatch(crashed, Reading()), -1);
    settings_.sleep = CountSleep;
    const pid_t running = StartChild([] { pause(); }), reaped_elsewhere = StartChild([] { _exit(0); });
    waitpid(reaped_elsewhere, nullptr, 0);
    sleeps_ = 0;
    for (const pid_t pid : {running, reaped_elsewhere}) {
        Reading reading;
        EXPECT_EQ(ProbeChildWatch(pid, reading, settings_), -1);
        EXPECT_STREQ(reading.file.failure().reason, "reading it takes too long");
    }
    EXPECT_EQ(sleeps_, 2 * 902);
    const std::string too_long = " exceeded max loop count: 901, sec: 0, nsec: 100000000.";
    EXPECT_EQ(fake.log, (Lines{Process(crashed, " killed by signal 9"), Process(running, too_long),
                               Process(reaped_elsewhere, too_long)}));
}

int requests, others;
TEST_F(Probe, AnEndedChildAndSignalsButRequestsCutTheSleepAndEverythingIsAsBefore) {
    settings_.interval = {30, 0};
    signal(SIGCHLD, SIG_IGN);  // as a careless parent leaves it
    alarm(20);                 // less than the shortest wait
    MediaInfo record{};
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(GuardedProbeRun("/x", &record, Reading(), Succeed, settings_), 0);
    alarm(0);
    settings_.poll_limit = 0;  // the second poll kills
    signal(SIGUSR1, [](int) { ++requests; });
    signal(SIGUSR2, [](int) { ++others; });
    const pid_t parent = getpid();
    pid_t pid = 0;
    {
        const ChildEndScope as_from_before_the_fork;
        pid = StartChild([=] {
            for (int sent = 0;; usleep(5000))
                kill(parent, ++sent % 8 == 0 ? SIGUSR2 : SIGUSR1);
        });
        EXPECT_EQ(ProbeChildWatch(pid, Reading(), settings_), -1);
        EXPECT_GE(others, 2);
        EXPECT_EQ(requests, 0);
    }
    EXPECT_EQ(requests, 1);  // all at once
    EXPECT_EQ(fake.log, Lines{Process(pid, " exceeded max loop count: 1, sec: 30, nsec: 0.")});
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGCHLD) + sigismember(&mask, SIGUSR1), 0);
    EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_IGN);
    signal(SIGUSR1, SIG_DFL);
    signal(SIGUSR2, SIG_DFL);
}

TEST_F(Probe, IsJudgedByTheTwoFilesOfTheMoment) {
    const pid_t pid = StartChild([] { pause(); });
    const auto exceeded = [&] { return ProbeChildMemoryExceeded(pid, dir().c_str()); };
    EXPECT_EQ(exceeded(), 0);
    const char *const none = "MemTotal: none\n", *const memory = "MemFree: 9 kB\nMemTotal:    1001 kB\n";
    for (const auto& [meminfo, status, result] : {std::tuple{none, "VmRSS:\t     501 kB\n", 0},
                                                  {memory, "Name: VmRSS:9999\n", 0},
                                                  {memory, "VmRSS:\t     500 kB\n", 0},
                                                  {memory, "Name: x\nVmRSS:\t     501 kB\n", 1}}) {
        Write("meminfo", meminfo);
        Write(std::to_string(pid) + "/status", status);
        EXPECT_EQ(exceeded(), result) << status;
    }
    settings_.proc = dir().c_str();
    settings_.sleep = CountSleep;
    EXPECT_EQ(ProbeChildWatch(pid, Reading(), settings_), -1);
    EXPECT_EQ(fake.log,
              (Lines{"metamedia:# Cannot open /proc/meminfo", "metamedia:# Cannot get MemTotal value.",
                     Process(pid, " exceeded max memory usage.")}));
}

pid_t child;
std::string child_status;  // as /proc tells it

TEST_F(Probe, KeepsWhatAStoppedOrFailedChildHadWritten) {
    settings_.poll_limit = 2;
    settings_.fork_child = [] { return child = fork(); };
    settings_.sleep = [](pid_t pid, const timespec& interval, const sigset_t& mask) {
        ProbePollSleep(pid, interval, mask);
        child_status = ReadFile("/proc/" + std::to_string(child) + "/status");
    };
    MediaInfo record{}, expected{};
    strcpy(expected.path, strcpy(record.path, "/a/b.avi"));
    EXPECT_EQ(GuardedProbeRun(record.path, &record, Reading(), HalfWayProbe, settings_), -1);
    const std::string text = "|" + std::string(254, 'x');
    EXPECT_EQ(Names(record), "half way" + text + text + text + "||2021161080|2021161080|0");
    EXPECT_EQ(record.duration, 7);
    // Nothing else, whatever its place in the record.
    for (const auto field : {&MediaInfo::title, &MediaInfo::album, &MediaInfo::artist, &MediaInfo::genre})
        memset(record.*field, 0, kTextSize);
    record.year = record.track = 0;
    memset(&record.duration, 0, offsetof(MediaInfo, file_size) - offsetof(MediaInfo, duration));
    EXPECT_EQ(memcmp(&record, &expected, sizeof record), 0);

    for (const char* line : {"CapInh:\t0000000000000000", "CapPrm:\t0000000000000000",
                             "CapEff:\t0000000000000000", "NoNewPrivs:\t1"})
        EXPECT_NE(child_status.find(line), std::string::npos) << line;

    fake.log.clear();
    Reading reading;
    EXPECT_EQ(GuardedProbeRun("/a/b.avi", &record, reading, FailingProbe), 1);
    EXPECT_STREQ(reading.file.failure().reason, "the file cannot be read: No such file or directory");
    EXPECT_EQ(record.track, 7);
    settings_.fork_child = [] { return pid_t{-1}; };
    EXPECT_EQ(GuardedProbeRun("/a/b.avi", &record, reading, FailingProbe, settings_), -1);
    EXPECT_EQ(fake.log, (Lines{"probe (#) seen [/a/b.avi]",
                               "metamedia (#) Failed to get Misc Media Info from [/a/b.avi].",
                               "metamedia:# fork failed."}));
}

pid_t* started;  // by the program; -1 = it could not be guarded

TEST_F(Probe, AProgramGoesWithAllThatItHasStarted) {
    const Shared<pid_t> area;
    started = area.get();
    settings_.kill_child = ProgramChildKill;
    settings_.sleep = [](pid_t, const timespec&, const sigset_t&) {
        do
            usleep(1000);
        while (*started == 0);
    };
    ASSERT_TRUE(ProgramGuardPrepare());
    const auto body = [](pid_t parent, FileReading&) {
        const pid_t pid = ProgramGuardEnter(parent) ? fork() : -1;
        if (pid != 0) *started = pid;
        for (;;)
            pause();
        return 0;
    };
    for (const bool at_its_time : {true, false}) {  // or with the daemon
        settings_.poll_limit = at_its_time ? 2 : UINT32_MAX;
        *started = 0;
        const pid_t daemon = StartChild([&] { GuardedChildRun(body, Reading(), settings_); });
        settings_.sleep(0, {}, {});
        ASSERT_GT(*started, 0);
        if (!at_its_time) kill(daemon, SIGKILL);
        waitpid(daemon, nullptr, 0);
        for (int i = 0; i < 1000 && IsRunning(*started); ++i)
            usleep(10000);
        EXPECT_FALSE(IsRunning(*started)) << at_its_time;
    }
}

// ---- Ahead of a file's turn.

/// By its name a file is one that ends, crashes or does not come to an end.
int ProbeEarly(int, const char* path, MediaInfo* record, FileReading&) {
    LogError(LogSite("probe"), "early [%s]", path);
    record->track = 7;
    if (strstr(path, "crash") != nullptr) abort();
    // Not by yielding: beside busy neighbours that would hardly use the processor time that ends it.
    for (const volatile bool is_endless = strstr(path, "endless") != nullptr; is_endless;) {
    }
    return 0;
}

TEST_F(Probe, AheadIsTakenAtItsTurnFromOneThatEndedWhileTheFileStayed) {
    if (!ProbeGuardStatusGet().system_call_filter) GTEST_SKIP() << "nothing may run ahead";
    const std::pair<std::string, int> files[] = {{"first", 0}, {"same", 7},    {"replaced", 0}, {"crash", 0},
                                                 {"same2", 7}, {"touched", 0}, {"endless", 0}};
    for (const int processors : {1, 2, 3}) {
        ProbeAhead ahead(ProbeEarly, processors);
        for (const auto& [name, track] : files)
            ahead.Announce(Write(name, "none of the formats").c_str());
        ahead.Announce(Write("endless, and never its turn", "").c_str());
        EXPECT_EQ(ProbeAhead::Current() != nullptr, processors > 1);
        for (const auto& [name, track] : files) {
            if (name == "replaced") Write(name, "none of the formatS");
            if (name == "touched") chmod(name.c_str(), 0600);
            const std::string file = dir() + "/" + name;
            fake.log.clear();
            Reading reading;
            MediaInfo record{};
            const bool is_early = processors > 1 && track != 0;
            EXPECT_EQ(MiscMediaInfoGet(file.c_str(), &record, reading), is_early ? 0 : 1) << name;
            EXPECT_EQ(record.track, is_early ? track : 0) << name;
            EXPECT_EQ(reading.file.failure().kind == FailureKind::kNone, is_early) << name;
            const std::string failed = "metamedia (#) Failed to ";
            EXPECT_EQ(fake.log, is_early ? Lines{"probe (#) early [" + file + "]"}
                                         : (Lines{failed + "av_open_input_file() file [" + file + "].",
                                                  failed + "get Misc Media Info from [" + file + "]."}));
        }
    }
}

TEST_F(Probe, AheadOfAnotherIsOutOfItsReach) {
    if (IsEmulated()) GTEST_SKIP() << kNothingKept;
    GuardedChild first, second;
    ASSERT_TRUE(first.Start("/x", [](pid_t, FileReading&) { return pause(); }));
    const auto body = [&](pid_t, FileReading&) { return msync(&first.record(), 1, MS_ASYNC) == 0 ? 1 : 0; };
    ASSERT_TRUE(second.Start("/x", body));
    EXPECT_TRUE(second.Watch(Reading(), settings_));
    EXPECT_EQ(second.status(), 0);
}

}  // namespace koli::test
