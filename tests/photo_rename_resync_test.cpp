// Photo rows follow renames and leave their neighbours alone; a resync deletes what is gone and nothing else.
#include "base/later_renames.h"
#include "photo/albums/photo_rename.h"
#include "photo/albums/photo_resync.h"
#include "photo/albums/photo_share.h"
#include "tests/photo_sandbox.h"

namespace koli::test {

struct PhotoRename : PhotoFixture {
    int Rename(const std::string& to, const std::string& from, int is_directory = 0) const {
        return PhotoPathRename(In(to).c_str(), In(from).c_str(), is_directory);
    }
};

TEST_F(PhotoRename, RowsFollowAFolderOrAPictureAndNeighboursStay) {
    const struct {
        const char *what, *files, *before, *to, *from;
        int is_directory, result;
        const char* after;
    } cases[] = {
        {"a folder", "d.jpg/x.jpg", "o'_/x.jpg T, oo/x.jpg N", "d.jpg", "o'_", 1, 0,
         "d.jpg/x.jpg T, oo/x.jpg N"},
        {"and was taken for a file", "T2/x.jpg", "T/x.jpg T, T2/x.jpg N", "X", "T", 0, 0,
         "T2/x.jpg N, X/x.jpg T"},
        {"a picture", "b.jpg", "a.jpg T, b.jpg gives way", "b.jpg", "a.jpg", 0, 0, "b.jpg T"},
        {"with what its name begins", "b.jpg", "a.jpg T, a.jpg2 U", "b.jpg", "a.jpg", 0, 0,
         "b.jpg T, b.jpg2 U"},
        {"but for what is there", "y.jpe, x.jpeg", "x.jpe T, x.jpeg N", "y.jpe", "x.jpe", 0, 0,
         "x.jpeg N, y.jpe T"},
        {"or may be", "y.jpe, x.jpeg?", "x.jpe T, x.jpeg N", "y.jpe", "x.jpe", 0, 0, "x.jpeg N, y.jpe T"},
        {"a new one beside it", "y.jpe, x.jpeg", "x.jpeg N", "y.jpe", "x.jpe", 0, 0, "x.jpeg N, y.jpe y"},
        {"done before", "a.jpg, b.jpg", "a.jpg new, b.jpg T", "b.jpg", "a.jpg", 0, 0, "a.jpg new, b.jpg T"},
        {"done before, a folder", "A/a.jpg, B/a.jpg", "A/a.jpg new, A/b.jpg U, B/a.jpg T", "B", "A", 1, 0,
         "A/a.jpg new, B/a.jpg T, B/b.jpg U"},
        {"not done before: what is there comes later", "brought/a.jpg, b.jpg", "brought/a.jpg T, b.jpg U",
         "b.jpg", "brought/a.jpg", 0, 0, "b.jpg T"},
        {"handed a title since", "a.jpg, @eaDir/a.jpg/KOLIPHOTO:TITLE", "b.jpg T", "a.jpg", "b.jpg", 0, 0,
         "a.jpg x"},
        {"but it comes later", "brought/a.jpg, brought/@eaDir/a.jpg/KOLIPHOTO:TITLE", "b.jpg T",
         "brought/a.jpg", "b.jpg", 0, 0, "brought/a.jpg T"},
        {"onto itself", "a.jpg", "a.jpg T", "a.jpg", "a.jpg", 0, 0, "a.jpg T"},
        {"no picture any more", "a.mp4", "a.jpg T", "a.mp4", "a.jpg", 0, -1, ""},
        {"a video without a row", "b.mp4", "", "b.mp4", "a.mp4", 0, -1, ""},
    };
    LaterRenamesSet(nullptr, [](const char* path) { return strstr(path, "/brought") != nullptr; });
    for (const auto& step : cases) {
        SCOPED_TRACE(step.what);
        std::filesystem::remove_all(top_);
        KOLITruncateTable("photo_info");
        for (std::string file : Split(step.files))
            if (file.back() != '?')
                MakeFile(file);
            else
                MakeUnknown(file.substr(0, file.size() - 1));
        AddPhotos(Split(step.before));
        EXPECT_EQ(Rename(step.to, step.from, step.is_directory), step.result);
        EXPECT_EQ(Photos(), Split(step.after));
    }
    LaterRenamesSet(nullptr);
    const std::string folder = MakeDir("new");
    EXPECT_EQ(Rename("new", "old", 1), 0);
    EXPECT_EQ(fake.calls, Lines{"IndexWalk " + folder + " 1 2"});
    EXPECT_EQ(PhotoPathRename("/p/a.mp4", "", 0), -1);
    EXPECT_EQ(fake.log.back(), "photo_index (#) Bad parameter.");
}

TEST_F(PhotoRename, TextsOfVideosMoveByTheFirstOccurrence) {
    const std::string tail(3000, 'x'), to = "/" + std::string(1500, 'y');  // together too long
    const std::string there = MakeFile("x2/v.avi");
    for (const std::string& path : {In("x") + In("x") + "/v.avi", "/other"s, In("x/") + tail, In("x/it''s"),
                                    In("x3/v.avi"), there, In("x4/v.avi")})
        PhotoDBExec(("INSERT INTO video_comment (path) VALUES ('" + path + "')").c_str());
    MakeDir("x4");
    MakeUnknown("x4/v.avi");
    EXPECT_EQ(VideoDescPathRename(2, to.c_str(), In("x").c_str()), 0);
    EXPECT_EQ(Photo("SELECT path AS v FROM video_comment ORDER BY id"),
              (Texts{to + In("x") + "/v.avi", "/other", In("x/") + tail, to + "/it's", to + "3/v.avi", there,
                     In("x4/v.avi")}));

    // A description gives way to that of the video that has been moved over its own.
    MakeFile("b.mp4");
    for (const char* video : {"a.mp4", "b.mp4"})
        PhotoDBExec(
            ("INSERT INTO video_desc (path, title) VALUES ('" + In(video) + "', '" + video + "')").c_str());
    EXPECT_EQ(VideoDescPathRename(1, In("a.mp4").c_str(), In("b.mp4").c_str()), 0);  // done before
    EXPECT_EQ(VideoDescPathRename(1, In("b.mp4").c_str(), In("a.mp4").c_str()), 0);
    EXPECT_EQ(Photo("SELECT path || title AS v FROM video_desc"), Texts{In("b.mp4a.mp4")});
}

struct PhotoResync : PhotoFixture {
    /// A share with a row that is stale, and an album that is.
    PhotoResync() {
        MakeFile("Trip/a.jpg");
        AddPhotos({"Trip/a.jpg By hand", "Trip/gone.jpg gone"});
        PhotoDBExec("INSERT INTO photo_share (sharename, updated) VALUES ('Trip', 1), ('gone', 1)");
    }
    /// Whether the stale row and the stale album are swept.
    static std::string Swept() {
        LetTimePass();
        PhotoFolderResync(nullptr);
        PhotoShareResync(nullptr);
        return Photo(
            "SELECT (SELECT count(*) FROM photo_info WHERE path LIKE '%gone%') || ' ' || (SELECT count(*) FROM photo_share WHERE sharename = 'gone') AS v")
            [0];
    }
};

TEST_F(PhotoResync, SweepsNothingWhenSomethingCannotBeSeen) {
    MakeUnknown("Trip/b.jpg");  // as a folder it could hold rows
    EXPECT_EQ(Swept(), "1 1");
    EXPECT_EQ(fake.log.back(), "photo_share (#) Failed to open directory " + In("Trip/b.jpg") + " ");
    std::filesystem::remove(In("Trip/b.jpg"));
    PhotoDBExec("ALTER TABLE photo_info RENAME TO away");
    EXPECT_EQ(PhotoFolderResync(nullptr), -1);
    EXPECT_EQ(fake.log.back(), "photo_index (#) Failed to set updated to 0 for all rows.");
    PhotoDBExec("ALTER TABLE away RENAME TO photo_info");
    EXPECT_EQ(PhotoShareResync(nullptr), 0);  // the photos' resync saw too little
    EXPECT_EQ(Photo("SELECT count(*) AS v FROM photo_share"), Texts{"2"});
    EXPECT_EQ(Swept(), "0 0");
    EXPECT_EQ(Photos(), Texts{"Trip/a.jpg By hand"});
}

TEST_F(PhotoResync, SweepsNothingWhileSomethingMoves) {
    MakeFile("Trip/new.jpg");
    const std::string far = "Far" + std::string(250, 'r');  // a foothold is taken there
    const std::pair<const char*, std::function<void()>> events[] = {
        {"", [] {}},
        {"the metadata folder alone", [this] { MakeDir("Trip/@eaDir"), usleep(20'000); }},
        {"a rename waits", [] { LaterRenamesSet([](const char* path) { return path == nullptr; }); }},
        {"out of a folder", [this] { std::filesystem::rename(In("Trip/a.jpg"), volume_.Path("out")); }},
        {"into a folder", [this] { std::filesystem::rename(volume_.Path("out"), In("Trip/a.jpg")); }},
        {"a folder", [this] { std::filesystem::rename(In("Trip"), In("Trap")); }},
        {"a folder to come", [this] { std::filesystem::create_directories(In("Zoo/new")); }},
        {"a folder far down", [&] { std::filesystem::rename(In(far), In("Far")); }},
        {"the volume", [this] { std::filesystem::rename(top_, volume_.Path("out")), MakeDir(""); }},
    };
    for (const auto& [what, event] : events) {
        SCOPED_TRACE(what);
        std::filesystem::create_directory(In("Zoo"));
        KOLITruncateTable("photo_info");
        AddPhotos({"gone.jpg gone"});
        PhotoDBExec("INSERT INTO photo_share (sharename, updated) VALUES ('gone', 1) ON CONFLICT DO NOTHING");
        if (what == "a folder far down"s) MakeFile(far + "/a/b/new.jpg");
        meanwhile = event;
        const bool is_move = what[0] != '\0' && what[4] != 'm';
        EXPECT_EQ(Swept(), is_move ? "1 1" : "0 0");
        LaterRenamesSet(nullptr);
        if (what == "a folder"s) std::filesystem::rename(In("Trap"), In("Trip"));
    }
    PhotoDBSettingSet("photo_device", "1");  // empty, and elsewhere than it was swept last
    EXPECT_EQ(Swept(), "1 1");
    PhotoDBExec("DELETE FROM setting");
    EXPECT_EQ(Swept(), "0 0");
}

}  // namespace koli::test
