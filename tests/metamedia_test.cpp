// The guarded probe: the watch over the child, and what the child can no longer do.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "base/log.h"
#include "tests/fake_platform.h"
#include "video/guarded_probe.h"
#include "video/metamedia.h"
#include "video/probe_guard.h"

namespace koli {
namespace {

using test::fake;
using Lines = std::vector<std::string>;

constexpr timespec kForever{30, 0};  // a sleep that lasts is not cut short by what the test expects

int sleeps;
void CountSleep(const timespec&, const sigset_t&) {
    ++sleeps;
}

std::string proc_dir;  // what stands in for /proc
pid_t last_child;
pid_t ForkWithStatus() {  // the child's own memory sizes stay readable below the stand-in
    last_child = fork();
    const std::string name = "/" + std::to_string(last_child);
    if (last_child > 0) std::filesystem::create_directory_symlink("/proc" + name, proc_dir + name);
    return last_child;
}
pid_t ForkFails() {
    return -1;
}

template <typename Body>
pid_t StartChild(Body body) {
    const pid_t pid = fork();
    if (pid == 0) {
        body();
        _exit(99);
    }
    return pid;
}

std::string Process(pid_t pid, const std::string& text) {
    return "metamedia:# Process " + std::to_string(pid) + text;
}

void ExpectNoChildLeft() {
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

int PauseProbe(const char*, MediaInfo* record) {
    strcpy(record->title, "half way");
    memset(record->comment, 'x', sizeof record->comment);
    strcpy(record->path, "/another/file");
    for (;;)
        sched_yield();
}

int FailingProbe(const char* path, MediaInfo* record) {
    record->track = 7;
    LogError("%s (%d) seen [%s]", "probe", 1, path);
    return 3;
}

TEST(ProbeChildWatch, TellsHowTheChildEnded) {
    const test::Sandbox sandbox;
    for (const int status : {0, 1, 255})
        EXPECT_EQ(ProbeChildWatch(StartChild([=] { _exit(status); })), status);
    EXPECT_TRUE(fake.log.empty());

    const pid_t crashed = StartChild([] { raise(SIGKILL); });
    EXPECT_EQ(ProbeChildWatch(crashed), -1);
    for (const pid_t none : {0, -1})
        EXPECT_EQ(ProbeChildWatch(none), -1);
    EXPECT_EQ(fake.log, (Lines{Process(crashed, " killed by signal 9"), "metamedia:# Bad parameters.",
                               "metamedia:# Bad parameters."}));
}

TEST(ProbeChildWatch, KillsOnThe902ndPoll) {
    const test::Sandbox sandbox;
    WatchSettings settings;
    settings.sleep = CountSleep;
    const pid_t running = StartChild([] { pause(); });
    const pid_t reaped_elsewhere = StartChild([] { _exit(0); });
    waitpid(reaped_elsewhere, nullptr, 0);
    for (const pid_t pid : {running, reaped_elsewhere}) {
        sleeps = 0;
        fake.log.clear();
        EXPECT_EQ(ProbeChildWatchWith(pid, settings), -1);
        EXPECT_EQ(sleeps, 902);
        EXPECT_EQ(fake.log, Lines{Process(pid, " exceeded max loop count: 901, sec: 0, nsec: 100000000.")});
    }
    ExpectNoChildLeft();
}

int requests;
TEST(ProbeChildWatch, SignalsCutTheSleepAndEverythingIsAsBefore) {
    const test::Sandbox sandbox;
    WatchSettings settings;
    settings.interval = kForever;
    settings.poll_limit = 0;  // the second poll kills
    signal(SIGUSR1, [](int) { ++requests; });
    signal(SIGCHLD, SIG_IGN);  // as a careless parent leaves it
    const pid_t parent = getpid();
    requests = 0;
    const pid_t pid = StartChild([=] {
        for (;; usleep(20000))
            kill(parent, SIGUSR1);
    });
    EXPECT_EQ(ProbeChildWatchWith(pid, settings), -1);
    EXPECT_GE(requests, 2);
    EXPECT_EQ(fake.log, Lines{Process(pid, " exceeded max loop count: 1, sec: 30, nsec: 0.")});
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGCHLD), 0);
    EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_IGN);
    signal(SIGUSR1, SIG_DFL);
}

