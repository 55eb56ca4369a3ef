// koliindexctl: request lines, usage, the queue's writers, waiting for the daemon, setup.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <csignal>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>

#include "base/reading_mark.h"
#include "tests/host_temp_dir.h"
#include "tools/ctl/batch_wait.h"
#include "tools/ctl/enqueue.h"
#include "tools/ctl/output.h"
#include "tools/ctl/progress.h"
#include "tools/ctl/queue_service.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/request_writer.h"
#include "tools/ctl/setup.h"
#include "tools/ctl/terminal.h"
#include "tools/ctl/waiting_reasons.h"
#include "tools/koliindexctl/command_line.h"

namespace koli::ctl {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using Texts = std::vector<std::string>;

// ---- Request lines

TEST(RequestLine, CarriesAbsolutePathsThatFit) {
    for (const auto& [path, absolute] : {std::pair{"../a/./b//", "/w/a/b"},
                                         {"/a/../../b", "/b"},
                                         {" a ", "/w/x/ a "},
                                         {"...", "/w/x/..."},
                                         {"", ""}})
        EXPECT_EQ(AbsolutePath(path, "/w/x"), absolute);
    EXPECT_EQ(PathRefusal("/a:b \xFF"), nullptr);
    const std::string longest = "/" + std::string(4107, 'x'), half = longest.substr(0, 2053);
    EXPECT_EQ(PathRefusal(longest), nullptr);
    EXPECT_EQ(RequestLine('a', longest).size(), 4111U);
    for (const std::string& path : {""s, "/a\nb"s, "/a\0b"s, longest + "x"})
        EXPECT_NE(PathRefusal(path), nullptr);
    EXPECT_EQ(RenameRefusal(half, half + "y"), nullptr);
    EXPECT_EQ(RenameLine(half, half + "y").size(), 4111U);
    for (const auto& [from, to] :
         {std::pair("/a:b"s, "/c"s), {"/a", "/c:d"}, {"/a", "/c\n"}, {half, half + "yy"}})
        EXPECT_NE(RenameRefusal(from, to), nullptr);
}

TEST(CommandLine, RefusesBadUsageWithOneLineAndTwo) {
    const test::TempDir dir;
    ASSERT_NE(freopen(dir.Write("cut", "a:/1\na:/2").c_str(), "r", stdin), nullptr);
    for (const char* line : {"", "|frobnicate", "|add", "|add|/no/such/file", "|add|", "|add|/tmp|/a\nb",
                             "|remove|/tmp", "|rename|/tmp|/tmp", "|rename|/no/such|/a:b", "|rebuild|books",
                             "|truncate|music", "|truncate|problem|--yes", "|sync|--timeout|5",
                             "|list|--kind|folder", "|enqueue", "|help|lits", "|add|--quiet|--json|/tmp"}) {
        std::string call = "koliindexctl"s + line;
        std::vector<char*> argv{call.data()};
        for (char& byte : call)
            if (byte == '|') byte = '\0', argv.push_back(&byte + 1);
        testing::internal::CaptureStderr();
        EXPECT_EQ(CommandLineRun(static_cast<int>(argv.size()), argv.data()), kExitUsage) << line;
        const std::string complaint = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(complaint.starts_with("koliindexctl: ")) << complaint;
        EXPECT_EQ(std::count(complaint.begin(), complaint.end(), '\n'), 1) << complaint;
    }
}

TEST(Output, NothingReachesATerminalThatCouldSteerIt) {
    const std::string harmless = "caf\xC3\xA9 \xE7\xAC\xAC \xF0\x9F\x98\x80";
    EXPECT_EQ(Printable(harmless), harmless);
    EXPECT_EQ(Printable("a\x1B[2J\n\t\x7F\0z"s), "a\\x1B[2J\\n\\t\\x7F\\x00z");
    // C1 controls; bytes that are no UTF-8: alone, overlong, surrogate, above U+10FFFF, cut.
    EXPECT_EQ(Printable("\xC2\x9B|\xE9|\xC0\xAF|\xED\xA0\x80|\xF4\x90\x80\x80|\xE7\xAC"),
              "\\xC2\\x9B|\\xE9|\\xC0\\xAF|\\xED\\xA0\\x80|\\xF4\\x90\\x80\\x80|\\xE7\\xAC");
    EXPECT_EQ(Printable("\u202Egpj.exe\u2066\u2028\u2027\u202F"),
              "\\xE2\\x80\\xAEgpj.exe\\xE2\\x81\\xA6\\xE2\\x80\\xA8\u2027\u202F");
    EXPECT_EQ(RecordJson({{"a", "\u202E\u2066\xC2\x9B\x7F\u00E9\n"}}, {}, true),
              R"({"a":"\u202e\u2066\u009b\u007f)"
              "\u00E9"
              R"(\n"})");
}

