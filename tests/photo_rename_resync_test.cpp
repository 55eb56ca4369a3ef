// Photo rows follow renames, and a resync brings them in step with the
#include <unistd.h>

#include "photo/folder_listing.h"
#include "photo/photo_rename.h"
#include "photo/photo_resync.h"
#include "photo/share_fs.h"
#include "tests/photo_sandbox.h"

namespace koli::test {

using PhotoPathRenameTest = PhotoFixture;
using PhotoFolderResyncTest = PhotoFixture;

TEST_F(PhotoPathRenameTest, RowsFollowAFolderAndAPicture) {
    const std::string folder = MakeDir("d.jpg"), photo = MakeFile("c.jpg");
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

    // Without rows the new path is indexed.
    EXPECT_EQ(PhotoPathRename(photo.c_str(), "/p/b.jpg", 0), 0);
    EXPECT_EQ(fake.calls.back(), "PhotoInfoDBSave 1 " + photo);
    EXPECT_EQ(PhotoPathRename(folder.c_str(), "/p/a", 1), 0);
    EXPECT_EQ(fake.calls.back(), "IndexWalk " + folder + " 1 2");
    EXPECT_EQ(PhotoPathRename("/p/c.mp4", "/p/a.mp4", 0), -1);
    EXPECT_EQ(PhotoPathRename("/p/a.mp4", "", 0), -1);
    EXPECT_EQ(fake.log,
              (Lines{"photo_index (#) Failed to rename to new path.", "photo_index (#) Bad parameter."}));
}

TEST_F(PhotoPathRenameTest, MovesTheFirstOccurrenceAndNeverCuts) {
    const std::string tail(3000, 'x');
    for (const std::string& path : {"/p/x/p/x/v.avi"s, "/other"s, "/p/x/" + tail, "/p/x/it's"s})
        fake.rows["photo 2 path like '/p/x%'"].push_back({{"path", path}});
    const std::string to = "/" + std::string(1500, 'y');  // the third would not fit
    EXPECT_EQ(VideoDescPathRename(2, to.c_str(), "/p/x"), 0);
    const std::string update = "KOLIDBExecute Update video_comment set path = '" + to;
    EXPECT_EQ(fake.calls, (Lines{"PhotoInfoDBOpen photo 2 path like '/p/x%'",
                                 update + "/p/x/v.avi' where path = '/p/x/p/x/v.avi'",
                                 update + "/it''s' where path = '/p/x/it''s'"}));
}

TEST_F(PhotoFolderResyncTest, RefreshesTheKnownAddsTheNewAndSweeps) {
    for (const char* name : {"b.jpg", "a.jpg", "c.mp4", "n.jpg", "m.jpg", ".h.jpg", "bare", "sub/s.jpg",
                             "@eaDir/e.jpg", "#recycle/r.jpg", "sub/my@eaDir/e.jpg", ".dir/h.jpg"})
        MakeFile(name);
    ASSERT_EQ(symlink(top_.c_str(), In("sub/up").c_str()), 0);
    ASSERT_EQ(symlink("/dev/null", In("null").c_str()), 0);
    const std::string inside = "path like '" + top_ + "/%' and path not like '" + top_ + "/%/%'";
    fake.rows["photo 0 " + inside] = {{{"path", In("b.jpg")}}, {{"path", In("a.jpg")}}};
    fake.rows["media 1 " + inside] = {{{"path", In("c.mp4")}}};
    ASSERT_EQ(PhotoFolderResync(nullptr), 0);

    const std::string sub = "path like '" + top_ + "/sub/%' and path not like '" + top_ + "/sub/%/%'";
    EXPECT_EQ(fake.calls,
              (Lines{"KOLIPhotoInitAllRows", "PhotoInfoDBOpen photo 0 " + inside,
                     "MediaInfoDBOpen media 1 " + inside, "KOLIIndexPhotoUpdateVideoStatus " + In("c.mp4"),
                     "PhotoInfoDBSave 5 " + In("b.jpg"), "PhotoInfoDBSave 5 " + In("a.jpg"),
                     "IndexOnePath " + In("n.jpg") + " 1", "PhotoInfoDBSave 1 " + In("n.jpg"),
                     "IndexOnePath " + In("m.jpg") + " 1", "PhotoInfoDBSave 1 " + In("m.jpg"),
                     "PhotoInfoDBOpen photo 0 " + sub, "MediaInfoDBOpen media 1 " + sub,
                     "IndexOnePath " + In("sub/s.jpg") + " 1", "PhotoInfoDBSave 1 " + In("sub/s.jpg"),
                     "PhotoDBHarden", "KOLIPhotoDeleteNoUpdateRows"}));
    EXPECT_TRUE(fake.log.empty());
}

TEST_F(PhotoFolderResyncTest, FailuresAreToldInTheirWords) {
    MakeFile("a.jpg");
    fake.failing = {"PhotoDBHarden"};
    EXPECT_EQ(PhotoFolderResync(nullptr), -1);
    EXPECT_EQ(fake.calls.back(), "PhotoDBHarden");
    fake.failing = {"PhotoInfoDBOpen"};
    EXPECT_EQ(PhotoFolderResync(nullptr), 0);
    EXPECT_NE(fake.calls.back(), "KOLIPhotoDeleteNoUpdateRows");
    fake.failing = {"KOLIPhotoInitAllRows"};
    EXPECT_EQ(PhotoFolderResync(nullptr), -1);
    share_target = In("unmounted");
    fake.failing.clear();
    EXPECT_EQ(PhotoFolderResync(nullptr), 0);
    EXPECT_EQ(fake.calls.back(), "KOLIPhotoInitAllRows");
    share_target = "";
    EXPECT_EQ(PhotoFolderResync(nullptr), -1);
    EXPECT_EQ(PhotoFolderSync("", nullptr), -1);
    EXPECT_EQ(fake.log, (Lines{"photo_index (#) Failed to delete none updated rows.",
                               "photo_index (#) Error occurred, failed to get records.",
                               "photo_index (#) Failed to set updated to 0 for all rows.",
                               "photo_index (#) Failed to open directory " + In("unmounted") + " ",
                               "photo_index (#) Failed to read link of /var/services/photo",
                               "photo_index (#) Bad parameter. "}));
}

}  // namespace koli::test
