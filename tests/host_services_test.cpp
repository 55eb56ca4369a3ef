// Files, settings, processes, quoting, extension lists and the cover store on real files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <set>

#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "tests/host_temp_dir.h"

static int flushes = 0;

extern "C" int KOLIDBFlush(void) {
    return ++flushes, 0;
}

namespace koli::test {

namespace fs = std::filesystem;

using Names = std::set<std::string>;

struct Services : testing::Test, TempDir {};

std::string ValueOf(const std::string& file, const char* key, int size = 16) {
    char buffer[64] = "before";
    const int length = KLIBFileGetKeyValue(file.c_str(), key, buffer, size, 0);
    return std::to_string(length) + ":" + buffer;
}

TEST_F(Services, LastLineOfAKeyWins) {
    const std::string file =
        Write("a.conf", "# a=0\na = 1\r\n\tq=\" x y \"\n a=2 \nab=3\nempty=\nb=\"\n  #c=1\nlong=" +
                            std::string(20, 'v') + "\nover=" + std::string(40000, 'v') + "\nlast=yes");
    const std::pair<const char*, const char*> values[] = {
        {"a", "1:2"}, {"q", "5: x y "}, {"empty", "0:"}, {"b", "1:\""}, {"long", "20:vvvvvvvvvvvvvvv"}};
    for (const auto& [key, value] : values)
        EXPECT_EQ(ValueOf(file, key), value);
    EXPECT_EQ(ValueOf(file, "last", 3), "3:ye");
    for (const char* key : {"c", "A", "", "#c", "# a", "over"})
        EXPECT_EQ(ValueOf(file, key), "-1:") << key;
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(ValueOf(Path("gone"), "a"), "-1:");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(ValueOf("/", "a"), "-1:");
    EXPECT_EQ(errno, EINVAL);
    EXPECT_NE(BlKOLIFileCheckKeyValue(file.c_str(), "last", "yes", 0), 0);
    EXPECT_EQ(BlKOLIFileCheckKeyValue(file.c_str(), "last", "ye", 0), 0);
}

std::string LineOf(const std::string& file, const std::string& key, int size = 4097) {
    char buffer[4097] = "before";
    const int found = KLIBFileGetLine(file.c_str(), key.c_str(), buffer, size, KLIB_LINE_MATCH);
    return std::to_string(found) + ":" + buffer;
}

TEST_F(Services, EqualLineWinsOverAnEarlierBeginning) {
    const std::string over(50000, 'o');
    std::string text = "/a/bc\n/a/b\n" + std::string("/z\0x\n", 5) + over + "\n\n";
    for (int i = 0; i < 20000; ++i)
        text += "/fill/" + std::to_string(i) + "\n";
    const std::string file = Write("queue", text + "/a/last");
    for (const char* line : {"/a/b", "/a/last", "/fill/19999", ""})
        EXPECT_EQ(LineOf(file, line), "1:" + std::string(line));
    EXPECT_EQ(LineOf(file, "/a"), "1:/a/bc");
    EXPECT_EQ(LineOf(file, "/a/bc", 4), "1:/a/");
    EXPECT_EQ(LineOf(file, "ooo"), "1:" + over.substr(0, 4096));
    for (const std::string& key : {"/z"s, "x"s, "/a/lasts"s, over + "o"})
        EXPECT_EQ(LineOf(file, key), "0:");
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    for (const char* name : {"gone", "fifo", "."})
        EXPECT_EQ(LineOf(Path(name), "a"), "-1:");
}

TEST_F(Services, PidFileGivesRunningProcessesOnly) {
    const std::string self = std::to_string(getpid());
    const pid_t ended = fork();
    if (ended == 0) _exit(0);
    waitpid(ended, nullptr, 0);
    const auto read = [&](const std::string& text) { return KLIBReadPidFile(Write("pid", text).c_str()); };
    EXPECT_EQ(read(self + "\n"), getpid());
    EXPECT_EQ(read("1"), 1);
    for (const std::string& refused : {""s, "0"s, "-" + self, self + "x", self + "\n1", "99999999999"s,
                                       std::to_string(ended), self + std::string(100000, '\n')})
        EXPECT_EQ(read(refused), 0) << refused.substr(0, 20);
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(KLIBReadPidFile(Path("fifo").c_str()), 0);
}

TEST_F(Services, ExecGivesTheStatusOfAProgramWithFreshSignals) {
    flushes = 0;
    EXPECT_EQ(KLIBExec("/gone/program", "-f", "x", nullptr, nullptr), -1);
    EXPECT_EQ(flushes, 0);
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", "test \"$0 $#\" = \"a  b 0\" && exit 7", "a  b", nullptr), 7);
    EXPECT_EQ(KLIBExec("/bin/sh", "-c", "exit 3", nullptr, "never"), 3);
    EXPECT_EQ(flushes, 2);

    sigset_t blocked, old_mask;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, &old_mask);
    const auto old_handler = signal(SIGTERM, SIG_IGN);
    for (const char* command : {"kill -TERM $$; exit 0", "kill -USR1 $$; exit 0"})
        EXPECT_EQ(KLIBExec("/bin/sh", "-c", command, nullptr, nullptr), -1);
    signal(SIGTERM, old_handler);
    sigprocmask(SIG_SETMASK, &old_mask, nullptr);
}

