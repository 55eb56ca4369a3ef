// The AAC handler, with a decoder that prints what the media file holds.

#include "index/aac.h"
#include "tests/fixture.h"
#include "tests/media_bytes.h"

namespace koli::test {

using Aac = Fixture;

constexpr const char kLine[] = "x.aac duration;12.5;samplerate;44100;channel;2;bitrate;128000;\n";

TEST_F(Aac, EveryNameReachesTheDecoderUnaltered) {
    for (const char* name :
         {"plain.aac", "a b  c.aac", "it's \"x\".aac", "$HOME`id`$(id).aac", "new\nline.aac",
          "'a'b'c'd'e'f'g'h'i'j'k'l'm'n'o'p'q'r's't'u'v'w'x'y'z'$`\\\"\n.aac", "back\\slash;&|*?.aac",
          "-i.aac", "\xff\xfe.aac"}) {
        const std::string path = Write(std::string("Album/") + name, kLine);
        fake.calls.clear();
        ASSERT_EQ(AacFileAdd(path.c_str()), 0) << name;
        EXPECT_EQ(fake.calls, (Lines{"MediaInfoValid " + path, "MediaInfoDBSave 0 " + path}));
        EXPECT_EQ(Figures(fake.media.back().second), "12.5 128000 44100 2");
        EXPECT_STREQ(fake.media.back().second.album, "Album");
    }
}

TEST_F(Aac, ReadsTheLineAsScanfDoes) {
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
        EXPECT_EQ(AacInfoGet(Write("a.aac", line).c_str(), &record), figures.empty() ? -1 : 0);
        EXPECT_EQ(Figures(record), figures.empty() ? "0 0 0 0" : figures);
        const std::string refused = "aac:# Failed to parse FAAD result. [" + line.substr(0, 1023) + "]";
        EXPECT_EQ(fake.log, figures.empty() ? Lines{refused} : Lines{});
    }
}

TEST_F(Aac, WithoutFiguresTheFileIsStoredByName) {
    const std::string path = Write("Album/Song.aac", "");
    EXPECT_EQ(AacFileAdd(path.c_str()), 1);
    EXPECT_EQ(Names(fake.media.at(0).second), "Song|Album||||0|0|0");
    EXPECT_EQ(fake.calls, Lines{"MediaInfoDBSave 0 " + path});

    MediaInfo record{};
    EXPECT_EQ(AacInfoGet("a", &record), -1);  // three characters quoted, and room for two
    fake.failing = {"MediaInfoDBSave"};
    Write("Album/Song.aac", kLine);
    EXPECT_EQ(AacFileAdd(path.c_str()), -1);
    EXPECT_EQ(AacFileAdd(nullptr), -1);
    EXPECT_EQ(AacFileAdd((path + "x").c_str()), -1);
    EXPECT_EQ(fake.log,
              (Lines{"aac:# Failed to encode string [a]",
                     "aac:# Failed to save media info to database. [" + path + "]", "aac:# Bad parameter."}));
}

TEST_F(Aac, ACommandThatDoesNotFitIsNotRun) {
    const std::string marker = Path("ran");
    const std::string path = "/x'\n>" + marker + "\n" + std::string(4090, 'y');
    MediaInfo record{};
    EXPECT_EQ(AacInfoGet(path.c_str(), &record), -1);
    ASSERT_EQ(fake.log.size(), 1U);
    EXPECT_EQ(fake.log[0].find("aac:# The command is too long. ["), 0U);
    EXPECT_EQ(ReadFile(marker), "");
    EXPECT_EQ(AacInfoGet("", &record), -1);
    EXPECT_EQ(fake.log[1], "aac:# Bad parameter.");
}

}  // namespace koli::test
