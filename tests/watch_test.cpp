// The watcher's state machines on a clock of the test's own.
#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <map>
#include <string>
#include <vector>

#include "tools/watch/composer.h"
#include "tools/watch/event_fold.h"
#include "tools/watch/sent_changes.h"

namespace koli::watch {
namespace {

using Texts = std::vector<std::string>;

Texts TextsOf(const std::vector<SettledChange>& changes) {
    constexpr const char* kNames[] = {"a ", "A ",    "burst ", "d ",     "D ",      "n ",
                                      "N ", "drop ", "stay ",  "album ", "compare "};
    Texts texts;
    for (const SettledChange& change : changes)
        texts.push_back(kNames[change.kind] +
                        (change.old_path.empty() ? change.path : change.path + " " + change.old_path));
    return texts;
}

struct FakePort : FolderPort {
    void WatchTree(FolderId folder) override { tree->SetWatch(folder, ++last_watch); }
    std::vector<FolderId> TakeMissed() override { return {}; }
    std::vector<Met> TakeMet() override { return {}; }
    std::vector<FolderId> TakeWatched() override { return {}; }
    bool HoldsOlder(FolderId, const std::string&) override { return false; }
    void Unwatch(int watch) override { unwatched.push_back(watch); }
    Entry Look(FolderId, const std::string& name) override {
        return looks.try_emplace(name, kGrowing).first->second;
    }
    FolderTree* tree = nullptr;
    int last_watch = 0;
    std::vector<int> unwatched;
    std::map<std::string, Entry> looks;
};

/// A share "/v/m" with the folders "one" and "two", which have been stored long ago.
class WatchTest : public testing::Test {
  protected:
    WatchTest() {
        port_.tree = &tree_;
        top_ = tree_.AddTop("/v/m");
        one_ = tree_.Add(top_, "one");
        two_ = tree_.Add(top_, "two");
        for (const FolderId folder : {top_, one_, two_})
            port_.WatchTree(folder);
    }
    void Note(uint32_t mask, FolderId folder, std::string_view name, uint32_t cookie = 0) {
        fold_.Apply({folder, mask, cookie, name}, now_);
    }
    void Write(FolderId folder, std::string_view name) {
        Note(IN_CREATE, folder, name);
        Note(IN_CLOSE_WRITE, folder, name);
    }
    FolderId Make(FolderId folder, std::string_view name) {
        Note(IN_CREATE | IN_ISDIR, folder, name);
        return tree_.Find(folder, name);
    }
    void Move(FolderId from, std::string_view old, FolderId to, std::string_view name, uint32_t kind = 0) {
        Note(IN_MOVED_FROM | kind, from, old, ++cookie_);
        Note(IN_MOVED_TO | kind, to, name, cookie_);
    }
    Texts After(int64_t milliseconds) {
        now_ += milliseconds;
        fold_.Settle(now_);
        return TextsOf(pending_.TakeDue(now_));
    }

