// MP3 files: the parse that brings tags and stream together, and what the path adds.
#include "audio/music.h"
#include "audio/mp3.h"
#include "tests/fixture.h"
#include "tests/mp3_bytes.h"

namespace koli::test {

struct Mp3Metadata : Fixture {
    int Parse(const std::string& bytes) {
        record_ = {};
        return Mp3MetadataParse(Write("a.mp3", bytes).c_str(), &record_, Reading());
    }
    MediaInfo record_;
};

TEST_F(Mp3Metadata, NeedsASecondFrame) {
    ASSERT_EQ(Parse(Padded(Audio(9592), 4000000)), 0);
    EXPECT_EQ(Figures(record_), "250 128000 44100 2");
    const std::string zeros(20, '\0'), garbage(500, 'g');
    EXPECT_EQ(Parse(Tag(zeros + "\xFF\xFB\x90") + garbage + Audio(2)), 0);
    EXPECT_EQ(Parse(Audio(1) + garbage), -1);
    EXPECT_EQ(Parse(Audio(1) + zeros + Audio(1)), -1);  // is looked for one byte too early

    fake.log.clear();
    const std::string cover = Write("@eaDir/a.mp3/cover1.jpg", "old");
    EXPECT_EQ(Parse(Tag(Text("TIT2", "T")) + zeros), -1);
    EXPECT_STREQ(record_.title, "");
    EXPECT_EQ(ReadFile(cover), "");
    EXPECT_EQ(Mp3MetadataParse("", &record_, Reading()), -1);
    EXPECT_EQ(fake.log, (Lines{"metaid3 (#) MPEG Header not found",
                               "metaid3 (#) Can't find valid mpeg header: " + Path("a.mp3"),
                               "metaid3 (#) Bad parameters."}));
}

TEST_F(Mp3Metadata, TakesDurationAndRateFromAVariableBitrateHeader) {
    const auto xing = [](int64_t flags, int64_t frames, int64_t bytes) {
        return "Xing" + Be32(flags) + Be32(frames) + Be32(bytes);
    };
    const auto vbri = [](int64_t frames, int64_t bytes) { return "VBRIxxxxxx" + Be32(bytes) + Be32(frames); };
    const std::string constant = "0.260625005", variable = "261.224487";
    const std::pair<std::string, std::string> cases[] = {
        {xing(3, 10000, 5000000), variable + " 153125"},
        {xing(1, 10000, 5000000), variable + " 128000"},
        {xing(2, 10000, 5000000), constant + " 128000"},
        {xing(2, 1, 1) + vbri(10000, 5000000), variable + " 153125"},
        {vbri(5, 5) + xing(3, 10000, 5000000), variable + " 153125"},
        {xing(3, -1, 5000000), constant + " 128000"},
        {xing(3, 1653750, 0xF0000000), constant + " 745654"},  // 43200 seconds
        {xing(3, 1, 0xF0000000), "0.026122449 128000"},        // a rate beyond 32 bits
        {xing(3, 10000, 1), variable + " 128000"},             // a rate below 1
        {vbri(0, 5000000), constant + " 128000"}};
    for (const auto& [mark, figures] : cases) {
        ASSERT_EQ(Parse(Audio(10).replace(36, mark.size(), mark)), 0);
        EXPECT_EQ(Figures(record_), figures + " 44100 2") << mark;
    }
}

}  // namespace koli::test
