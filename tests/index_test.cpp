// The dispatch table, the rules around the handlers, what is gone, and what a path says about its share.
#include "index/index.h"

#include "index/playlist.h"
#include "index/record/index_mode.h"
#include "index/record/share_path.h"
#include "tests/fixture.h"

namespace koli::test {

using Index = Fixture;

TEST_F(Index, ExtensionsReachTheirHandlersInAnyCase) {
    EXPECT_EQ(IndexOnePath("/volume1/x/a.DVR-ms", kModeAdd), 0);
    EXPECT_EQ(fake.calls, Lines{"MediaVideoAdd /volume1/x/a.DVR-ms"});
    for (const char* unknown : {"", "txt", "mp", "mp33", "\x4d\x10\x33", static_cast<const char*>(nullptr)})
        EXPECT_EQ(IndexHandlerFind(unknown), nullptr) << unknown;
}

TEST(SharePath, ThePhotoShareAndTheRecycleBinAreToldByPosition) {
    const char* const none = nullptr;
    for (const char* path : {"/volume1/photo", "/volume1/Photo/2009/x.jpg", "/volume1/PHOTO/"})
        EXPECT_EQ(IsPhotoSharePath(path), 1) << path;
    for (const char* path :
         {"/volume1/photos", "/volume10/photo/x", "/volume1/phot", "/volume1/", "/volume1", "", none})
        EXPECT_EQ(IsPhotoSharePath(path), 0) << path;
    for (const char* path : {"/volume1/music/#recycle", "/v/m/#recycle/a"})
        EXPECT_EQ(IsRecycleBinPath(path), 1) << path;
    for (const char* path :
         {"/v/m/a/#recycle", "/v/m/#recycled", "/v/#recycle", "/a/b/", "/v/m/#recycl", "", none})
        EXPECT_EQ(IsRecycleBinPath(path), 0) << path;
}

TEST_F(Index, OnlyWhatIsCertainlyGoneIsRemoved) {
    const std::string list = Write("a.m3u", "");
    ASSERT_EQ(symlink("loop", "loop"), 0);
    EXPECT_EQ(PlaylistFileDelete(list.c_str()), -1);
    EXPECT_EQ(PlaylistFileDelete("loop/a.m3u"), -1);
    EXPECT_EQ(PlaylistFileDelete("a.m3u/x.m3u"), 0);
    EXPECT_EQ(fake.calls, Lines{"MediaInfoDBDelete 3 a.m3u/x.m3u"});
    EXPECT_EQ(
        fake.log,
        (Lines{
            "playlist (#) File exists. Skip remove it from database.",
            "playlist (#) Failed to look at loop/a.m3u. Skip remove it from database. (Too many levels of symbolic links)"}));
}

TEST_F(Index, AFileThatBringsTheDaemonDownIsStoredUnopenedAndThenLeftAlone) {
    const std::string song = Write("a.mp3", "x");
    const auto next_life = [&](bool has_batch) {  // after one that ended in the middle of the song
        char path[kPathSize];
        EXPECT_TRUE(ReadingMarkOpen("mark"));
        ReadingMarkSet(song.c_str());
        EXPECT_TRUE(ReadingMarkOpen("mark"));
        return ReadingMarkTakeOver(has_batch, path);
    };
    const auto calls = [&] {
        fake.calls.clear();
        IndexOnePath(song.c_str(), kModeAdd);
        return fake.calls;
    };
    const Lines opened{"MusicFileAdd " + song};
    const Lines unopened{"MediaInfoDBSave 0 " + song, "KOLIProblemSet " + song + " " + kBroughtDown + " 0"};
    EXPECT_EQ(next_life(false), 0);
    EXPECT_EQ(next_life(true), 1);
    EXPECT_EQ(calls(), opened);
    ReadingMarkForgive();
    EXPECT_EQ(next_life(true), 1);
    EXPECT_EQ(next_life(true), 2);
    ReadingMarkForgive();
    EXPECT_EQ(calls(), unopened);
    std::filesystem::copy_file(song, Path("new"));
    std::filesystem::last_write_time(Path("new"), std::filesystem::last_write_time(song));
    std::filesystem::rename(Path("new"), song);  // as if its file system had numbered it anew
    EXPECT_EQ(calls(), unopened);
    Write("a.mp3", "longer");
    EXPECT_EQ(calls(), opened);
    EXPECT_EQ(next_life(true), 2);  // an upload does not get two attempts for each of its lengths
    EXPECT_EQ(calls(), unopened);
    EXPECT_EQ(next_life(true), 3);
    EXPECT_EQ(calls(), Lines{});
    Write("mark", "damaged");
    ASSERT_TRUE(ReadingMarkOpen("mark"));
    EXPECT_EQ(calls(), opened);
    std::filesystem::rename(song, Path("away"));  // as long as its volume is not there
    EXPECT_EQ(next_life(true), 1);
    EXPECT_EQ(next_life(true), 2);
    std::filesystem::rename(Path("away"), song);
    EXPECT_EQ(calls(), unopened);
    Write("a.mp3", "changed");
    EXPECT_EQ(calls(), opened);
}

}  // namespace koli::test
