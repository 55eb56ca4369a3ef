// The conversion queues get whole lines, each one once.
#include <sys/resource.h>

#include <csignal>

#include "photo/conversion.h"
#include "tests/fixture.h"

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

}  // namespace koli::test
