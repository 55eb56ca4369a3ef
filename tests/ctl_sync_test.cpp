// koliindexctl: what differs between folders and databases.
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <sstream>

#include "base/path_names.h"
#include "platform/host/database_groups.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "tests/host_place.h"
#include "tests/host_temp_dir.h"
#include "tools/ctl/sync.h"
#include "tools/ctl/sync_plan.h"
#include "tools/ctl/wait_result.h"

namespace koli::ctl {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

class SyncTest : public testing::Test {
  protected:
    SyncTest() {
        test::MakeLibrary();
        host::DatabaseDirectorySet(context_.places.databases.c_str());
    }
    ~SyncTest() override { host::DatabaseDirectorySet(nullptr); }

    std::string Path(const std::string& name) const { return dir_.Path(name); }
    void Files(const Texts& names, const std::string& bytes = "x") const {
        for (const std::string& name : names)
            dir_.Write(name, bytes);
    }
    /// Stores the file as the daemon would, or a row for a file that there is not.
    void Store(const std::string& name, int type = kStoreMusic) const {
        MediaInfo record{};
        struct stat status {};
        CopyText(record.path, sizeof record.path, Path(name).c_str());
        KOLIIndexCTimeMTimeGet(record.path, record.ctime, sizeof record.ctime, record.mtime,
                               sizeof record.mtime);
        if (stat(record.path, &status) == 0) record.file_size = static_cast<uint64_t>(status.st_size);
        if (type == kStorePlaylist) CopyText(record.ctime, sizeof record.ctime, ctime(&status.st_ctime));
        ASSERT_EQ(MediaInfoDBSave(type, &record), 0);
    }
    void StoreFolders(const Texts& names) const {
        for (const std::string& name : names)
            ASSERT_EQ(MediaInfoDBDirSave(Path(name).c_str()), 0);
    }
    void Both(const Texts& names, int type = kStoreMusic) const {
        for (const std::string& name : names) {
            dir_.Write(name, "x");
            Store(name, type);
        }
    }

    /// Leaves the requests in `requests_`, with the top's path written as "~".
    CompareResult Compare(bool allow_empty = false) {
        KOLIDBSync();
        StoreReader store;
        EXPECT_TRUE(store.Open(context_.places)) << store.error();
        SyncPlan plan(SyncPlan::kRequests);
        chmod(top_.c_str(), 0755);
        setfsuid(65534);  // root would read everything
        const auto found = [&](Change change, const std::string& path) {
            plan.Add(change, path);
            meanwhile_();
        };
        const CompareResult result = TreeCompare(store, top_, {.allow_empty = allow_empty}, found);
        setfsuid(0);
        EXPECT_EQ(store.error(), "");
        requests_.clear();
        std::istringstream lines(plan.TakeLines());
        for (std::string line; std::getline(lines, line);)
            requests_.push_back(line.replace(2, top_.size(), "~"));
        std::sort(requests_.begin(), requests_.end());
        return result;
    }
    Texts Requests(bool allow_empty = false) { return Compare(allow_empty), requests_; }

