// The databases of the host platform, on real files in a temporary directory.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <memory>

#include "base/log.h"
#include "platform/host/database_directory.h"
#include "platform/host/database_groups.h"
#include "platform/host/sql_dialect.h"
#include "platform/host/text_utf8.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"

namespace {
std::vector<std::string> log_lines;
const char* engine_key = nullptr;  // what the machine's settings say
}  // namespace

void koli::LogError(const char* format, ...) {
    char line[9000];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    log_lines.emplace_back(line);
}

extern "C" int KLIBFileGetKeyValue(const char*, const char* key, char* buffer, int size, int) {
    if (engine_key == nullptr || strcmp(key, "database") != 0) return -1;
    return snprintf(buffer, static_cast<size_t>(size), "%s", engine_key);
}

namespace koli::host {
namespace {

using Texts = std::vector<std::string>;
using namespace std::string_literals;

class Store : public testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/koli-store-XXXXXX";
        top_ = mkdtemp(name);
        directory_ = top_ + "/made/for/us";
        DatabaseDirectorySet(directory_.c_str());
        KOLIIndexMusicTableDirtySet(0);
        KOLIIndexVideoTableDirtySet(0);
        log_lines.clear();
    }
    void TearDown() override {
        DatabaseDirectorySet(nullptr);
        std::filesystem::remove_all(top_);
    }

    /// A program of its own that looks at the files.
    std::unique_ptr<Sql> Outsider(const char* file) const {
        std::string error;
        auto sql = Sql::Open(directory_ + "/" + file, nullptr, &error);
        EXPECT_NE(sql, nullptr) << error;
        return sql;
    }

    std::string top_, directory_;
};

/// The values of column v.
Texts Values(Database& database, const std::string& query) {
    Texts values;
    const auto rows = database.Query(query);
    for (int row = 0; rows != nullptr && row < rows->count(); ++row)
        values.emplace_back(rows->Field(row, "v"));
    return values;
}
Texts Media(const std::string& query) {
    return Values(MediaDatabase(), query);
}
Texts Photo(const std::string& query) {
    return Values(PhotoDatabase(), query);
}
Texts PhotosWhere(const std::string& where, const char* order = "path asc") {
    KOLIDBRows* rows = PhotoInfoDBOpen(KOLI_PHOTO_INFO, "path", where.c_str(), 0, order, 0, 0);
    Texts paths;
    PhotoPathList* list = PhotoPathDBGet(rows);
    for (PhotoPathList* node = list; node != nullptr; node = node->next)
        paths.emplace_back(node->path);
    FreePhotoPathList(list);
    PhotoInfoDBClose(rows);
    return paths;
}

MediaInfo MediaRecord(const std::string& path, const std::string& title = "title") {
    MediaInfo record{};
    memcpy(record.path, path.data(), path.size());
    memcpy(record.title, title.data(), title.size());
    return record;
}

void SavePhoto(const std::string& path, const std::string& title, const std::string& description = "") {
    PhotoRecord record{};
    memcpy(record.path, path.data(), path.size());
    memcpy(record.title, title.data(), title.size());
    memcpy(record.description, description.data(), description.size());
    ASSERT_EQ(PhotoInfoDBSave(&record, 5), 0);
}

