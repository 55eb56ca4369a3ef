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
    void Unwatch(int) override {}
    Entry Look(FolderId, const std::string& name) override {
        return looks.try_emplace(name, kGrowing).first->second;
    }
    FolderTree* tree = nullptr;
    int last_watch = 0;
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

TEST_F(WatchTest, AFileThatMovesInIsNewAndOneThatMovesOutIsGone) {
    Write(one_, "up.part");  // uploads under a name of their own
    Move(one_, "up.part", one_, "up.mp3");
    Move(one_, "old.mp3", one_, "old.bak");
    EXPECT_EQ(After(kQuiet), (Texts{"a /v/m/one/up.mp3", "d /v/m/one/old.mp3"}));
    Note(IN_MOVED_FROM, one_, "away.mp3", 99);
    Note(IN_MOVED_TO, one_, "arrived.mp3", 100);
    EXPECT_EQ(After(kQuiet), Texts{"a /v/m/one/arrived.mp3"});
    EXPECT_EQ(After(500), Texts{"d /v/m/one/away.mp3"});
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

TEST(ComposerTest, WhatNoRequestCanCarryIsLookedForInItsFolder) {
    Composer composer;
    SentChanges sent;
    composer.Add({{SettledChange::kAddFile, "/v/m/a\nb.mp3"}}, &sent);
    EXPECT_EQ(composer.TakeLines(), "");
    EXPECT_EQ(composer.TakeCompares(), Texts{"/v/m"});
}

}  // namespace
}  // namespace koli::watch
