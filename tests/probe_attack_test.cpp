// The guarded probe: what its child can no longer do.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <new>
#include <tuple>

#include "guard/probe_guard.h"
#include "tests/fixture.h"
#include "video/metamedia.h"

extern "C" void* __libc_stack_end;  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace koli::test {

using ProbeAttack = Fixture;

int inherited;
std::string path;
long (*attempt)(int file);  // what the probe tries: negative when it was refused

int Try(int file, const char*, MediaInfo*, FileReading&) {
    return attempt(file) < 0 ? 0 : 1;
}

/// Maps a page of memory: negative when that is not allowed.
template <int kFlags, int kProtection = PROT_READ | PROT_WRITE>
long Map(int) {
    errno = 0;
    mmap(nullptr, 4096, kProtection, kFlags | MAP_ANONYMOUS, -1, 0);
    return errno == EPERM ? -1 : 0;
}

TEST(ProbeChild, HasAStackWithoutCode) {
    char* const end = static_cast<char*>(__libc_stack_end);  // as the loader does it for a library
    void* const page = end - reinterpret_cast<uintptr_t>(end) % 4096;
    ASSERT_EQ(mprotect(page, 4096, PROT_READ | PROT_WRITE | PROT_EXEC | PROT_GROWSDOWN), 0);
    EXPECT_NE(ReadFile("/proc/self/maps").find(" rwxp "), std::string::npos);
    EXPECT_TRUE(ProbeGuardPrepare());
    EXPECT_EQ(ReadFile("/proc/self/maps").find(" rwxp "), std::string::npos);
}

#if defined(__i386__) || defined(__x86_64__)
/// The oldest way to map, of whose arguments a filter sees no more than the address.
long MapByAddress(int) {
    static const uint32_t arguments[] = {0, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, ~0U, 0};
    long result = 90;
    asm volatile("int $0x80" : "+a"(result) : "b"(arguments) : "memory");
    return result == -EPERM ? -1 : 0;
}
constexpr bool kHasMapByAddress = true;
constexpr int kMapByAddress = sizeof(long) == 4 ? 0 : -SIGSYS;  // another machine's call
#else
constexpr bool kHasMapByAddress = false;
constexpr int kMapByAddress = 0;
long MapByAddress(int) {
    return 0;
}
#endif

TEST_F(ProbeAttack, FindsTheOneOpenFileAndNothingElse) {
    path = Write("one.avi", "bytes");
    inherited = open("/dev/null", O_RDWR | O_CLOEXEC);
    signal(SIGTERM, [](int) {});
    const auto [filter, rules] = ProbeGuardStatusGet();
    constexpr int kAllowed = 1, kRefused = 0;  // else the deadly signal, negative
    struct stat status;
    static struct stat& scratch = status;
    // What; whether the kernel has what refuses it; how it ends.
    const std::tuple<const char*, bool, int, long (*)(int)> attempts[] = {
        {"read", true, kAllowed, [](int file) -> long { return read(file, &scratch, 5) == 5 ? 0 : -1; }},
        {"open", filter || rules, kRefused, [](int) -> long { return open(path.c_str(), O_RDONLY); }},
        {"write", filter || rules, kRefused, [](int) -> long { return open(path.c_str(), O_WRONLY); }},
        {"stat", filter, kRefused, [](int) -> long { return stat("/", &scratch); }},
        {"fork", filter, kRefused, [](int) -> long { return fork(); }},
        {"kill", filter, kRefused, [](int) -> long { return kill(getppid(), SIGABRT); }},
        {"tgkill", filter, kRefused, [](int) -> long { return tgkill(getppid(), getppid(), SIGABRT); }},
        {"abort", true, -SIGABRT, [](int) -> long { abort(); }},
        {"memory", true, kAllowed, Map<MAP_PRIVATE>},
        {"code", filter, kRefused, Map<MAP_PRIVATE, PROT_READ | PROT_EXEC>},
        {"old call", filter && kHasMapByAddress, kMapByAddress, MapByAddress},
        {"shared", filter, kRefused, Map<MAP_SHARED>},
        {"locked", filter, kRefused, Map<MAP_PRIVATE | MAP_LOCKED>},
        {"huge", filter, kRefused, Map<MAP_PRIVATE | MAP_HUGETLB>},
        {"inherited", true, kRefused, [](int) -> long { return lseek(inherited, 0, SEEK_CUR) < 0 ? -1 : 0; }},
        {"term", true, kRefused, [](int) -> long { return signal(SIGTERM, SIG_DFL) == SIG_DFL ? -1 : 0; }},
        {"socket", filter, -SIGSYS, [](int) -> long { return socket(AF_INET, SOCK_STREAM, 0); }},
        {"exec", filter, -SIGSYS, [](int) -> long { return execl("/bin/true", "true", nullptr); }},
    };
    MediaInfo record{};
    for (const auto& [what, counts, expected, body] : attempts) {
        if (!counts) continue;
        attempt = body;
        fake.log.clear();
        EXPECT_EQ(GuardedProbeRun(path.c_str(), &record, Reading(), Try), std::max(expected, -1)) << what;
        EXPECT_EQ(fake.log.empty(), expected == kRefused) << what;
        EXPECT_TRUE(expected >= 0 ||
                    fake.log.back().ends_with(" killed by signal " + std::to_string(-expected)))
            << what;
    }
    attempt = [](int) -> long { throw std::bad_alloc(); };
    EXPECT_NE(GuardedProbeRun(path.c_str(), &record, Reading(), Try), 0);
    signal(SIGTERM, SIG_DFL);
    close(inherited);
    EXPECT_EQ(ReadFile(path), "bytes");
}

}  // namespace koli::test
