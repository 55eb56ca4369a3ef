// The names derived from a path, and the handler parts that every format shares.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <tuple>

#include "base/parse_number.h"
#include "base/path_names.h"
#include "index/util.h"
#include "tests/fake_platform.h"

namespace koli {
namespace {

TEST(PathNames, FollowTheLastComponentAndItsFolder) {
    const std::string most(253, 'd'), over(254, 'd');
    for (const auto& [path, title, album] :
         std::vector<std::array<std::string, 3>>{{"/volume1/music/Album/Track1.mp3", "Track1", "Album"},
                                                 {"/a/a.b.mp3", "a.b", "a"},
                                                 {"/a/.mp3", "", "a"},
                                                 {"/dotted.dir/plain", "plain", "dotted.dir"},
                                                 {"x.mp3", "x", ""},
                                                 {"/a//x.mp3", "x", ""},
                                                 {"/" + most + "/x.mp3", "x", most},
                                                 {"/" + over + "/x.mp3", "x", over}}) {
        char title_field[kTextSize], album_field[kTextSize];
        TitleFromPath(path.c_str(), title_field, sizeof title_field);
        EXPECT_EQ(AlbumFromPath(path.c_str(), album_field, sizeof album_field), album != over) << path;
        EXPECT_EQ(title_field, title);
        EXPECT_EQ(album_field, album);
    }
}

TEST(ParseInt32, SaturatesAt32BitsAndTellsWhereItStopped) {
    for (const auto& [text, value, length] : {std::tuple{"1999", 1999, 4},
                                              {" -7x", -7, 3},
                                              {"+", 0, 0},
                                              {"2147483648", INT_MAX, 10},
                                              {"-2147483649", INT_MIN, 11},
                                              {"99999999999999999999", INT_MAX, 20},
                                              {"-99999999999999999999", INT_MIN, 21}}) {
        const char* end = nullptr;
        EXPECT_EQ(ParseInt32(text, &end), value) << text;
        EXPECT_EQ(end, text + length) << text;
    }
}

TEST(MediaInfo, NumbersAreBigEndianInMemory) {
    MediaInfo record{};
    record.track = 0x01020304;
    record.duration = 1.0F;
    EXPECT_EQ(memcmp(&record.track, "\1\2\3\4", 4), 0);
    EXPECT_EQ(memcmp(&record.duration, "\x3f\x80\0\0", 4), 0);
}

TEST(MediaInfoFill, RefusesBadArgumentsLoudlyAndMissingFilesSilently) {
    test::fake = {};
    MediaInfo record{};
    EXPECT_EQ(MediaInfoFill("/gone.mp3", &record), -1);
    EXPECT_EQ(MediaInfoFill("", &record), -1);
    EXPECT_EQ(MediaInfoFill("/x", nullptr), -1);
    EXPECT_EQ(test::fake.log, std::vector<std::string>(2, "util:# Bad parameter."));
}

}  // namespace
}  // namespace koli
