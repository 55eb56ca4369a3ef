// The table of files that could not be parsed, as the daemon's own sequence of calls fills and clears it.
#include <gtest/gtest.h>

#include "base/path_names.h"
#include "platform/host/database_groups.h"
#include "platform/host/problems.h"
#include "platform/host/tables.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "tests/host_temp_dir.h"

namespace koli::host {
namespace {

using Texts = std::vector<std::string>;

class Problems : public testing::Test {
  protected:
    Problems() { DatabaseDirectorySet(dir_.Path("db").c_str()); }
    ~Problems() override { DatabaseDirectorySet(nullptr); }

    /// What a dispatch of the file does; an empty reason stands for a file that parses.
    static void Index(const std::string& path, const std::string& reason, int type = kStoreMusic) {
        MediaInfo record{};
        CopyText(record.path, sizeof record.path, path.c_str());
        ASSERT_EQ(MediaInfoDBSave(type, &record), 0);
        if (reason.empty())
            KOLIProblemClear(path.c_str(), 0);
        else
            KOLIProblemSet(path.c_str(), reason.c_str(), 0);
    }

    static Texts Table() {
        Texts rows;
        const auto found =
            MediaDatabase().Query("SELECT path || ' ' || reason AS v FROM problem ORDER BY path");
        for (int row = 0; found != nullptr && row < found->count(); ++row)
            rows.emplace_back(found->Field(row, "v"));
        return rows;
    }

    const test::TempDir dir_;
};

TEST_F(Problems, GoWhenTheFileParsesOrLeavesAndAreWrittenOnlyWhenTheyChange) {
    for (const char* path : {"/s/a.mp3", "/s/b.mp3", "/s/c/d.mp3", "/s/c-.mp3"})
        Index(path, "no");
    Index("/s/e.avi", "no", kStoreVideo);
    Index("/s/a.mp3", "");
    MediaInfoDBDelete(kStoreBelowDirectory, "/s/c");
    MediaInfoDBDelete(kStoreMusic, "/s/b.mp3");
    KOLIDBFlush();
    const auto changes = []() -> std::string {
        return MediaDatabase().Query("SELECT total_changes() AS v")->Field(0, "v");
    };
    const std::string before = changes();
    Index("/s/e.avi", "no", kStoreVideo);
    KOLIDBFlush();
    EXPECT_EQ(changes(), before);
    Index("/s/e.avi", "caf\xE9", kStoreVideo);
    EXPECT_EQ(Table(), (Texts{"/s/c-.mp3 no", "/s/e.avi caf\xC3\xA9"}));
    KOLITruncateTable("music");
    EXPECT_EQ(Table(), Texts{"/s/e.avi caf\xC3\xA9"});
}

TEST_F(Problems, OfThePhotoLibraryAreOverWhenItSaysSo) {
    KOLIProblemSet("/p/a.jpg", "no caption", KOLI_PROBLEM_PASSES | KOLI_PROBLEM_PHOTOS);
    KOLIProblemSet("/p/b.jpg", "no disk", KOLI_PROBLEM_PASSES);
    KOLIProblemSet("/p/b.jpg", "no disk", KOLI_PROBLEM_PASSES | KOLI_PROBLEM_PHOTOS);  // said by both
    EXPECT_EQ(Table(), (Texts{"/p/a.jpg no caption", "/p/b.jpg no disk"}));
    MediaRebuildBegin("/p");
    Index("/p/a.jpg", "", kStorePhoto);
    Index("/p/b.jpg", "", kStorePhoto);
    MediaRebuildEnd(1);
    KOLIDBBatchBegin();
    EXPECT_EQ(Table(), Texts{"/p/a.jpg no caption"});
    KOLIProblemClear("/p/a.jpg", KOLI_PROBLEM_PHOTOS);
    EXPECT_EQ(Table(), Texts{});
}

TEST_F(Problems, TableIsAddedToADatabaseThatLacksIt) {
    Index("/old.mp3", "");
    ASSERT_GE(MediaDatabase().Execute("DROP TABLE problem"), 0);
    ASSERT_GE(MediaDatabase().Execute("PRAGMA user_version=1"), 0);
    DatabaseDirectorySet(dir_.Path("db").c_str());
    Index("/new.mp3", "no");
    EXPECT_EQ(Table(), Texts{"/new.mp3 no"});
    EXPECT_STREQ(MediaDatabase().Query("SELECT count(*) AS v FROM music")->Field(0, "v"), "2");
}

}  // namespace
}  // namespace koli::host