TEST(Output, IsCutByTheColumnsThatItTakes) {
    const std::string cut = HasUtf8() ? "\u2026" : "...";
    const std::string name = "/\u30a2\u30a2\u30a2\u30a2/caf\u0065\u0301.mp3";  // wide, and a combining accent
    EXPECT_EQ(ColumnsOf(name), 18U);
    EXPECT_EQ(ColumnsOf("\u1112\u1161\u11ab\uae00\xE9"), 5U);  // Hangul, of three pieces and of one; no UTF-8
    EXPECT_EQ(CutMiddle(name, 18), name);
    for (size_t columns = 0; columns < 18; ++columns) {
        EXPECT_LE(ColumnsOf(CutMiddle(name, columns)), columns);
        EXPECT_LE(ColumnsOf(CutEnd(name, columns)), columns);
    }
    EXPECT_EQ(CutMiddle(name, 9 + ColumnsOf(cut)), "/\u30a2" + cut + "fe\u0301.mp3");
    EXPECT_EQ(CutEnd("abcdefgh", 3 + ColumnsOf(cut)), "abc" + cut);
    EXPECT_EQ(ColumnsOf(Bar(1, 0, 10)), 10U);
    EXPECT_NE(Bar(5, 10, 10), Bar(4, 10, 10));
    EXPECT_EQ(Bar(12, 10, 10), Bar(10, 10, 10));
}

TEST(Progress, CountsWhatIsDoneOfTheseRequestsAlone) {
    WorkShare share(1, 2, 100, 200);
    WorkReport report{};
    report.batch_begun = 1, report.batch_device = 1, report.batch_inode = 2;
    const auto at = [&](int64_t line, int64_t in_line, int64_t files, double now) {
        report.line_begin = line, report.files_in_line = in_line, report.files = files;
        share.Look(report, now);
        return std::pair(share.where(), share.files());
    };
    EXPECT_EQ(at(0, 5, 5, 10), std::pair(WorkShare::kBefore, int64_t{0}));
    EXPECT_EQ(at(100, 2, 9, 20), std::pair(WorkShare::kInside, int64_t{2}));
    EXPECT_EQ(share.rate(), 0);
    EXPECT_EQ(at(150, 1, 19, 22), std::pair(WorkShare::kInside, int64_t{12}));
    EXPECT_EQ(share.rate(), 5);
    EXPECT_EQ(at(200, 50, 90, 30), std::pair(WorkShare::kBehind, int64_t{12}));
    report.batch_inode = 3;
    EXPECT_EQ(at(100, 3, 3, 40).first, WorkShare::kElsewhere);
    report.batch_inode = 2;  // kept, and executed again from its first line
    EXPECT_EQ(at(150, 1, 2, 45), std::pair(WorkShare::kInside, int64_t{1}));
    EXPECT_EQ(at(50, 3, 3, 50), std::pair(WorkShare::kBefore, int64_t{0}));
    EXPECT_EQ(at(100, 4, 7, 60), std::pair(WorkShare::kInside, int64_t{4}));
}

// ---- The queue's writers