TEST(ProbeChildMemory, IsJudgedByTheTwoFilesOfTheMoment) {
    const test::Sandbox sandbox;
    const auto exceeded = [&](const std::string& name) {
        return ProbeChildMemoryExceededIn(42, (sandbox.dir() + "/" + name).c_str());
    };
    sandbox.Write("a/meminfo", "MemFree: 9 kB\nMemTotal:    1001 kB\n");
    EXPECT_EQ(exceeded("a"), 0);  // no status file
    for (const auto& [status, result] : {std::pair{"VmRSS:\t     500 kB\n", 0},
                                         {"Name: x\nVmRSS:\t     501 kB\n", 1},
                                         {"Name: VmRSS:9999\n", 0}}) {
        sandbox.Write("a/42/status", status);
        EXPECT_EQ(exceeded("a"), result) << status;
    }
    EXPECT_TRUE(fake.log.empty());

    sandbox.Write("b/meminfo", "MemTotal: none\n");
    EXPECT_EQ(exceeded("b"), 0);
    EXPECT_EQ(exceeded("c"), 0);
    EXPECT_EQ(fake.log,
              (Lines{"metamedia:# Cannot get MemTotal value.", "metamedia:# Cannot open /proc/meminfo"}));
    EXPECT_EQ(ProbeChildMemoryExceeded(getpid()), 0);
}

TEST(GuardedProbe, ReturnsAsSoonAsTheChildHasEnded) {
    const test::Sandbox sandbox;
    WatchSettings settings;
    settings.interval = kForever;
    MediaInfo record{};
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(GuardedProbeRun(
                      "/none", &record, [](const char*, MediaInfo*) { return 0; }, settings),
                  0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(kForever.tv_sec));
    ExpectNoChildLeft();
}

TEST(GuardedProbe, KeepsWhatAStoppedOrFailedChildHadWritten) {
    const test::Sandbox sandbox;
    WatchSettings settings;
    settings.poll_limit = 2;
    MediaInfo record{};
    strcpy(record.path, "/a/b.avi");
    strcpy(record.album, "before");
    EXPECT_EQ(GuardedProbeRun(record.path, &record, PauseProbe, settings), -1);
    EXPECT_STREQ(record.title, "half way");
    EXPECT_STREQ(record.album, "before");
    EXPECT_STREQ(record.path, "/a/b.avi");
    EXPECT_EQ(strlen(record.comment), sizeof record.comment - 1);

    fake.log.clear();
    EXPECT_EQ(GuardedProbeRun("/a/b.avi", &record, FailingProbe, WatchSettings{}), 1);
    EXPECT_EQ(record.track, 7);
    settings.fork_child = ForkFails;
    const MediaInfo before = record;
    EXPECT_EQ(GuardedProbeRun("/a/b.avi", &record, FailingProbe, settings), -1);
    EXPECT_EQ(memcmp(&before, &record, sizeof record), 0);
    EXPECT_EQ(fake.log, (Lines{"probe (#) seen [/a/b.avi]",
                               "metamedia (#) Failed to get Misc Media Info from [/a/b.avi].",
                               "metamedia:# fork failed."}));
    ExpectNoChildLeft();
}

