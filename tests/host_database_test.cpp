// The host platform's database files: what SQL texts mean to them, and what happens when they are full,
// locked, damaged or elsewhere.
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <thread>

#include "base/path_names.h"
#include "platform/host/engine_choice.h"
#include "tests/host_databases.h"

static int allocations_left = -1;  // until one fails; -1 = none does

[[gnu::noinline]] void* operator new(size_t size) {
    void* const memory = allocations_left == 0 ? nullptr : malloc(size);
    if (allocations_left >= 0) --allocations_left;
    return memory != nullptr ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return malloc(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
    operator delete(memory);
}

namespace koli::host {

TEST_F(Store, WhatFindsNoMemoryIsRefusedAndLeavesNothingHalfDone) {
    const std::string path = "/photo/a picture whose name is no short one.jpg", moved = path + ".moved.jpg";
    const std::string where = "path like '" + path + "%'", name = "a setting of ours with a long name";
    const std::string sql = "Delete from video_desc where " + where;
    const MediaInfo song = MediaRecord(path);
    PhotoRecord picture{};
    CopyText(picture.path, sizeof picture.path, path.c_str());
    CopyText(picture.title, sizeof picture.title, "Caf\xE9, not yet in the form of the database");
    const auto is_open = [](KOLIDBRows* rows) { return rows != nullptr ? PhotoInfoDBClose(rows), 0 : -1; };
    PhotoPathList listed{const_cast<char*>(path.c_str()), nullptr};
    const KOLIBatchMark mark{1, 2};
    char text[8];
    const std::function<int()> operations[] = {
        [&] { return MediaInfoDBSave(kStoreMusic, &song); },
        [&] { return MediaInfoDBDirSave(path.c_str()); },
        [&] { return MediaInfoDBDelete(kStoreBelowDirectory, path.c_str()); },
        [&] { return PhotoInfoDBSave(&picture, 1); },
        [&] { return PhotoDBSettingSet(name.c_str(), "value"); },
        [&] { return PhotoDBSettingGet(name.c_str(), text, sizeof text); },
        [&] { return is_open(PhotoInfoDBOpen(KOLI_PHOTO_INFO, "path", where.c_str(), 0, "path asc", 0, 0)); },
        [&] { return is_open(MediaInfoDBOpen(kStoreMusic, "path", where.c_str(), 0, nullptr, 1, 0, 0)); },
        [&] { return PhotoDBExec(sql.c_str()); },
        [&] { return KOLIUpdatePhotoPath(&listed, moved.c_str(), path.c_str()); },
        [&] { return PhotoInfoDBDirDelete(path.c_str()); },
        [&] { return PhotoDBUnitBegin(), PhotoDBMarkSet(&mark), PhotoDBUnitEnd(1); },
        [&] { return KOLITruncateTable("photo_access_right"); },
        [&] { return KOLITruncateTable("playlist"); },
        [&] { return KOLIDBTick(), KOLIDBFlush(), PhotoDBHarden(), KOLIDBSync(); },
    };
    for (const auto& operation : operations) {
        SCOPED_TRACE(&operation - operations);
        for (int failed = 0, is_done = 0; is_done == 0; failed += server_ != nullptr ? 7 : 1) {
            KOLIDBBatchBegin();
            allocations_left = failed;
            const int result = operation();
            is_done = std::exchange(allocations_left, -1) >= 0 ? 1 : 0;
            EXPECT_EQ(result < 0, KOLIDBRefusing() != 0) << failed;
            EXPECT_TRUE(is_done == 0 ? failed > 0 || result < 0 : failed > 0 && result >= 0) << failed;
        }
    }
    EXPECT_EQ(OutsideNumber("SELECT count(*) FROM music"), 0);
}

TEST_F(FileStore, AFullDatabaseTakesNothingMoreUntilTheNextBatch) {
    ASSERT_EQ(Save("/m/a"), 0);
    ASSERT_EQ(MediaDatabase().Execute("PRAGMA max_page_count=1"), 0);  // no page more than it has
    int i = 0;
    while (i < 100 && Save("/m/" + std::string(500, 'x') + std::to_string(i)) == 0)
        ++i;
    ASSERT_LT(i, 100);
    EXPECT_EQ(KOLIDBRefusing(), KOLI_MEDIA_DB);
    EXPECT_STREQ(KOLIDBRefusalGet(KOLI_MEDIA_DB), "database or disk is full");
    EXPECT_NE(Save("/m/a"), 0);  // there would be room for it
    EXPECT_EQ(KOLIDBSync(), -1);
    EXPECT_EQ(fake.log.size(), 2U);  // the statement that failed, and that the batch has to come again
    KOLIDBBatchBegin();
    ASSERT_EQ(MediaDatabase().Execute("PRAGMA max_page_count=1000"), 0);
    ASSERT_EQ(Save("/m/a"), 0);
    EXPECT_EQ(KOLIDBSync(), 0);
    EXPECT_EQ(OutsideNumber("SELECT count(*) FROM music"), 1);
    SavePhoto("/p/a.jpg", "t");
    ASSERT_EQ(PhotoDatabase().Execute("PRAGMA max_page_count=1"), 0);
    EXPECT_EQ(KOLIUpdatePhotoPath(PhotosOf("").get(), ("/" + std::string(3999, 'd')).c_str(), "/p"), -1);
    EXPECT_EQ(KOLIDBRefusing(), KOLI_PHOTO_DB);
    EXPECT_EQ(KOLIDBSync(), -1);
    // No mark tells of what was refused.
    KOLIBatchMark mark{9, 9};
    PhotoDBMarkSet(&mark);
    KOLIDBBatchBegin();
    ASSERT_EQ(PhotoDatabase().Execute("PRAGMA max_page_count=1000"), 0);
    SavePhoto("/p/b.jpg", "t");
    ASSERT_EQ(KOLIDBSync(), 0);
    EXPECT_EQ(PhotoDBMarkGet(&mark), -1);
}

TEST_F(FileStore, ALockedDatabaseTakesNothingMoreAndTheOtherIsNotHeldMeanwhile) {
    ASSERT_EQ(Save("/m/a"), 0);
    SavePhoto("/p/a.jpg", "t");
    ASSERT_EQ(KOLIDBSync(), 0);
    const auto other = Outside("media.db"), photos = Outside("photo.db");
    photos->WaitForLocks(0);
    SavePhoto("/p/b.jpg", "t");
    EXPECT_FALSE(photos->Begin());
    ASSERT_TRUE(other->Begin());
    std::thread waiting([] { EXPECT_EQ(Save("/m/b"), 0); });
    photos->WaitForLocks(5000);
    EXPECT_TRUE(photos->Begin());
    ASSERT_EQ(other->Execute("COMMIT"), 0);
    waiting.join();
    ASSERT_EQ(photos->Execute("COMMIT"), 0);
    ASSERT_EQ(KOLIDBFlush(), 0);

    PhotoDBUnitBegin();  // it cannot be given free, so the other one waits for a moment only
    PhotoInfoDBDelete("/p/a.jpg");
    ASSERT_TRUE(other->Begin());
    EXPECT_NE(Save("/m/c"), 0);
    ASSERT_EQ(other->Execute("COMMIT"), 0);
    EXPECT_NE(Save("/m/a"), 0);  // nothing overtakes the refused row
    EXPECT_EQ(PhotoDBUnitEnd(1), 0);
    EXPECT_EQ(KOLIDBSync(), -1);
}

TEST_F(FileStore, ADamagedFileFailsEachOperationForGoodAndIsLeftAlone) {
    const std::string junk(8192, 'j'), file = Write("made/for/us/media.db", junk);
    EXPECT_NE(Save("/m/a"), 0);
    EXPECT_NE(MediaInfoDBDelete(kStoreBelowDirectory, "/m"), 0);
    EXPECT_EQ(MediaInfoDBOpen(0, "*", nullptr, 0, nullptr, 0, 0, 0), nullptr);
    EXPECT_EQ(MediaDBVacuum(), -1);
    EXPECT_EQ(fake.log.size(), 2U);  // the first one tells that everybody could read it
    EXPECT_EQ(ReadFile(file), junk);
    SavePhoto("/p/a.jpg", "the other one works");
    EXPECT_EQ(KOLIDBSync(), 0);  // no batch waits for it
    DatabaseDirectorySet(directory_.c_str());
    std::fstream(directory_ + "/photo.db").seekp(4096) << junk;  // behind the first page: it can be opened
    EXPECT_EQ(PhotosOf(""), nullptr);
    std::filesystem::remove(directory_ + "/photo.db");
    SavePhoto("/p/a.jpg", "t");
    ASSERT_EQ(PhotoDatabase().Execute("PRAGMA user_version=99"), 0);
    DatabaseDirectorySet(directory_.c_str());
    EXPECT_NE(PhotoInfoDBDelete("/p/a.jpg"), 0);
    EXPECT_EQ(KOLIDBRefusing(), 0);
}

TEST_F(FileStore, ADatabaseTakenAwayIsBegunAnewAndAVacuumGivesRoomBack) {
    ASSERT_EQ(Save("/m/a"), 0);
    EXPECT_EQ(KOLIDBFlush(), 0);
    std::filesystem::remove(directory_ + "/media.db");
    EXPECT_EQ(KOLIDBSync(), -1);  // the row went with its file
    KOLIDBBatchBegin();
    for (int i = 0; i < 500; ++i)
        ASSERT_EQ(Save("/m/" + std::string(200, 'x') + std::to_string(i)), 0);
    EXPECT_EQ(KOLIDBFlush(), 0);
    const int64_t before = OutsideNumber("PRAGMA page_count");
    ASSERT_EQ(KOLITruncateTable("music"), 0);
    EXPECT_EQ(MediaDBVacuum(), 0);
    EXPECT_EQ(PhotoDBVacuum(), 0);
    EXPECT_LT(OutsideNumber("PRAGMA page_count"), before / 2);
}

TEST_F(Store, AUnitTakesEffectAsAWholeWithItsMark) {
    const auto kept = [] { return Photo("SELECT path AS v FROM photo_info ORDER BY path"); };
    const auto mark = [this] { return OutsideText(KOLI_PHOTO_DB, "SELECT value FROM setting"); };
    SavePhoto("/p/a", "t");
    PhotoDBUnitBegin();
    SavePhoto("/p/b", "t");
    EXPECT_EQ(PhotoDBHarden(), 0);  // what is merely added may be there early
    PhotoInfoDBDelete("/p/a");
    PhotoDBUnitBegin();
    SavePhoto("/p/c", "t");
    EXPECT_EQ(PhotoDBUnitEnd(0), 0);
    PhotoDBUnitBegin();
    SavePhoto("/p/d", "t");
    EXPECT_EQ(PhotoDBUnitEnd(1), 0);
    EXPECT_EQ(PhotoDBHarden(), 1);
    KOLIDBFlush();
    EXPECT_EQ(mark(), "");
    const KOLIBatchMark set{7, 0xabc};
    PhotoDBMarkSet(&set);
    EXPECT_EQ(PhotoDBUnitEnd(1), 0);
    EXPECT_EQ(kept(), (Texts{"/p/b", "/p/d"}));
    EXPECT_EQ(PhotoDBHarden(), 0);
    EXPECT_EQ(mark(), "7 abc");
    KOLIBatchMark found{};
    EXPECT_EQ(PhotoDBMarkGet(&found), 0);
    EXPECT_EQ(found.hash, 0xabcU);
    EXPECT_EQ(PhotoDBMarkRemove(), 0);
    EXPECT_EQ(mark(), "");
}

TEST_F(FileStore, TheSettingsChooseTheDirectory) {
    DatabaseDirectorySet(nullptr);
    Setting("database") = "sqlite:" + Path("configured");
    SavePhoto("/p/a.jpg", "t");
    EXPECT_TRUE(std::filesystem::exists(Path("configured/photo.db")));
    DatabaseDirectorySet(nullptr);
    // What somebody has put into its place keeps its mode.
    std::filesystem::create_symlink(Write("foreign", ""), Path("configured/media.db"));
    ASSERT_EQ(chmod(Path("foreign").c_str(), 0664), 0);
    Save("/m/a");
    EXPECT_EQ(std::filesystem::status(Path("foreign")).permissions(), std::filesystem::perms(0664));
    Setting("database") = "";
    SqlFailure failure;
    EXPECT_EQ(EngineIn("", &failure)->place(), "/var/lib/koli");
    DatabaseDirectorySet(nullptr);
    for (const char* refused : {"postgresql:host", "other:x", "sqlite:relative", "sqlite:"}) {
        Setting("database") = refused;
        EXPECT_EQ(EngineIn("", &failure), nullptr);
    }
    fake.log.clear();
    EXPECT_NE(PhotoInfoDBDelete("/p/a.jpg"), 0);
    EXPECT_EQ(fake.log.size(), 2U);
    EXPECT_EQ(KOLIDBRefusing(), 0);
    Setting("database") = "";
    fake.unreadable = EIO;  // the databases may be anywhere
    DatabaseDirectorySet(nullptr);
    EXPECT_NE(PhotoInfoDBDelete("/p/a.jpg"), 0);
    fake.unreadable = 0;
    EXPECT_EQ(KOLIDBRefusing(), KOLI_PHOTO_DB);
}

TEST_F(FileStore, AChildHasNoShareInTheLogIndex) {
    if (IsEmulated()) GTEST_SKIP() << kNothingKept;
    ASSERT_EQ(Save("/m/a"), 0);
    const auto mapped = [] { return ReadFile("/proc/self/maps").find("-shm") != std::string::npos ? 1 : 0; };
    EXPECT_EQ(mapped(), 1);
    EXPECT_EXIT(_exit(mapped()), testing::ExitedWithCode(0), "");
}

}  // namespace koli::host
