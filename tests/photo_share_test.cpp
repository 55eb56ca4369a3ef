// Albums follow the directories of the photo share, and no album becomes more public on the way.
#include "photo/albums/photo_share.h"
#include "base/later_renames.h"
#include "photo/albums/photo_share_restrict.h"
#include "photo/caption.h"

#include "tests/photo_sandbox.h"

namespace koli::test {

struct PhotoShare : PhotoFixture {
    PhotoShare() { Setting("albumdefpublic") = "no"; }

    int Update(const std::string& name, int operation = kAlbumCreate) const {
        return PhotoShareUpdate(In(name).c_str(), operation);
    }
    /// Every album as "NAME USERS", of a public one "NAME public USERS".
    static Texts Albums() {
        Texts albums = Photo(
            "SELECT sharename || CASE public WHEN 't' THEN ' public' ELSE '' END AS v FROM photo_share"
            " ORDER BY sharename");
        for (const std::string& right :
             Photo("SELECT sharename || ' ' || userid AS v FROM photo_share JOIN photo_access_right"
                   " USING (shareid) ORDER BY userid"))
            for (std::string& album : albums) {
                const bool has_user = isdigit(album[album.rfind(' ') + 1]) != 0;
                if (album.substr(0, album.find(' ')) == right.substr(0, right.find(' ')))
                    album.append(has_user ? "," : " ").append(right.substr(right.find(' ') + 1));
            }
        return albums;
    }
    /// Replaces all albums by such texts.
    static void SetAlbums(const Texts& albums) {
        KOLITruncateTable("photo_share");
        for (std::string album : albums) {
            const bool is_public = album.find(" public") != std::string::npos;
            const std::string name = album.substr(0, album.find(' '));
            const std::string user = album.find_last_of(' ') < album.size() && !album.ends_with("public")
                                         ? album.substr(album.rfind(' ') + 1)
                                         : "";
            Exec("INSERT INTO photo_share (sharename, public, is_subdir, updated, cover) VALUES ('" + name +
                 "', '" + (is_public ? "t" : "f") + "', '" + (name.find('/') < name.size() ? "t" : "f") +
                 "', 1, '/var/services/photo/" + name + "/x.jpg')");
            if (!user.empty())
                Exec("INSERT INTO photo_access_right SELECT " + user + ", max(shareid), '' FROM photo_share");
        }
    }
    static void Exec(const std::string& sql) { ASSERT_GE(PhotoDBExec(sql.c_str()), 0) << sql; }
};

TEST_F(PhotoShare, AnAlbumIsPublicAsItsCaptionOrTheSettingSays) {
    EXPECT_EQ(Update("O'B_"), 0);
    Setting("albumdefpublic") = "YES";
    EXPECT_EQ(Update("A"), 0);
    const std::string flag = MakeFile("@eaDir/B/KOLIPHOTO:PUBLIC", "0");
    EXPECT_EQ(Update("B"), 0);
    CaptionRemovalsRun();
    EXPECT_NE(access(flag.c_str(), F_OK), 0);
    EXPECT_EQ(Photo("SELECT shareid || sharename || updated AS v FROM photo_share WHERE enabled = 'yes' AND"
                    " is_subdir = 'no'"),
              (Texts{"1O'B_1", "2A1", "3B1"}));
    EXPECT_EQ(Albums(), (Texts{"A public", "B", "O'B_"}));

    MakeFile("@eaDir/B/KOLIPHOTO:PUBLIC", "1");  // there is one already: it takes the flag, and keeps its own
    EXPECT_EQ(Update("B"), -1);
    CaptionRemovalsRun();
    EXPECT_NE(access(flag.c_str(), F_OK), 0);
    MakeDir("@eaDir/C/KOLIPHOTO:PUBLIC");  // who knows what it says?
    EXPECT_EQ(Update("C"), -1);
    EXPECT_TRUE(fake.log.back().starts_with("photo_share (#) The public flag of [C] cannot be read."));
    Setting("albumdefpublic") = "";
    EXPECT_EQ(Update("D"), 0);
    EXPECT_EQ(fake.log.back(), "photo_share(#) Can't get key valude. key=supportvidora");
    fake.unreadable = EIO;
    EXPECT_EQ(Update("E"), -1);
    fake.unreadable = 0;
    EXPECT_EQ(Albums(), (Texts{"A public", "B", "D", "O'B_"}));
}

TEST_F(PhotoShare, ASubAlbumOfAPrivateAlbumInheritsItsRights) {
    SetAlbums({"A 7", "B public 8"});
    Exec("INSERT INTO photo_access_right SELECT 9, shareid, '' FROM photo_share WHERE sharename = 'A'");
    Setting("albumdefpublic") = "yes";
    EXPECT_EQ(Update("A/x"), 0);
    EXPECT_EQ(Update("B/x"), 0);
    EXPECT_EQ(Update("C/x"), -1);
    EXPECT_EQ(fake.log.back(), "photo_share (#) KOLIPhotoShareSubDirUpdatePrivilege Failed.");
    EXPECT_EQ(Albums(), (Texts{"A 7,9", "A/x 7,9", "B public 8", "B/x public", "C/x public"}));
    const time_t now = time(nullptr);
    const std::string day = std::string(asctime(localtime(&now))).substr(0, 10);
    EXPECT_EQ(Photo("SELECT substr(time, 1, 10) || substr(time, length(time)) AS v FROM photo_access_right"
                    " WHERE userid = 7 AND time <> ''"),
              Texts{day + "\n"});

    if (server_ != nullptr) return;
    // What other programs have put there injects nothing.
    Exec(
        "INSERT INTO photo_access_right SELECT '7, 1, ''''); Delete from photo_share; --', shareid, ''"
        " FROM photo_share WHERE sharename = 'A'");
    EXPECT_EQ(Update("A/y"), -1);
    EXPECT_EQ(Albums().size(), 6U);
}

TEST_F(PhotoShare, OtherPlacesHaveNoAlbums) {
    SetAlbums({"A", "A/x", "A_/x", "B"});
    EXPECT_EQ(Update("A", 3), -1);
    for (const char* name : {"#recycle", "#recycle/B", "B/@eaDir", "my@eaDir", "B/b/c", ""})
        EXPECT_EQ(Update(name), 0) << name;
    EXPECT_EQ(PhotoShareUpdate(top_.c_str(), kAlbumCreate), 0);
    for (const char* path : {"/volume2/photo", "/volume2/photo/A"})
        EXPECT_EQ(PhotoShareUpdate(path, kAlbumDelete), 0);
    EXPECT_EQ(Update("A/x/z", kAlbumDelete), 0);
    EXPECT_EQ(Albums(), (Texts{"A", "A/x", "A_/x", "B"}));
    EXPECT_EQ(Update("A", kAlbumDelete), 0);
    EXPECT_EQ(Albums(), (Texts{"A_/x", "B"}));
}

TEST_F(PhotoShare, ARenameTakesAlongWhatIsTheAlbums) {
    const struct {
        const char *what, *folders, *before, *to, *from;
        int result;
        const char* after;
    } cases[] = {
        {"with its sub-albums", "B", "A_ 7, A_/x public, AA/x 8", "B", "A_", 0, "AA/x 8, B 7, B/x public"},
        {"over another", "B", "A 7, A/x 7, B public 8, B/x public, B/y public", "B", "A", 0, "B 7, B/x 7"},
        {"over a stale sub-album", "B", "A 7, A/x 7, A/y 8, B/x public", "B", "A", 0, "B 7, B/x 7, B/y 8"},
        {"over a name passed through", "A", "A 7, B public", "B", "A", 0, "B 7"},
        {"over the album around it", "B", "B public, B/A 7, B/x public", "B", "B/A", 0, "B 7"},
        {"into a new one of its name", "A/B", "A 7, A/x 8", "A/B", "A", 0, "A/B 7"},
        {"down", "B/A", "A 7, A/x 8, B public", "B/A", "A", 0, "B public, B/A 7"},
        {"down and down", "B/C/A", "A 7, A/x public", "B/C/A", "A", 0, "B/C/A 7"},
        {"up", "B/y, B/z", "A, A/B 7", "B", "A/B", 0, "A, B 7, B/y 7, B/z 7"},
        {"up from below", "A/x", "B/C/A 7", "A", "B/C/A", 0, "A 7, A/x 7"},
        {"out of the bin", "A/x, A/y", "#recycle/A 8, #recycle/A/x 7", "A", "#recycle/A", 0,
         "A 8, A/x 7, A/y 8"},
        {"a sub-album, out of the bin", "A/x", "A, #recycle/A/x 7", "A/x", "#recycle/A/x", 0, "A, A/x 7"},
        {"but not to a name in use", "A, B", "A 7, A/x, B public, B/x public 8", "B", "A", -1,
         "A 7, A/x, B, B/x"},
        {"nor private ones below", "A, B", "A public, A/x 7, B public, B/x public, B/y public", "B", "A", -1,
         "A public, A/x 7, B public, B/x, B/y public"},
        {"without one, new ones are made", "B/x", "C", "B", "A", -1, "B, B/x, C"},
        {"without one, its sub-albums have theirs", "B/x", "A/x 7, B public, B/x public", "B", "A", -1,
         "B, B/x 7"},
        {"nor those in use", "A, B/x", "A/x 7, B public, B/x public 8", "B", "A", -1, "A/x 7, B public, B/x"},
        {"its old name is another's already", "A/brought, B", "A 7, A/x 8, B public, B/x public", "B", "A", 0,
         "B 7, B/x 8"},
        {"done before", "B", "B 7, B/x 8", "B", "A", -1, "B 7, B/x 8"},
        {"onto itself", "", "A 7, A/x 8", "A", "A", 0, "A 7, A/x 8"},
    };
    LaterRenamesSet(nullptr,
                    [](const char* path) { return access((path + "/brought"s).c_str(), F_OK) == 0; });
    for (const auto& step : cases) {
        SCOPED_TRACE(step.what);
        std::filesystem::remove_all(top_);
        for (const std::string& folder : Split(step.folders))
            MakeDir(folder);
        SetAlbums(Split(step.before));
        EXPECT_EQ(PhotoShareRename(In(step.to).c_str(), In(step.from).c_str()), step.result);
        EXPECT_EQ(Albums(), Split(step.after));
        EXPECT_EQ(Photo("SELECT sharename AS v FROM photo_share WHERE (is_subdir = 't') <>"
                        " (sharename LIKE '%/%')"),
                  Texts{});
    }
    MakeDir("C/brought");
    EXPECT_EQ(Update("C"), 0);  // the request that renames it makes the album
    LaterRenamesSet(nullptr);
    SetAlbums({"A/x 7", "B public 7", "B/y public", "C public", "D 8"});
    Exec("INSERT INTO photo_access_right SELECT 8, shareid, '' FROM photo_share WHERE sharename = 'B'");
    for (const auto& [to, from] : {std::pair{"B", "A/x/y"}, {"D", "C/y"}, {"C", "E/y"}})
        AlbumRestrictToOrigin(In(to).c_str(), In(from).c_str());
    EXPECT_EQ(Albums(), (Texts{"A/x 7", "B 7", "B/y", "C public", "D 8"}));
    SetAlbums({"A_ 7"});
    EXPECT_EQ(PhotoShareRename(In("B'").c_str(), In("A_").c_str()), 0);
    EXPECT_EQ(Photo("SELECT cover AS v FROM photo_share"), Texts{"/var/services/photo/B'/x.jpg"});
}

TEST_F(PhotoShare, ARenameFromElsewhereTouchesNoAlbumOfThatName) {
    SetAlbums({"A 7"});
    for (const char* old_path : {"/volume2/photo/A", "/volume1/music/A"}) {
        EXPECT_EQ(PhotoShareRename(In("B").c_str(), old_path), -1);
        EXPECT_EQ(fake.log.back(), "photo_share:# UPDATE cover failed, sharename [B] not exists in db.");
    }
    EXPECT_EQ(PhotoShareRename("/volume2/photo/B", "/volume2/photo/A"), -1);
    EXPECT_EQ(Albums(), Texts{"A 7"});
    MakeDir("C/x");
    EXPECT_EQ(PhotoShareRename(top_.c_str(), "/volume1/pictures"), -1);
    EXPECT_EQ(Albums(), (Texts{"A 7", "C", "C/x"}));
    EXPECT_EQ(PhotoShareRename("", top_.c_str()), -1);
}

}  // namespace koli::test
