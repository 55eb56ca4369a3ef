// What the host platform's tables hold: texts, rows, marks, albums, renames.
#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <sstream>

#include "platform/host/problems.h"
#include "platform/host/text_utf8.h"
#include "tests/host_databases.h"
#include "tests/media_bytes.h"

namespace koli::host {

TEST(TextUtf8, ConvertsUtf16AndSingleBytesAndDropsCutTails) {
    const auto utf16 = [](const std::string& bytes) { return Utf8FromUtf16(Utf16Text(bytes)); };
    EXPECT_EQ(utf16("\xFE\xFF\0A\x04\x16\xD8\x3D\xDE\0"s), "A\u0416\U0001F600");
    EXPECT_EQ(utf16("\xFF\xFE"
                    "A\0\x16\x04\x3D\xD8\0\xDE\0\0B\0"s),
              "A\u0416\U0001F600");
    // A low surrogate first, a high one before an ordinary unit, a high one at the end, half a unit.
    EXPECT_EQ(utf16("\xFE\xFF\xDC\0\xD8\0\0A\xD8\0\0\0"s), "\uFFFD\uFFFDA\uFFFD");
    EXPECT_EQ(utf16("\xFE\xFF\0A\xD8\0\0"s), "A");  // cut
    EXPECT_EQ(utf16("\xFE\xFF\0 \0\n\xFE\xFF\0 \0A\0\t\0B\0\x7F"s), "A B");
    EXPECT_EQ(utf16("\xFE\xFF\0 \0\n"s), "");
    EXPECT_FALSE(Utf16Text("A\0B\0"s).marked);
    EXPECT_FALSE(Utf16Text("\xFE").marked);

    const std::pair<std::string, std::string> unmarked[] = {
        {"\u20AC \U0001F600", "\u20AC \U0001F600"},
        {"\uFEFF\uFEFF A\uFEFF ", "A\uFEFF "},
        {"Caf\xE9", "Caf\u00E9"},                          // Latin-1, although it ends like a cut sequence
        {"\xC3\xA9t\xE2\x82", "\xC3\xA9t"},                // cut
        {"\xC3\xA9\xE0\x80", "\u00C3\u00A9\u00E0\u20AC"},  // could not have gone on: E0 needs A0 to BF
        {"\xC3\xA9 \xFF", "\u00C3\u00A9 \u00FF"},
        {"\xED\xA0\x80", "\u00ED\u00A0\u20AC"},                                  // a surrogate
        {"\xC0\xAF \xF4\x90\x80\x80", "\u00C0\u00AF \u00F4\u0090\u20AC\u20AC"},  // overlong, too large
        {"\x80\x81\x8D\x8F\x90\x9D\x9F", "\u20AC\u0081\u008D\u008F\u0090\u009D\u0178"},
    };
    for (const auto& [text, stored] : unmarked) {
        std::string scratch;
        EXPECT_EQ(Utf8FromUnmarked(text, &scratch), stored);
    }
}

/// Puts a charset of old tags in force for a test.
struct CharsetInForce {
    explicit CharsetInForce(const char* name) : result(KOLITagCharsetSet(name)) {}
    ~CharsetInForce() { KOLITagCharsetSet(nullptr); }
    const int result;
};

TEST(TagCharset, ReplacesWindows1252AndNothingElse) {
    const std::string han = "\xD6\xD0";  // of GB18030
    const struct {
        const char* charset;
        std::string text, stored;
        size_t room = std::string::npos;
    } cases[] = {
        {"CP1251", "\xCC\xEE\xEB\xEE\xE4\xE0\xFF", "\u041C\u043E\u043B\u043E\u0434\u0430\u044F"},
        {"CP1251", "\xD0\x9C plain", "\u041C plain"},  // UTF-8, although CP1251 has both bytes
        {"CP1251", "\x98\x80", "\u02DC\u20AC"},        // which CP1251 has not
        {"GB18030", han + "A" + han, "\u4E2DA\u4E2D"},
        {"EUC-KR", "\xB3\xAA\xBA\xF1", "\uB098\uBE44"},
        {"SHIFT_JIS", "\x83\x5C\\~\x83\x7E", "\u30BD\\~\u30DF"},  // a trail byte is no backslash
        {"SHIFT_JIS", "Caf\xE9", "Caf\u00E9"},                    // not full: windows-1252
        {"SHIFT_JIS", "Ca\x83\x7E\xE9", "Ca\u30DF", 5},
        {"GB18030", std::string(15, 'x') + han + han + han + han + han + han + han + "\xD6",  // of ID3v1
         std::string(15, 'x') + "\u4E2D\u4E2D\u4E2D\u4E2D\u4E2D\u4E2D\u4E2D"},
        {"BIG5-HKSCS", "\x88\x66", "\u00CA"},  // might be combined with what follows
    };
    for (const auto& [charset, text, stored, room] : cases) {
        const CharsetInForce in_force(charset);
        std::string scratch;
        EXPECT_EQ(Utf8FromUnmarked(text, &scratch, room), stored) << charset;
    }
    for (const char* refused :
         {"KLINGON", "UTF-16", "UTF-7", "ISO-2022-JP", "IBM037", "CP1251//IGNORE", "A B"}) {
        fake.log.clear();
        EXPECT_EQ(CharsetInForce(refused).result, -1) << refused;
        EXPECT_EQ(fake.log.size(), 1U);
    }
    std::string scratch;
    EXPECT_EQ(Utf8FromUnmarked("\xCC", &scratch), "\u00CC");
}

TEST(MediaInfoValid, CleansTextAndNumbers) {
    MediaInfo record = MediaRecord("/a", "\xFE\xFF\0 \x30\0"s);
    memcpy(record.artist, "\xFE\xFF\0 \0A", 6);
    record.title_utf16 = record.artist_utf16 = 1;
    strcpy(record.album, " \x01 a\tb\x7F ");
    strcpy(record.genre, "\n ");
    record.duration = NAN;
    record.track = -1;
    MediaInfoValid(&record);
    EXPECT_EQ(Names(record), "|a b|\xFE\xFF|||0|0|0");
    EXPECT_EQ(memcmp(record.artist, "\xFE\xFF\0 \0A", 6), 0);
    EXPECT_TRUE(record.title_utf16 == 0 && record.artist_utf16 == 1 && record.duration == 0);
}

TEST_F(Store, SavesInGroupsAndMarksTheChangedTable) {
    MediaInfo record = MediaRecord("/m/\xE9'.mp3", "\xFF\xFE\x16\x04"s);
    record.title_utf16 = 1;
    strcpy(record.mtime, "last field");
    record.duration = 1.5F;
    record.file_size = 5000000000;
    ASSERT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    EXPECT_EQ(BlKOLIIndexIsMusicTableDirty(), 1);
    EXPECT_EQ(BlKOLIIndexIsVideoTableDirty(), 0);
    EXPECT_EQ(Media("SELECT path||'|'||title||'|'||duration||'|'||file_size||'|'||mtime AS v FROM music"),
              Texts{"/m/\xE9'.mp3|\u0416|1.5|5000000000|last field"});
    KOLIIndexMusicTableDirtySet(0);
    ASSERT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    ASSERT_EQ(MediaInfoDBDelete(kStoreMusic, "/m/none.mp3"), 0);
    EXPECT_EQ(BlKOLIIndexIsMusicTableDirty(), 0);

    ASSERT_EQ(KOLIDBFlush(), 0);
    record.iso_speed = 100;
    ASSERT_EQ(MediaInfoDBSave(kStoreMusic, &record), 0);
    EXPECT_EQ(OutsideNumber("SELECT iso_speed FROM music"), 0);  // the group is still open
    ASSERT_EQ(KOLIDBFlush(), 0);
    EXPECT_EQ(OutsideNumber("SELECT iso_speed FROM music"), 100);
    EXPECT_NE(MediaInfoDBSave(4, &record), 0);
    EXPECT_NE(MediaInfoDBDelete(kStoreBelowDirectory, ""), 0);
}

TEST_F(Store, KeepsTheBytesOfPathsInAnyCharset) {
    const std::string name = "\xCC\xEE", path = "/volume1/photo/" + name + "/" + name + ".jpg";
    const auto store = [&] {
        PhotoRecord photo{};
        strcpy(photo.path, path.c_str());
        strcpy(photo.name, name.c_str());
        strcpy(photo.folder, name.c_str());
        strcpy(photo.title, "\xD2");
        const MediaInfo record = MediaRecord(path, name);
        ASSERT_TRUE(PhotoInfoDBSave(&photo, 5) == 0 && MediaInfoDBSave(kStoreMusic, &record) == 0 &&
                    MediaInfoDBDirSave(path.c_str()) == 0);
    };
    store();
    const CharsetInForce in_force("CP1251");
    store();  // changes the rows
    EXPECT_EQ(Media("SELECT path||'|'||title AS v FROM music"), Texts{path + "|\u041C\u043E"});
    EXPECT_EQ(Media("SELECT path||'|'||title AS v FROM directory"), Texts{path + "|\u041C\u043E.jpg"});
    EXPECT_EQ(Photo("SELECT path||'|'||name||'|'||folder||'|'||title AS v FROM photo_info"),
              Texts{path + "|" + name + "|" + name + "|\u0422"});
}

TEST_F(Store, DeletesAFolderAndLeavesItsSiblings) {
    const std::string folder = "/m/a%_\\'\n\xE9";
    const Texts stay = {"/m/a%_\\'\n\xE8/x", "/m/aXX\\'\n\xE9/x", folder + " b", folder + ".", folder + "0"};
    for (int type = kStoreMusic; type <= kStorePlaylist; ++type)
        for (const Texts& paths : {stay, {folder, folder + "/x", folder + "/b/\xFF", folder + "/"}})
            for (const std::string& path : paths)
                ASSERT_EQ(Save(path, type), 0);
    for (int i = 0; i < 2001; ++i)  // more than go at a time
        ASSERT_EQ(Save(folder + "/many/" + std::to_string(i)), 0);
    ASSERT_EQ(MediaInfoDBDirSave(folder.c_str()), 0);
    ASSERT_EQ(MediaInfoDBDirSave("/m/Caf\xE9/"), 0);
    KOLIIndexVideoTableDirtySet(0);

    ASSERT_EQ(MediaInfoDBDelete(kStoreBelowDirectory, (folder + "/").c_str()), 0);
    EXPECT_EQ(BlKOLIIndexIsVideoTableDirty(), 1);
    for (const char* table : {"music", "video", "photo", "playlist"}) {
        Texts left = Media("SELECT path AS v FROM "s + table);
        EXPECT_TRUE(std::is_permutation(left.begin(), left.end(), stay.begin(), stay.end())) << table;
    }
    EXPECT_EQ(Media("SELECT path||'|'||title AS v FROM directory"), Texts{"/m/Caf\xE9|Caf\u00E9"});
}

TEST_F(Store, ARebuildRemovesWhatItDidNotMeet) {
    const std::string m = "/m/'\xE9";
    const auto fill = [&] {
        for (const char* name : {"", "/a.mp3", "/b.mp3", "/far/c.mp3", "/far", "/far away.mp3", "0"})
            ASSERT_EQ(Save(m + name), 0);
        for (int i = 0; i < 2500; ++i)  // more than are looked at at a time
            ASSERT_EQ(Save(m + "/many/" + std::to_string(i)), 0);
        ASSERT_EQ(MediaInfoDBDirSave((m + "/many").c_str()), 0);
        KOLIIndexMusicTableDirtySet(0);
        MediaRebuildBegin(m.c_str());
        EXPECT_EQ(BlKOLIIndexIsMusicTableDirty(), 1);
        EXPECT_EQ(BlKOLIIndexIsVideoTableDirty(), 0);
        ASSERT_EQ(Save(m + "/a.mp3"), 0);
        EXPECT_NE(MediaRebuildSavedLast((m + "/a.mp3").c_str()), 0);
        EXPECT_EQ(MediaRebuildSavedLast((m + "/b.mp3").c_str()), 0);
        MediaRebuildMiss((m + "/far").c_str());
        KOLIDBFlush();
    };
    for (const bool is_whole : {false, true}) {
        fill();
        if (is_whole) MediaRebuildMiss("/m");
        EXPECT_EQ(MediaRebuildEnd(is_whole ? 1 : 0), 0);
        EXPECT_EQ(MediaRebuildEnd(1), 0);  // outside of a rebuild
        EXPECT_EQ(Media("SELECT count(*) AS v FROM music"), Texts{"2507"});
    }
    fill();
    EXPECT_EQ(MediaRebuildEnd(1), 0);
    EXPECT_EQ(Media("SELECT path AS v FROM music ORDER BY path"),
              (Texts{m + "/a.mp3", m + "/far", m + "/far/c.mp3", m + "0"}));
    EXPECT_EQ(Media("SELECT path AS v FROM directory"), Texts{});
    EXPECT_EQ(fake.log.size(), 0U);
}

TEST_F(Store, AlbumsHoldTruthValuesAndTakeTheirRightsWithThem) {
    const std::pair<const char*, int> statements[] = {
        {"Insert into photo_share values(1, 'Trip', '', '', 'true', 0, '', 'true', 'false', '1');", 1},
        {"Insert into photo_share values(2, 'Trip/\xE9''\\', '', '', '0', 0, '', 'true', '1', '1');", 1},
        {"Insert into photo_share values(3, 'Tri_/x', '', '', 'No', 0, '', 'true', 'yes', '1');", 1},
        {"Insert into photo_share values(4, 'Other', '', '', 'maybe', 0, '', 'true', 'false', '1');", -1},
        {"Update photo_share set updated = '0'; Delete from photo_share", -1},
        {"Update photo_share set public = 'true' where enabled = 'yes' and is_subdir IS NOT true", 1},
        {"Insert into photo_access_right Values (7, 1, '\n'), (7, 2, ''), (8, 2, ''), (7, 3, '')", 4},
        {"Delete from photo_share where sharename like 'Trip/%'", 1}};
    for (const auto& [statement, result] : statements)
        EXPECT_EQ(PhotoDBExec(statement), result) << statement;
    EXPECT_EQ(fake.log.size(), 2U);
    for (const auto& [column, values] : std::map<std::string, Texts>{{"sharename", {"Trip", "Tri_/x"}},
                                                                     {"public", {"t", "f"}},
                                                                     {"enabled", {"t", "t"}},
                                                                     {"is_subdir", {"f", "t"}},
                                                                     {"updated", {"1", "1"}}})
        EXPECT_EQ(Photo("SELECT " + column + " AS v FROM photo_share ORDER BY shareid"), values) << column;
    EXPECT_EQ(Photo("SELECT userid||'/'||shareid AS v FROM photo_access_right"), (Texts{"7/1", "7/3"}));
}

TEST_F(Store, RenamesMoveRowsToWhereOthersStandThatMoveToo) {
    const auto rename = [](const std::string& from, const std::string& to) {
        return KOLIUpdatePhotoPath(PhotosOf("path like '" + from + "%'").get(), to.c_str(), from.c_str());
    };
    const auto stored = [] { return Photo("SELECT path||title AS v FROM photo_info ORDER BY path"); };
    for (const char* path : {"/p/x", "/p/xx", "/p/xxx"})
        SavePhoto(path, " was " + std::string(path));
    ASSERT_EQ(rename("/p/x", "/p/xx"), 0);
    EXPECT_EQ(stored(), (Texts{"/p/xx was /p/x", "/p/xxx was /p/xx", "/p/xxxx was /p/xxx"}));
    ASSERT_EQ(rename("/p/xx", "/p/x"), 0);
    // Too long for a record: gone, not cut.
    ASSERT_EQ(rename("/p/xxx", "/" + std::string(4095, 'd')), 0);
    EXPECT_EQ(stored(), (Texts{"/p/x was /p/x", "/p/xx was /p/xx"}));
    EXPECT_EQ(fake.log.size(), 0U);
}

TEST_F(Store, TheRowsOfAFolderAreFoundWhateverItsName) {
    Texts folders = {""};
    std::istringstream words(
        "a|a.jpg|a0|%|_x|O'B''|\\|b\\_|\xE9|\xC3|\xEF\x9E\x80|\x80|\xEF\x9D\xBF|@LO'|A|' or 1|x like 'y' --|/* like|= 'true'");
    Texts names;
    for (std::string name; std::getline(words, name, '|');)
        names.push_back(name);
    for (size_t i = 0; i < 60; ++i)
        folders.push_back(folders[i * 7 % folders.size()] + "/" + names[i % names.size()]);
    std::set<std::string> paths;
    for (const std::string& folder : folders)
        for (const char* name : {"", "/", "/p.jpg", "/~", "0"})
            if (!(folder + name).empty()) SavePhoto(*paths.insert(folder + name).first, "");
    char quoted[200], like[400];
    for (const std::string& folder : folders) {
        ASSERT_EQ(KOLIDBEscapeString(folder.c_str(), quoted, sizeof quoted), 0);
        ASSERT_EQ(KOLIDBEscapeBackslash(quoted, like, sizeof like), 0);
        const std::string inside = "path like '"s + like + "/%'", below = "path not like '"s + like + "/%/%'";
        Texts rows;
        for (const std::string& path : paths)
            if (path.starts_with(folder + "/") && path.find('/', folder.size() + 1) == std::string::npos)
                rows.push_back(path);
        EXPECT_EQ(PhotosWhere(inside + " and " + below), rows) << folder;  // the first has a way of its own
        EXPECT_EQ(PhotosWhere(inside + " and (" + below + ")"), rows) << folder;
    }
    EXPECT_EQ(KOLIDBEscapeString("/p/q'\\", quoted, 8), 0);
    EXPECT_EQ(KOLIDBEscapeString("/p/q'\\", quoted, 7), -1);
}

// ---- The files that could not be parsed

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
    if (server_ != nullptr) GTEST_SKIP() << "on servers there was no such version";
    Save("/old.mp3");
    ASSERT_GE(MediaDatabase().Execute("DROP TABLE problem"), 0);
    ASSERT_GE(MediaDatabase().Execute("PRAGMA user_version=1"), 0);
    DatabaseDirectorySet(directory_.c_str());
    KOLIProblemSet("/old.mp3", "caf\xE9", 0);
    EXPECT_EQ(Table(), Texts{"/old.mp3 caf\xC3\xA9"});
    EXPECT_EQ(Media("SELECT count(*) AS v FROM music"), Texts{"1"});
}

}  // namespace koli::host
