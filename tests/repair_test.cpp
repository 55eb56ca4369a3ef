// Damaged databases: what is said of them, what is saved from them, and that a kill at any instant of the
// repair loses neither the damaged database nor the new one.
#include <gtest/gtest.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <random>
#include <set>

#include "platform/host/database_groups.h"
#include "platform/host/sqlite/engine.h"
#include "platform/host/sqlite/exchange.h"
#include "platform/host/sqlite/look.h"
#include "platform/host/sqlite/salvage.h"
#include "platform/kolidb.h"
#include "tests/host_temp_dir.h"
#include "tools/ctl/batch_state.h"

namespace {

int calls_left = -1;  // of those that change the folder, until the process is killed; -1 = it is not

void Count() {
    if (calls_left == 0) _exit(9);
    if (calls_left > 0) --calls_left;
}

}  // namespace

// The calls of an exchange (the linker leads them here): a process is killed between any two of them.
#define KOLI_COUNTED(result, name, parameters, arguments) \
    extern "C" result __real_##name parameters;           \
    extern "C" result __wrap_##name parameters {          \
        Count();                                          \
        return __real_##name arguments;                   \
    }
KOLI_COUNTED(int, rename, (const char* from, const char* to), (from, to))
KOLI_COUNTED(int, renameat2, (int at, const char* from, int to_at, const char* to, unsigned flags),
             (at, from, to_at, to, flags))
KOLI_COUNTED(int, link, (const char* from, const char* to), (from, to))
KOLI_COUNTED(int, unlink, (const char* path), (path))
KOLI_COUNTED(int, fsync, (int fd), (fd))
#if __TIMESIZE == 32
KOLI_COUNTED(int, __utimensat64, (int at, const char* path, const timespec* times, int flags),
             (at, path, times, flags))
#else
KOLI_COUNTED(int, utimensat, (int at, const char* path, const timespec* times, int flags),
             (at, path, times, flags))
#endif

namespace koli::host {
namespace {

namespace fs = std::filesystem;
using test::ReadFile;
using Rows = std::multiset<std::string>;
using Texts = std::vector<std::string>;

constexpr size_t kPage = 4096;
constexpr int kPhotos = 120;

class RepairTest : public testing::Test {
  protected:
    RepairTest() { Make(); }

    /// Both databases with rows in every table; with `in_log`, the last ones stand in photo.db's log alone.
    void Make(bool in_log = false) const {
        for (const int database : kDatabases) {
            const std::string name = DatabaseName(database);
            fs::remove(Path(name));
            const auto sql = Open(name);
            sql->Begin();
            SchemaRun(*sql, SchemaOf(database), 0);
            Fill(name, *sql, 0);
            sql->ExecuteScript("COMMIT; PRAGMA wal_checkpoint(TRUNCATE)");
            if (!in_log || database != KOLI_PHOTO_DB) continue;
            Fill(name, *sql, kPhotos);
            sql->KeepLogOnClose();
        }
    }
    static void Fill(const std::string& name, Sqlite& sql, int from) {
        const Texts media = {"music (path, title, duration) SELECT '/m/' || i, 'Song ' || i, i / 4.0",
                             "directory SELECT '/m/d' || i, 't'"};
        const Texts photo = {
            "photo_info (path, title, description, width) SELECT printf('/p/%05d.jpg', i), 'It''s ' || i,"
            " CAST(x'C3A92AE90A' AS TEXT) || printf('%.*c', i % 90 * 60, 'x'), i - 60",
            "video_desc SELECT '/p/' || i || '.avi', 'title', 'description'",
            "video_comment (path, userid, comment) SELECT '/p/' || i || '.avi', i, 'nice'",
            "photo_share (sharename, public) SELECT 'Album ' || i, iif(i % 2, 't', 'f')",
            "photo_access_right SELECT 1024 + i, i + 1, 'now'"};
        for (const std::string& rows : name == "media.db" ? media : photo)
            sql.Execute("WITH RECURSIVE n(i) AS (SELECT " + std::to_string(from) +
                        " UNION ALL SELECT i + 1 FROM n LIMIT " + std::to_string(kPhotos) + ") INSERT INTO " +
                        rows + " FROM n");
    }