TEST_F(Services, TheShellHandsTheSameBytesOn) {
    std::string every;
    for (int byte = 1; byte < 256; ++byte)
        every += static_cast<char>(byte);
    for (const std::string& text :
         {every, ""s, "'"s, "/'$$'`id`'\n'\\\\'"s, "''a''"s, "-n"s, "$(id) `id` \\\n*"s}) {
        char quoted[1024], back[1024];
        for (int size = 1, result = -1; size <= static_cast<int>(sizeof quoted); ++size) {
            const int before = std::exchange(result, KLIBEncShParam(text.c_str(), quoted, size));
            EXPECT_TRUE(before <= result && (result == 0) == (quoted[0] != '\0')) << size;
            EXPECT_TRUE(result == 0 || size < 2 * static_cast<int>(text.size()) + 1 || text.size() < 4);
            if (before == result) continue;  // no room so far, or as much as is needed
            FILE* shell = popen(("printf '%s|' " + std::string(quoted)).c_str(), "re");
            EXPECT_EQ(std::string(back, fread(back, 1, sizeof back, shell)), text + "|");
            pclose(shell);
        }
    }
}

TEST_F(Services, TimesAreLocal) {
    const std::string file = Write("a.txt", "12345");
    setenv("TZ", "XXX-3", 1);
    const timespec times[] = {{0, 0}, {86399, 0}};
    utimensat(AT_FDCWD, file.c_str(), times, 0);
    char changed[32], modified[32];
    KOLIIndexCTimeMTimeGet(file.c_str(), changed, sizeof changed, modified, sizeof modified);
    EXPECT_STREQ(modified, "1970-01-02 02:59:59");
}

TEST_F(Services, HiddenFoldersAreMadeAndCleanedAndNeverLeaveTheShareByALink) {
    char path[4096];
    EXPECT_EQ(KOLIEAPath("/v/Trip/", "S", path, 18), 0);
    EXPECT_STREQ(path, "/v/@eaDir/Trip/S");
    for (const char* bad : {"/v/Trip/1", "/", "", "/v/.."})
        EXPECT_TRUE(KOLIEAPath(bad, "S", path, 17) == -1 && *path == '\0') << bad;

    const std::string song = Path("a.mp3"), folder = Path("@eaDir/a.mp3");
    EXPECT_EQ(GetCoverPath(song.c_str(), path, 10, 3, 1, KOLI_COVER_JPEG), 0);
    EXPECT_FALSE(fs::exists(Path("@eaDir")));
    const mode_t mask = umask(0);
    ASSERT_NE(GetCoverPath(song.c_str(), path, sizeof path, 3, 12, KOLI_COVER_PNG), 0);
    umask(mask);
    EXPECT_EQ(path, folder + "/cover12.png");
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms::all);
    const Names covers = {"cover1.jpg", "cover12.png"};
    const Names others = {"cover.jpg", "cover01.jpg", "cover1.jpeg", "Cover1.jpg", "xcover1.jpg"};
    for (const Names& names : {covers, others})
        for (const std::string& name : names)
            Write("@eaDir/a.mp3/" + name, "x");
    CleanOldCover(folder.c_str());
    Names left;
    for (const auto& entry : fs::directory_iterator(folder))
        left.insert(entry.path().filename());
    EXPECT_EQ(left, others);

    Write("outside/a.mp3/cover1.jpg", "x");
    for (const char* link : {"one/@eaDir", "two/@eaDir/a.mp3"}) {
        fs::create_directories(fs::path(Path(link)).parent_path());
        fs::create_directory_symlink(Path(link[0] == 'o' ? "outside" : "outside/a.mp3"), Path(link));
        const std::string linked = Path(std::string(link, 3) + "/a.mp3");
        EXPECT_EQ(GetCoverFolder(linked.c_str(), path, sizeof path), 0);
        EXPECT_EQ(GetCoverPath(linked.c_str(), path, sizeof path, 3, 1, KOLI_COVER_JPEG), 0);
    }
    CleanOldCover(Path("two/@eaDir/a.mp3").c_str());
    EXPECT_TRUE(fs::exists(Path("outside/a.mp3/cover1.jpg")));
}

}  // namespace koli::test
