// The names derived from a path, texts as they are compared, opening files, and the handler parts that every
// format shares.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <thread>

#include "base/foothold.h"
#include "base/path_names.h"
#include "base/regular_file.h"
#include "base/text/fold.h"
#include "base/work_report.h"
#include "index/record/util.h"
#include "tests/fixture.h"

namespace koli::test {

TEST(PathNames, FollowTheLastComponentAndItsFolder) {
    const std::string most(253, 'd'), over(254, 'd');
    for (const auto& [path, title, album] :
         std::vector<std::array<std::string, 3>>{{"/a/b.c/a.b.mp3", "a.b", "b.c"},
                                                 {"/a/.mp3", "", "a"},
                                                 {"/dotted.dir/plain", "plain", "dotted.dir"},
                                                 {"x.mp3", "x", ""},
                                                 {"/a//x.mp3", "x", ""},
                                                 {"/" + most + "/x.mp3", "x", most},
                                                 {"/" + over + "/x.mp3", "x", over}}) {
        char title_field[kTextSize], album_field[kTextSize];
        TitleFromPath(path.c_str(), title_field, sizeof title_field);
        EXPECT_EQ(AlbumFromPath(path.c_str(), album_field, sizeof album_field), album != over) << path;
        EXPECT_EQ(title_field, title);
        EXPECT_EQ(album_field, album);
    }
}

TEST(Fold, MakesOneTextOfWhatPeopleTakeForOne) {
    const std::string marks(300, '\x80'), wide = "a" + std::string(400, 'B');
    for (const auto& [text, folded] : std::vector<std::pair<std::string, std::string>>{
             {"GR\u00dcSSE", "gr\u00fcsse"},
             {"Gru\u0308\u00dfe", "gr\u00fcsse"},
             {"\u039f\u03b4\u03bf\u03c2", "\u03bf\u03b4\u03bf\u03c3"},  // with a final sigma
             {"I\u0130", "ii\u0307"},
             {"\u041c\u043e\u041b", "\u043c\u043e\u043b"},
             {"\uff21\uff42 \ufb01", "ab fi"},
             {"\u1112\u1161\u11ab", "\ud55c"},
             {"E\u0301\xFFO\u0301", "\u00e9\xFF\u00f3"},  // what is no UTF-8 stays, and parts what is
             {"\xFF" + marks + "A\xC3", "\xFF" + marks + "a\xC3"},
             {"A\0@[`{Z"s, "a\0@[`{z"s},
             {wide + "\u0308", "a" + std::string(399, 'b') + "b\u0308"},
             {"", ""}})
        EXPECT_EQ(Folded(text), folded) << text;
    std::string mixed, lower;
    for (int i = 0; i < 200; ++i)
        mixed += "\u00c4\u00e4", lower += "\u00e4\u00e4";
    EXPECT_EQ(Folded(mixed), lower);  // longer than what is folded at a time
}

using Base = Fixture;

TEST_F(Base, OpeningWaitsForALeaseButNotForAFifo) {
    const std::string fifo = Path("fifo"), file = Write("a", "x");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int opened = OpenForReading(fifo.c_str());
    EXPECT_EQ(fcntl(opened, F_GETFD), FD_CLOEXEC);
    close(opened);

    // A server that is asked to give its lease up gets SIGIO; this one's end does so.
    int ready[2];
    ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t server = fork();
    if (server == 0) {
        const int fd = open(file.c_str(), O_RDWR | O_CLOEXEC);
        const char has_lease = fcntl(fd, F_SETLEASE, F_WRLCK) == 0 ? 'y' : 'n';
        if (write(ready[1], &has_lease, 1) == 1 && has_lease == 'y') sleep(30);
        _exit(0);
    }
    char has_lease = 'n';
    ASSERT_EQ(read(ready[0], &has_lease, 1), 1);
    const int leased = OpenForReading(file.c_str());
    EXPECT_GE(leased, 0);
    int status = 0;
    waitpid(server, &status, 0);
    EXPECT_EQ(WIFSIGNALED(status), has_lease == 'y');
    for (const int fd : {leased, ready[0], ready[1]})
        close(fd);
}

TEST_F(Base, AFootholdMovesWithItsFolderAndIsLookedAtFromAbove) {
    const std::string top = MakeDir("top"), far = top + "/" + std::string(250, 'f'), file = far + "/a";
    Write("top/" + std::string(250, 'f') + "/a", "");
    const Foothold foothold(far.c_str());
    std::filesystem::rename(top, Path("moved"));
    std::filesystem::create_directory_symlink("/", top);  // which it does not lead through
    struct stat status;
    EXPECT_EQ(LstatNear(file.c_str(), &status), 0);
    for (const std::string& path : {far, far + "/", far + "//tmp", far + "a"})
        EXPECT_NE(LstatNear(path.c_str(), &status), 0) << path;
}

TEST_F(Base, AWorkReportIsReadWholeAndOnlyFromWhoeverMayWriteIt) {
    WorkReport report{};
    EXPECT_FALSE(WorkReportRead("report", &report));
    ASSERT_TRUE(WorkReportOpen("report"));
    WorkBatchBegin(1, 2);
    std::atomic<bool> is_done = false;
    std::thread daemon([&] {
        for (int file = 1; file <= 100'000; ++file)
            WorkFile(("/" + std::string(file % 300, 'x') + std::to_string(file)).c_str());
        is_done = true;
    });
    while (!is_done) {
        if (!WorkReportRead("report", &report) || report.files == 0) continue;
        EXPECT_EQ(report.path, "/" + std::string(report.files % 300, 'x') + std::to_string(report.files));
    }
    daemon.join();
    for (const char* reason : {"once", "twice"})
        WorkProblem(("/" + std::string(100, 'x') + "100000").c_str(), reason);
    ASSERT_TRUE(WorkReportRead("report", &report));
    EXPECT_EQ(report.files, 100'000);
    EXPECT_EQ(report.problems, 1);
    EXPECT_STREQ(report.problem_reason, "twice");
    Write("other", std::string(20'000, 'x'));
    EXPECT_FALSE(WorkReportRead("other", &report));
    const bool is_of_another = chown("report", 65534, 65534) == 0;  // for root
    EXPECT_NE(WorkReportRead("report", &report), is_of_another);
}

TEST_F(Base, ARecordsNumbersAreBigEndianInMemory) {
    MediaInfo record{};
    record.track = 0x01020304;
    record.duration = 1.0F;
    EXPECT_EQ(memcmp(&record.track, "\1\2\3\4", 4), 0);
    EXPECT_EQ(memcmp(&record.duration, "\x3f\x80\0\0", 4), 0);
}

}  // namespace koli::test
