// Photo rows follow renames, and a resync brings them in step with the share.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "photo/folder_listing.h"
#include "photo/photo_rename.h"
#include "photo/photo_resync.h"
#include "photo/share_fs.h"
#include "tests/photo_sandbox.h"

namespace koli {
namespace {

using namespace test;
using Lines = std::vector<std::string>;

TEST(PhotoPathRename, RowsFollowAFolderAndAPicture) {
    const PhotoSandbox share;
    const std::string folder = share.MakeDir("b.d");
    const std::string photo = share.MakeFile("c.jpg");
    fake.rows["photo 0 path like '/p/o''\\_/%'"] = {{{"path", "/p/o'_/x.jpg"}}};
    fake.rows["photo 0 path like '/p/a.jpg%'"] = {{{"path", "/p/a.jpg"}}};
    fake.rows["photo 0 path like '" + photo + "%'"] = {{{"path", photo}}};
    EXPECT_EQ(PhotoPathRename(folder.c_str(), "/p/o'_", 1), 0);
    EXPECT_EQ(PhotoPathRename(photo.c_str(), "/p/a.jpg", 0), 0);
    EXPECT_EQ(PhotoPathRename(photo.c_str(), photo.c_str(), 0), 0);
    EXPECT_EQ(fake.calls, (Lines{"PhotoInfoDBOpen photo 0 path like '/p/o''\\_/%'",
                                 "KOLIUpdatePhotoPath " + folder + " /p/o'_",
                                 "PhotoInfoDBOpen photo 0 path like '/p/a.jpg%'",
                                 "PhotoInfoDBDelete " + photo, "KOLIUpdatePhotoPath " + photo + " /p/a.jpg",
                                 "PhotoInfoDBOpen photo 0 path like '" + photo + "%'",
                                 "KOLIUpdatePhotoPath " + photo + " " + photo}));
    EXPECT_EQ(PhotoPathRename("/p/b.mp4", "/p/a.jpg", 0), -1);  // a video gives up its rows
    EXPECT_EQ(fake.calls.back(), "PhotoInfoDBDelete /p/a.jpg");
    fake.failing = {"KOLIUpdatePhotoPath"};
    EXPECT_EQ(PhotoPathRename(folder.c_str(), "/p/a.jpg", 0), -1);
    EXPECT_EQ(fake.log, Lines{"photo_index (#) Failed to rename to new path."});
}

TEST(PhotoPathRename, WithoutRowsTheNewPathIsIndexed) {
    const PhotoSandbox share;
    const std::string photo = share.MakeFile("c.jpg"), folder = share.MakeDir("d.jpg");
    EXPECT_EQ(PhotoPathRename(photo.c_str(), "/p/a.jpg", 0), 0);
    EXPECT_EQ(fake.calls.back(), "PhotoInfoDBSave 1 " + photo);
    EXPECT_EQ(PhotoPathRename(folder.c_str(), "/p/a", 1), 0);
    EXPECT_EQ(fake.calls.back(), "IndexWalk 1 2 " + folder);
    EXPECT_EQ(PhotoPathRename("/p/c.mp4", "/p/a.mp4", 0), -1);
    EXPECT_EQ(PhotoPathRename("/p/a.mp4", "", 0), -1);
    EXPECT_EQ(fake.log, Lines{"photo_index (#) Bad parameter."});
}

TEST(VideoDescPathRename, MovesTheFirstOccurrenceAndNeverCuts) {
    const PhotoSandbox share;
    const std::string tail(3000, 'x');
    fake.rows["photo 2 path like '/p/x%'"] = {{{"path", "/p/x/p/x/v.avi"}},
                                              {{"path", "/other"}},
                                              {{"path", "/p/x/" + tail}},
                                              {{"path", "/p/x/it's"}}};
    const std::string to = "/" + std::string(1500, 'y');  // the third would not fit
    EXPECT_EQ(VideoDescPathRename(2, to.c_str(), "/p/x"), 0);
    const std::string update = "KOLIDBExecute Update video_comment set path = '" + to;
    EXPECT_EQ(fake.calls, (Lines{"PhotoInfoDBOpen photo 2 path like '/p/x%'",
                                 update + "/p/x/v.avi' where path = '/p/x/p/x/v.avi'",
                                 update + "/it''s' where path = '/p/x/it''s'"}));
}

TEST(PhotoFolderResync, RefreshesTheKnownAddsTheNewAndSweeps) {
    const PhotoSandbox share;
    const std::string& top = share.top();
    for (const char* name : {"b.jpg", "a.jpg", "c.mp4", "n.jpg", "m.jpg", ".hidden.jpg", "bare", "sub/s.jpg",
                             "@eaDir/e.jpg", "#recycle/r.jpg", "sub/my@eaDir/e.jpg", ".dir/h.jpg"})
        share.MakeFile(name);
    ASSERT_EQ(symlink(top.c_str(), share.In("sub/up").c_str()), 0);
    ASSERT_EQ(symlink("/dev/null", share.In("null").c_str()), 0);
    const std::string inside = "path like '" + top + "/%' and path not like '" + top + "/%/%'";
    fake.rows["photo 0 " + inside] = {{{"path", share.In("b.jpg")}}, {{"path", share.In("a.jpg")}}};
    fake.rows["media 1 " + inside] = {{{"path", share.In("c.mp4")}}};
    ASSERT_EQ(PhotoFolderResync(nullptr), 0);

    const std::string sub = "path like '" + top + "/sub/%' and path not like '" + top + "/sub/%/%'";
    EXPECT_EQ(
        fake.calls,
        (Lines{"KOLIPhotoInitAllRows", "PhotoInfoDBOpen photo 0 " + inside,
               "MediaInfoDBOpen media 1 " + inside, "KOLIIndexPhotoUpdateVideoStatus " + share.In("c.mp4"),
               "PhotoInfoDBSave 5 " + share.In("b.jpg"), "PhotoInfoDBSave 5 " + share.In("a.jpg"),
               "IndexOnePath 1 " + share.In("n.jpg"), "PhotoInfoDBSave 1 " + share.In("n.jpg"),
               "IndexOnePath 1 " + share.In("m.jpg"), "PhotoInfoDBSave 1 " + share.In("m.jpg"),
               "PhotoInfoDBOpen photo 0 " + sub, "MediaInfoDBOpen media 1 " + sub,
               "IndexOnePath 1 " + share.In("sub/s.jpg"), "PhotoInfoDBSave 1 " + share.In("sub/s.jpg"),
               "PhotoDBHarden", "KOLIPhotoDeleteNoUpdateRows"}));
    EXPECT_TRUE(fake.log.empty());
}

TEST(PhotoFolderResync, NothingIsSweptUnlessAllWasSeen) {
    const PhotoSandbox share;
    share.MakeFile("a.jpg");
    const std::string locked = share.MakeDir("locked");
    ASSERT_EQ(chmod(locked.c_str(), 0600), 0);  // can be listed, but not entered
    const bool is_root = geteuid() == 0;
    ASSERT_EQ(is_root ? seteuid(65534) : 0, 0);
    EXPECT_EQ(PhotoFolderResync(nullptr), 0);
    ASSERT_EQ(is_root ? seteuid(0) : 0, 0);
    EXPECT_NE(fake.calls.back(), "KOLIPhotoDeleteNoUpdateRows");
    chmod(locked.c_str(), 0700);

    fake.failing = {"PhotoDBHarden"};
    EXPECT_EQ(PhotoFolderResync(nullptr), -1);
    EXPECT_EQ(fake.calls.back(), "PhotoDBHarden");
    fake.failing = {"PhotoInfoDBOpen"};
    EXPECT_EQ(PhotoFolderResync(nullptr), 0);
    fake.failing = {"KOLIPhotoInitAllRows"};
    EXPECT_EQ(PhotoFolderResync(nullptr), -1);
    share_target = share.In("unmounted");
    fake.failing.clear();
    EXPECT_EQ(PhotoFolderResync(nullptr), 0);
    EXPECT_EQ(fake.calls.back(), "KOLIPhotoInitAllRows");
    share_target = "";
    EXPECT_EQ(PhotoFolderResync(nullptr), -1);
    EXPECT_EQ(PhotoFolderSync("", nullptr), -1);
    EXPECT_EQ(fake.log, (Lines{"photo_index (#) Failed to open directory " + locked + " ",
                               "photo_index (#) Failed to delete none updated rows.",
                               "photo_index (#) Error occurred, failed to get records.",
                               "photo_index (#) Failed to set updated to 0 for all rows.",
                               "photo_index (#) Failed to open directory " + share.In("unmounted") + " ",
                               "photo_index (#) Failed to read link of /var/services/photo",
                               "photo_index (#) Bad parameter. "}));
}

}  // namespace
}  // namespace koli