    const test::TempDir store_, dir_;
    const std::string& top_ = dir_.dir();  // two levels, like a share
    const Context context_{.places = {store_.Path("queue"), store_.Path("batch"), store_.Path("pid"),
                                      test::PlaceOr(store_.Path("db"))}};
    std::function<void()> meanwhile_ = [] {};  // at each difference
    Texts requests_;
};

TEST_F(SyncTest, EachDifferenceBecomesItsRequestAndNothingElseDoes) {
    // Unchanged: names around '/' in the order of bytes, and all four tables.
    StoreFolders({"", "b", "b-c", "b/a", "b.d", "b0", "old", "gone", "gone/deep", "gone-2"});
    Both({"a.mp3", "b.mp3", "b-c/x.mp3", "b/a/x.mp3", "b/x.mp3", "b.d/x.mp3", "b0/x.mp3", "#recycle/x.mp3"});
    Both({"v.mkv"}, kStoreVideo);
    Both({"p.JPG"}, kStorePhoto);
    Both({"l.m3u"}, kStorePlaylist);
    Files({"readme.txt", "._a.mp3", "noext", "b/@eaDir/x.mp3"});
    ASSERT_EQ(symlink(top_.c_str(), Path("b/up").c_str()), 0);

    Store("old/time.mp3");  // before the file was there: with another time
    Both({"old/size.mp3", "unrecorded/x.mp3"});
    Both({"old/table.mp3"}, kStoreVideo);  // stored, but in a table that is not its own
    Files({"old/new.mp3", "fresh/deep/x.mp3", "bad\nname/x.mp3"});
    Files({"old/time.mp3"}, "");
    Files({"old/size.mp3"}, "xx");
    for (const char* name :
         {"old/removed.mp3", "gone/x.mp3", "gone/deep/x.mp3", "gone-2/x.mp3", "never/recorded/x.mp3"})
        Store(name);
    Store("old/removed.avi", kStoreMusic);  // no handler would look for it in that table
    EXPECT_EQ(Compare().kept, 1);
    EXPECT_EQ(requests_,
              (Texts{"A:~", "A:~/fresh", "D:~/gone", "D:~/gone-2", "D:~/never", "D:~/old/removed.avi",
                     "a:~/old/new.mp3", "a:~/old/size.mp3", "a:~/old/table.mp3", "a:~/old/time.mp3",
                     "a:~/unrecorded", "d:~/old/removed.mp3"}));
    const WaitResult result =
        WaitResultOf(context_, {.lines = "", .present = {Path("fresh")}, .absent = {Path("b0")}});
    EXPECT_EQ(result.missing, Texts{Path("fresh/deep/x.mp3")});
    EXPECT_EQ(result.still_stored, 1);
}

TEST_F(SyncTest, RowsBelowAnUnreadableFolderStay) {
    StoreFolders({"", "locked", "locked/deep"});
    Both({"locked/a.mp3", "locked/deep/b.mp3", "c.mp3"});
    // In the second, names can be listed, but nothing can be asked about them.
    for (const unsigned mode : {0U, 0444U}) {
        fs::permissions(Path("locked"), fs::perms(mode));
        const CompareResult result = Compare();
        EXPECT_EQ(mode == 0 ? result.unreadable : result.kept, 1);
        EXPECT_EQ(requests_, Texts{});
    }
}

TEST_F(SyncTest, AVanishedShareIsNotADeletedOne) {
    EXPECT_EQ(Requests(), Texts{"A:~"});  // empty and new
    StoreFolders({""});
    EXPECT_EQ(Requests(), Texts{});
    Store("a.mp3");
    KOLIDBSync();
    const std::string other = store_.Path("other"), request = "A:" + other + "\n";
    store_.Write("other/new.mp3", "x");
    std::string queued;
    for (int look = 0; look < 2; ++look, fs::remove(top_)) {
        EXPECT_EQ(Sync(context_, {top_}, {.allow_empty = {other}}), kExitUsage);
        EXPECT_EQ(Sync(context_, {top_}, {.allow_empty = {""}}), kExitUsage);
        EXPECT_EQ(Sync(context_, {top_, other}, {.allow_empty = {other}}), kExitFiles);
        EXPECT_EQ(test::ReadFile(context_.places.queue), queued += request) << "the others are compared";
        EXPECT_EQ(Requests(), Texts{});
    }
    EXPECT_EQ(Sync(context_, {top_, other}, {.allow_empty = {top_}}), kExitNoDaemon);
    EXPECT_NE(test::ReadFile(context_.places.queue).find("D:" + top_ + "\n", queued.size()),
              std::string::npos);
    EXPECT_EQ(Requests(true), Texts{"D:~"});
    Files({"b.mp3"});
    EXPECT_EQ(Requests(), (Texts{"a:~/b.mp3", "d:~/a.mp3"}));

    // Unmounted while it is compared: another folder stands there at the end.
    fs::remove(Path("b.mp3"));
    Files({"c.txt"});
    meanwhile_ = [this] {
        setfsuid(0);
        fs::rename(top_, store_.Path("away"));
        fs::create_directory(top_);
    };
    EXPECT_EQ(Compare().error, ESTALE);
}

TEST_F(SyncTest, ADeepTreeNeitherCrashesNorLosesRows) {
    StoreFolders({""});
    std::string folder;
    for (int level = 0; level < 1100; ++level) {  // more than a process has files open
        StoreFolders({folder += level == 0 ? "d" : "/d"});
        ASSERT_EQ(mkdir(Path(folder).c_str(), 0755), 0);
    }
    Store(folder + "/d.mp3");
    EXPECT_EQ(Requests(), Texts{"d:~/" + folder + "/d.mp3"});
}

TEST(SyncPlan, NestedTopsAreComparedOnce) {
    EXPECT_EQ(WithoutNested({"/a/b", "/a-b", "/a", "/a", "/c/d"}), (Texts{"/a", "/a-b", "/c/d"}));
}

}  // namespace
}  // namespace koli::ctl
