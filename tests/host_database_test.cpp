// The host platform's database files: what SQL texts mean to them, and what happens when they are full,
// locked, damaged or elsewhere.
#include "platform/host/sql_dialect.h"

#include <unistd.h>

#include "tests/host_databases.h"

namespace koli::host {

TEST(SqlDialect, TouchesOnlyPatternsAndTruthValues) {
    const std::pair<const char*, const char*> cases[] = {
        {"path like '/a''/%' and path not LIKE '/a''/%/%'",
         "path like '/a''/%' ESCAPE '\\' and path not LIKE '/a''/%/%' ESCAPE '\\'"},
        {"x = 'a like ''b''' or \"like\" = 'c'", "x = 'a like ''b''' or \"like\" = 'c'"},
        {"a like /* like 'x' */ 'b' escape '!' -- like 'c'",
         "a like /* like 'x' */ 'b' escape '!' -- like 'c'"},
        {"unlike 'a', like_ 'b', liked = 'c'", "unlike 'a', like_ 'b', liked = 'c'"},
        {"SET public = 'true', title='true' WHERE Enabled<>'NO' and is_subdir IS NOT true and updated = '0'",
         "SET public = 't', title='true' WHERE Enabled<>'f' and is_subdir IS NOT 't' and updated = '0'"},
        {"public = enabled and public = 'maybe' and enabled in ('true')",
         "public = enabled and public = 'maybe' and enabled in ('true')"},
        {"a like 'unfinished", "a like 'unfinished ESCAPE '\\'"},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(ToSqliteText(text), expected);
}

TEST_F(Store, LikeHeedsCaseAndEscapesAndUsesTheIndex) {
    for (const char* path : {"/p/a_b/1.jpg", "/p/a_b/c/2.jpg", "/p/aXb/3.jpg", "/p/A_B/4.jpg", "/p/a_b5.jpg",
                             "/p/\xE9/6.jpg", "/p/\xE8/7.jpg", "/p/q'\\/8.jpg"})
        SavePhoto(path, "t");
    const std::string inside = "path like '/p/a\\_b/%' and path not like '/p/a\\_b/%/%'";
    EXPECT_EQ(PhotosWhere(inside), Texts{"/p/a_b/1.jpg"});
    EXPECT_EQ(PhotosWhere("path like '/p/\xE9/%'"), Texts{"/p/\xE9/6.jpg"});

    char quoted[64], pattern[64];
    ASSERT_EQ(KOLIDBEscapeString("/p/q'\\", quoted, 8), 0);
    ASSERT_EQ(KOLIDBEscapeBackslash(quoted, pattern, sizeof pattern), 0);
    EXPECT_EQ(PhotosWhere("path like '"s + pattern + "/%'"), Texts{"/p/q'\\/8.jpg"});
    EXPECT_EQ(KOLIDBEscapeString("/p/q'\\", quoted, 7), -1);

    for (const std::string& text :
         {"SELECT path FROM photo_info WHERE " + inside + " ORDER BY path asc",
          "SELECT path FROM video_comment WHERE path like '/p/a\\_b%'"s,
          "SELECT path FROM video_desc WHERE path like '/p/a\\_b%'"s,
          "Delete from photo_share where sharename = 'a' or sharename like 'a/%';"s}) {
        const auto rows = PhotoDatabase().Query("EXPLAIN QUERY PLAN " + ToSqliteText(text));
        std::string plan;
        for (int row = 0; row < rows->count(); ++row)
            plan += rows->Field(row, "detail") + "\n"s;
        EXPECT_NE(plan.find("SEARCH"), std::string::npos) << plan;
        for (const char* slow : {"SCAN", "TEMP B-TREE"})
            EXPECT_EQ(plan.find(slow), std::string::npos) << plan;
    }
    EXPECT_EQ(PhotoInfoDBOpen(KOLI_PHOTO_INFO, "path", "path like 'x", 0, nullptr, 0, 0), nullptr);
    EXPECT_EQ(log_lines, 1);
}

TEST_F(Store, AFullDatabaseIsReportedByTheSync) {
    ASSERT_EQ(SaveMusic("/m/a"), 0);
    ASSERT_EQ(MediaDatabase().Execute("PRAGMA max_page_count=1"), 0);  // no page more than it has
    int i = 0;
    while (i < 100 && SaveMusic("/m/" + std::string(500, 'x') + std::to_string(i)) == 0)
        ++i;
    ASSERT_LT(i, 100);
    EXPECT_EQ(KOLIDBSync(), -1);
    EXPECT_EQ(log_lines, 2);  // the statement that failed, and that it took others with it
    ASSERT_EQ(MediaDatabase().Execute("PRAGMA max_page_count=1000"), 0);
    ASSERT_EQ(SaveMusic("/m/a"), 0);
    EXPECT_EQ(KOLIDBSync(), 0);
    EXPECT_EQ(OutsideNumber("SELECT count(*) FROM music"), 1);
    SavePhoto("/p/a.jpg", "t");
    ASSERT_EQ(PhotoDatabase().Execute("PRAGMA max_page_count=1"), 0);
    EXPECT_EQ(KOLIUpdatePhotoPath(PhotosOf("").get(), ("/" + std::string(3999, 'd')).c_str(), "/p"), -1);
    EXPECT_EQ(KOLIDBSync(), -1);
}

TEST_F(Store, ALockedDatabaseIsReportedByTheSync) {
    ASSERT_EQ(SaveMusic("/m/a"), 0);
    ASSERT_EQ(MediaDatabase().Execute("PRAGMA busy_timeout=50"), 0);
    ASSERT_EQ(KOLIDBSync(), 0);
    std::string error;
    const auto other = Sql::Open(directory_ + "/media.db", nullptr, &error);
    ASSERT_EQ(other->Execute("BEGIN IMMEDIATE"), 0);
    EXPECT_NE(SaveMusic("/m/b"), 0);
    ASSERT_EQ(other->Execute("COMMIT"), 0);
    EXPECT_EQ(SaveMusic("/m/a"), 0);
    EXPECT_EQ(KOLIDBSync(), -1);  // the refused row is to come again
}

TEST_F(Store, ADamagedFileFailsEachOperationAndIsLeftAlone) {
    const std::string junk(8192, 'j'), file = Write("made/for/us/media.db", junk);
    EXPECT_NE(SaveMusic("/m/a"), 0);
    EXPECT_NE(MediaInfoDBDelete(kStoreBelowDirectory, "/m"), 0);
    EXPECT_EQ(MediaInfoDBOpen(0, "*", nullptr, 0, nullptr, 0, 0, 0), nullptr);
    EXPECT_EQ(MediaDBVacuum(), -1);
    EXPECT_EQ(log_lines, 4);
    EXPECT_EQ(KOLIDBSync(), -1);  // the refused row is to come again
    SavePhoto("/p/a.jpg", "the other one works");
    DatabaseDirectorySet(directory_.c_str());
    std::fstream(directory_ + "/photo.db").seekp(4096) << junk;  // behind the first page: it can be opened
    EXPECT_EQ(PhotosOf(""), nullptr);
    EXPECT_EQ(KOLIDBSync(), -1);  // the refused look-up is to come again
    EXPECT_EQ(ReadFile(file), junk);
}

TEST_F(Store, ADatabaseTakenAwayIsBegunAnewAndAVacuumGivesRoomBack) {
    ASSERT_EQ(SaveMusic("/m/a"), 0);
    EXPECT_EQ(KOLIDBFlush(), 0);
    std::filesystem::remove(directory_ + "/media.db");
    EXPECT_EQ(KOLIDBSync(), -1);  // the row went with its file
    for (int i = 0; i < 500; ++i)
        ASSERT_EQ(SaveMusic("/m/" + std::string(200, 'x') + std::to_string(i)), 0);
    EXPECT_EQ(KOLIDBFlush(), 0);
    EXPECT_EQ(OutsideNumber("SELECT count(*) FROM music"), 500);
    ASSERT_EQ(KOLITruncateTable("music"), 0);
    ASSERT_EQ(KOLIDBFlush(), 0);
    const int64_t before = OutsideNumber("PRAGMA page_count");
    EXPECT_EQ(MediaDBVacuum(), 0);
    EXPECT_EQ(PhotoDBVacuum(), 0);
    EXPECT_LT(OutsideNumber("PRAGMA page_count"), before / 2);
}

TEST_F(Store, TheSettingsChooseTheDirectory) {
    DatabaseDirectorySet(nullptr);
    const std::string value = "sqlite:" + Path("configured");
    engine_key = value.c_str();
    SavePhoto("/p/a.jpg", "t");
    EXPECT_TRUE(std::filesystem::exists(Path("configured/photo.db")));
    engine_key = nullptr;
    EXPECT_EQ(DatabaseDirectory(), "/var/lib/koli");
    DatabaseDirectorySet(nullptr);
    for (const char* refused : {"postgresql:host=x", "sqlite:relative", "sqlite:"}) {
        engine_key = refused;
        EXPECT_EQ(DatabaseDirectory(), "");
    }
    EXPECT_NE(PhotoInfoDBDelete("/p/a.jpg"), 0);
    EXPECT_EQ(log_lines, 4);
    engine_key = nullptr;
}

TEST_F(Store, AChildHasNoShareInTheLogIndex) {
    ASSERT_EQ(SaveMusic("/m/a"), 0);
    const auto mapped = [] { return ReadFile("/proc/self/maps").find("-shm") != std::string::npos ? 1 : 0; };
    EXPECT_EQ(mapped(), 1);
    EXPECT_EXIT(_exit(mapped()), testing::ExitedWithCode(0), "");
}

}  // namespace koli::host
