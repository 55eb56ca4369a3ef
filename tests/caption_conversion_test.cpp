// Captions are handed over once; the conversion queues get one line and one signal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>
#include <tuple>

#include "base/features.h"
#include "photo/caption.h"
#include "photo/conversion.h"
#include "platform/paths.h"
#include "tests/fake_platform.h"

namespace {

int sleeps = 0;
std::vector<std::pair<int, int>> signals;  // pid and signal
std::string spool;                         // stands in for /var/spool

}  // namespace

// These take the place of the C library's: tests neither wait, nor signal anybody, nor write to the machine's
// spool.
extern "C" unsigned int sleep(unsigned int) {
    ++sleeps;
    return 0;
}
extern "C" int kill(pid_t pid, int signal) noexcept {
    signals.emplace_back(pid, signal);
    return 0;
}
extern "C" int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the check does not see va_start
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    const std::string prefix = "/var/spool/";
    std::string real = path;
    if (real.rfind(prefix, 0) == 0) real = spool + real.substr(prefix.size() - 1);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, real.c_str(), flags, mode));
}

namespace koli {
namespace {

using namespace test;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

TEST(Caption, TheFirstLineIsTakenOnce) {
    const Sandbox sandbox;
    const std::string file = sandbox.dir() + "/@eaDir/a.jpg/KOLIPHOTO:TITLE";
    const std::string path = sandbox.dir() + "/a.jpg";
    const std::string huge(100000, 'x');
    for (const auto& [bytes, result, value] : {std::tuple{"Sunset\nmore", 1, "Sunset\n"},
                                               {"\n", 0, "old"},
                                               {"", 0, "old"},
                                               {huge.c_str(), 1, huge.c_str() + 100000 - 254}}) {
        PhotoRecord record{};
        strcpy(record.title, "old");
        sandbox.Write("@eaDir/a.jpg/KOLIPHOTO:TITLE", bytes);
        EXPECT_EQ(CaptionTitleGet(path.c_str(), &record), result);
        EXPECT_STREQ(record.title, value);
        EXPECT_NE(access(file.c_str(), F_OK), 0);
        EXPECT_EQ(CaptionTitleGet(path.c_str(), &record), 0);
    }
    EXPECT_TRUE(fake.log.empty());
}

TEST(Caption, WhatIsNoReadableFileIsKeptAndLogged) {
    const Sandbox sandbox;
    const std::string path = sandbox.dir() + "/a.jpg";
    const std::string file = sandbox.MakeDir("@eaDir/a.jpg/KOLIPHOTO:DESC");
    const std::string link = sandbox.dir() + "/@eaDir/a.jpg/KOLIPHOTO:PUBLIC";
    ASSERT_EQ(symlink(sandbox.Write("secret", "1").c_str(), link.c_str()), 0);
    const std::string fifo = sandbox.dir() + "/@eaDir/a.jpg/KOLIPHOTO:TITLE";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    PhotoRecord record{};
    char value[16];
    EXPECT_EQ(CaptionTitleGet(path.c_str(), &record), 0);  // does not block
    EXPECT_EQ(CaptionDescGet(path.c_str(), &record), 0);
    EXPECT_EQ(CaptionRead(path.c_str(), kPublicStream, value, sizeof value), -1);
    EXPECT_EQ(access(file.c_str(), F_OK), 0);
    EXPECT_EQ(fake.log,
              (Lines{"photo_index:# fgets() failed.", "photo_index:# failed to open file " + link + "."}));
}

TEST(WriteThumbQueue, KeepsOneLineForEachEntry) {
    const Sandbox sandbox;
    const std::string queue = sandbox.dir() + "/queue", longest(4095, 'x');
    for (const std::string& entry : {"/a/bc"s, "/a/bc"s, "/a/b"s, "/c'%s"s, longest, longest})
        EXPECT_EQ(WriteThumbQueue(entry.c_str(), queue.c_str()), 0);
    for (const std::string& refused : {"/a\n/etc"s, longest + "y"})
        EXPECT_EQ(WriteThumbQueue(refused.c_str(), queue.c_str()), -1);
    EXPECT_TRUE(ReadFile(queue) == "/a/bc\n/a/b\n/c'%s\n" + longest + "\n");
}

TEST(WriteThumbQueue, OnlyAForbiddenQueueIsTriedAgain) {
    const Sandbox sandbox;
    const std::string taken = sandbox.dir() + "/taken";
    ASSERT_EQ(symlink("/nowhere/at/all", taken.c_str()), 0);
    sleeps = 0;
    EXPECT_EQ(WriteThumbQueue("/a", taken.c_str()), -1);
    EXPECT_EQ(fake.log, Lines{"(photo_index, #) open(" + taken + ", " +
                              std::to_string(O_RDWR | O_SYNC | O_CREAT | O_EXCL | O_TRUNC) +
                              ") failed, reason=File exists\n"});
    EXPECT_EQ(sleeps, 0);

    const std::string forbidden = "/proc/sys/kernel/ostype";  // 0444, for root too
    fake.log.clear();
    EXPECT_EQ(WriteThumbQueue("/a", forbidden.c_str()), -1);
    EXPECT_EQ(fake.log, Lines(17, "(photo_index, #) open(" + forbidden + ", " +
                                      std::to_string(O_RDWR | O_SYNC | O_APPEND) +
                                      ") failed, reason=Permission denied\n"));
    EXPECT_EQ(sleeps, 16);
}

TEST(WriteThumbQueue, AShortWriteLeavesNothingBehind) {
    const Sandbox sandbox;
    const std::string queue = sandbox.Write("queue", "/first\n");
    struct rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const struct rlimit full = {10, before.rlim_max};
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    EXPECT_EQ(WriteThumbQueue("/second", queue.c_str()), -1);
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, handler);
    EXPECT_EQ(ReadFile(queue), "/first\n");
    EXPECT_EQ(fake.log, Lines{"photo_index: WriteThumbQueue(#) - failed to write (/second, 7) into " + queue +
                              ", reason=No space left on device"});
}

TEST(ConversionRequest, QueuesForTheDaemonsThatRunAndWakesTheLastOne) {
    const std::string kNoThumb = "photo_index(#) Thumb daemon is not running .....\n";
    const std::string kNoFlv = "photo_index(#) FLV daemon is not running .....\n";
    const struct {
        const char* name;
        int flags, vidora, thumb_pid, flv_pid;
        bool in_thumb, in_flv;
        int woken;
        Lines log;
    } cases[] = {
        {"a.jpg", 3, 1, 11, 22, true, false, 11, {}}, {"a.mp4", 3, 1, 11, 22, false, true, 22, {}},
        {"a.avi", 3, 1, 11, 22, false, false, 0, {}}, {"", 3, 1, 11, 22, true, true, 22, {}},
        {"", 3, 1, 11, 0, true, false, 0, {kNoFlv}},  {"", 3, 1, 0, 22, false, true, 22, {kNoThumb}},
        {"", 3, 0, 11, 22, true, false, 11, {}},      {"a.jpg", 2, 1, 11, 22, false, false, 0, {}},
    };
    support_photo = 1;
    for (const auto& c : cases) {
        const Sandbox sandbox;
        spool = sandbox.MakeDir("spool");
        for (const char* name : {"a.jpg", "a.mp4", "a.avi"})
            sandbox.Write(std::string("share/") + name, "x");
        fake.pids = {{paths::kThumbDaemonPid, c.thumb_pid}, {paths::kFlvDaemonPid, c.flv_pid}};
        support_vidora = c.vidora;
        signals.clear();
        const std::string share = sandbox.dir() + "/share";
        const std::string path = *c.name != '\0' ? share + "/" + c.name : share;
        ConversionRequest(path.c_str(), c.flags);
        EXPECT_EQ(ReadFile(spool + "/thumb_create.queue"), c.in_thumb ? share + "\n" : "") << c.name;
        EXPECT_EQ(ReadFile(spool + "/flv_create.queue"), c.in_flv ? path + "\n" : "") << c.name;
        EXPECT_EQ(signals, c.woken != 0 ? decltype(signals)({{c.woken, SIGUSR1}}) : decltype(signals)());
        EXPECT_EQ(fake.log, c.log) << c.name;
    }
    support_photo = support_vidora = 0;
}

}  // namespace
}  // namespace koli