TEST(GuardedProbe, KillsAChildAboveHalfOfTheMemory) {
    const test::Sandbox sandbox;
    proc_dir = sandbox.dir();
    sandbox.Write("meminfo", "MemTotal: 600000 kB\n");
    WatchSettings settings;
    settings.proc = proc_dir.c_str();
    settings.interval = {0, 10000000};
    settings.fork_child = ForkWithStatus;
    MediaInfo record{};
    const auto eat = [](const char*, MediaInfo*) -> int {
        for (size_t eaten = 0; eaten < 1000; ++eaten) {
            char* block = static_cast<char*>(malloc(1 << 20));
            if (block != nullptr) memset(block, 1, 1 << 20);
        }
        for (;;)
            sched_yield();
    };
    EXPECT_EQ(GuardedProbeRun("/a", &record, eat, settings), -1);
    EXPECT_EQ(fake.log, Lines{Process(last_child, " exceeded max memory usage.")});
    ExpectNoChildLeft();
}

// ---- The guard.  Each attempt runs as the probe: 0 means that it was refused.

int inherited;
int Refused(long result) {
    return result < 0 ? 0 : 1;
}

TEST(ProbeGuard, LeavesTheOneFileAndNothingElse) {
    const test::Sandbox sandbox;
    static const std::string file = sandbox.Write("one.avi", "bytes");
    static const std::string other = sandbox.Write("other.txt", "secret");
    static const std::string fresh = sandbox.dir() + "/fresh";
    inherited = open(other.c_str(), O_RDWR | O_CLOEXEC);
    const ProbeGuardStatus status = ProbeGuardStatusGet();
    const struct {
        const char* what;
        ProbeFunction attempt;
        bool works;  // where the kernel has what refuses it
    } attempts[] = {
        {"the file is not readable",
         [](const char* path, MediaInfo*) {
             char byte = 0;
             const int fd = open(path, O_RDONLY | O_CLOEXEC);
             return read(fd, &byte, 1) == 1 && byte == 'b' ? 0 : 1;
         },
         true},
        {"other file", [](const char*, MediaInfo*) { return Refused(open(other.c_str(), O_RDONLY)); },
         status.file_rules},
        {"write", [](const char* path, MediaInfo*) { return Refused(open(path, O_WRONLY)); }, true},
        {"create",
         [](const char*, MediaInfo*) { return Refused(open(fresh.c_str(), O_CREAT | O_RDWR, 0600)); }, true},
        {"unlink", [](const char* path, MediaInfo*) { return Refused(unlink(path)); }, true},
        {"fork", [](const char*, MediaInfo*) { return Refused(fork()); }, status.system_call_filter},
        {"kill", [](const char*, MediaInfo*) { return Refused(kill(getppid(), 0)); }, true},
        {"inherited", [](const char*, MediaInfo*) { return Refused(fcntl(inherited, F_GETFD)); }, true},
        {"term", [](const char*, MediaInfo*) { return signal(SIGTERM, SIG_DFL) == SIG_DFL ? 0 : 1; }, true},
    };
    signal(SIGTERM, [](int) {});
    const bool both = status.file_rules || status.system_call_filter;
    MediaInfo record{};
    for (const auto& a : attempts)
        if (a.works && both) {
            EXPECT_EQ(GuardedProbeRun(file.c_str(), &record, a.attempt, WatchSettings{}), 0) << a.what;
        }
    signal(SIGTERM, SIG_DFL);
    EXPECT_TRUE(fake.log.empty());
    close(inherited);
    EXPECT_EQ(test::ReadFile(file), "bytes");

    if (!status.system_call_filter) GTEST_SKIP() << "no seccomp here";
    const ProbeFunction deadly[] = {
        [](const char*, MediaInfo*) { return Refused(socket(AF_INET, SOCK_STREAM, 0)); },
        [](const char*, MediaInfo*) { return Refused(execl("/bin/true", "true", nullptr)); }};
    for (const ProbeFunction attempt : deadly) {
        EXPECT_EQ(GuardedProbeRun(file.c_str(), &record, attempt, WatchSettings{}), -1);
        EXPECT_NE(fake.log.back().find("killed by signal 31"), std::string::npos);
    }
}

}  // namespace
}  // namespace koli