    FolderTree tree_;
    PendingChanges pending_{&tree_};
    FakePort port_;
    EventFold fold_{&tree_, &pending_, &port_,
                    [](const std::string& name) { return name.ends_with(".mp3"); }};
    FolderId top_, one_, two_;
    int64_t now_ = 1000;
    uint32_t cookie_ = 0;
};

TEST_F(WatchTest, AFileIsAskedForOnceItIsComplete) {
    // A copying program sets the times before it closes.
    int64_t silence = 10'000;
    for (const uint32_t mask : {IN_CREATE, IN_ATTRIB, IN_MODIFY, IN_CLOSE_WRITE, IN_ATTRIB}) {
        Note(mask, one_, "a.mp3");
        if (mask == IN_CLOSE_WRITE) silence = kQuiet - 1;
        EXPECT_EQ(After(silence), Texts());
    }
    EXPECT_EQ(After(1), Texts{"a /v/m/one/a.mp3"});
    EXPECT_TRUE(pending_.empty());
    Note(IN_MODIFY, one_, "a.mp3");  // and then its writer hangs
    EXPECT_EQ(After(kStalled - 1), Texts());
    EXPECT_EQ(After(1), Texts{"a /v/m/one/a.mp3"});

    for (int i = 0; i < 30; ++i) {  // closed again and again
        Write(one_, "a.mp3");
        EXPECT_EQ(After(1000), i < 29 ? Texts() : Texts{"a /v/m/one/a.mp3"});
    }
    port_.looks["link.mp3"] = FolderPort::kWhole;
    for (const char* name : {"link.mp3", "notes.txt"})
        Note(IN_CREATE, one_, name);
    for (const char* name : {"@eaDir", "#recycle"})
        Make(top_, name);
    EXPECT_EQ(After(kQuiet), Texts{"a /v/m/one/link.mp3"});
}

TEST_F(WatchTest, RenamesOfFilesKeepWhatIsStored) {
    Move(one_, "a.mp3", two_, "b.mp3");
    Move(two_, "b.mp3", two_, "c.mp3");
    EXPECT_EQ(After(kQuiet), (Texts{"n /v/m/two/c.mp3 /v/m/one/a.mp3", "d /v/m/two/b.mp3"}));
    Write(one_, "a.mp3");
    Move(one_, "a.mp3", one_, "b.mp3");
    EXPECT_EQ(After(kQuiet), (Texts{"n /v/m/one/b.mp3 /v/m/one/a.mp3", "a /v/m/one/b.mp3"}));
    Write(one_, "up.part");  // uploads under a name of their own
    Move(one_, "up.part", one_, "up.mp3");
    Move(one_, "old.mp3", one_, "old.bak");
    EXPECT_EQ(After(kQuiet), (Texts{"a /v/m/one/up.mp3", "d /v/m/one/old.mp3"}));
    Note(IN_MOVED_FROM, one_, "away.mp3", 99);
    Note(IN_MOVED_TO, one_, "arrived.mp3", 100);
    EXPECT_EQ(After(kQuiet), Texts{"a /v/m/one/arrived.mp3"});
    EXPECT_EQ(After(500), Texts{"d /v/m/one/away.mp3"});
}

TEST_F(WatchTest, FoldersMoveAndGoWithWhatIsInThem) {
    Move(top_, "one", top_, "uno", IN_ISDIR);
    Write(one_, "a.mp3");
    Move(one_, "b.mp3", one_, "c.mp3");
    Move(top_, "uno", two_, "ein", IN_ISDIR);
    EXPECT_EQ(After(kQuiet), (Texts{"N /v/m/two/ein /v/m/one", "n /v/m/two/ein/c.mp3 /v/m/one/b.mp3",
                                    "D /v/m/uno", "a /v/m/two/ein/a.mp3"}));
    const FolderId deep = tree_.Add(one_, "x");
    Note(IN_MOVED_FROM | IN_ISDIR, two_, "ein", 77);
    Write(deep, "late.mp3");
    EXPECT_EQ(After(500), Texts());
    EXPECT_EQ(After(kQuiet), Texts{"D /v/m/two/ein"});
    EXPECT_EQ(port_.unwatched, std::vector<int>{2});
    EXPECT_EQ(tree_.size(), 2u);
}

TEST_F(WatchTest, ANewFolderIsOneRequest) {
    FolderId fresh = Make(top_, "New Folder");
    Move(top_, "New Folder", top_, "Album", IN_ISDIR);
    Write(fresh, "a.mp3");
    const FolderId cd = Make(fresh, "cd");
    Write(cd, "b.mp3");
    Move(one_, "old.mp3", cd, "old.mp3");
    EXPECT_EQ(After(kQuiet),
              (Texts{"D /v/m/New Folder", "n /v/m/Album/cd/old.mp3 /v/m/one/old.mp3", "A /v/m/Album"}));
    Write(Make(top_, "new"), "temporary.mp3");
    Note(IN_DELETE, tree_.Find(top_, "new"), "temporary.mp3");
    EXPECT_EQ(After(kQuiet), (Texts{"d /v/m/new/temporary.mp3", "A /v/m/new"})) << "a walk may have met it";

    fresh = Make(top_, "Film");
    Note(IN_CREATE, fresh, "film.mp3");
    for (int i = 0; i < 100; ++i) {  // longer than any other limit but one
        Note(IN_MODIFY, fresh, "film.mp3");
        EXPECT_EQ(After(1000), Texts());
    }
    Note(IN_CLOSE_WRITE, fresh, "film.mp3");
    Note(IN_CREATE, fresh, "next.mp3");  // at no look from outside is all of it closed
    EXPECT_EQ(After(0), Texts{"A /v/m/Film"});
    Note(IN_CLOSE_WRITE, fresh, "next.mp3");
    EXPECT_EQ(After(kQuiet), Texts{"a /v/m/Film/next.mp3"});
    port_.looks["link"] = FolderPort::kLinkedTree;
    Note(IN_CREATE, top_, "link");
    EXPECT_EQ(After(kQuiet), Texts{"A /v/m/link"});
}

TEST_F(WatchTest, BurstsFold) {
    for (size_t i = 0; i < 5000; ++i)
        Write(one_, std::to_string(i) + ".mp3");
    Note(IN_DELETE, two_, "0.mp3");
    Move(two_, "x.mp3", one_, "y.mp3");
    const std::vector<SettledChange> due = pending_.TakeDue(now_ += kQuiet);
    EXPECT_EQ(TextsOf(due), (Texts{"n /v/m/one/y.mp3 /v/m/two/x.mp3", "d /v/m/two/0.mp3", "burst /v/m/one"}));
    EXPECT_EQ(due.back().files, 5000u);

    for (size_t i = 0; i <= kBurst; ++i)
        Write(Make(two_, std::to_string(i)), "a.mp3");
    EXPECT_EQ(After(kQuiet), Texts{"compare /v/m/two"});
    for (size_t i = 0; i <= kMaxPending; ++i)
        Note(IN_DELETE, two_, std::to_string(i) + ".mp3");
    EXPECT_EQ(After(kQuiet), (Texts{"d /v/m/two/32768.mp3", "compare /v/m/two"}));
    for (int i = 0; i < 40'000; ++i)
        Note(IN_DELETE | IN_ISDIR, top_, (tree_.Add(top_, std::to_string(i)), std::to_string(i)));
    EXPECT_TRUE(pending_.TakeOverflow());
}

TEST_F(WatchTest, AShareThatVanishesIsNotDeleted) {
    const FolderId mount = tree_.Add(two_, "disk");
    Note(IN_DELETE, mount, "a.mp3");
    Note(IN_DELETE | IN_ISDIR, mount, (tree_.Add(mount, "x"), "x"));
    Move(mount, "b.mp3", mount, "c.mp3");
    Move(two_, "moved.mp3", mount, "moved.mp3");
    Move(top_, "one", mount, "one", IN_ISDIR);
    Note(IN_UNMOUNT, mount, "");
    EXPECT_EQ(After(kQuiet), (Texts{"stay /v/m/two/disk/x", "stay /v/m/two/disk/b.mp3",
                                    "drop /v/m/two/moved.mp3", "D /v/m/one"}));
    EXPECT_EQ(tree_.Find(two_, "disk"), kNoFolder);
    EXPECT_TRUE(pending_.empty());
}

/// With "~" for the photo share.
std::string LinesOf(Composer* composer, const std::vector<SettledChange>& changes) {
    SentChanges sent;
    composer->Add(changes, &sent);
    std::string lines = composer->TakeLines();
    for (size_t at = 0; (at = lines.find("/volume9/photo")) != std::string::npos;)
        lines.replace(at, 14, "~");
    for (size_t at = 0; (at = lines.find(".koliindexctl-aside-")) != std::string::npos;)
        lines.replace(at, lines.find_first_of("-/", at + 20) - at, "");
    return lines;
}

TEST(ComposerTest, WhatNoRequestCanCarryIsLookedForInItsFolder) {
    Composer composer;
    EXPECT_EQ(LinesOf(&composer, {{SettledChange::kAddFile, "/v/m/a\nb.mp3"}}), "");
    EXPECT_EQ(composer.TakeCompares(), Texts{"/v/m"});
}

TEST(ComposerTest, WhatMovesMeetsNothingThatIsStored) {
    Composer composer;
    const std::string share = "/volume9/photo";
    MoveJournal journal;
    const auto move = [&](const char* from, const char* to,
                          SettledChange::Kind kind = SettledChange::kMoveTree) {
        journal.Moved(kind, share + to, share + from, 0);
    };
    move("/a", "/t"), move("/b", "/a"), move("/t", "/b");
    EXPECT_EQ(LinesOf(&composer, journal.Take()),
              "N:~/-0:~/a\nD:~/a\nN:~/-1:~/b\nD:~/b\nN:~/-2:~/t\nD:~/t\nN:~/a:~/-1\nN:~/b:~/-0\nD:~/-2\n");
    move("/a", "/t"), move("/t/s", "/s"), move("/t/c.jpg", "/#recycle/c.jpg", SettledChange::kMoveFile);
    journal.Removed(share + "/t", 0);
    EXPECT_EQ(LinesOf(&composer, journal.Take()),
              "N:~/-0:~/a\nD:~/a\nN:~//1:~/-0/s\nD:~/a/s\nN:~/-2.jpg:~/-0/c.jpg\nN:~/-3:~/t\nD:~/t\n"
              "N:~/#recycle/c.jpg:~/-2.jpg\nD:~/-0\nN:~/s:~//1\nD:~/-3\n");
    EXPECT_EQ(LinesOf(&composer, {{SettledChange::kMoveTree, "/v/b", "/v/a"},
                                  {SettledChange::kRemoveTree, "/v/c"},
                                  {SettledChange::kMoveTree, share + "/n", "/v/d"},
                                  {SettledChange::kAddTree, share + "/#recycle/x"}}),
              "D:/v/a\nD:/v/c\nD:/v/d\nN:/v/b:/v/a\nA:~/n\n");
}

TEST(SentChangesTest, WhatTheDaemonCannotHaveFoundIsAskedForAgain) {
    SentChanges sent;
    const auto ask = [&](SettledChange::Kind kind, const char* path, const char* old = "") {
        return TextsOf(sent.Complete({kind, path, old}));
    };
    Texts stale;
    ask(SettledChange::kMoveTree, "/b/x", "/a");
    ask(SettledChange::kAddFile, "/b/n.mp3");
    EXPECT_EQ(ask(SettledChange::kMoveTree, "/c", "/b"), (Texts{"N /c /b", "A /c"}));
    EXPECT_EQ(ask(SettledChange::kMoveTree, "/d", "/c"), (Texts{"N /d /c", "A /d"}));
    ask(SettledChange::kRemoveTree, "/e");
    EXPECT_TRUE(sent.Executed([](const std::string& path) { return path != "/b" && path != "/c"; }, &stale));
    EXPECT_EQ(stale, (Texts{"/a", "/d/x", "/e"})) << "other folders stand there, and their rows went along";
    EXPECT_EQ(ask(SettledChange::kMoveTree, "/f", "/d"), Texts{"N /f /d"}) << "all of that is done";
}

}  // namespace
}  // namespace koli::watch