TEST(TextUtf8, ConvertsUtf16AndSingleBytesAndDropsCutTails) {
    const auto utf16 = [](const std::string& bytes) { return Utf8FromUtf16(Utf16Text(bytes)); };
    EXPECT_EQ(utf16("\xFE\xFF\0A\x04\x16\xD8\x3D\xDE\0"s), "A\u0416\U0001F600");
    EXPECT_EQ(utf16("\xFF\xFE"
                    "A\0\x16\x04\x3D\xD8\0\xDE\0\0B\0"s),
              "A\u0416\U0001F600");
    // A low surrogate first, a high one before an ordinary unit, a high one at the end, half a unit.
    EXPECT_EQ(utf16("\xFE\xFF\xDC\0\xD8\0\0A\xD8\0\0"s), "\uFFFD\uFFFDA\uFFFD");
    EXPECT_FALSE(Utf16Text("A\0B\0"s).marked);
    EXPECT_FALSE(Utf16Text("\xFE").marked);

    const struct {
        std::string text, stored;
    } unmarked[] = {
        {"", ""},
        {"na\xC3\xAFve \xE2\x82\xAC \xF0\x9F\x98\x80", "na\xC3\xAFve \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {"Caf\xE9", "Caf\u00E9"},                          // Latin-1, although it ends like a cut sequence
        {"\xC3\xA9t\xE2\x82", "\xC3\xA9t"},                // cut
        {"\xC3\xA9\xF0\x9F\x98", "\xC3\xA9"},              // cut
        {"\xC3\xA9\xE0\x80", "\u00C3\u00A9\u00E0\u20AC"},  // could not have gone on: E0 needs A0 to BF
        {"\xC3\xA9 \xFF", "\u00C3\u00A9 \u00FF"},
        {"\xED\xA0\x80", "\u00ED\u00A0\u20AC"},                                  // a surrogate
        {"\xC0\xAF \xF4\x90\x80\x80", "\u00C0\u00AF \u00F4\u0090\u20AC\u20AC"},  // overlong, too large
        {"\x80\x81\x8D\x8F\x90\x9D\x9F", "\u20AC\u0081\u008D\u008F\u0090\u009D\u0178"},
    };
    for (const auto& c : unmarked) {
        std::string scratch;
        EXPECT_EQ(Utf8FromUnmarked(c.text, &scratch), c.stored);
    }
}

TEST(MediaInfoValid, CleansTextAndNumbers) {
    MediaInfo record = MediaRecord("/a", "\xFE\xFF\0 \x30\0"s);
    record.title_utf16 = 1;
    memcpy(record.artist, "\xFE\xFF\0 \0A", 6);
    record.artist_utf16 = 1;
    strcpy(record.album, " \x01 a\tb\x7F ");
    strcpy(record.genre, "\n ");
    record.duration = NAN;
    record.track = -1;
    record.disc = 2;
    record.year = INT32_MIN;
    MediaInfoValid(&record);
    EXPECT_EQ(record.title_utf16, 0);
    EXPECT_STREQ(record.title, "");
    EXPECT_EQ(record.artist_utf16, 1);
    EXPECT_EQ(memcmp(record.artist, "\xFE\xFF\0 \0A", 6), 0);
    EXPECT_STREQ(record.album, "a b");
    EXPECT_STREQ(record.genre, "");
    EXPECT_EQ(record.duration, 0.0F);
    EXPECT_EQ(record.track, 0);
    EXPECT_EQ(record.disc, 2);
    EXPECT_EQ(record.year, 0);
}

TEST_F(Store, SavesWhatDiffersAndMarksTheTable) {
    MediaInfo record = MediaRecord("/m/\xE9'.mp3", "\xFF\xFE\x16\x04"s);
    record.title_utf16 = 1;
    strcpy(record.mtime, "last field");
    record.duration = 1.5F;
    record.file_size = 5000000000;
    ASSERT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    EXPECT_EQ(BlKOLIIndexIsMusicTableDirty(), 1);
    EXPECT_EQ(BlKOLIIndexIsVideoTableDirty(), 0);
    EXPECT_EQ(Media("SELECT path||'|'||title||'|'||duration||'|'||file_size||'|'||iso_speed||'|'||mtime AS v "
                    "FROM music"),
              Texts{"/m/\xE9'.mp3|\u0416|1.5|5000000000|0|last field"});

    ASSERT_EQ(KOLIDBSync(), 0);
    KOLIIndexMusicTableDirtySet(0);
    const auto outsider = Outsider("media.db");
    const int64_t version = outsider->QueryNumber("PRAGMA data_version");
    ASSERT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    ASSERT_EQ(MediaInfoDBDelete(kStoreMusic, "/m/none.mp3"), 0);
    ASSERT_EQ(KOLIDBSync(), 0);
    EXPECT_EQ(outsider->QueryNumber("PRAGMA data_version"), version);
    EXPECT_EQ(BlKOLIIndexIsMusicTableDirty(), 0);

    record.iso_speed = 100;
    ASSERT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    EXPECT_EQ(BlKOLIIndexIsMusicTableDirty(), 1);
    EXPECT_EQ(outsider->QueryNumber("SELECT iso_speed FROM music"), 0);  // the group is still open
    ASSERT_EQ(KOLIDBFlush(), 0);
    EXPECT_EQ(outsider->QueryNumber("SELECT iso_speed FROM music"), 100);

    KOLIIndexMusicTableDirtySet(0);
    ASSERT_EQ(MediaInfoDBDelete(kStoreMusic, record.path), 0);
    EXPECT_EQ(BlKOLIIndexIsMusicTableDirty(), 1);
    EXPECT_NE(MediaInfoDBSave(4, &record), 0);
    EXPECT_NE(MediaInfoDBDelete(4, "/m"), 0);
    EXPECT_NE(MediaInfoDBDelete(kStoreBelowDirectory, ""), 0);
    EXPECT_EQ(log_lines.size(), 3U);
}

TEST_F(Store, DeletesAFolderAndLeavesItsSiblings) {
    const std::string folder = "/m/a%_\\'\n\xE9";
    const Texts stay = {"/m/" + "a%_\\'\n\xE8/x"s, "/m/aXX\\'\n\xE9/x", folder + " b/x", folder + ".mp3",
                        folder + "0"};
    const Texts go = {folder, folder + "/x", folder + "/b/\xFF", folder + "/"};
    for (int type = kStoreMusic; type <= kStorePlaylist; ++type)
        for (const Texts& paths : {stay, go})
            for (const std::string& path : paths) {
                const MediaInfo record = MediaRecord(path);
                ASSERT_EQ(MediaInfoDBSave(type, &record), 0);
            }
    ASSERT_EQ(MediaInfoDBDirSave(folder.c_str()), 0);
    ASSERT_EQ(MediaInfoDBDirSave("/m/Caf\xE9/"), 0);
    KOLIIndexVideoTableDirtySet(0);

    ASSERT_EQ(MediaInfoDBDelete(kStoreBelowDirectory, (folder + "/").c_str()), 0);
    EXPECT_EQ(BlKOLIIndexIsVideoTableDirty(), 1);
    Texts sorted = stay;
    std::sort(sorted.begin(), sorted.end(), [](const std::string& a, const std::string& b) {
        return memcmp(a.data(), b.data(), std::min(a.size(), b.size())) < 0;
    });
    for (const char* table : {"music", "video", "photo", "playlist"})
        EXPECT_EQ(Media("SELECT path AS v FROM "s + table + " ORDER BY path"), sorted) << table;
    EXPECT_EQ(Media("SELECT path||'|'||title AS v FROM directory"), Texts{"/m/Caf\xE9|Caf\u00E9"});

    const auto rows = MediaDatabase().Query(
        "EXPLAIN QUERY PLAN DELETE FROM music WHERE path = 'a' OR (path >= 'a/' AND path < 'a0')");
    for (int row = 0; row < rows->count(); ++row)
        EXPECT_EQ(std::string(rows->Field(row, "detail")).find("SCAN"), std::string::npos);
}

TEST(SqlDialect, TouchesOnlyPatternsAndTruthValues) {
    const struct {
        const char *text, *expected;
    } cases[] = {
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
    for (const auto& c : cases)
        EXPECT_EQ(ToSqliteText(c.text), c.expected);
}

TEST_F(Store, LikeHeedsCaseAndEscapesAndUsesTheIndex) {
    for (const char* path : {"/p/a_b/1.jpg", "/p/a_b/c/2.jpg", "/p/aXb/3.jpg", "/p/A_B/4.jpg", "/p/a_b5.jpg",
                             "/p/\xE9/6.jpg", "/p/\xE8/7.jpg", "/p/q'\\/8.jpg"})
        SavePhoto(path, "t");
    const std::string inside = "path like '/p/a\\_b/%' and path not like '/p/a\\_b/%/%'";
    EXPECT_EQ(PhotosWhere(inside), Texts{"/p/a_b/1.jpg"});
    EXPECT_EQ(PhotosWhere("path like '/p/a\\_b%'", "path desc"),
              (Texts{"/p/a_b5.jpg", "/p/a_b/c/2.jpg", "/p/a_b/1.jpg"}));
    EXPECT_EQ(PhotosWhere("path like '/p/\xE9/%'"), Texts{"/p/\xE9/6.jpg"});
    EXPECT_EQ(PhotosWhere("path = '/p/q''\\/8.jpg'"), Texts{"/p/q'\\/8.jpg"});

    char quoted[64], pattern[64];
    ASSERT_EQ(KOLIDBEscapeString("/p/q'\\", quoted, 8), 0);
    ASSERT_EQ(KOLIDBEscapeBackslash(quoted, pattern, sizeof pattern), 0);
    EXPECT_EQ(PhotosWhere("path like '"s + pattern + "/%'"), Texts{"/p/q'\\/8.jpg"});
    EXPECT_EQ(KOLIDBEscapeString("/p/q'\\", quoted, 7), -1);

    const auto plan = [](const std::string& text) {
        const auto rows = PhotoDatabase().Query("EXPLAIN QUERY PLAN " + ToSqliteText(text));
        std::string all;
        for (int row = 0; row < rows->count(); ++row)
            all += rows->Field(row, "detail") + "\n"s;
        return all;
    };
    for (const std::string& text :
         {"SELECT path FROM photo_info WHERE " + inside + " ORDER BY path asc",
          "SELECT path FROM video_comment WHERE path like '/p/a\\_b%'"s,
          "SELECT path FROM video_desc WHERE path like '/p/a\\_b%'"s,
          "Delete from photo_share where sharename = 'a' or sharename like 'a/%';"s}) {
        EXPECT_NE(plan(text).find("SEARCH"), std::string::npos) << text;
        EXPECT_EQ(plan(text).find("SCAN"), std::string::npos) << plan(text);
        EXPECT_EQ(plan(text).find("TEMP B-TREE"), std::string::npos) << plan(text);
    }
    EXPECT_EQ(PhotoInfoDBOpen(KOLI_PHOTO_INFO, "path", "path like 'x", 0, nullptr, 0, 0), nullptr);
    EXPECT_EQ(PhotoInfoDBOpen(5, "*", nullptr, 0, nullptr, 0, 0), nullptr);
    EXPECT_EQ(log_lines.size(), 2U);
}

TEST_F(Store, AlbumsHoldTruthValuesAndTakeTheirRightsWithThem) {
    const char* const kInsert =
        "Insert into photo_share values(%d, '%s', '', '', '%s', 0, '', 'true', '%s', '1');";
    const auto insert = [&](int id, const char* name, const char* is_public, const char* is_subdir) {
        char text[300];
        snprintf(text, sizeof text, kInsert, id, name, is_public, is_subdir);
        return PhotoDBExec(text);
    };
    EXPECT_EQ(insert(1, "Trip", "true", "false"), 1);
    EXPECT_EQ(insert(2, "Trip/\xE9''\\", "0", "1"), 1);
    EXPECT_EQ(insert(3, "Tri_/x", "No", "yes"), 1);
    EXPECT_EQ(insert(4, "Trip", "true", "false"), -1);    // the name is taken
    EXPECT_EQ(insert(4, "Other", "maybe", "false"), -1);  // no truth value
    EXPECT_EQ(PhotoDBExec("Update photo_share set updated = '0'; Delete from photo_share"), -1);
    EXPECT_EQ(log_lines.size(), 3U);
    const Texts all = {"Trip:t/t/f/1", "Trip/\xE9'\\:f/t/t/1", "Tri_/x:f/t/t/1"};
    const std::string columns =
        "SELECT sharename||':'||public||'/'||enabled||'/'||is_subdir||'/'||updated AS v FROM photo_share";
    EXPECT_EQ(Photo(columns + " ORDER BY shareid"), all);  // what failed took nothing with it

    EXPECT_EQ(
        PhotoDBExec("Update photo_share set public = 'true' where enabled = 'yes' and is_subdir = 'true'"),
        2);
    EXPECT_EQ(PhotoDBExec("Update photo_share set is_subdir = lower('FALSE') where shareid = '3'"), 1);
    EXPECT_EQ(Photo("SELECT is_subdir AS v FROM photo_share WHERE shareid = 3"), Texts{"f"});
    EXPECT_EQ(PhotoDBExec("Update photo_share set updated = '0' where sharename like 'Trip/%'"), 1);
    EXPECT_EQ(PhotoDBExec("Update photo_share set updated = '0' where shareid = 99"), 0);

    for (const char* right : {"7, 1", "7, 2", "8, 2", "7, 3"})
        EXPECT_EQ(PhotoDBExec(("Insert into photo_access_right Values ("s + right + ", 'now\n')").c_str()),
                  1);
    EXPECT_EQ(PhotoDBExec("Delete from photo_share where updated = '0'"), 1);
    EXPECT_EQ(Photo("SELECT userid||'/'||shareid AS v FROM photo_access_right"), (Texts{"7/1", "7/3"}));
    KOLIDBRows* rows = PhotoInfoDBOpen(KOLI_PHOTO_SHARE, "*", "shareid > 0", 0, "shareid desc", 1, 0);
    ASSERT_EQ(KOLIDBFetchRow(rows->result, &rows->row), 0);
    EXPECT_STREQ(KOLIDBFetchField(rows->result, rows->row, "shareid"), "3");
    EXPECT_STREQ(KOLIDBFetchField(rows->result, rows->row, "public"), "t");
    EXPECT_EQ(KOLIDBFetchField(rows->result, rows->row, "none"), nullptr);
    EXPECT_EQ(KOLIDBFetchRow(rows->result, &rows->row), -1);
    EXPECT_EQ(KOLIDBExecute(rows->db, "Update video_desc set nonsense = ''", nullptr), -1);
    EXPECT_STREQ(KOLIDBErrorGet(rows->db), "no such column: nonsense");
    EXPECT_EQ(KOLIDBExecute(rows->db, "Delete from photo_share;", nullptr), 0);
    PhotoInfoDBClose(rows);
    EXPECT_EQ(Photo("SELECT userid AS v FROM photo_access_right"), Texts{});
}

TEST_F(Store, PhotoSavesKeepCaptionsAndMarks) {
    const std::string row = "SELECT title||'|'||description||'|'||status||'|'||updated AS v FROM photo_info";
    SavePhoto("/p/a.b.jpg", "By hand", "Words");
    ASSERT_EQ(KOLIPhotoInitAllRows(), 0);
    ASSERT_EQ(KOLIIndexPhotoUpdateVideoStatus("/p/a.b.jpg"), 0);
    ASSERT_EQ(KOLIPhotoInitAllRows(), 0);
    SavePhoto("/p/a.b.jpg", "a.b");
    EXPECT_EQ(Photo(row), Texts{"By hand|Words|1|1"});
    SavePhoto("/p/a.b.jpg", "New\xE9", "More");
    EXPECT_EQ(Photo(row), Texts{"New\u00E9|More|1|1"});

    ASSERT_EQ(KOLIDBFlush(), 0);
    const auto outsider = Outsider("photo.db");
    const int64_t version = outsider->QueryNumber("PRAGMA data_version");
    SavePhoto("/p/a.b.jpg", "a.b");
    SavePhoto("/p/a.b.jpg", "New\xE9", "More");
    ASSERT_EQ(KOLIIndexPhotoUpdateVideoStatus("/p/a.b.jpg"), 0);
    ASSERT_EQ(KOLIDBFlush(), 0);
    EXPECT_EQ(outsider->QueryNumber("PRAGMA data_version"), version);

    SavePhoto("/p", "x");
    SavePhoto("/pq/c.jpg", "c");
    ASSERT_EQ(KOLIPhotoInitAllRows(), 0);
    SavePhoto("/pq/c.jpg", "c");
    ASSERT_EQ(PhotoInfoDBDirDelete("/p"), 0);
    EXPECT_EQ(PhotosWhere(""), Texts{"/pq/c.jpg"});
    SavePhoto("/pq/d.jpg", "d");
    ASSERT_EQ(KOLIPhotoInitAllRows(), 0);
    SavePhoto("/pq/d.jpg", "d");
    ASSERT_EQ(KOLIPhotoDeleteNoUpdateRows(), 0);
    EXPECT_EQ(PhotosWhere(""), Texts{"/pq/d.jpg"});
}

/// Moves the rows that begin with `from`, as a rename of one file does.
int Rename(const std::string& from, const std::string& to) {
    KOLIDBRows* rows =
        PhotoInfoDBOpen(KOLI_PHOTO_INFO, "path", ("path like '" + from + "%'").c_str(), 0, nullptr, 0, 0);
    PhotoPathList* list = PhotoPathDBGet(rows);
    const int result = KOLIUpdatePhotoPath(list, to.c_str(), from.c_str());
    FreePhotoPathList(list);
    PhotoInfoDBClose(rows);
    return result;
}

TEST_F(Store, RenamesMoveRowsAndTheirNames) {
    const std::string row =
        "SELECT path||'|'||name||'|'||folder||'|'||title AS v FROM photo_info ORDER BY path";
    SavePhoto("/p/a/x.y.jpg", "x.y");
    SavePhoto("/p/a/p/a/z.jpg", "By hand");
    SavePhoto("/p/b/x.y.jpg", "gives way");
    SavePhoto("/p/c.jpg", "c");
    ASSERT_EQ(Rename("/p/a", "/p/a"), 0);
    ASSERT_EQ(Rename("/p/a", "/p/b"), 0);
    EXPECT_EQ(Photo(row),
              (Texts{"/p/b/p/a/z.jpg|z.jpg|a|By hand", "/p/b/x.y.jpg|x.y.jpg|b|x.y", "/p/c.jpg|||c"}));
    ASSERT_EQ(Rename("/p/c.jpg", "/p/\xE9.png"), 0);
    EXPECT_EQ(Photo(row + " DESC LIMIT 1"), Texts{"/p/\xE9.png|\xE9.png|p|\u00E9"});

    // Rows that move to where others stand that move too, in both directions.
    ASSERT_EQ(KOLITruncateTable("photo_info"), 0);
    SavePhoto("/p/x", "first");
    SavePhoto("/p/xx", "second");
    SavePhoto("/p/xxx", "third");
    ASSERT_EQ(Rename("/p/x", "/p/xx"), 0);
    EXPECT_EQ(PhotosWhere(""), (Texts{"/p/xx", "/p/xxx", "/p/xxxx"}));
    ASSERT_EQ(Rename("/p/xx", "/p/x"), 0);
    EXPECT_EQ(Photo("SELECT path||title AS v FROM photo_info ORDER BY path"),
              (Texts{"/p/xfirst", "/p/xxsecond", "/p/xxxthird"}));
    // Too long for a record: gone, not cut.
    ASSERT_EQ(Rename("/p/xxx", "/" + std::string(4095, 'd')), 0);
    EXPECT_EQ(PhotosWhere(""), (Texts{"/p/x", "/p/xx"}));
    EXPECT_EQ(log_lines, Texts{});
}

TEST_F(Store, TruncationAndVacuumKnowTheirTables) {
    for (int i = 0; i < 500; ++i) {
        const MediaInfo record = MediaRecord("/m/" + std::string(200, 'x') + std::to_string(i));
        ASSERT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    }
    KOLIIndexMusicTableDirtySet(0);
    for (const char* refused : {"sqlite_master", "MUSIC", "music;", "", "photo_info where 1"})
        EXPECT_EQ(KOLITruncateTable(refused), -1);
    EXPECT_EQ(log_lines.size(), 5U);
    EXPECT_EQ(BlKOLIIndexIsMusicTableDirty(), 0);
    EXPECT_EQ(Media("SELECT count(*) AS v FROM music"), Texts{"500"});
    for (const char* table : {"music", "video", "photo", "playlist", "directory", "photo_info", "video_desc",
                              "video_comment", "photo_share", "photo_access_right"})
        EXPECT_EQ(KOLITruncateTable(table), 0) << table;
    EXPECT_EQ(BlKOLIIndexIsMusicTableDirty(), 1);
    EXPECT_EQ(BlKOLIIndexIsVideoTableDirty(), 0);

    ASSERT_EQ(KOLIDBFlush(), 0);
    const int64_t before = Outsider("media.db")->QueryNumber("PRAGMA page_count");
    EXPECT_EQ(MediaDBVacuum(), 0);
    EXPECT_EQ(PhotoDBVacuum(), 0);
    EXPECT_LT(Outsider("media.db")->QueryNumber("PRAGMA page_count"), before / 2);
}

TEST_F(Store, SurvivesBeingKilledInTheMiddleOfAGroup) {
    const pid_t child = fork();
    if (child == 0) {
        for (int i = 0; i < 600; ++i) {  // two whole groups and a part of the third
            const MediaInfo record = MediaRecord("/m/" + std::to_string(i));
            if (MediaInfoDBSave(kStoreMusic, &record) != 0) _exit(1);
        }
        kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    // The first rows up to some point, without a gap.
    const Texts rows = Media("SELECT CAST(substr(path, 4) AS INTEGER) AS v FROM music ORDER BY 1");
    ASSERT_GE(rows.size(), 256U);
    EXPECT_EQ(rows.back(), std::to_string(rows.size() - 1));
    EXPECT_EQ(Outsider("media.db")->Query("PRAGMA integrity_check")->Field(0, "integrity_check"), "ok"s);
    const MediaInfo record = MediaRecord("/m/after");
    EXPECT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
}

TEST_F(Store, AChildHasNoShareInTheLogIndex) {
    const MediaInfo record = MediaRecord("/m/a");
    ASSERT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    const auto mapped = [] {
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);)
            if (line.find("-shm") != std::string::npos) return 1;
        return 0;
    };
    EXPECT_EQ(mapped(), 1);
    const pid_t pid = fork();
    if (pid == 0) _exit(mapped());
    int status = -1;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
}

TEST_F(Store, AFullDatabaseIsReportedByTheSync) {
    const MediaInfo record = MediaRecord("/m/a");
    ASSERT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    ASSERT_EQ(MediaDatabase().Execute("PRAGMA max_page_count=1"), 0);  // no page more than it has
    int i = 0;
    for (int result = 0; result == 0 && i < 100; ++i) {
        const MediaInfo next = MediaRecord("/m/" + std::string(500, 'x') + std::to_string(i));
        result = MediaInfoDBSave(kStoreMusic, &next);
    }
    ASSERT_LT(i, 100);
    EXPECT_EQ(KOLIDBSync(), -1);
    EXPECT_EQ(log_lines.size(), 2U);  // the statement that failed, and that it took others with it
    ASSERT_EQ(MediaDatabase().Execute("PRAGMA max_page_count=1000"), 0);
    ASSERT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    EXPECT_EQ(KOLIDBSync(), 0);
    EXPECT_EQ(Outsider("media.db")->QueryNumber("SELECT count(*) FROM music"), 1);
}

TEST_F(Store, ALockedDatabaseIsReportedByTheSync) {
    const MediaInfo record = MediaRecord("/m/a"), late = MediaRecord("/m/b");
    ASSERT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    ASSERT_EQ(MediaDatabase().Execute("PRAGMA busy_timeout=50"), 0);
    ASSERT_EQ(KOLIDBSync(), 0);
    const auto other = Outsider("media.db");
    ASSERT_EQ(other->Execute("BEGIN IMMEDIATE"), 0);
    EXPECT_NE(MediaInfoDBSave(kStoreMusic, &late), 0);
    ASSERT_EQ(other->Execute("COMMIT"), 0);
    EXPECT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    EXPECT_EQ(MediaDatabase().Harden(), -1);
    EXPECT_EQ(KOLIDBSync(), -1);  // the refused row is to come again
    EXPECT_EQ(MediaInfoDBSave(kStoreMusic, &late), 0);
    EXPECT_EQ(KOLIDBSync(), 0);
}

TEST_F(Store, ADamagedFileFailsEachOperationAndIsLeftAlone) {
    const std::string file = directory_ + "/media.db", junk(8192, 'j');
    std::filesystem::create_directories(directory_);
    std::ofstream(file) << junk;
    const MediaInfo record = MediaRecord("/m/a");
    EXPECT_NE(MediaInfoDBSave(kStoreMusic, &record), 0);
    EXPECT_NE(MediaInfoDBDelete(kStoreBelowDirectory, "/m"), 0);
    EXPECT_EQ(MediaInfoDBOpen(0, "*", nullptr, 0, nullptr, 0, 0, 0), nullptr);
    EXPECT_EQ(MediaDBVacuum(), -1);
    EXPECT_EQ(log_lines.size(), 4U);
    EXPECT_EQ(KOLIDBSync(), 0);  // nothing had been accepted
    SavePhoto("/p/a.jpg", "the other one works");

    std::ifstream bytes(file);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(bytes), {}), junk);
    // Taken away while it is in use: a new one is begun.
    std::filesystem::remove(file);
    DatabaseDirectorySet(directory_.c_str());
    EXPECT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    EXPECT_EQ(KOLIDBFlush(), 0);
    std::filesystem::remove(file);
    EXPECT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    EXPECT_EQ(KOLIDBFlush(), 0);
    EXPECT_EQ(Outsider("media.db")->QueryNumber("SELECT count(*) FROM music"), 1);
}

TEST_F(Store, TheSettingsChooseTheDirectory) {
    DatabaseDirectorySet(nullptr);
    const std::string value = "sqlite:" + top_ + "/configured";
    engine_key = value.c_str();
    SavePhoto("/p/a.jpg", "t");
    EXPECT_TRUE(std::filesystem::exists(top_ + "/configured/photo.db"));
    engine_key = nullptr;
    EXPECT_EQ(DatabaseDirectory(), "/var/lib/koli");
    DatabaseDirectorySet(nullptr);
    for (const char* refused : {"postgresql:host=x", "sqlite:relative", "sqlite:"}) {
        engine_key = refused;
        EXPECT_EQ(DatabaseDirectory(), "");
    }
    EXPECT_NE(PhotoInfoDBDelete("/p/a.jpg"), 0);
    EXPECT_EQ(log_lines.size(), 4U);
    engine_key = nullptr;
}

}  // namespace
}  // namespace koli::host
