// koliindexctl: request lines, usage, the queue's writers, waiting for the daemon.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>

#include "tests/host_temp_dir.h"
#include "tools/ctl/batch_wait.h"
#include "tools/ctl/command_line.h"
#include "tools/ctl/enqueue.h"
#include "tools/ctl/output.h"
#include "tools/ctl/queue_service.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/request_writer.h"

namespace koli::ctl {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using Texts = std::vector<std::string>;

// ---- Request lines

TEST(RequestLine, PathsAreMadeAbsoluteByTheirText) {
    for (const auto& [path, absolute] : {std::pair{"../a/./b//", "/w/a/b"},
                                         {"/a/../../b", "/b"},
                                         {" a ", "/w/x/ a "},
                                         {"...", "/w/x/..."},
                                         {"", ""}})
        EXPECT_EQ(AbsolutePath(path, "/w/x"), absolute);
}

TEST(RequestLine, RefusesWhatALineCannotCarry) {
    EXPECT_EQ(PathRefusal("/a:b \xFF"), nullptr);
    const std::string longest = "/" + std::string(4107, 'x'), half = longest.substr(0, 2053);
    EXPECT_EQ(PathRefusal(longest), nullptr);
    EXPECT_EQ(RequestLine('a', longest).size(), 4111U);
    for (const std::string& path : {""s, "/a\nb"s, "/a\0b"s, longest + "x"})
        EXPECT_NE(PathRefusal(path), nullptr);
    EXPECT_EQ(RenameLine("/new", "/old"), "N:/new:/old\n");
    EXPECT_EQ(RenameRefusal(half, half + "y"), nullptr);
    EXPECT_EQ(RenameLine(half, half + "y").size(), 4111U);
    for (const auto& [from, to] :
         {std::pair("/a:b"s, "/c"s), {"/a", "/c:d"}, {"/a", "/c\n"}, {half, half + "yy"}})
        EXPECT_NE(RenameRefusal(from, to), nullptr);
}

TEST(CommandLine, RefusesBadUsageWithOneLineAndTwo) {
    const test::TempDir dir;
    ASSERT_NE(freopen(dir.Write("cut", "a:/1\na:/2").c_str(), "r", stdin), nullptr);
    for (const char* line :
         {"", "|frobnicate", "|add", "|add|/no/such/file", "|add||", "|add|/tmp|/a\nb", "|remove|/tmp",
          "|rename|/tmp|/tmp", "|rename|/no/such|/a:b", "|rebuild|books", "|truncate|music",
          "|truncate|problem|--yes", "|sync|--timeout|5", "|list|--kind|folder", "|enqueue"}) {
        Texts call;
        std::istringstream words("koliindexctl"s + line);
        for (std::string word; std::getline(words, word, '|');)
            call.push_back(word);
        std::vector<char*> argv;
        for (std::string& argument : call)
            argv.push_back(argument.data());
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
}

// ---- The queue's writers

/// The daemon's take-over and removal of the queue: what it reads is what it would execute.
void TakeOver(const std::string& queue, std::string* executed) {
    const std::string batch = queue + ".tmp";
    if (rename(queue.c_str(), batch.c_str()) != 0) return;
    const UniqueFd file(open(batch.c_str(), O_RDONLY | O_CLOEXEC));
    if (executed->size() % 4 == 0) usleep(1000);  // now and then late writers find the time to come
    flock(file.get(), LOCK_EX);
    *executed += test::ReadFile(batch);
    unlink(batch.c_str());
}

TEST(RequestWriter, LosesAndDoublesNothingWhileTheDaemonTakesOver) {
    constexpr int kWriters = 4, kCalls = 400;
    const test::TempDir dir;
    const std::string queue = dir.Path("queue");
    std::atomic<int> writing = kWriters;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < kWriters; ++writer)
        writers.emplace_back([&, writer] {
            for (int call = 0; call < kCalls; ++call) {
                const std::string name = "/" + std::to_string(writer) + "/" + std::to_string(call);
                EXPECT_TRUE(QueueAppend(queue, RequestLine('a', name) + RequestLine('d', name)).file.valid());
            }
            --writing;
        });
    std::string executed;
    while (writing > 0)
        TakeOver(queue, &executed);
    for (std::thread& writer : writers)
        writer.join();
    TakeOver(queue, &executed);

    std::istringstream lines(executed);
    std::multiset<std::string> seen;
    for (std::string add, remove; std::getline(lines, add) && std::getline(lines, remove); seen.insert(add))
        EXPECT_EQ("d" + add.substr(1), remove);  // the lines of one call stay together
    EXPECT_EQ(seen.size(), size_t{kWriters * kCalls});
    EXPECT_EQ(std::set(seen.begin(), seen.end()).size(), seen.size());
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

/// A process of the daemon's name that leaves its signal pending.
class FakeDaemon {
  public:
    explicit FakeDaemon(const std::string& pid_file) {
        sigset_t usr1;
        sigemptyset(&usr1);
        sigaddset(&usr1, SIGUSR1);
        sigprocmask(SIG_BLOCK, &usr1, nullptr);
        prctl(PR_SET_NAME, "koliindexd");  // the child inherits both
        pid_ = fork();
        if (pid_ == 0) _exit(static_cast<int>(sleep(600)));
        prctl(PR_SET_NAME, "koliindexd2");
        sigprocmask(SIG_UNBLOCK, &usr1, nullptr);
        std::ofstream(pid_file) << pid_;
    }
    ~FakeDaemon() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    FakeDaemon(const FakeDaemon&) = delete;
    FakeDaemon& operator=(const FakeDaemon&) = delete;
    pid_t pid() const { return pid_; }
    bool IsSignalled() const {
        const std::string status = test::ReadFile("/proc/" + std::to_string(pid_) + "/status");
        const size_t at = status.find("ShdPnd:");
        return (strtoull(status.c_str() + at + 7, nullptr, 16) >> (SIGUSR1 - 1) & 1) != 0;
    }

  private:
    pid_t pid_;
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

TEST(QueueService, TakesAllThatACallerHadToSayOrNothing) {
    const std::string lines = "A:/v/music\nN:/v/photo/New:/v/photo/Trip\n";
    EXPECT_EQ(Served(lines + "\n"), (Texts{"Q1", lines}));
    EXPECT_EQ(Served("\n"), (Texts{"Q1", ""}));
    for (const std::string& cut : {""s, lines, lines.substr(0, lines.size() - 2)})
        EXPECT_EQ(Served(cut), (Texts{"Ethe requests were cut off on their way", ""}));
    for (const std::string& line : {"X:/v"s, "A/v"s, "A:"s, ""s, "A:/a\0b"s})
        EXPECT_EQ(Served(lines + line + "\n\n"), (Texts{"Eline 3 is no request", ""}));
}

TEST(QueueService, TakesWhatIsNotOnlyRootsToAsk) {
    for (const std::string line : {"A:/v/music", "a:/v//music/./x", "D:/v/music/x", "d:/v/photo/..x", "R:all",
                                   "R:photo", "U:photo", "N:/v/photo/New:/v/music/Trip"})
        EXPECT_EQ(Served(line + "\n\n"), (Texts{"Q1", line + "\n"}));
    for (const std::string line :
         {"A:/etc", "A:/v/music/../../etc", "A:/v/musical", "a:v/music/x", "D:/v/music/", "d:/v",
          "N:/v/photo/a:/etc/b", "N:/etc/b:/v/photo/a", "N:/v/photo/a", "N:/v/photo/a:/v/photo/b:/v/photo/c",
          "N::/v/photo/a", "N:/v/photo/a:"})
        EXPECT_EQ(Served(line + "\n\n"),
                  (Texts{"Eline 1 names what is in no share, which is only root's to ask", ""}));
    for (const std::string line : {"T:photo_share", "R:books", "U:music"})
        EXPECT_EQ(Served(line + "\n\n"), (Texts{"Eline 1 is only root's to ask", ""}));
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
    for (const bool is_old : {false, true}) {
        const test::TempDir dir;
        const FakeDaemon daemon(dir.Path("pid"));
        EXPECT_EQ(Served("\n", dir), (Texts{"Q0", ""}));
        dir.Write("queue", "a:/1\n");
        EXPECT_EQ(Served("U:photo\n\n", dir), (Texts{"Q0", "a:/1\nU:photo\n"}));
        EXPECT_EQ(Served("\n", dir)[0], "Q0");
        EXPECT_FALSE(daemon.IsSignalled());
        const timespec times[2] = {{time(nullptr) - 60, 0}, {0, UTIME_OMIT}};
        if (is_old)
            utimensat(AT_FDCWD, dir.Path("queue").c_str(), times, 0);
        else
            unlink(dir.Path("queue").c_str());
        Served(is_old ? "\n" : "U:photo\n\n", dir);
        EXPECT_TRUE(daemon.IsSignalled());
    }
}

TEST(Daemon, IsWokenAndWaitedForAndNobodyElse) {
    const test::TempDir dir;
    const Places places{dir.Path("queue"), dir.Path("batch"), dir.Path("pid")};
    EXPECT_EQ(DaemonWake(places.pid_file), Wake::kNotRunning);
    dir.Write("pid", std::to_string(getpid()));  // somebody else has got the pid
    EXPECT_EQ(DaemonWake(places.pid_file), Wake::kNotRunning);
    prctl(PR_SET_NAME, "koliindexd2");
    EXPECT_EQ(DaemonPid(places.pid_file), 0);
    const FakeDaemon daemon(places.pid_file);
    EXPECT_EQ(DaemonPid(places.pid_file), daemon.pid());

    const WaitLimits limits{.timeout = 1, .look_every_ms = 5, .tell_every_ms = 5};
    QueuedBatch batch = QueueAppend(places.queue, "a:/1\n");
    EXPECT_EQ(BatchWait(batch.file, places, limits, [](bool) {}), BatchEnd::kTimeout);
    int told = 0;
    const auto take_over = [&](bool begun) {
        EXPECT_EQ(begun, told > 0);
        if (told++ == 0) rename(places.queue.c_str(), places.batch.c_str());
        if (told == 3) unlink(places.batch.c_str());
        return true;
    };
    EXPECT_EQ(BatchWait(batch.file, places, {.look_every_ms = 5, .tell_every_ms = 5}, take_over),
              BatchEnd::kExecuted);
    EXPECT_FALSE(daemon.IsSignalled());
    EXPECT_EQ(DaemonWake(places.pid_file), Wake::kWoken);
    EXPECT_TRUE(daemon.IsSignalled());
}

}  // namespace
}  // namespace koli::ctl
