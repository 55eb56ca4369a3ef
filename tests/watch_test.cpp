// The watcher on real folders with the kernel's notes, on a clock of the test's own.
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>

#include "host_temp_dir.h"
#include "tools/watch/watcher.h"

namespace {

int watches_left = INT_MAX;  // that the machine allows

}  // namespace

extern "C" {
int __real_inotify_add_watch(int fd, const char* path, uint32_t mask);
int __wrap_inotify_add_watch(int fd, const char* path, uint32_t mask) {
    if (--watches_left >= 0) return __real_inotify_add_watch(fd, path, mask);
    errno = ENOSPC;
    return -1;
}
}

namespace koli::watch {
namespace {

namespace fs = std::filesystem;

/// A share with the folders "one" and "two", which have been stored long ago.  In what is asked for it is
/// "~".
class WatchTest : public testing::Test, public RequestSink {
  protected:
    WatchTest() {
        for (const char* file : {"one/old.mp3", "one/a.mp3", "two/b.mp3"})
            Write(file);
        EXPECT_TRUE(watcher_.Open());
        EXPECT_EQ(After(0), "= ~ top\n");
    }
    ~WatchTest() override { watches_left = INT_MAX; }
    bool Queue(const std::string& lines) override {
        if (!is_full_) asked_ += lines;
        return !is_full_;
    }
    bool Compare(const std::string& folder, bool is_top, std::string*) override {
        asked_ += "= " + folder + (is_top ? " top\n" : "\n");
        if (while_comparing_) std::exchange(while_comparing_, nullptr)();
        return !is_full_;
    }
    bool IsQueueEmpty() override { return !is_busy_; }
    void Tell(const std::vector<ctl::ShareState>& shares) override { told_ = shares; }

    std::string At(const std::string& name) const { return dir_.Path(name); }
    std::string Outside(const std::string& name) const { return outside_.Path(name); }
    void Write(const std::string& name) { dir_.Write(name, "x"); }
    void Make(const std::string& name) { dir_.MakeDir(name); }
    void Move(const std::string& from, const std::string& to) { fs::rename(At(from), At(to)); }
    void Remove(const std::string& name) { fs::remove_all(At(name)); }
    std::string Asked() {
        for (size_t at = 0; (at = asked_.find(top_)) != std::string::npos;)
            asked_.replace(at, top_.size(), "~");
        return std::exchange(asked_, {});
    }
    /// What is asked for when so long nothing else happens.
    std::string After(int64_t milliseconds) {
        watcher_.Turn(now_);
        watcher_.Turn(now_ += milliseconds);
        return Asked();
    }