    std::string Path(const std::string& name) const { return dir_.Path(name); }
    std::unique_ptr<Sqlite> Open(const std::string& name) const {
        SqlFailure failure;
        auto sql = Sqlite::Open(Path(name), nullptr, &failure);
        EXPECT_NE(sql, nullptr) << failure.reason;
        return sql;
    }
    /// Every row of the tables, as text in which each byte is told apart.
    Rows RowsOf(const std::string& name) const {
        Rows found;
        const auto sql = Open(name);
        const auto tables = sql->Query(
            "SELECT m.name AS n, group_concat('quote(' || c.name || ')', ' || '',''|| ') AS t"
            " FROM sqlite_schema m, pragma_table_info(m.name) c WHERE m.type = 'table' GROUP BY m.name");
        for (int table = 0; table < tables->count(); ++table) {
            const std::string of = tables->Field(table, "n"), texts = tables->Field(table, "t");
            const auto rows = sql->Query("SELECT " + texts + " AS t FROM " + of);
            for (int row = 0; row < rows->count(); ++row)
                found.insert(of + ": " + rows->Field(row, "t"));
        }
        return found;
    }
    void Overwrite(const std::string& name, size_t at, const std::string& bytes) const {
        std::fstream(Path(name), std::ios::in | std::ios::out | std::ios::binary).seekp(static_cast<long>(at))
            << bytes;
    }
    DatabaseState Look(const std::string& name, DatabaseCheck check) const {
        return DatabaseLook(Path(name), SchemaOfFile(name), check).fault.state;
    }
    static const Schema& SchemaOfFile(const std::string& name) {
        return SchemaOf(name == "photo.db" ? KOLI_PHOTO_DB : KOLI_MEDIA_DB);
    }
    /// Saves into a sound "made.db"; true when nothing was lost.
    bool Saved(const std::string& name) const {
        const Schema& schema = SchemaOfFile(name);
        const Salvage salvage = DatabaseSalvage(Path(name), Path("made.db"), schema);
        EXPECT_EQ(salvage.error, "");
        EXPECT_EQ(DatabaseLook(Path("made.db"), schema, DatabaseCheck::kThorough).fault.state,
                  DatabaseState::kSound);
        return salvage.IsWhole();
    }
    std::string Noise(size_t size) {
        std::string bytes(size, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random_());
        return bytes;
    }

