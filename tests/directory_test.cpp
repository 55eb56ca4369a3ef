// The walk: what it visits, in which stores, and how it takes deep, looping and unreachable trees.
#include "index/directory.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <set>

#include "base/directory_listing.h"
#include "index/forerunner.h"
#include "index/record/index_mode.h"
#include "platform/paths.h"
#include "tests/fixture.h"

namespace koli::test {

constexpr int kBoth = kWalkMediaStore | kWalkPhotoLibrary;

class Walk : public Fixture {
  protected:
    /// The calls of one walk in sorted order: the file system's order is its own.
    static Lines Calls(const std::string& path, int mode, int types) {
        fake.calls.clear();
        EXPECT_EQ(IndexWalk(path.c_str(), mode, types), 0);
        std::sort(fake.calls.begin(), fake.calls.end());
        return fake.calls;
    }
    const std::string& top_ = dir();
};

TEST_F(Walk, FoldersFullOfLinksToEachOtherAreNotGoneThroughInEveryOrder) {
    const std::string names = "abcdefghij";  // nearly 10^7 ways
    for (const char folder : names) {
        ASSERT_EQ(mkdir(std::string{folder}.c_str(), 0755), 0);
        for (const char other : names)
            ASSERT_EQ(symlink((top_ + "/" + other).c_str(), std::string{folder, '/', other}.c_str()), 0);
    }
    const size_t free_ways = 1 + 10 + 10 * 9 + 10 * 9 * 8;
    const size_t folders = Calls(top_, kModeAdd, kWalkMediaStore).size();
    EXPECT_GT(folders, free_ways);
    EXPECT_LE(folders, free_ways + 10000);
    ASSERT_EQ(fake.log.size(), 1U);  // which names the first one that is left out
    EXPECT_TRUE(fake.log[0].starts_with("directory (#) Too many links below links: " + top_ + "/"))
        << fake.log[0];
}

TEST_F(Walk, ThePhotoLibraryGetsWhatTheMediaStoreTookAndTheConverterTheRest) {
    const std::string p = "vol00001/photo";  // its ninth character is where a volume's photo share has it
    for (const char* name : {"/a.jpg", "/b.mov", "/noext", "/._c.jpg", "/t.txt"})
        Write(p + name, "");
    const std::string exec = "KLIBExec /usr/koli/bin/koliflvconv -f " + p;
    fake.results = {{"MediaVideoAdd", -1}};
    EXPECT_EQ(Calls(p, kModeAdd, kBoth),
              (Lines{exec + "/._c.jpg", exec + "/b.mov", exec + "/noext", "MediaInfoDBDirSave " + p,
                     "MediaVideoAdd " + p + "/b.mov", "PhotoLibraryIndex " + p + "/a.jpg 1",
                     "PhotoLibraryIndex " + p + "/t.txt 1", "PhotoMediaAdd " + p + "/a.jpg"}));
    EXPECT_EQ(Calls(p + "/a.jpg", kModeUpdate, kWalkPhotoLibrary),
              Lines{"PhotoLibraryIndex " + p + "/a.jpg 5"});
    EXPECT_EQ(Calls(p + "/a.jpg", kModeUpdate, kBoth), Lines{exec + "/a.jpg"});
    EXPECT_EQ(Calls(p, kModeDelete, kBoth), (Lines{"MediaInfoDBDelete 5 " + p, "PhotoInfoDBDirDelete " + p}));
    support_photo = 0;
    EXPECT_EQ(Calls(p + "/a.jpg", kModeAdd, kBoth), Lines{"PhotoMediaAdd " + p + "/a.jpg"});
}

TEST_F(Walk, WhatAStoreHasRefusedIsNotOvertakenAndNoFileIsMisjudgedForIt) {
    const std::string p = "vol00001/photo", a = p + "/1/a.jpg";
    Write(a, "");
    fake.results = {{"PhotoMediaAdd", -1}};
    fake.at_call = [](const std::string& call) {
        fake.refusing |= call == "PhotoMediaAdd" ? KOLI_MEDIA_DB : 0;
    };
    EXPECT_EQ(Calls(p, kModeAdd, kBoth), (Lines{"MediaInfoDBDirSave " + p, "MediaInfoDBDirSave " + p + "/1",
                                                "PhotoLibraryIndex " + a + " 1", "PhotoMediaAdd " + a}));
    EXPECT_EQ(Calls(p, kModeAdd, kBoth), Lines{"PhotoLibraryIndex " + a + " 1"});
    EXPECT_EQ(Calls(p, kModeAdd, kWalkMediaStore), Lines{});
    fake.refusing = KOLI_MEDIA_DB | KOLI_PHOTO_DB;
    EXPECT_EQ(Calls(p, kModeAdd, kBoth), Lines{});
}

TEST_F(Walk, ARebuildTellsWhatItHasMissedAndTriesWhatWasNotStoredOnceMore) {
    const std::string real = MakeDir("real"), song = Write("real/a.mp3", ""), loop = real + "/loop.mp3";
    const std::string closed = MakeDir("real/closed");
    ASSERT_EQ(symlink("loop.mp3", loop.c_str()), 0);
    ASSERT_EQ(chmod(closed.c_str(), 0), 0);
    ASSERT_EQ(chmod(top_.c_str(), 0755), 0);
    fake.results = {{"MusicFileAdd", -1}};
    fake.unsaved = {song};
    {
        const AsNobody nobody;
        IndexTreeAgain(real.c_str());
    }
    std::sort(fake.calls.begin(), fake.calls.end());
    EXPECT_EQ(fake.calls,
              (Lines{"MediaInfoDBDirSave " + real, "MediaRebuildBegin " + real, "MediaRebuildEnd 1",
                     "MediaRebuildMiss " + closed, "MediaRebuildMiss " + loop, "MusicFileAdd " + song,
                     "MusicFileAdd " + song}));
    EXPECT_EQ(fake.log.size(), 2U);

    // A volume that vanishes while it is gone through leaves another folder in its place.
    fake.calls.clear();
    fake.at_call = [&](const std::string& call) {
        if (call != "MediaInfoDBDirSave") return;
        std::filesystem::rename(real, top_ + "/gone");
        MakeDir("real");
    };
    IndexTreeAgain(real.c_str());
    EXPECT_EQ(fake.calls.back(), "MediaRebuildEnd 0");
    const std::string far = "real/" + std::string(250, 'f');  // a foothold is taken there
    fake.at_call = [&](const std::string& call) {
        if (call == "MusicFileAdd") rename(far.c_str(), "away");
    };
    Write(far + "/b.mp3", "");
    IndexTreeAgain(real.c_str());
    EXPECT_EQ(fake.calls.end()[-2], "MediaRebuildMiss " + Path(far));
    fake.refusing = KOLI_MEDIA_DB;
    fake.calls.clear();
    IndexTreeAgain(real.c_str());
    EXPECT_EQ(fake.calls, Lines{});
}

TEST_F(Walk, AReleasedListingGoesOnWhereItWas) {
    for (int i = 1000; i < 1600; ++i)  // of 250 bytes each: more than a released listing holds
        Write(std::to_string(i) + std::string(246, 'n'), "");
    std::set<std::string> names;
    DirectoryListing listing;
    ASSERT_TRUE(listing.Open("."));
    for (auto entry = listing.Next(); entry.name != nullptr; entry = listing.Next()) {
        EXPECT_TRUE(names.emplace(entry.name).second);
        listing.Release();
    }
    EXPECT_EQ(names.size(), 600U);
}

/// The names in `folder` that are opened while `work` runs, until `last` has been.
static std::set<std::string> OpenedIn(const std::string& folder, const std::string& last,
                                      const std::function<void()>& work) {
    std::set<std::string> names;
    const int watch = inotify_init1(IN_CLOEXEC);
    EXPECT_GE(inotify_add_watch(watch, folder.c_str(), IN_OPEN), 0);
    work();
    alignas(inotify_event) char events[4096];
    for (pollfd waiting{watch, POLLIN, 0}; names.count(last) == 0 && poll(&waiting, 1, 20000) == 1;) {
        const ssize_t end = read(watch, events, sizeof events);
        for (ssize_t at = 0; at < end;) {
            const auto* event = reinterpret_cast<const inotify_event*>(events + at);
            if (event->len > 0) names.insert(event->name);
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
    }
    close(watch);
    return names;
}

TEST_F(Walk, WhatRunsAheadOpensWhatWillBeReadAndEndsWithIt) {
    const std::string folder = MakeDir("in"), outside = Write("out/o.mp3", "");
    for (const char* name : {"/a.mp3", "/list.m3u", "/disc.iso", "/noext", "/x/b.flac", "/x/y/c.jpg"})
        Write("in" + std::string(name), "");
    ASSERT_EQ(mkfifo((folder + "/fifo.mp3").c_str(), 0600), 0);
    ASSERT_EQ(symlink(outside.c_str(), (folder + "/link.mp3").c_str()), 0);
    ASSERT_EQ(symlink((top_ + "/out").c_str(), (folder + "/link").c_str()), 0);
    {
        Forerunner forerunner;
        EXPECT_EQ(OpenedIn(folder + "/x/y", "c.jpg",
                           [&] {
                               for (int i = 0; i < 1000; ++i)  // more than the process takes at once
                                   forerunner.Announce((folder + "/x/").c_str());
                           }),
                  std::set<std::string>{"c.jpg"});
    }
    const auto announce = [&folder](Forerunner& forerunner) {
        for (const char* name :
             {"fifo.mp3", "link.mp3", "link/", "list.m3u", "disc.iso", "noext", "no", "a.mp3"})
            forerunner.Announce((folder + "/" + name).c_str());
    };
    {
        Forerunner forerunner;
        EXPECT_EQ(OpenedIn(folder, "a.mp3", [&] { announce(forerunner); }), std::set<std::string>{"a.mp3"});
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // there is no child
    fake.values[std::string(paths::kConfig) + ":runahead"] = "no";
    Forerunner off;
    announce(off);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(fake.log, Lines{});
}

}  // namespace koli::test
