// Albums follow the directories of the photo share: the statements, to the letter.
#include "photo/photo_share.h"

#include <unistd.h>

#include <ctime>

#include "photo/photo_share_inherit.h"
#include "photo/share_fs.h"
#include "tests/photo_sandbox.h"

namespace koli::test {

const std::string kNextId = "PhotoInfoDBOpen photo 3 shareid > 0";

std::string Insert(const std::string& name, const std::string& is_public = "false", int id = 1) {
    const bool is_sub = name.find('/') != std::string::npos;
    return "PhotoDBExec Insert into photo_share values(" + std::to_string(id) + ", '" + name +
           "', '', '', '" + is_public + "', 0, '', 'true', '" + (is_sub ? "true" : "false") + "', '1');";
}
std::string Open(const std::string& name) {
    return "PhotoInfoDBOpen photo 3 sharename = '" + name + "'";
}
/// The answer to Open().
void AddAlbum(const std::string& name, Row row) {
    fake.rows["photo 3 sharename = '" + name + "'"] = {std::move(row)};
}

struct PhotoShare : PhotoFixture {
    std::string& default_public_ = fake.values["/etc/koliinfo.conf:albumdefpublic"] = "no";
    int Update(const std::string& name, int operation = kAlbumCreate) {
        return PhotoShareUpdate(In(name).c_str(), operation);
    }
};

TEST_F(PhotoShare, AnAlbumIsPublicAsItsCaptionOrTheSettingSays) {
    fake.rows["photo 3 shareid > 0"] = {{{"shareid", "41"}}};
    default_public_ = "";
    EXPECT_EQ(Update("O'B_"), 0);
    EXPECT_EQ(fake.calls, (Lines{kNextId, Insert("O''B_", "false", 42)}));
    EXPECT_EQ(fake.log, Lines{"photo_share(#) Can't get key valude. key=supportvidora"});

    default_public_ = "YES";
    EXPECT_EQ(Update("A"), 0);
    EXPECT_EQ(fake.calls.back(), Insert("A", "true", 42));
    const std::string flag = MakeFile("@eaDir/A/KOLIPHOTO:PUBLIC");  // holds "x"
    EXPECT_EQ(Update("A"), 0);
    const Lines last(fake.calls.end() - 2, fake.calls.end());
    EXPECT_EQ(last, (Lines{Insert("A", "false", 42), "PhotoDBHarden"}));
    EXPECT_NE(access(flag.c_str(), F_OK), 0);

    // The flag waits when the album could not be made, and is gone when there is one already.
    MakeFile("@eaDir/A/KOLIPHOTO:PUBLIC");
    fake.failing = {"PhotoDBExec"};
    EXPECT_EQ(Update("A"), -1);
    EXPECT_EQ(access(flag.c_str(), F_OK), 0);
    AddAlbum("A", {{"shareid", "3"}});
    EXPECT_EQ(Update("A"), -1);
    EXPECT_NE(access(flag.c_str(), F_OK), 0);
}

TEST_F(PhotoShare, ASubAlbumOfAPrivateAlbumInheritsItsRights) {
    AddAlbum("A", {{"shareid", "3"}, {"public", "f"}});
    AddAlbum("A/x", {{"shareid", "9"}});
    fake.rows["photo 4 shareid = '3'"] = {{{"userid", "7"}}, {{"userid", "8"}}};
    EXPECT_EQ(Update("A/x"), 0);
    ASSERT_EQ(fake.calls.size(), 9U);
    const std::string first = fake.calls[7], last = fake.calls[8];
    fake.calls.resize(7);
    EXPECT_EQ(fake.calls, (Lines{kNextId, Insert("A/x"), Open("A"),
                                 "PhotoDBExec Update photo_share set public = 'f' where sharename = 'A/x';",
                                 Open("A"), "PhotoInfoDBOpen photo 4 shareid = '3'", Open("A/x")}));
    const time_t now = time(nullptr);
    const std::string day = std::string(asctime(localtime(&now))).substr(0, 10);
    EXPECT_EQ(first.rfind("PhotoDBExec Insert into photo_access_right Values (7, 9, '" + day + " ", 0), 0U);
    EXPECT_EQ(last.substr(last.size() - 3), "\n')");
}

TEST_F(PhotoShare, ValuesOfOtherProgramsInjectNothing) {
    AddAlbum("A", {{"shareid", "3' or '1"}, {"public", "t'; x"}});
    AddAlbum("A/x", {{"shareid", "9"}});
    fake.rows["photo 4 shareid = '3'' or ''1'"] = {{{"userid", "7, 1, ''); Delete from photo_share; --"}}};
    EXPECT_EQ(KOLIPhotoShareSubDirUpdatePrivilege("A/x"), -1);
    EXPECT_EQ(fake.calls[1], "PhotoDBExec Update photo_share set public = 't''; x' where sharename = 'A/x';");
    EXPECT_EQ(fake.calls.back(), Open("A/x"));
    EXPECT_EQ(fake.log.back(), "photo_share (#) KOLIPhotoShareSubDirPrivilegeAdd failed.");
}

TEST_F(PhotoShare, FailuresAreToldInTheirWords) {
    EXPECT_EQ(Update("A", 3), -1);
    EXPECT_EQ(Update("A/x"), -1);  // no row of A
    fake.failing = {"PhotoDBHarden"};
    EXPECT_EQ(PhotoShareResync(nullptr), -1);
    EXPECT_EQ(fake.calls.back(), "PhotoDBHarden");
    fake.failing = {"PhotoDBExec"};
    EXPECT_EQ(Update("A"), -1);
    EXPECT_EQ(PhotoShareUpdate(top_.c_str(), kAlbumDelete), -1);
    EXPECT_EQ(Update("1%'", kAlbumDelete), -1);
    EXPECT_EQ(Update("A/b/c", kAlbumDelete), 0);
    EXPECT_EQ(PhotoShareMarkAll("A_"), -1);
    EXPECT_EQ(PhotoShareSweep("A_"), -1);
    EXPECT_EQ(PhotoShareResync(nullptr), -1);
    const std::string below = "sharename like 'A\\_/%'].";
    const std::string drop =
        "Delete from photo_share where sharename = '1%''' or sharename like '1\\%''/%';]";
    EXPECT_EQ(
        fake.log,
        (Lines{"photo_share (#) Bad parameter.", "photo_share (#) KOLIPhotoShareGetFieldValue failed.",
               "photo_share (#) KOLIPhotoShareSubDirUpdatePrivilege Failed.",
               "photo_share (#) Failed to delete none updated rows.",
               "photo_share (#) Failed to exec [" + Insert("A").substr(12) + "]",
               "photo_share:# Failed to exec [Delete from photo_share;]",
               "photo_share (#) Failed to exec [" + drop,
               "photo_share (#) Failed to exec [Update photo_share set updated = '0' where " + below,
               "photo_share (#) Failed to exec [Delete from photo_share where updated = '0' and " + below,
               "photo_share (#) Failed to set updated to 0 for all rows."}));
}

TEST_F(PhotoShare, ARenamedAlbumTakesItsSubAlbumsAlong) {
    fake.rows["photo 3 sharename like 'A''\\_/%'"] = {{{"sharename", "A'_/x"}}};
    EXPECT_EQ(PhotoShareRename(In("B").c_str(), In("A'_").c_str()), 0);
    EXPECT_EQ(
        fake.calls,
        (Lines{"PhotoDBExec Update photo_share set sharename = 'B', is_subdir = 'f' where sharename = 'A''_'",
               "PhotoDBExec UPDATE photo_share SET cover = replace(cover, '/var/services/photo/A''_/', "
               "'/var/services/photo/B/') WHERE sharename='B'",
               "PhotoInfoDBOpen photo 3 sharename like 'A''\\_/%'",
               "PhotoDBExec Update photo_share set sharename = 'B/x' where sharename = 'A''_/x'"}));

    fake.results.clear();  // without an album, one is created
    const std::string path = MakeDir("B");
    EXPECT_EQ(PhotoShareRename(path.c_str(), In("A").c_str()), -1);
    EXPECT_EQ(fake.calls.back(), Insert("B"));
    fake.calls.clear();
    EXPECT_EQ(PhotoShareRename(path.c_str(), "/volume2/photo/A"), -1);
    EXPECT_EQ(fake.calls, (Lines{kNextId, Insert("B")}));
    fake.log.clear();
    for (const std::string& old_path : {In("A"), "/volume2/photo/A"s})
        EXPECT_EQ(PhotoShareRename(In("gone").c_str(), old_path.c_str()), -1);
    EXPECT_EQ(fake.calls.size(), 4U);
    EXPECT_EQ(fake.log, Lines(2, "photo_share:# UPDATE cover failed, sharename [gone] not exists in db."));
}

TEST_F(PhotoShare, AWalkFollowsLinksToFoldersOnly) {
    photo_share_needs_type_check = true;
    for (const char* name : {"A/x/z", "A/@eaDir", "A/.hidden", "#recycle/r"})
        MakeDir(name);
    ASSERT_EQ(symlink(MakeFile("file").c_str(), In("link").c_str()), 0);
    ASSERT_EQ(symlink(In("A").c_str(), In("C").c_str()), 0);
    EXPECT_EQ(PhotoShareWalk(top_.c_str()), 0);
    EXPECT_EQ(PhotoShareWalk(In("A/x/z").c_str()), 0);
    EXPECT_EQ(PhotoShareWalk(In("#recycle").c_str()), 0);
    EXPECT_EQ(fake.calls, (Lines{kNextId, Insert("A"), kNextId, Insert("A/x"), Open("A"), kNextId,
                                 Insert("C"), kNextId, Insert("C/x"), Open("C")}));
}

TEST_F(PhotoShare, AResyncMarksCreatesAndSweeps) {
    for (const char* name : {"A/x", "B/y", "A/#recycle", "#recycle/r", "A/@eaDir"})
        MakeDir(name);
    AddAlbum("A", {{"public", "t"}});
    AddAlbum("A/x", {{"shareid", "2"}});
    AddAlbum("B", {{"public", "t"}});
    const auto mark = [](const std::string& name) {
        return "PhotoDBExec Update photo_share set updated = '1' where sharename = '" + name + "'";
    };
    EXPECT_EQ(PhotoShareResync(nullptr), 0);
    EXPECT_EQ(fake.calls,
              (Lines{"PhotoDBExec Update photo_share set updated = '0'", Open("A"), mark("A"), Open("A/x"),
                     mark("A/x"), Open("B"), mark("B"), Open("B/y"), kNextId, Insert("B/y"), Open("B"),
                     "PhotoDBExec Update photo_share set public = 't' where sharename = 'B/y';",
                     "PhotoDBHarden", "PhotoDBExec Delete from photo_share where updated = '0'"}));
    fake.calls.clear();
    EXPECT_EQ(PhotoShareResync(In("A").c_str()), 0);
    EXPECT_EQ(PhotoShareResync(In("A/x").c_str()), 0);
    EXPECT_EQ(fake.calls, (Lines{Open("A/x"), mark("A/x")}));
    EXPECT_TRUE(fake.log.empty());
}

}  // namespace koli::test
