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
    bool Compare(const std::string& folder, bool is_top) override {
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

class WatcherTest : public testing::Test {
  protected:
    /// Watches while `work` runs, which begins once everything is watched.
    void During(const std::vector<std::string>& tops, const std::function<void()>& work) {
        const int stop = eventfd(0, EFD_CLOEXEC);
        std::thread thread([&] { EXPECT_EQ(Watcher(tops, &sink_).Run(stop), 0); });
        EXPECT_TRUE(WaitFor([&] { return !sink_.compares.empty(); }));
        work();
        eventfd_write(stop, 1);
        thread.join();
        close(stop);
    }
    bool WaitFor(const std::function<bool()>& condition) {
        for (int i = 0; i < 1000; usleep(20'000), ++i) {
            const std::lock_guard guard(sink_.mutex);
            if (condition()) return true;
        }
        return false;
    }
    test::TempDir dir_;
    RecordingSink sink_;
};

TEST_F(WatcherTest, AsksForWhatHasSettledAndForTheRestAtItsEndAndAFullSpoolLosesNothing) {
    fs::create_directories(dir_.Path("m/old"));
    dir_.Write("m/old/b.mp3", "x");
    sink_.is_full = true;
    During({dir_.Path("m")}, [&] {
        dir_.Write("m/a.mp3", "x");
        fs::rename(dir_.Path("m/old"), dir_.Path("m/new"));
        EXPECT_TRUE(WaitFor([&] { return !sink_.refused.empty(); }));
        dir_.Write("m/b.mp3", "x");
        sink_.is_full = false;
        EXPECT_TRUE(WaitFor([&] { return sink_.lines.ends_with("m/b.mp3\n"); }));
        dir_.Write("m/new/c.mp3", "x");
        fs::create_directories(dir_.Path("m/x/y"));
        fs::remove(dir_.Path("m/new/b.mp3"));
    });
    const std::string top = dir_.Path("m");
    EXPECT_EQ(sink_.compares, std::vector<std::string>{top + " top"});
    EXPECT_EQ(sink_.lines, "N:" + top + "/new:" + top + "/old\na:" + top + "/a.mp3\na:" + top +
                               "/b.mp3\na:" + top + "/new/c.mp3\nd:" + top + "/new/b.mp3\nA:" + top + "/x\n");
}

TEST_F(WatcherTest, AShareThatGoesIsNotDeletedAndIsComparedWhenItIsBack) {
    fs::create_directories(dir_.Path("m/album"));
    dir_.Write("m/album/a.mp3", "x");
    During({dir_.Path("m"), dir_.Path("later")}, [&] {
        fs::remove(dir_.Path("m/album/a.mp3"));
        fs::rename(dir_.Path("m"), dir_.Path("away"));
        usleep(100'000);
        fs::remove_all(dir_.Path("away/album"));
        fs::create_directories(dir_.Path("m"));
        EXPECT_TRUE(WaitFor([&] { return sink_.compares.size() == 2; })) << "within ten seconds";
        dir_.Write("m/new.mp3", "x");
    });
    EXPECT_EQ(sink_.lines, "a:" + dir_.Path("m/new.mp3") + "\n");
    EXPECT_EQ(sink_.compares.back(), dir_.Path("m") + " top");
}

}  // namespace
}  // namespace koli::watch
