// MP3 files: the parse that brings tags and stream together, and the handler pair.
#include <gtest/gtest.h>

#include "audio/mp3.h"
#include "audio/music.h"
#include "tests/fake_platform.h"
#include "tests/mp3_bytes.h"

namespace koli {
namespace {

using namespace test;
using Lines = std::vector<std::string>;

class Mp3Metadata : public testing::Test {
  protected:
    int Parse(const std::string& bytes) {
        record_ = {};
        return Mp3MetadataParse(sandbox_.Write("a.mp3", bytes).c_str(), &record_);
    }
    Sandbox sandbox_;
    MediaInfo record_;
};

TEST_F(Mp3Metadata, TellsAConstantBitrateStream) {
    ASSERT_EQ(Parse(Padded(Audio(9592), 4000000)), 0);
    EXPECT_EQ(std::tuple(+record_.duration, +record_.audio_bitrate, +record_.sample_rate, +record_.channels),
              std::tuple(250.0F, 128000U, 44100U, 2U));
}

TEST_F(Mp3Metadata, NeedsASecondFrame) {
    const std::string zeros(20, '\0');
    const std::string garbage(500, 'g');
    EXPECT_EQ(Parse(Tag(zeros + "\xFF\xFB\x90") + garbage + Audio(2)), 0);
    EXPECT_EQ(Parse(Audio(1) + garbage), -1);
    EXPECT_EQ(Parse(Audio(1) + zeros + Audio(1)), -1);  // is looked for one byte too early

    fake.log.clear();
    fake.cover_folder = "/covers";
    EXPECT_EQ(Parse(Tag(Text("TIT2", "T")) + zeros), -1);
    EXPECT_STREQ(record_.title, "");
    EXPECT_EQ(fake.log, (Lines{"metaid3 (#) MPEG Header not found",
                               "metaid3 (#) Can't find valid mpeg header: " + sandbox_.dir() + "/a.mp3"}));
    EXPECT_EQ(fake.calls.back(), "CleanOldCover /covers");
    EXPECT_EQ(Mp3MetadataParse("", &record_), -1);
    EXPECT_EQ(fake.log.back(), "metaid3 (#) Bad parameters.");
}

TEST_F(Mp3Metadata, TakesDurationAndRateFromAVariableBitrateHeader) {
    const auto xing = [](int64_t flags, int64_t frames, int64_t bytes) {
        return "Xing" + Be32(flags) + Be32(frames) + Be32(bytes);
    };
    const auto vbri = [](int64_t frames, int64_t bytes) { return "VBRIxxxxxx" + Be32(bytes) + Be32(frames); };
    const float constant = 4170 / 128.0F * 0.008F;
    struct {
        std::string mark;
        float duration;
        uint32_t bitrate;
    } const cases[] = {{xing(3, 10000, 5000000), 261.22449F, 153125},
                       {xing(1, 10000, 5000000), 261.22449F, 128000},
                       {xing(2, 10000, 5000000), constant, 128000},
                       {xing(2, 1, 1) + vbri(10000, 5000000), 261.22449F, 153125},
                       {vbri(5, 5) + xing(3, 10000, 5000000), 261.22449F, 153125},
                       {xing(3, -1, 5000000), constant, 128000},
                       {xing(3, 1653750, 0xF0000000), constant, 745654},  // 43200 seconds
                       {xing(3, 1, 0xF0000000), 0.02612245F, 128000},     // a rate beyond 32 bits
                       {xing(3, 10000, 1), 261.22449F, 128000},           // a rate below 1
                       {vbri(0, 5000000), constant, 128000}};
    for (const auto& c : cases) {
        ASSERT_EQ(Parse(Audio(10).replace(36, c.mark.size(), c.mark)), 0);
        EXPECT_FLOAT_EQ(record_.duration, c.duration) << c.mark;
        EXPECT_EQ(record_.audio_bitrate, c.bitrate) << c.mark;
    }
}

TEST(MusicFileAdd, StoresTagsAndFillsWhatTheyLackFromThePath) {
    const Sandbox sandbox;
    const std::string path = sandbox.Write("Album/A.Song.mp3", Tag(Text("TALB", "Tagged")) + Audio());
    EXPECT_EQ(MusicFileAdd(path.c_str()), 0);
    const std::string bare = sandbox.Write("music/Artist - Song.mp3", "no audio");
    EXPECT_EQ(MusicFileAdd(bare.c_str()), 1);
    ASSERT_EQ(fake.media.size(), 2U);
    const auto text = [](const std::pair<int, MediaInfo>& saved) {
        const MediaInfo& m = saved.second;
        return std::to_string(saved.first) + m.path + "|" + m.title + "|" + m.album + "|" + m.mtime;
    };
    EXPECT_EQ(text(fake.media[0]), "0" + path + "|A.Song|Tagged|mtime");
    EXPECT_EQ(text(fake.media[1]), "0" + bare + "|Artist - Song|music|mtime");
    EXPECT_EQ(fake.media[1].second.file_size, 8U);
    EXPECT_EQ(fake.log.back(), "music (#) Failed to parse music metadata.");
    EXPECT_EQ(Lines(fake.calls.begin(), fake.calls.begin() + 3),
              (Lines{"GetCoverFolder " + path, "MediaInfoValid " + path, "MediaInfoDBSave 0 " + path}));

    fake.failing = {"MediaInfoDBSave"};
    EXPECT_EQ(MusicFileAdd(path.c_str()), -1);
    EXPECT_EQ(MusicFileAdd(bare.c_str()), 1);
    EXPECT_EQ(fake.log.back(), "music (#) Failed to save media info to database.");
}

TEST(MusicFile, RefusesWhatItShould) {
    const Sandbox sandbox;
    EXPECT_EQ(MusicFileAdd(""), -1);
    EXPECT_EQ(MusicFileAdd("/gone.mp3"), -1);
    EXPECT_EQ(MusicFileDelete("/gone.mp3"), 0);
    EXPECT_EQ(fake.calls, Lines{"MediaInfoDBDelete 0 /gone.mp3"});
    EXPECT_EQ(MusicFileDelete(sandbox.Write("a.mp3", "x").c_str()), -1);
    fake.failing = {"MediaInfoDBDelete"};
    EXPECT_EQ(MusicFileDelete("/gone.mp3"), -1);
    EXPECT_EQ(fake.log,
              (Lines{"music (#) Bad parameter.", "music (#) File exists. Skip remove it from database.",
                     "music (#) Failed to remove [/gone.mp3] from database"}));
}

}  // namespace
}  // namespace koli
