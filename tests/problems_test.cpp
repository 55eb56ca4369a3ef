// The table of files that could not be parsed, as the daemon's own sequence of calls fills and clears it.
#include "platform/host/problems.h"

#include "tests/host_databases.h"

namespace koli::host {

struct Problems : Store {
    static Texts Table() { return Media("SELECT path || ' ' || reason AS v FROM problem ORDER BY path"); }
};

TEST_F(Problems, OfThePhotoLibraryAreOverWhenItSaysSo) {
    KOLIProblemSet("/p/a.jpg", "no caption", KOLI_PROBLEM_PASSES | KOLI_PROBLEM_PHOTOS);
    KOLIProblemSet("/p/b.jpg", "no disk", KOLI_PROBLEM_PASSES);
    KOLIProblemSet("/p/b.jpg", "no disk", KOLI_PROBLEM_PASSES | KOLI_PROBLEM_PHOTOS);  // said by both
    EXPECT_EQ(Table(), (Texts{"/p/a.jpg no caption", "/p/b.jpg no disk"}));
    MediaRebuildBegin("/p");
    for (const char* path : {"/p/a.jpg", "/p/b.jpg"}) {
        const MediaInfo record = MediaRecord(path);
        EXPECT_EQ(MediaInfoDBSave(kStorePhoto, &record), 0);
        KOLIProblemClear(path, 0);
    }
    MediaRebuildEnd(1);
    KOLIDBBatchBegin();
    EXPECT_EQ(Table(), Texts{"/p/a.jpg no caption"});
    KOLIProblemClear("/p/a.jpg", KOLI_PROBLEM_PHOTOS);
    EXPECT_EQ(Table(), Texts{});
}

TEST_F(Problems, TableIsAddedToADatabaseThatLacksIt) {
    Save("/old.mp3");
    ASSERT_GE(MediaDatabase().Execute("DROP TABLE problem"), 0);
    ASSERT_GE(MediaDatabase().Execute("PRAGMA user_version=1"), 0);
    DatabaseDirectorySet(directory_.c_str());
    KOLIProblemSet("/old.mp3", "caf\xE9", 0);
    EXPECT_EQ(Table(), Texts{"/old.mp3 caf\xC3\xA9"});
    EXPECT_EQ(Media("SELECT count(*) AS v FROM music"), Texts{"1"});
}

}  // namespace koli::host
