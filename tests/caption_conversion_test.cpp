// The conversion queues get one line and one signal.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdarg>

#include "photo/conversion.h"
#include "platform/paths.h"
#include "tests/fixture.h"

static std::string spool;  // stands in for /var/spool

// These take the place of the C library's: tests neither signal anybody, nor write to the machine's
// spool.
extern "C" int kill(pid_t pid, int signal) noexcept {
    return koli::test::Record("kill", pid, signal);
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

namespace koli::test {

using Conversion = Fixture;

TEST_F(Conversion, KeepsOneLineForEachEntry) {
    const std::string queue = Path("queue"), longest(4095, 'x');
    for (const std::string& entry : {"/a/bc"s, "/a/bc"s, "/a/b"s, "/c'%s"s, longest, longest})
        EXPECT_EQ(WriteThumbQueue(entry.c_str(), queue.c_str()), 0);
    for (const std::string& refused : {"/a\n/etc"s, longest + "y"})
        EXPECT_EQ(WriteThumbQueue(refused.c_str(), queue.c_str()), -1);
    EXPECT_TRUE(ReadFile(queue) == "/a/bc\n/a/b\n/c'%s\n" + longest + "\n");
}

TEST_F(Conversion, AShortWriteLeavesNothingBehind) {
    const std::string queue = Write("queue", "/first\n");
    const rlimit full{10, RLIM_INFINITY}, before{RLIM_INFINITY, RLIM_INFINITY};
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    EXPECT_EQ(WriteThumbQueue("/second", queue.c_str()), -1);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(ReadFile(queue), "/first\n");
    EXPECT_EQ(fake.log, Lines{"photo_index: WriteThumbQueue(#) - failed to write (/second, 7) into " + queue +
                              ", reason=No space left on device"});
}

TEST_F(Conversion, QueuesForTheDaemonsThatRunAndWakesTheLastOne) {
    const std::string kNoThumb = "photo_index(#) Thumb daemon is not running .....\n";
    const std::string kNoFlv = "photo_index(#) FLV daemon is not running .....\n";
    // Name, flags, video converter, thumbnail daemon's pid, the converter's; whether each is asked, and told.
    const std::tuple<const char*, int, int, int, int, bool, bool, Lines, Lines> cases[] = {
        {"a.jpg", 3, 1, 11, 22, true, false, {"kill 11 10"}, {}},
        {"a.mp4", 3, 1, 11, 22, false, true, {"kill 22 10"}, {}},
        {"a.avi", 3, 1, 11, 22, false, false, {}, {}},
        {"", 3, 1, 11, 22, true, true, {"kill 22 10"}, {}},
        {"", 3, 1, 11, 0, true, false, {}, {kNoFlv}},
        {"", 3, 1, 0, 22, false, true, {"kill 22 10"}, {kNoThumb}},
        {"", 3, 0, 11, 22, true, false, {"kill 11 10"}, {}},
        {"a.jpg", 2, 1, 11, 22, false, false, {}, {}},
    };
    for (const char* name : {"a.jpg", "a.mp4", "a.avi"})
        Write("share/"s + name, "x");
    for (const auto& [name, flags, vidora, thumb_pid, flv_pid, in_thumb, in_flv, woken, log] : cases) {
        SCOPED_TRACE(name);
        fake = {};
        std::filesystem::remove_all(spool = Path("spool"));
        MakeDir("spool");
        fake.pids = {{paths::kThumbDaemonPid, thumb_pid}, {paths::kFlvDaemonPid, flv_pid}};
        support_vidora = vidora;
        const std::string share = Path("share"), path = *name != '\0' ? share + "/" + name : share;
        ConversionRequest(path.c_str(), flags);
        EXPECT_EQ(ReadFile(spool + "/thumb_create.queue"), in_thumb ? share + "\n" : "");
        EXPECT_EQ(ReadFile(spool + "/flv_create.queue"), in_flv ? path + "\n" : "");
        EXPECT_EQ(fake.calls, woken);
        EXPECT_EQ(fake.log, log);
    }
}

}  // namespace koli::test
