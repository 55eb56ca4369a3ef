// The watcher as it runs: the kernel's notes, real time, requests to a sink of the test's own.
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <thread>

#include "host_temp_dir.h"
#include "tools/watch/watcher.h"

namespace koli::watch {
namespace {

namespace fs = std::filesystem;

struct RecordingSink : RequestSink {
    bool Queue(const std::string& text) override {
        const std::lock_guard guard(mutex);
        (is_full ? refused : lines) += text;
        return !is_full;
    }
    bool Compare(const std::string& folder, bool is_top, Differences*) override {
        const std::lock_guard guard(mutex);
        compares.push_back(folder + (is_top ? " top" : ""));
        return true;
    }
    bool IsQueueEmpty() override { return true; }

    std::mutex mutex;
    std::string lines, refused;
    std::vector<std::string> compares;
    std::atomic<bool> is_full = false;
};

TEST(Watcher, AsksForWhatHasSettledAndLosesNothingToAFullSpoolOrAShareThatGoes) {
    const test::TempDir dir;
    const std::string top = dir.Path("m");
    RecordingSink sink;
    const auto wait_for = [&](const std::function<bool()>& condition) {
        for (int i = 0; i < 6000; usleep(20'000), ++i) {
            const std::lock_guard guard(sink.mutex);
            if (condition()) return;
        }
        ADD_FAILURE() << "not within two minutes";
    };
    fs::create_directories(top + "/old");
    fs::create_directories(dir.Path("back/new"));
    dir.Write("m/old/gone.mp3", "x");
    dir.Write("back/new/d.mp3", "x");
    const int stop = eventfd(0, EFD_CLOEXEC);
    std::thread watcher([&] { EXPECT_EQ(Watcher({top, dir.Path("later")}, &sink).Run(stop), 0); });
    wait_for([&] { return !sink.compares.empty(); });  // everything is watched

    sink.is_full = true;
    fs::rename(top + "/old", top + "/new");
    dir.Write("m/a.mp3", "x");
    wait_for([&] { return sink.refused.ends_with("m/a.mp3\n"); });
    dir.Write("m/b.mp3", "x");
    sink.is_full = false;
    wait_for([&] { return sink.lines.ends_with("m/b.mp3\n"); });

    fs::rename(top, dir.Path("away"));
    fs::remove_all(dir.Path("away/new"));
    fs::rename(dir.Path("back"), top);
    wait_for([&] { return sink.compares.size() == 2; });
    // What is pending at the end is asked for, too.
    dir.Write("m/new/c.mp3", "x");
    fs::remove(top + "/new/d.mp3");
    fs::create_directories(top + "/x/y");
    eventfd_write(stop, 1);
    watcher.join();
    close(stop);
    EXPECT_EQ(sink.compares, std::vector<std::string>(2, top + " top"));
    for (size_t at = 0; (at = sink.lines.find(top)) != std::string::npos;)
        sink.lines.replace(at, top.size(), "~");
    EXPECT_EQ(sink.lines,
              "D:~/old\nN:~/new:~/old\na:~/a.mp3\na:~/b.mp3\na:~/new/c.mp3\nd:~/new/d.mp3\nA:~/x\n");
}

}  // namespace
}  // namespace koli::watch
