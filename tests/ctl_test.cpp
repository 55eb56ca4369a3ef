// koliindexctl: request lines, usage, the queue's writers, waiting for the daemon.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
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
#include "tools/ctl/output.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/request_writer.h"

namespace koli::ctl {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using Texts = std::vector<std::string>;

std::string Read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// ---- Request lines

TEST(RequestLine, PathsAreMadeAbsoluteByTheirText) {
    EXPECT_EQ(AbsolutePath("../a/./b//", "/w/x"), "/w/a/b");
    EXPECT_EQ(AbsolutePath("/a/../../b", "/w"), "/b");
    EXPECT_EQ(AbsolutePath(" a ", "/w"), "/w/ a ");
    EXPECT_EQ(AbsolutePath("...", "/"), "/...");
    EXPECT_EQ(AbsolutePath("", "/w"), "");
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
    for (const char* line :
         {"", "|frobnicate", "|add", "|add|/no/such/file", "|add||", "|add|/tmp|/a\nb", "|remove|/tmp",
          "|rename|/tmp|/tmp", "|rename|/no/such|/a:b", "|rebuild|books", "|truncate|music",
          "|truncate|problem|--yes", "|sync|--timeout|5", "|list|--kind|folder"}) {
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
    static int run = 0;  // now and then late writers find the time to come
    if (++run % 4 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    flock(file.get(), LOCK_EX);
    *executed += Read(batch);
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
    for (std::string add, remove; std::getline(lines, add) && std::getline(lines, remove);) {
        EXPECT_EQ("d" + add.substr(1), remove);  // the lines of one call stay together
        seen.insert(add);
    }
    EXPECT_EQ(seen.size(), static_cast<size_t>(kWriters * kCalls));
    EXPECT_EQ(std::set(seen.begin(), seen.end()).size(), seen.size());
}

TEST(RequestWriter, WritesAllLinesOrNone) {
    const test::TempDir dir;
    const std::string queue = dir.Path("queue");
    ASSERT_TRUE(QueueAppend(queue, "a:/1\n").file.valid());
    EXPECT_EQ(fs::status(queue).permissions(), fs::perms(0666));
    std::ofstream(queue, std::ios::app) << "a:/cut";
    ASSERT_TRUE(QueueAppend(queue, "a:/2\n").file.valid());

    // A full disk: the limit of a file's size cuts a write in the same way.
    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit low{20, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &low);
    const QueuedBatch cut = QueueAppend(queue, "a:/3\na:/4\n");
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(cut.error, "No space left on device");
    EXPECT_EQ(Read(queue), "a:/1\na:/cut\na:/2\n");

    ASSERT_EQ(symlink(queue.c_str(), dir.Path("link").c_str()), 0);
    mkfifo(dir.Path("fifo").c_str(), 0600);
    for (const char* bad : {"link", "fifo", "", "missing/queue"})
        EXPECT_FALSE(QueueAppend(dir.Path(bad), "a:/5\n").file.valid()) << bad;
}

/// A process with that name; the daemon's signal ends it.
pid_t StartLookAlike(const char* name) {
    prctl(PR_SET_NAME, name);  // the child inherits it
    const pid_t child = fork();
    if (child == 0) _exit(static_cast<int>(sleep(60)));
    return child;
}

TEST(DaemonWake, SignalsTheDaemonAndNobodyElse) {
    const test::TempDir dir;
    EXPECT_EQ(DaemonWake(dir.Path("none")), Wake::kNotRunning);
    for (const bool is_daemon : {false, true}) {
        const pid_t child = StartLookAlike(is_daemon ? "koliindexd" : "koliindexd2");
        const std::string pid_file = dir.Write("pid", std::to_string(child));
        EXPECT_EQ(DaemonPid(pid_file), is_daemon ? child : 0);
        EXPECT_EQ(DaemonWake(pid_file), is_daemon ? Wake::kWoken : Wake::kNotRunning);
        if (!is_daemon) kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(WTERMSIG(status), is_daemon ? SIGUSR1 : SIGKILL);
    }
}

TEST(BatchWait, EndsWithTheBatchTheDaemonOrTheTime) {
    const test::TempDir dir;
    const Places places{dir.Path("queue"), dir.Path("batch"), dir.Path("pid")};
    const WaitLimits limits{.timeout = 1, .look_every_ms = 5, .tell_every_ms = 5};
    const pid_t daemon = StartLookAlike("koliindexd");
    dir.Write("pid", std::to_string(daemon));

    QueuedBatch batch = QueueAppend(places.queue, "a:/1\n");
    EXPECT_EQ(BatchWait(batch.file, places, limits, [](bool begun) { return !begun; }), BatchEnd::kTimeout);
    // The daemon takes it over, then is done with it.
    int told = 0;
    const auto take_over = [&](bool begun) {
        EXPECT_EQ(begun, told > 0);
        if (told++ == 0) rename(places.queue.c_str(), places.batch.c_str());
        if (told == 3) unlink(places.batch.c_str());
        return true;
    };
    EXPECT_EQ(BatchWait(batch.file, places, limits, take_over), BatchEnd::kExecuted);

    batch = QueueAppend(places.queue, "a:/1\n");
    kill(daemon, SIGKILL);
    waitpid(daemon, nullptr, 0);
    EXPECT_EQ(BatchWait(batch.file, places, {.timeout = 20}, [](bool) { return true; }), BatchEnd::kNoDaemon);
    EXPECT_EQ(Read(places.queue), "a:/1\n");
}

}  // namespace
}  // namespace koli::ctl
