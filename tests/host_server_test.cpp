// The databases on a server: what it refuses, connections that are lost, sessions that were given up.
#include "tests/host_databases.h"

namespace koli::host {

struct Server : Store {
    /// Ends this library's session that writes to the media store.
    void EndSession() const {
        EXPECT_EQ(OutsideText(KOLI_MEDIA_DB,
                              "SELECT count(pg_terminate_backend(pid)) FROM pg_locks WHERE locktype ="
                              " 'advisory' AND objid = 1 AND classid::bigint ="
                              " hashtext('koliindexd ' || current_schema())::bigint & 4294967295"),
                  "1");
    }
    static Texts Songs() { return Media("SELECT path AS v FROM music ORDER BY path"); }
};

TEST_F(Server, WhatIsRefusedForGoodConcernsItsRowAlone) {
    std::string noise = "/m/\xE9";  // no index entry holds so much that cannot be compressed
    for (unsigned seed = 1; noise.size() < 4000; seed = seed * 1103515245 + 12345)
        noise += static_cast<char>('0' + (seed >> 16) % 75);
    for (const std::string& path : {"/m/a"s, noise, "/m/b"s, noise + "c", "/m/d"s})
        EXPECT_EQ(Save(path), 0);
    PhotoRecord photo{};
    memcpy(photo.path, noise.data(), noise.size());
    strcpy(photo.description, "of a caption, which is to stay");
    EXPECT_EQ(PhotoInfoDBSave(&photo, 1), -1);
    KOLIIndexVideoTableDirtySet(0);
    EXPECT_EQ(BlKOLIIndexIsMusicTableDirty(), 1);
    EXPECT_EQ(Save("/m/e"), 0);
    EXPECT_EQ(MediaDatabase().Execute("DELETE FROM nothing"), -1);
    EXPECT_EQ(MediaDatabase().Execute("DELETE FROM music WHERE path = '/m/d'"), 1);
    EXPECT_EQ(KOLIDBSync(), 0);
    EXPECT_EQ(Songs(), (Texts{"/m/a", "/m/b", "/m/e"}));
    // Two statements that fail alike are told once; each row is told.
    ASSERT_EQ(fake.log.size(), 4U);
    EXPECT_NE(fake.log[2].find("\": " + noise), std::string::npos) << fake.log[2];
}

TEST_F(Server, AConnectionThatIsLostRefusesUntilTheNextBatch) {
    const auto save = [](const char* path) {
        SavePhoto(path, "t");
        return Save(path);
    };
    ASSERT_EQ(save("/m/a"), 0);
    ASSERT_EQ(KOLIDBSync(), 0);
    ASSERT_EQ(save("/m/b"), 0);
    EndSession();
    EXPECT_EQ(MediaDatabase().Execute("DELETE FROM music"), -1);
    EXPECT_EQ(KOLIDBRefusing(), KOLI_MEDIA_DB);
    EXPECT_NE(Save("/m/c"), 0);
    EXPECT_EQ(KOLIDBSync(), -1);
    KOLIDBBatchBegin();
    EXPECT_EQ(Songs(), Texts{"/m/a"});
    EXPECT_EQ(Photo("SELECT path AS v FROM photo_info ORDER BY path"), (Texts{"/m/a", "/m/b"}));
    EndSession();
    EXPECT_EQ(Media("SELECT 1 AS v"), Texts{});
    KOLIDBBatchBegin();
    EXPECT_EQ(Save("/m/b"), 0);
    EXPECT_EQ(KOLIDBSync(), 0);
    EXPECT_EQ(Songs(), (Texts{"/m/a", "/m/b"}));
}

TEST_F(Server, AGroupThatGoesWithItsConnectionIsMissed) {
    const auto lose = [this](auto last) {
        KOLIDBBatchBegin();
        ASSERT_EQ(Save("/m/a"), 0);
        ASSERT_TRUE(MediaDatabase().BeginUnit());
        EXPECT_EQ(Save("/m/b"), 0);
        EndSession();
        last();
        EXPECT_EQ(KOLIDBSync(), -1);
        EXPECT_EQ(Songs(), Texts{});
    };
    lose([] { EXPECT_EQ(MediaDatabase().EndUnit(true), -1); });
    lose([] { EXPECT_EQ(MediaDatabase().EndUnit(false), -1); });
}

TEST_F(Server, ASessionThatWasGivenUpWritesNothingMore) {
    ASSERT_EQ(Save("/m/a"), 0);
    ASSERT_EQ(KOLIDBFlush(), 0);
    SqlFailure failure;
    const auto engine = EngineIn(directory_, &failure);
    const auto older = engine->Open(KOLI_MEDIA_DB, nullptr, &failure);  // ends the test's own
    ASSERT_TRUE(older != nullptr && older->Begin());
    EXPECT_EQ(older->RunLater(*older->Kept("DELETE FROM music")), 0);
    EXPECT_NE(Save("/m/b") == 0 ? KOLIDBSync() : -1, 0);
    KOLIDBBatchBegin();
    EXPECT_EQ(Save("/m/b"), 0);
    EXPECT_EQ(KOLIDBSync(), 0);
    EXPECT_TRUE(!older->Settle() && older->failure().passes && !older->InTransaction());
    EXPECT_EQ(Songs(), (Texts{"/m/a", "/m/b"}));
}

TEST_F(Server, ASecondHostWithTheSameLibraryWaits) {
    SqlFailure failure;
    auto other = EngineIn(directory_, &failure)->Open(KOLI_MEDIA_DB, nullptr, &failure);
    ASSERT_NE(other->Query("SELECT set_config('application_name', 'of another host', false)"), nullptr);
    EXPECT_NE(Save("/m/a"), 0);
    EXPECT_EQ(KOLIDBRefusing(), KOLI_MEDIA_DB);
    EXPECT_NE(fake.log.at(0).find("another writes to this library: of another host"), std::string::npos);
    other.reset();
    KOLIDBBatchBegin();
    EXPECT_EQ(Save("/m/a"), 0);
    EXPECT_EQ(KOLIDBSync(), 0);
}

TEST_F(Server, WhatIsStoredAlreadyIsNotWrittenAgain) {
    Texts before, versions;
    for (int pass = 0; pass < 2; ++pass) {
        before.swap(versions);
        versions.clear();
        for (const char* path : {"/m/a", "/m/\xE9"})
            ASSERT_EQ(Save(path), 0);
        MediaInfoDBDirSave("/m");
        KOLIProblemSet("/m/a", "too short", 0);
        for (const char* table : {"music", "directory", "problem"})
            for (const std::string& version :
                 Media("SELECT concat(path, xmin, xmax, ctid) AS v FROM "s + table))
                versions.push_back(version);
        ASSERT_EQ(KOLIDBSync(), 0);
    }
    EXPECT_EQ(versions.size(), 4U);
    EXPECT_EQ(versions, before);
}

TEST_F(Server, WhatLiesBelowAFolderIsFoundByItsIndex) {
    SavePhoto("/p/a", "t");
    for (const char* query :
         {"SELECT path FROM photo_info WHERE path LIKE '/p/%' AND path NOT LIKE '/p/%/%'",
          "SELECT shareid FROM photo_share WHERE sharename LIKE 'Trip/%'",
          "DELETE FROM photo_info WHERE path IN (SELECT path FROM photo_info WHERE path = "
          "'/p' OR (path >= '/p/' AND path < '/p0') LIMIT 1000)",
          "SELECT path FROM photo_info WHERE path >= '/p/' ORDER BY path"}) {
        const auto plan = PhotoDatabase().Query("EXPLAIN "s + query);
        ASSERT_NE(plan, nullptr);
        for (int row = 0; row < plan->count(); ++row)
            EXPECT_EQ(strstr(plan->Field(row, "QUERY PLAN"), "Seq Scan"), nullptr) << query;
    }
}

}  // namespace koli::host