    const test::TempDir dir_;
    std::mt19937 random_{1};
};

TEST_F(RepairTest, EachKindOfDamageIsToldAndWhatIsLeftIsSaved) {
    const Rows photos = RowsOf("photo.db"), music = RowsOf("media.db");
    const size_t all = photos.size(), table = kPhotos;
    EXPECT_EQ(all, 5 * table);
    const auto script = [&](const char* text) {
        return [=, this](const std::string& name) { Open(name)->ExecuteScript(text); };
    };
    const auto zero_first_page = [&](const std::string& name) {
        Overwrite(name, 0, std::string(kPage, '\0'));
    };
    const auto cut = [&](const std::string& name) {
        fs::resize_file(Path(name), fs::file_size(Path(name)) / 2 + 99);
    };
    const auto noise = [&](const std::string& name) { Overwrite(name, 10 * kPage, Noise(10 * kPage)); };
    const auto index = [&](const std::string& name) {
        const int64_t page = Open(name)->QueryNumber(
            "SELECT rootpage FROM sqlite_schema WHERE name = 'photo_access_right_shareid'");
        Overwrite(name, static_cast<size_t>(page) * kPage - 3, "xyz");
    };
    const struct {
        const char *what, *name;
        std::function<void(const std::string&)> damage;
        bool is_seen_at_once;
        size_t least, most;  // rows that are saved
        bool is_whole;
    } cases[] = {
        {"garbage", "photo.db", [&](auto& name) { dir_.Write(name, Noise(50000)); }, true, 0, 0, false},
        {"short garbage", "photo.db", [&](auto& name) { dir_.Write(name, "no database"); }, true, 0, 0,
         false},
        {"cut", "photo.db", cut, true, 100, all - 1, false},
        {"noise in the middle", "photo.db", noise, false, 200, all - 1, false},
        {"first page", "photo.db", zero_first_page, true, all, all, false},
        {"first page of the other", "media.db", zero_first_page, true, table, music.size() - 1, false},
        {"no table", "photo.db", script("DROP TABLE video_desc"), true, all - table, all - table, false},
        {"no trigger", "photo.db", script("DROP TRIGGER photo_share_rights"), true, all, all, true},
        {"no version", "photo.db", script("PRAGMA user_version = 0"), true, all, all, true},
        {"lost rights", "photo.db", script("DROP TABLE photo_share"), true, all - 2 * table, all - 2 * table,
         false},
        {"index", "photo.db", index, false, all, all, true}};
    fs::remove(":memory:");
    for (const auto& damaged : cases) {
        SCOPED_TRACE(damaged.what);
        Make();
        damaged.damage(damaged.name);
        const std::string bytes = ReadFile(Path(damaged.name));
        EXPECT_TRUE(!damaged.is_seen_at_once ||
                    Look(damaged.name, DatabaseCheck::kQuick) == DatabaseState::kDamaged);
        EXPECT_EQ(Look(damaged.name, DatabaseCheck::kThorough), DatabaseState::kDamaged);
        EXPECT_EQ(Saved(damaged.name), damaged.is_whole);
        EXPECT_EQ(ReadFile(Path(damaged.name)), bytes);
        const Rows saved = RowsOf("made.db"), &before = damaged.name[0] == 'p' ? photos : music;
        EXPECT_GE(saved.size(), damaged.least);
        EXPECT_LE(saved.size(), damaged.most);
        EXPECT_TRUE(std::includes(before.begin(), before.end(), saved.begin(), saved.end()));
    }
    EXPECT_FALSE(fs::exists(":memory:"));
}

TEST_F(RepairTest, NothingThatStandsInTheFileBringsTheRepairDown) {
    const std::string sound = ReadFile(Path("photo.db"));
    for (int round = 0; round < 15 && !HasFailure(); ++round) {
        std::string bytes = sound;
        for (int hit = 0; hit < 400; ++hit) {  // most of them where pages have their headers
            const size_t page = random_() % (bytes.size() / kPage),
                         at = random_() % (hit % 4 == 0 ? kPage : 60);
            bytes[page * kPage + at] = static_cast<char>(random_());
        }
        dir_.Write("photo.db", bytes);
        Saved("photo.db");
    }
}

TEST_F(RepairTest, WhatIsNotDamagedIsToldApart) {
    EXPECT_EQ(Look("photo.db", DatabaseCheck::kThorough), DatabaseState::kSound);
    EXPECT_EQ(Look("none.db", DatabaseCheck::kThorough), DatabaseState::kMissing);
    Open("photo.db")->ExecuteScript("PRAGMA user_version = 99");
    EXPECT_EQ(Look("photo.db", DatabaseCheck::kQuick), DatabaseState::kUnknownSchema);
    chmod(Path("photo.db").c_str(), 0600);
    chmod(dir_.dir().c_str(), 0755);
    setfsuid(65534);
    EXPECT_EQ(Look("photo.db", DatabaseCheck::kQuick), DatabaseState::kNotPermitted);
    setfsuid(0);
}

TEST_F(RepairTest, AKillAtAnyInstantLosesNeitherDatabase) {
    Make(true);
    const Rows rows = RowsOf("photo.db");
    EXPECT_EQ(rows.size(), size_t{10 * kPhotos});
    Make(true);
    Overwrite("photo.db", 0, std::string(kPage, '\0'));
    const std::string damaged = ReadFile(Path("photo.db")), log = ReadFile(Path("photo.db-wal"));
    ASSERT_GT(log.size(), kPage);
    const auto repair = [&] {
        return SqliteEngine(dir_.dir()).Mend(KOLI_PHOTO_DB, nullptr).is_mended ? 0 : 1;
    };
    int killed = 0;
    for (int calls = 0, status = -1; status != 0; ++calls) {
        SCOPED_TRACE(calls);
        for (const auto& entry : fs::directory_iterator(dir_.dir()))
            fs::remove(entry);
        dir_.Write("photo.db", damaged);
        dir_.Write("photo.db-wal", log);
        const pid_t child = fork();
        if (child == 0) {
            calls_left = calls;
            _exit(repair());
        }
        waitpid(child, &status, 0);
        killed += status != 0 ? 1 : 0;
        const bool is_exchanged = ReadFile(Path("photo.db")) != damaged;  // also when it is not there
        EXPECT_TRUE(fs::exists(Path("photo.db")));
        EXPECT_FALSE(is_exchanged && fs::exists(Path("photo.db-wal")));
        std::string reason;
        EXPECT_TRUE(calls % 2 == 0 || DatabaseIsFree(Path("photo.db"), &reason)) << reason;
        const bool is_due = fs::exists(Path("photo.db-repaired")) || ReadFile(Path("photo.db")) == damaged;
        EXPECT_EQ(is_due ? repair() : 0, 0);
        EXPECT_EQ(RowsOf("photo.db"), rows);
        // What was there is kept, beside the new one and what whoever has looked has made.
        Texts kept;
        for (const auto& entry : fs::directory_iterator(dir_.dir())) {
            const std::string name = entry.path().filename();
            if (name.starts_with("photo.db-damaged-")) kept.push_back(ReadFile(entry.path()));
            EXPECT_TRUE(name.starts_with("photo.db-damaged-") || name == "photo.db" ||
                        name == "photo.db-shm" || name == "photo.db-wal")
                << name;
        }
        EXPECT_TRUE(std::ranges::is_permutation(kept, Texts{damaged, log}));
    }
    EXPECT_GT(killed, 10);
}

TEST_F(RepairTest, TheFolderIsLockedMeanwhile) {
    std::string reason;
    auto lock = RepairLock::Take(Path("photo.db"));
    EXPECT_FALSE(DatabaseIsFree(Path("media.db"), &reason));
    EXPECT_NE(reason.find("is being repaired"), std::string::npos) << reason;
    DatabaseDirectorySet(dir_.dir().c_str());
    EXPECT_NE(PhotoDBExec("Delete from photo_info"), 0);
    EXPECT_EQ(KOLIDBRefusing(), KOLI_PHOTO_DB);
    KOLIDBBatchBegin();
    EXPECT_EQ(RepairLock::Take(Path("photo.db")), nullptr);
    lock.reset();
    EXPECT_EQ(PhotoDBExec("Delete from photo_info"), kPhotos);
    DatabaseDirectorySet(nullptr);
}

TEST_F(RepairTest, OnlyTheDaemonThatRunsCanSayThatItKeepsABatch) {
    using ctl::BatchState;
    const ctl::Places places{Path("queue"), Path("batch"), Path("pid"), dir_.dir(), Path("state")};
    const auto kind = [&](int pid) { return ctl::BatchStateOf(places, pid).kind; };
    EXPECT_EQ(kind(1), BatchState::kNone);
    for (const char* file : {"batch", "pid"})
        dir_.Write(file, "1");
    EXPECT_EQ(kind(1), BatchState::kRunning);
    dir_.Write("state", "batch=kept\ndatabase=photo.db\nreason=disk = full\nsince=7\nretry=9\n");
    EXPECT_EQ(kind(0), BatchState::kLeftOver);
    const BatchState state = ctl::BatchStateOf(places, 1);
    EXPECT_EQ((std::tuple(state.kind, state.database, state.reason, state.since, state.retry)),
              (std::tuple(BatchState::kKept, "photo.db", "disk = full", time_t{7}, time_t{9})));
    fs::last_write_time(Path("state"), fs::last_write_time(Path("pid")) - std::chrono::seconds(5));
    EXPECT_EQ(kind(1), BatchState::kRunning);  // what an earlier daemon has left
}

}  // namespace
}  // namespace koli::host
