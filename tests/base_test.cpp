// The names derived from a path, and the handler parts that every format shares.
#include <gtest/gtest.h>

#include <climits>

#include "base/parse_number.h"
#include "base/path_names.h"
#include "index/util.h"
#include "tests/fake_platform.h"

namespace koli {
namespace {

using test::fake;
using Lines = std::vector<std::string>;

TEST(PathNames, FollowTheLastComponentAndItsFolder) {
    struct {
        std::string path, title, album;
        bool found_cut;
    } const cases[] = {
        {"/volume1/music/Album/Track1.mp3", "Track1", "Album", true},
        {"/volume1/music/a.b.mp3", "a.b", "music", true},
        {"/song.mp3", "song", "", true},
        {"/a/.mp3", "", "a", true},
        {"/a/plain", "plain", "a", true},
        {"/dotted.dir/plain", "plain", "dotted.dir", true},
        {"rel/x.mp3", "x", "", true},
        {"x.mp3", "x", "", true},
        {"/a//x.mp3", "x", "", true},
        {"/" + std::string(253, 'd') + "/x.mp3", "x", std::string(253, 'd'), true},
        {"/" + std::string(254, 'd') + "/x.mp3", "x", std::string(254, 'd'), false},
    };
    for (const auto& c : cases) {
        char title[kTextSize], album[kTextSize];
        TitleFromPath(c.path.c_str(), title, sizeof title);
        EXPECT_EQ(AlbumFromPath(c.path.c_str(), album, sizeof album), c.found_cut) << c.path;
        EXPECT_EQ(title, c.title);
        EXPECT_EQ(album, c.album);
    }
}

TEST(ParseInt32, SaturatesAt32BitsAndTellsWhereItStopped) {
    struct {
        const char* text;
        int32_t value;
        size_t end;
    } const cases[] = {
        {"1999", 1999, 4},
        {" -7x", -7, 3},
        {"3/12", 3, 1},
        {"", 0, 0},
        {"+", 0, 0},
        {"2147483648", INT_MAX, 10},
        {"-2147483649", INT_MIN, 11},
        {"99999999999999999999", INT_MAX, 20},
        {"-99999999999999999999", INT_MIN, 21},
    };
    for (const auto& c : cases) {
        const char* end = nullptr;
        EXPECT_EQ(ParseInt32(c.text, &end), c.value) << c.text;
        EXPECT_EQ(end, c.text + c.end) << c.text;
    }
}

TEST(MediaInfo, NumbersAreBigEndianInMemory) {
    MediaInfo record{};
    record.track = 0x01020304;
    record.duration = 1.0F;
    EXPECT_EQ(memcmp(&record.track, "\1\2\3\4", 4), 0);
    EXPECT_EQ(memcmp(&record.duration, "\x3f\x80\0\0", 4), 0);
    record.disc = INT_MIN;
    EXPECT_EQ(record.disc, INT_MIN);
}

TEST(MediaInfoFill, FillsWhatEveryRecordCarries) {
    const test::Sandbox sandbox;
    const std::string path = sandbox.Write("Album/Song.x.mp3", "12345");
    MediaInfo record{};
    ASSERT_EQ(MediaInfoFill(path.c_str(), &record), 0);
    EXPECT_EQ(record.path, path);
    EXPECT_STREQ(record.title, "Song.x");
    EXPECT_STREQ(record.album, "Album");
    EXPECT_EQ(record.file_size, 5U);
    EXPECT_STREQ(record.ctime, "ctime");
    EXPECT_STREQ(record.mtime, "mtime");
}

TEST(MediaInfoFill, RefusesBadArgumentsLoudlyAndMissingFilesSilently) {
    const test::Sandbox sandbox;
    MediaInfo record{};
    EXPECT_EQ(MediaInfoFill(nullptr, &record), -1);
    EXPECT_EQ(MediaInfoFill("", &record), -1);
    EXPECT_EQ(MediaInfoFill("/x", nullptr), -1);
    EXPECT_EQ(fake.log, Lines(3, "util:# Bad parameter."));
    EXPECT_EQ(MediaInfoFill((sandbox.dir() + "/gone.mp3").c_str(), &record), -1);
    EXPECT_EQ(fake.log.size(), 3U);
}

TEST(DeleteMediaInfo, KeepsWhatStillExistsAndReportsRefusals) {
    const test::Sandbox sandbox;
    const char* const kText = "%s (%d) Failed to remove [%s] from database";
    const std::string there = sandbox.Write("a.mp3", "x");
    EXPECT_EQ(DeleteMediaInfo(0, there.c_str(), LogSite("m"), kText, RemoveFailure::kIsError), -1);
    EXPECT_TRUE(fake.calls.empty());

    EXPECT_EQ(DeleteMediaInfo(0, "/gone.mp3", LogSite("m"), kText, RemoveFailure::kIsError), 0);
    fake.failing = {"MediaInfoDBDelete"};
    EXPECT_EQ(DeleteMediaInfo(1, "/gone.avi", LogSite("m"), kText, RemoveFailure::kIsError), -1);
    EXPECT_EQ(DeleteMediaInfo(3, "/gone.m3u", LogSite("m"), kText, RemoveFailure::kIsReportedOnly), 0);
    EXPECT_EQ(fake.calls, (Lines{"MediaInfoDBDelete 0 /gone.mp3", "MediaInfoDBDelete 1 /gone.avi",
                                 "MediaInfoDBDelete 3 /gone.m3u"}));
    EXPECT_EQ(fake.log, (Lines{"m (#) File exists. Skip remove it from database.",
                               "m (#) Failed to remove [/gone.avi] from database",
                               "m (#) Failed to remove [/gone.m3u] from database"}));
}

TEST(SaveMediaInfo, TurnsTheResultOnlyOnSuccess) {
    const test::Sandbox sandbox;
    const MediaInfo record{};
    for (const int result : {-1, 0, 1}) {
        fake.failing.clear();
        EXPECT_EQ(SaveMediaInfo(0, record, result, LogSite("m"), "%s (%d) no"), result == 1 ? 1 : 0);
        fake.failing = {"MediaInfoDBSave"};
        EXPECT_EQ(SaveMediaInfo(0, record, result, LogSite("m"), "%s (%d) no"), result);
    }
    EXPECT_EQ(fake.log, Lines(3, "m (#) no"));
}

}  // namespace
}  // namespace koli
