// The AAC handler, with a decoder that prints what the media file holds.
#include <gtest/gtest.h>

#include "index/aac.h"
#include "tests/fake_platform.h"
#include "tests/media_bytes.h"

namespace koli {
namespace {

using test::fake;
using Lines = std::vector<std::string>;

constexpr const char kLine[] = "x.aac duration;12.5;samplerate;44100;channel;2;bitrate;128000;\n";

TEST(Aac, EveryNameReachesTheDecoderUnaltered) {
    const test::Sandbox sandbox;
    for (const char* name : {"plain.aac", "a b  c.aac", "it's \"x\".aac", "$HOME`id`$(id).aac",
                             "new\nline.aac", "back\\slash;&|*?.aac", "-i.aac", "\xff\xfe.aac"}) {
        const std::string path = sandbox.Write(std::string("Album/") + name, kLine);
        fake.calls.clear();
        ASSERT_EQ(AacFileAdd(path.c_str()), 0) << name;
        EXPECT_EQ(fake.calls, (Lines{"MediaInfoValid " + path, "MediaInfoDBSave 0 " + path}));
        EXPECT_EQ(test::Figures(fake.media.back().second), "12.5 128000 44100 2");
        EXPECT_STREQ(fake.media.back().second.album, "Album");
    }
}

TEST(Aac, ReadsTheLineAsScanfDoes) {
    const test::Sandbox sandbox;
    // Line and figures, none for a line that is refused.
    const std::pair<std::string, std::string> cases[] = {
        {"  x\tduration; 1e1;samplerate; 8;channel; 1;bitrate;7", "10 7 8 1"},
        {"xduration;1;samplerate;8;channel;1;bitrate;7;", ""},
        {"x duration;;samplerate;8;channel;1;bitrate;7;", ""},
        {"x duration;1,5;samplerate;8;channel;1;bitrate;7;", ""},
        {"x duration;1;samplerate;8;channel;1;bitrate;;", ""},
        {"x duration;1;samplerate;8;channel;1;bitrate;99999999999;", "1 2147483647 8 1"},
        {"x duration;1e99;samplerate;8;channel;1;bitrate;-1;", "inf 4294967295 8 1"},
        {std::string(960, 'x') + " duration;1;samplerate;8;channel;1;bitrate;5;", "1 5 8 1"},
        {std::string(1000, 'x') + " duration;1;samplerate;8;channel;1;bitrate;5;", ""},
    };
    for (const auto& [line, figures] : cases) {
        fake.log.clear();
        MediaInfo record{};
        EXPECT_EQ(AacInfoGet(sandbox.Write("a.aac", line).c_str(), &record), figures.empty() ? -1 : 0);
        EXPECT_EQ(test::Figures(record), figures.empty() ? "0 0 0 0" : figures);
        const std::string refused = "aac:# Failed to parse FAAD result. [" + line.substr(0, 1023) + "]";
        EXPECT_EQ(fake.log, figures.empty() ? Lines{refused} : Lines{});
    }
}

TEST(Aac, WithoutFiguresTheFileIsStoredByName) {
    const test::Sandbox sandbox;
    const std::string path = sandbox.Write("Album/Song.aac", "");
    EXPECT_EQ(AacFileAdd(path.c_str()), 1);
    EXPECT_TRUE(fake.log.empty());
    EXPECT_STREQ(fake.media.at(0).second.title, "Song");
    EXPECT_EQ(fake.calls, Lines{"MediaInfoDBSave 0 " + path});

    MediaInfo record{};
    EXPECT_EQ(AacInfoGet("a", &record), -1);  // three characters quoted, and room for two
    fake.failing = {"MediaInfoDBSave"};
    sandbox.Write("Album/Song.aac", kLine);
    EXPECT_EQ(AacFileAdd(path.c_str()), -1);
    EXPECT_EQ(AacFileAdd(nullptr), -1);
    EXPECT_EQ(AacFileAdd((path + "x").c_str()), -1);
    EXPECT_EQ(fake.log,
              (Lines{"aac:# Failed to encode string [a]",
                     "aac:# Failed to save media info to database. [" + path + "]", "aac:# Bad parameter."}));
}

TEST(Aac, ACommandThatDoesNotFitIsNotRun) {
    const test::Sandbox sandbox;
    const std::string marker = sandbox.dir() + "/ran";
    const std::string path = "/x'\n>" + marker + "\n" + std::string(4090, 'y');
    MediaInfo record{};
    EXPECT_EQ(AacInfoGet(path.c_str(), &record), -1);
    ASSERT_EQ(fake.log.size(), 1U);
    EXPECT_EQ(fake.log[0].find("aac:# Failed to popen. ["), 0U);
    EXPECT_EQ(test::ReadFile(marker), "");
    EXPECT_EQ(AacInfoGet("", &record), -1);
    EXPECT_EQ(fake.log[1], "aac:# Bad parameter.");
}

}  // namespace
}  // namespace koli