TEST(RequestWriter, WaitsForTheLockAndForTheQueueThatComesAfterABatch) {
    const test::TempDir dir;
    const std::string queue = dir.Path("queue"), batch = dir.Path("batch");
    for (int round = 0; round < 5; ++round) {
        const QueuedBatch first = QueueAppend(queue, "a:/1\nd:/1\n");
        rename(queue.c_str(), batch.c_str());  // the daemon's take-over, and a writer that came before it
        EXPECT_EQ(link(batch.c_str(), queue.c_str()), 0);
        flock(first.file.get(), LOCK_SH);  // which a lock of the writer alone waits for
        std::thread late([&] { EXPECT_TRUE(QueueAppend(queue, "a:/late\n").file.valid()); });
        usleep(20'000);
        unlink(queue.c_str());
        EXPECT_EQ(test::ReadFile(batch), "a:/1\nd:/1\n");
        unlink(batch.c_str());
        flock(first.file.get(), LOCK_UN);
        late.join();
        EXPECT_EQ(test::ReadFile(queue), "a:/late\n");
        unlink(queue.c_str());
    }
}

TEST(RequestWriter, WritesAllLinesOrNone) {
    const test::TempDir dir;
    const std::string queue = dir.Path("queue");
    ASSERT_TRUE(QueueAppend(queue, "a:/1\n").file.valid());
    EXPECT_EQ(fs::status(queue).permissions(), fs::perms(0640));
    std::string expected = "a:/1\n";
    for (const auto& [cut, end] : {std::pair("a:/cut", "\n"), {"N:/a:/cu", ":?\n"}}) {
        std::ofstream(queue, std::ios::app) << cut;
        ASSERT_TRUE(QueueAppend(queue, "a:/2\n").file.valid());
        expected += cut + std::string(end) + "a:/2\n";
    }

    // A full disk: the limit of a file's size cuts a write in the same way.
    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit low{expected.size() + 2, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &low);
    const QueuedBatch cut = QueueAppend(queue, "a:/3\na:/4\n");
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(cut.error, "No space left on device");
    EXPECT_EQ(test::ReadFile(queue), expected);

    ASSERT_EQ(symlink(queue.c_str(), dir.Path("link").c_str()), 0);
    mkfifo(dir.Path("fifo").c_str(), 0600);
    for (const char* bad : {"link", "fifo", "", "missing/queue"})
        EXPECT_FALSE(QueueAppend(dir.Path(bad), "a:/5\n").file.valid()) << bad;
}

/// This process under the daemon's name; the signal that it gets waits to be asked for.
struct AsDaemon {
    explicit AsDaemon(const std::string& pid_file) {
        sigemptyset(&usr1);
        sigaddset(&usr1, SIGUSR1);
        sigprocmask(SIG_BLOCK, &usr1, nullptr);
        prctl(PR_SET_NAME, "koliindexd");
        std::ofstream(pid_file) << getpid();
    }
    ~AsDaemon() { prctl(PR_SET_NAME, "ctl_test"); }
    bool IsSignalled() const {
        const timespec at_once{};
        return sigtimedwait(&usr1, nullptr, &at_once) == SIGUSR1;
    }
    sigset_t usr1;
};

/// What the queue's service answers, and what the queue begins with then.
Texts Served(const std::string& sent, const test::TempDir& dir = {}) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    const UniqueFd caller(ends[0]), service(ends[1]);
    EXPECT_EQ(write(caller.get(), sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
    shutdown(caller.get(), SHUT_WR);
    EXPECT_EQ(QueueServe({dir.Path("queue"), "", dir.Path("pid")}, {"/v/music", "/v/photo"}, service.get()),
              kExitDone);
    char answer[200], queue[200];
    const ssize_t length = read(caller.get(), answer, sizeof answer);
    std::ifstream file(dir.Path("queue"));
    file.read(queue, sizeof queue);
    return {{answer, static_cast<size_t>(length)}, {queue, static_cast<size_t>(file.gcount())}};
}

TEST(QueueService, TakesAllOfACallThatAsksForNothingThatIsOnlyRootsToAsk) {
    const std::string lines = "A:/v/music\nN:/v/photo/New:/v/photo/Trip\n";
    const std::pair<const char*, Texts> cases[] = {
        {"",
         {lines + "\n", "\n", "a:/v//music/./x\n\n", "D:/v/music/x\n\n", "d:/v/photo/..x\n\n",
          "R:all\nR:photo\nU:photo\n\n", "N:/v/photo/New:/v/music/Trip\n\n"}},
        {"the requests were cut off on their way", {"", lines, lines.substr(0, lines.size() - 2)}},
        {"line 3 is no request",
         {lines + "X:/v\n\n", lines + "A/v\n\n", lines + "A:\n\n", lines + "\n\n", lines + "A:/a\0b\n\n"s}},
        {"line 1 names what is in no share, which is only root's to ask",
         {"A:/etc\n\n", "A:/v/music/../../etc\n\n", "A:/v/musical\n\n", "a:v/music/x\n\n", "D:/v/music/\n\n",
          "d:/v\n\n", "N:/v/photo/a:/etc/b\n\n", "N:/etc/b:/v/photo/a\n\n", "N:/v/photo/a\n\n",
          "N:/v/photo/a:/v/photo/b:/v/photo/c\n\n", "N::/v/photo/a\n\n", "N:/v/photo/a:\n\n"}},
        {"line 1 is only root's to ask", {"T:photo_share\n\n", "R:books\n\n", "U:music\n\n"}}};
    for (const auto& [refusal, calls] : cases)
        for (const std::string& sent : calls)
            EXPECT_EQ(Served(sent), *refusal != '\0' ? (Texts{"E"s + refusal, ""})
                                                     : (Texts{"Q10", sent.substr(0, sent.size() - 1)}));
    const test::TempDir dir;
    fs::resize_file(dir.Write("queue", ""), (64 << 20) - 5);  // 64 MiB may wait
    EXPECT_EQ(Served("U:photo\n\n", dir)[0], "Etoo many requests wait there already");
}

TEST(QueueService, IsAskedAgainWhenItHadNoTime) {
    const test::TempDir dir;
    sockaddr_un address{AF_UNIX, ""};
    dir.Path("service").copy(address.sun_path, sizeof address.sun_path - 1);
    const UniqueFd server(socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(bind(server.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(server.get(), 5), 0);
    const timeval patience{20, 0};
    setsockopt(server.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    std::thread service([&] {
        for (int caller = 0; caller < 3; ++caller) {
            const UniqueFd peer(accept(server.get(), nullptr, nullptr));
            if (caller == 2) QueueServe({dir.Path("queue"), "", dir.Path("pid")}, {}, peer.get());
        }
    });
    const Places refused{.queue = "/sys/queue", .service = dir.Path("service")};
    const Queued queued = QueueSubmit(refused, "U:photo\n");
    service.join();
    EXPECT_EQ(queued.batch.error, "");
    EXPECT_TRUE(queued.batch.file.valid());
    EXPECT_EQ(test::ReadFile(dir.Path("queue")), "U:photo\n");
}

TEST(QueueService, PutsTheDaemonOffForNoLongerThanAMinute) {
    const test::TempDir dir;
    const AsDaemon daemon(dir.Path("pid"));
    EXPECT_EQ(Served("U:photo\n\n", dir), (Texts{"Q00", "U:photo\n"}));
    EXPECT_TRUE(daemon.IsSignalled());
    EXPECT_EQ(Served("U:photo\n\n", dir), (Texts{"Q08", "U:photo\nU:photo\n"}));
    EXPECT_FALSE(daemon.IsSignalled());
    const timespec times[2] = {{time(nullptr) - 60, 0}, {0, UTIME_OMIT}};
    utimensat(AT_FDCWD, dir.Path("queue").c_str(), times, 0);
    Served("\n", dir);
    EXPECT_TRUE(daemon.IsSignalled());
}

TEST(Daemon, IsWokenAndWaitedForAndNobodyElse) {
    const test::TempDir dir;
    const Places places{dir.Path("queue"), dir.Path("batch"), dir.Path("pid")};
    EXPECT_EQ(DaemonWake(places.pid_file), Wake::kNotRunning);
    const AsDaemon daemon(places.pid_file);
    EXPECT_EQ(DaemonPid(places.pid_file), getpid());
    EXPECT_EQ(DaemonWake(places.pid_file), Wake::kWoken);
    EXPECT_TRUE(daemon.IsSignalled());
    prctl(PR_SET_NAME, "koliindexd2");  // somebody else has got the pid
    EXPECT_EQ(DaemonWake(places.pid_file), Wake::kNotRunning);
    EXPECT_FALSE(daemon.IsSignalled());

    prctl(PR_SET_NAME, "koliindexd");
    const QueuedBatch batch = QueueAppend(places.queue, "a:/1\n");
    const auto tell = [&](bool begun) {
        EXPECT_EQ(begun, rename(places.queue.c_str(), places.batch.c_str()) != 0);
    };
    EXPECT_EQ(BatchWait(batch.file, places, {.timeout = 1, .look_every_ms = 5, .tell_every_ms = 5}, tell),
              BatchEnd::kTimeout);
}

TEST(Why, TellsWhatWaitsForAPathAndWhatReadsIt) {
    const test::TempDir dir;
    Places places{dir.Path("queue"), dir.Path("batch"), dir.Path("pid"), "", dir.Path("state")};
    places.reading_file = dir.Path("reading"), places.progress = dir.Path("progress");
    const std::string song = dir.Write("a/b.mp3", "x"), request = "a:" + song + "\n";
    dir.Write("queue", request + "A:/v//a/.\nN:/v/new:/v/old\nd:/v/c\nX\nA:/v/x");
    for (const auto& [path, line] : {std::pair(song.c_str(), 1),
                                     {dir.dir().c_str(), 1},
                                     {"/v/a/c", 2},
                                     {"/v/old/x", 3},
                                     {"/v/new", 3},
                                     {"/v/c", 4},
                                     {"/v/x/y", 6},
                                     {"/v/c/d", 0},
                                     {"/v/ab", 0}})
        EXPECT_EQ(RequestFind(places.queue, path).line, line) << path;

    const AsDaemon daemon(places.pid_file);
    dir.Write("batch", request);
    dir.Write("state", "batch=kept\ndatabase=media.db\nreason=it is full\nsince=1\nretry=2\n");
    ASSERT_TRUE(WorkReportOpen(places.progress.c_str()) && ReadingMarkOpen(places.reading_file.c_str()));
    WorkFile(song.c_str());
    char read[kPathSize];
    for (int daemon_down = 0; daemon_down < 2; ++daemon_down) {
        ReadingMarkSet(song.c_str());
        ReadingMarkTakeOver(true, read);
    }
    std::string told;
    for (const Reason& reason : WaitingReasons(places, song))
        told += reason.code + " ";
    EXPECT_EQ(told, "in_kept_batch waiting being_read brought_down ");
    fs::remove(places.state_file), fs::remove(places.reading_file);  // as for who may not read it
    EXPECT_EQ(WaitingReasons(places, song).at(0).code, "in_batch");
    EXPECT_EQ(WaitingReasons(places, song).back().code, "being_read");
}

// ---- Preparing a machine and taking it back, below a root of the test's own

class SetupTest : public testing::Test {
  protected:
    SetupTest() {
        for (const char* folder : {"var/lib", "var/spool", "etc", "volume1/video"})
            fs::create_directories(dir_.Path(folder));
        dir_.Write("etc/koliinfo.conf", "albumdefpublic=yes\n");
        dir_.Write("volume1/video/film.mkv", "x");
    }
    int Run(bool apply, bool undo, const std::string& volume = "/volume1") {
        return ctl::Setup({}, volume, {apply, undo, {fs::path(dir_.Path("")).parent_path()}});
    }
    std::set<fs::path> Tree() const { return {fs::recursive_directory_iterator(dir_.Path("")), {}}; }
    test::TempDir dir_;
};

TEST_F(SetupTest, DoesWhatItShowsAndTakesExactlyThatBack) {
    const auto before = Tree();
    EXPECT_EQ(Run(false, false), kExitDifferences);
    EXPECT_EQ(Tree(), before) << "showing changes nothing";
    EXPECT_EQ(Run(true, false), kExitDone);
    EXPECT_EQ(fs::read_symlink(dir_.Path("var/services/photo")), "/volume1/photo");
    EXPECT_TRUE(fs::is_regular_file(dir_.Path("etc.defaults/koliinfo.conf")));
    EXPECT_EQ(fs::file_size(dir_.Path("etc/koliinfo.conf")), 19u) << "what was there stays";
    const auto applied = Tree();
    EXPECT_EQ(Run(true, false), kExitDone);
    const std::string record = dir_.Path("var/lib/koli/setup.manifest"), good = record + ".good";
    fs::copy_file(record, good);
    dir_.Write("var/lib/koli/setup.manifest", "folder\t/volume1/video\nfile\t/volume1/video/film.mkv\n");
    EXPECT_EQ(Run(false, true), kExitFiles);
    fs::rename(good, record);
    EXPECT_EQ(Tree(), applied) << "neither a second time nor a damaged record changes anything";
    EXPECT_EQ(Run(false, true), kExitDone);
    EXPECT_EQ(Tree(), before);
    EXPECT_EQ(Run(false, true), kExitFiles) << "nothing is recorded any more";

    for (const char* volume : {"/missing", "/"})
        EXPECT_EQ(Run(true, false, volume), kExitUsage);
    dir_.Write("volume1/photo", "a file");
    EXPECT_EQ(Run(true, false), kExitFiles);
    fs::remove(dir_.Path("volume1/photo"));
    EXPECT_EQ(Tree(), before) << "all or nothing";
}

TEST_F(SetupTest, WhatHasBeenUsedSinceStays) {
    ASSERT_EQ(Run(true, false), kExitDone);
    dir_.Write("volume1/music/song.mp3", "x");
    dir_.Write("etc.defaults/koliinfo.conf", "supportphoto=no\n");
    dir_.Write("var/lib/koli/media.db", "rows");
    fs::remove(dir_.Path("var/services/video"));
    fs::create_symlink("/elsewhere", dir_.Path("var/services/video"));
    EXPECT_EQ(Run(false, true), kExitDifferences);
    EXPECT_FALSE(fs::is_symlink(dir_.Path("var/services/music")));
    for (const char* kept : {"volume1/music/song.mp3", "etc.defaults/koliinfo.conf", "var/lib/koli/media.db",
                             "var/services/video"})
        EXPECT_TRUE(fs::remove(dir_.Path(kept))) << kept;
    EXPECT_EQ(Run(false, true), kExitDone) << "now that it is out of the way";
    EXPECT_FALSE(fs::exists(dir_.Path("var/lib/koli")) || fs::exists(dir_.Path("volume1/music")));
}

}  // namespace
}  // namespace koli::ctl