    const test::TempDir dir_, outside_;
    const std::string top_ = dir_.dir();
    bool is_full_ = false, is_busy_ = false;
    std::function<void()> while_comparing_;
    std::string asked_;
    std::vector<ctl::ShareState> told_;
    Watcher watcher_{{top_, Outside("later")}, this};
    int64_t now_ = 1'000'000;
};

TEST_F(WatchTest, AFileIsAskedForOnceItIsComplete) {
    std::ofstream writer(At("one/new.mp3"));
    EXPECT_EQ(After(10'000), "");
    writer << "x" << std::flush;
    fs::last_write_time(At("one/new.mp3"), {});  // a copying program sets the times before it closes
    EXPECT_EQ(After(10'000), "");
    writer.close();
    EXPECT_EQ(After(kQuiet - 1), "");
    EXPECT_EQ(After(1), "a:~/one/new.mp3\n");
    EXPECT_EQ(After(kLongest), "");
    fs::permissions(At("one/new.mp3"), fs::perms::owner_read);
    EXPECT_EQ(After(kQuiet), "a:~/one/new.mp3\n");

    writer.open(At("two/c.mp3"));  // and then its writer hangs
    EXPECT_EQ(After(kStalled - 1), "");
    EXPECT_EQ(After(1), "a:~/two/c.mp3\n");
    for (int i = 0; i < 31; ++i) {  // closed again and again
        Write("one/a.mp3");
        EXPECT_EQ(After(1000), i < 29 ? "" : i == 29 ? "a:~/one/a.mp3\n" : "");
    }
    After(kQuiet);
    fs::create_hard_link(At("one/a.mp3"), At("one/link.mp3"));
    fs::create_symlink(At("one/a.mp3"), At("one/symlink.mp3"));
    for (const char* name : {"notes.txt", "@eaDir/a.mp3", "#recycle/a.mp3", "#recycle/cd/b.mp3"})
        Write(name);
    EXPECT_EQ(After(kQuiet), "a:~/one/link.mp3\na:~/one/symlink.mp3\n");
    Write("one/a\nb.mp3");  // no request carries it
    EXPECT_EQ(After(10'000), "= ~/one\n");
}

TEST_F(WatchTest, ANewFolderIsOneRequest) {
    Write("New Folder/a.mp3");
    Move("New Folder", "Album");
    Move("two", "Album/two");
    EXPECT_EQ(After(kQuiet - 1), "");
    EXPECT_EQ(After(1), "D:~/New Folder\nD:~/two\nA:~/Album\n");

    Make("Film");
    std::ofstream film(At("Film/film.mp3"));
    for (int i = 0; i < 100; ++i) {  // longer than any other limit but one
        film << "x" << std::flush;
        EXPECT_EQ(After(1000), "");
    }
    film.close();
    std::ofstream next(At("Film/next.mp3"));  // at no look from outside is all of it closed
    EXPECT_EQ(After(0), "A:~/Film\n");
    next.close();
    EXPECT_EQ(After(kQuiet), "a:~/Film/next.mp3\n");
    fs::create_directory_symlink(At("one"), At("link"));
    EXPECT_EQ(After(kQuiet), "A:~/link\n");
    fs::remove(At("link"));
    EXPECT_EQ(After(kQuiet), "D:~/link\n");
}

TEST_F(WatchTest, FoldersAreKnownWhereverTheyMoveBeforeTheirNotesAreRead) {
    Make("x/in");
    Move("x", "y");  // by now something else stands where the note says
    Make("x/other");
    Make("z");
    Move("one", "z/one");
    EXPECT_EQ(After(kQuiet), "D:~/x\nD:~/y\nD:~/one\nA:~/z\nA:~/y\nA:~/x\n");
    for (const char* name : {"x/other/1.mp3", "y/in/2.mp3", "z/one/3.mp3"})
        Write(name);
    EXPECT_EQ(After(kQuiet), "a:~/x/other/1.mp3\na:~/y/in/2.mp3\na:~/z/one/3.mp3\n");
}

TEST_F(WatchTest, WhatTheDaemonMayHaveMixedUpIsCompared) {
    is_busy_ = true;  // it may look for what was asked for when that has moved on
    Write("two/d.mp3");
    EXPECT_EQ(After(kQuiet), "a:~/two/d.mp3\n");
    Move("two", "three");
    EXPECT_EQ(After(kQuiet), "N:~/three:~/two\n");
    is_busy_ = false;
    EXPECT_EQ(After(10'000), "= ~/three\n");
    Move("three", "four");
    Write("three/a.mp3");  // it may take that for what is stored there
    EXPECT_EQ(After(kQuiet), "N:~/four:~/three\nA:~/three\n");
    EXPECT_EQ(After(10'000), "= ~/three\n= ~/four\n");
}

TEST_F(WatchTest, TellsWhetherTheStoresAreInStep) {
    using Kind = ctl::ShareState::Kind;
    After(10'000);
    ASSERT_EQ(told_.size(), 2U);
    EXPECT_EQ(std::pair(told_[0].kind, told_[1].kind), std::pair(Kind::kInStep, Kind::kAway));
    EXPECT_GT(told_[0].in_step, 0);
    is_busy_ = true;
    Write("one/new.mp3");
    EXPECT_EQ(After(20'000), "a:~/one/new.mp3\n");
    EXPECT_EQ(told_[0].kind, Kind::kPending);
    is_busy_ = false;
    After(10'000);
    EXPECT_EQ(told_[0].kind, Kind::kInStep);
}

TEST_F(WatchTest, FoldersAreWatchedOnce) {
    const std::string entries = Outside("run");
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t first = fork();
    if (first == 0) {
        ctl::WatchState state(entries);
        bool is_entered = state.Enter({"/v/music", "/v/photo/Trip"}) == 0;
        for (bool is_told = false;; is_told = true) {  // and keeps its place
            state.Tell({{"/v/music", ctl::ShareState::kInStep, 5}, {"/v/photo/Trip"}});
            if (!is_told) is_entered &= write(ready[1], &is_entered, 1) == 1;
        }
    }
    bool is_entered = false;
    ASSERT_EQ(read(ready[0], &is_entered, 1), 1);
    EXPECT_TRUE(is_entered);
    for (int look = 0; look < 200; ++look)
        for (const char* taken : {"/v/music", "/v/music/a", "/v", "/v/photo"})
            EXPECT_EQ(ctl::WatchState(entries).Enter({"/other", taken}), first) << taken;
    kill(first, SIGSTOP);
    waitpid(first, nullptr, WUNTRACED);
    const auto running = ctl::RunningWatchers(entries);
    ASSERT_EQ(running.size(), 1U);
    EXPECT_EQ(running[0].shares[0].in_step, 5);
    EXPECT_EQ(running[0].shares[1].path, "/v/photo/Trip");
    kill(first, SIGCONT);
    EXPECT_EQ(ctl::WatchState(entries).Enter({"/v/musical", "/v/photo/Trip 2"}), 0);
    kill(first, SIGKILL);
    waitpid(first, nullptr, 0);
    EXPECT_EQ(ctl::WatchState(entries).Enter({"/v/music"}), 0);
    EXPECT_TRUE(ctl::RunningWatchers(entries).empty());
}

TEST_F(WatchTest, BurstsFold) {
    for (int i = 0; i < 100; ++i)
        Write("one/" + std::to_string(i) + ".mp3");
    Move("two/b.mp3", "two/c.mp3");
    EXPECT_EQ(After(kQuiet), "N:~/two/c.mp3:~/two/b.mp3\nA:~/one\n");
    for (int i = 0; i < 200; ++i)
        Write("one/deep/" + std::to_string(i) + ".txt");
    After(kQuiet);
    for (int i = 0; i < 70; ++i)
        Write("one/" + std::to_string(i) + ".mp3");
    EXPECT_EQ(After(kQuiet), "");
    EXPECT_EQ(After(10'000), "= ~/one\n") << "of a large tree that finds what has changed";
    PendingChanges pending;
    for (size_t i = 0; i <= kMaxPending; ++i)
        pending.File("/v/m/" + std::to_string(i) + ".mp3", PendingChanges::kGone, now_);
    EXPECT_LE(pending.TakeAll(now_).size(), 2u);
}

TEST_F(WatchTest, NothingIsLostToAFullSpoolOrDroppedNotes) {
    is_full_ = true;
    Move("one", "uno");
    EXPECT_EQ(After(kQuiet), "");
    Write("a.mp3");
    After(kQuiet);
    is_full_ = false;
    EXPECT_EQ(After(5000), "N:~/uno:~/one\na:~/a.mp3\n");
    std::string deep;
    for (int i = 0; i < 14; ++i)
        deep += std::string(250, 'x') + "/";
    Write(deep += "a.mp3");
    is_full_ = true;
    for (int i = 0; i < 1300; ++i, After(kQuiet))  // more than is kept
        fs::permissions(At(deep), fs::perms::owner_all);
    is_full_ = false;
    EXPECT_TRUE(After(20'000).ends_with("= ~ top\n"));
    Remove(deep.substr(0, 250));
    After(10'000);

    Write("b.mp3");
    for (int i = 0; i < 20'000; ++i)  // more than the kernel notes
        fs::permissions(At(i % 2 == 0 ? "a.mp3" : "b.mp3"), fs::perms::owner_all);
    Make("unnoted");
    EXPECT_EQ(After(1000), "a:~/a.mp3\na:~/b.mp3\n");
    EXPECT_EQ(After(10'000), "= ~ top\n");
    Write("unnoted/c.mp3");
    while_comparing_ = [&] { Move("uno", "eins"); };  // what a comparison finds then is worth little
    After(0);
    EXPECT_EQ(After(kQuiet), "a:~/unnoted/c.mp3\n");
}

TEST_F(WatchTest, FoldersBeyondTheLimitAreComparedFromTimeToTime) {
    watches_left = 1;
    for (const char* name : {"x/y/1.mp3", "z/2.mp3"})
        Write(name);
    EXPECT_EQ(After(kQuiet), "A:~/z\nA:~/x\n");
    Write("x/y/3.mp3");
    EXPECT_EQ(After(300'000), "");
    EXPECT_EQ(After(600'000), "= ~ top\n");
}

TEST_F(WatchTest, AShareThatVanishesIsNotDeleted) {
    Move("one", "two/one");
    watcher_.Turn(now_);
    fs::rename(top_, Outside("away"));
    fs::remove_all(Outside("away/two"));
    outside_.Write("later/a.mp3", "x");
    EXPECT_EQ(After(10'000), "= " + Outside("later") + " top\n");
    fs::rename(Outside("away"), top_);
    EXPECT_EQ(After(10'000), "= ~ top\n");
    // What is pending at the end is asked for, too.
    Write("new/c.mp3");
    watcher_.Finish(now_);
    EXPECT_EQ(Asked(), "A:~/new\n");
}

}  // namespace
}  // namespace koli::watch
