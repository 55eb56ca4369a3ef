// The dispatch table, the rules around the handlers, playlists, and what a path says about its share.
#include <gtest/gtest.h>
#include <utime.h>

#include <cstring>

#include "index/directory_record.h"
#include "index/index.h"
#include "index/index_mode.h"
#include "index/playlist.h"
#include "index/share_path.h"
#include "tests/fake_handlers.h"
#include "tests/fake_platform.h"

namespace koli {
namespace {

using test::fake;
using Lines = std::vector<std::string>;

TEST(Index, ExtensionsReachTheirHandlersInAnyCase) {
    const test::Sandbox sandbox;
    const struct {
        const char *add, *remove, *extension;
    } rows[] = {{"MusicFileAdd", "MusicFileDelete", "Mp3"},     {"Mp4Add", "Mp4Delete", "m4a"},
                {"MediaVideoAdd", "MediaVideoDelete", "mp4"},   {"AacFileAdd", "MediaMusicDelete", "aac"},
                {"MediaMusicSave", "MediaMusicDelete", "pcm"},  {"MediaVideoAdd", "MediaVideoDelete", "3GP"},
                {"MediaVideoSave", "MediaVideoDelete", "srt"},  {"VideoAdd", "VideoDelete", "dat"},
                {"MediaVideoAdd", "MediaVideoDelete", "DVR-ms"}};
    for (const auto& row : rows) {
        const std::string path = std::string("/volume1/x/a.") + row.extension;
        fake.calls.clear();
        EXPECT_EQ(IndexOnePath(path.c_str(), kModeAdd), 0);
        EXPECT_EQ(IndexOnePath(path.c_str(), kModeDelete), 0);
        EXPECT_EQ(fake.calls, (Lines{row.add + (" " + path), row.remove + (" " + path)}));
    }
    for (const char* unknown : {"", "txt", "mp", "mp33", "\x4d\x10\x33"})
        EXPECT_EQ(IndexHandlerFind(unknown), nullptr) << unknown;
    EXPECT_EQ(IndexHandlerFind(nullptr), nullptr);
}

TEST(Index, BadCallsAndDirectoriesReachNoHandler) {
    const test::Sandbox sandbox;
    const std::string dir = sandbox.MakeDir("x.mp3");
    EXPECT_EQ(IndexOnePath(nullptr, kModeAdd), -1);
    EXPECT_EQ(IndexOnePath("", kModeDelete), -1);
    EXPECT_EQ(IndexOnePath(dir.c_str(), kModeUpdate), -1);
    EXPECT_EQ(IndexOneFile("/a.mp3", kModeRebuild), -1);
    EXPECT_EQ(fake.log, Lines(4, "index (#) Bad parameter."));
    fake.log.clear();
    fake.failing = {"MediaInfoDBDirSave"};
    EXPECT_EQ(IndexOnePath(dir.c_str(), kModeAdd), 0);
    EXPECT_EQ(IndexOnePath(dir.c_str(), kModeDelete), 0);
    EXPECT_EQ(DirectoryInfoSave("/no/such/dir"), -1);
    EXPECT_EQ(fake.calls, Lines{"MediaInfoDBDirSave " + dir});
    EXPECT_EQ(fake.log, Lines{"directory (#) Failed to save directory info to database."});
}

TEST(Index, ResultsTellTheCallerWhatComesNext) {
    const test::Sandbox sandbox;
    EXPECT_EQ(IndexOnePath("/v.x/noext", kModeDelete), -1);
    EXPECT_EQ(IndexOnePath("/v/readme.txt", kModeAdd), 0);
    EXPECT_EQ(IndexOnePath("/v/._a.mp3", kModeAdd), -1);
    EXPECT_EQ(IndexOnePath("a.mp3", kModeAdd), -1);
    EXPECT_TRUE(fake.calls.empty());

    test::handler_results = {{"MusicFileAdd", 1}, {"Mp4Add", -7}, {"MusicFileDelete", -1}};
    EXPECT_EQ(IndexOnePath("/v/a.mp3", kModeAdd), -1);
    EXPECT_EQ(IndexOneFile("/v/a.m4a", kModeAdd), -7);
    EXPECT_EQ(IndexOneFile("/v/._a.mp3", kModeDelete), -1);
    test::handler_results.clear();
    EXPECT_EQ(fake.calls, (Lines{"MusicFileAdd /v/a.mp3", "KOLILogSet1 2 3 296748304 /v/a.mp3",
                                 "Mp4Add /v/a.m4a", "MusicFileDelete /v/._a.mp3"}));
    EXPECT_EQ(fake.log, Lines{"index:# Failed to parse media metadata of file [/v/a.mp3]."});
}

TEST(SharePath, ThePhotoShareAndTheRecycleBinAreToldByPosition) {
    for (const char* path : {"/volume1/photo", "/volume1/Photo/2009/x.jpg", "/volume1/PHOTO/"})
        EXPECT_EQ(IsPhotoSharePath(path), 1) << path;
    for (const char* path :
         {"/volume1/photos", "/volume10/photo/x", "/volume1/phot", "/volume1/", "/volume1", ""})
        EXPECT_EQ(IsPhotoSharePath(path), 0) << path;
    EXPECT_EQ(IsPhotoSharePath(nullptr), 0);

    for (const char* path : {"/volume1/music/#recycle", "/v/m/#recycle/a"})
        EXPECT_EQ(IsRecycleBinPath(path), 1) << path;
    for (const char* path : {"/v/m/a/#recycle", "/v/m/#recycled", "/v/#recycle", "/a/b/", "/v/m/#recycl", ""})
        EXPECT_EQ(IsRecycleBinPath(path), 0) << path;
    EXPECT_EQ(IsRecycleBinPath(nullptr), 0);
}

TEST(Playlist, IsStoredUnopenedAndKeptWhileItExists) {
    const test::Sandbox sandbox;
    setenv("TZ", "UTC", 1);
    const std::string path = sandbox.Write("Party/mix.v2.m3u", "#EXTM3U");
    const utimbuf times{1794775162, 1794775162};
    ASSERT_EQ(utime(path.c_str(), &times), 0);
    ASSERT_EQ(IndexOnePath(path.c_str(), kModeAdd), 0);
    const MediaInfo& record = fake.media.at(0).second;
    EXPECT_EQ(record.path, path);
    EXPECT_STREQ(record.title, "mix.v2");
    EXPECT_EQ(record.file_size, 7U);
    EXPECT_STREQ(record.mtime, "Sun Nov 15 20:39:22 2026\n");
    EXPECT_EQ(strlen(record.ctime), 25U);

    fake.failing = {"MediaInfoDBSave", "MediaInfoDBDelete"};
    EXPECT_EQ(PlaylistFileAdd(path.c_str()), -1);
    EXPECT_EQ(PlaylistFileAdd(sandbox.MakeDir("x.m3u").c_str()), -1);
    EXPECT_EQ(PlaylistFileDelete(path.c_str()), -1);
    EXPECT_EQ(PlaylistFileDelete("/gone.wpl"), 0);
    EXPECT_EQ(fake.calls, (Lines{"MediaInfoDBSave 3 " + path, "MediaInfoDBSave 3 " + path,
                                 "MediaInfoDBDelete 3 /gone.wpl"}));  // and no MediaInfoValid
    EXPECT_EQ(fake.log, (Lines{"playlist (#) Failed to save playlist info.",
                               "playlist (#) File exists. Skip remove it from database.",
                               "playlist (#) Failed to remove /gone.wpl from database."}));
}

}  // namespace
}  // namespace koli
