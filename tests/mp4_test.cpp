// MP4 files made box by box, the handler over them, and what damage does to them.
#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

#include "base/path_names.h"

#include "tests/fake_platform.h"
#include "tests/media_bytes.h"
#include "video/metamedia.h"
#include "video/mp4.h"

namespace koli {

namespace {
MediaInfo probe_record{};
int probe_result = -1;
}  // namespace

// The guarded probe of these tests.
int MiscMediaInfoGet(const char*, MediaInfo* record) {
    *record = probe_record;
    return probe_result;
}

namespace {

using test::Be;
using test::fake;
using test::Figures;
using test::Names;
using Lines = std::vector<std::string>;

std::string Box(const std::string& type, const std::string& body) {
    return Be(body.size() + 8, 4) + type + body;
}

std::string Zeros(size_t count) {
    return std::string(count, '\0');
}

std::string MediaHeader(uint64_t scale, uint64_t duration, bool is_long = false) {
    return is_long ? Box("mdhd", Be(1, 1) + Zeros(19) + Be(scale, 4) + Be(duration, 8) + Zeros(4))
                   : Box("mdhd", Zeros(12) + Be(scale, 4) + Be(duration, 4) + Zeros(4));
}

std::string Esds(uint64_t bitrate) {
    const std::string config = "\x04\x80\x80\x80\x0d" + Zeros(5) + Be(999999, 4) + Be(bitrate, 4);
    return Box("esds", Zeros(4) + "\x03\x80\x80\x80\x1c" + Zeros(2) + "\x60" + "\x02ur" + Zeros(2) + config);
}

std::string SoundEntry(uint64_t channels, const std::string& boxes, uint64_t version = 0) {
    return Box("mp4a", Zeros(8) + Be(version, 2) + Zeros(6) + Be(channels, 2) + Zeros(10) +
                           Zeros(version == 1 ? 16 : 0) + boxes);
}

std::string PictureEntry(uint64_t width, uint64_t height, const std::string& boxes = "") {
    return Box("mp4v", Zeros(24) + Be(width, 2) + Be(height, 2) + Zeros(50) + boxes);
}

std::string Track(const std::string& type, const std::string& header, const std::string& entry) {
    const std::string stsd = Box("stsd", Zeros(4) + Be(1, 4) + entry);
    return Box("trak",
               Box("tkhd", Zeros(20)) + Box("mdia", header + Box("hdlr", Zeros(8) + type + Zeros(12)) +
                                                        Box("minf", Box("stbl", Box("stts", "") + stsd))));
}

std::string Sound(uint64_t channels = 2) {
    return Track("soun", MediaHeader(44100, 44100 * 12 + 44099), SoundEntry(channels, Esds(128000)));
}

std::string Tag(const std::string& item, const std::string& value, uint64_t type = 1) {
    return Box(item, Box("data", Be(type, 4) + Zeros(4) + value));
}

std::string Tags(const std::string& items, bool is_full = true) {
    return Box("udta", Box("meta", (is_full ? Zeros(4) : "") + Box("hdlr", Zeros(24)) + Box("ilst", items)));
}

std::string Mp4(const std::string& movie) {
    return Box("ftyp", "M4A ") + Box("mdat", Zeros(6000)) + Box("moov", Box("mvhd", "") + movie);
}

MediaInfo Read(const test::Sandbox& sandbox, const std::string& bytes, int expected = 0) {
    MediaInfo record{};
    EXPECT_EQ(Mp4InfoFill(sandbox.Write("Album/Song.m4a", bytes).c_str(), &record), expected);
    return record;
}

TEST(Mp4, TagsFillTheirFields) {
    const test::Sandbox sandbox;
    const std::string items = Tag("\251nam", "Title") + Tag("\251nam", "second") + Tag("\251alb", "Alb") +
                              Tag("\251ART", "Art") + Tag("\251gen", "text") + Tag("gnre", Be(18, 2), 0) +
                              Tag("\251cmt", std::string(5000, 'c')) + Tag("\251wrt", "Wri") +
                              Tag("\251day", "2009") + Tag("trkn", Be(3, 4) + Be(12, 2) + Zeros(2), 0) +
                              Tag("disk", Be(2, 4), 0) + Box("----", Box("mean", Zeros(3)));
    for (const bool is_full : {true, false}) {
        const MediaInfo record = Read(sandbox, Mp4(Sound() + Tags(items, is_full)));
        EXPECT_EQ(Names(record), "Title|Alb|Art|Rock|Wri|2009|3|2");
        EXPECT_EQ(record.comment, std::string(254, 'c'));
    }
    const std::string others = Tag("gnre", Be(149, 2), 0) + Tag("\251gen", "text") +
                               Tag("\251day", "2009-05-01") + Box("\251nam", "");
    EXPECT_EQ(Names(Read(sandbox, Mp4(Sound() + Tags(others)))), "Song|Album||text||0|0|0");
}

TEST(Mp4, FiguresComeFromTheFirstSoundAndTheLastVideoTrack) {
    const test::Sandbox sandbox;
    const std::string sounds = Sound() + Track("soun", MediaHeader(8000, 8000), SoundEntry(1, Esds(1)));
    MediaInfo record = Read(sandbox, Mp4(Track("text", "", "") + sounds));
    EXPECT_EQ(Figures(record), "12 128000 44100 2");

    const std::string video = Track("vide", MediaHeader(1000, 5000), PictureEntry(320, 240, Esds(7))) +
                              Track("vide", MediaHeader(90000, 90000ULL << 32 | 90000 * 7, true),
                                    PictureEntry(640, 480, Esds(900000)));
    record = Read(sandbox, Mp4(sounds + video));
    EXPECT_EQ(Figures(record), "7 128000 44100 2");
    EXPECT_EQ(record.width, 640U);
    EXPECT_EQ(record.height, 480U);
    EXPECT_EQ(record.video_bitrate, 900000U);
}

TEST(Mp4, UnusualTracksLeaveWhatTheyDoNotTell) {
    const test::Sandbox sandbox;
    const struct {
        std::string header, entry;
        std::string figures;
    } cases[] = {
        {MediaHeader(44100, UINT32_MAX), SoundEntry(2, ""), "0 0 44100 2"},
        {MediaHeader(44100, UINT64_MAX, true), SoundEntry(2, Esds(5)), "0 5 44100 2"},
        {MediaHeader(1, UINT64_MAX - 1, true), SoundEntry(2, Esds(5)), "4.2949673e+09 5 1 2"},
        {MediaHeader(0, 44100), SoundEntry(6, Box("esds", "\3")), "0 0 0 6"},
        {"", "", "0 0 0 0"},
        {MediaHeader(1, 9),
         SoundEntry(2, Box("wave", Box("frma", "mp4a") + Esds(64000) + Be(8, 4) + Zeros(4)), 1),
         "9 64000 1 2"},
    };
    for (const auto& c : cases) {
        const MediaInfo record = Read(sandbox, Mp4(Track("soun", c.header, c.entry)));
        EXPECT_EQ(Figures(record), c.figures);
    }
}

TEST(Mp4, TheProbeWinsWhereItFoundSomething) {
    const test::Sandbox sandbox;
    const std::string path = sandbox.Write("Album/Song.m4a", Mp4(Sound()));
    probe_record = MediaInfo{};
    probe_record.sample_rate = 48000;
    probe_record.duration = 12.5F;
    CopyText(probe_record.title, sizeof probe_record.title, "not taken");
    for (const int result : {0, 1}) {
        probe_result = result;
        ASSERT_EQ(Mp4Add(path.c_str()), 0);
        const MediaInfo& record = fake.media.back().second;
        EXPECT_EQ(Figures(record), result == 0 ? "12.5 128000 48000 2" : "12 128000 44100 2");
        EXPECT_STREQ(record.title, "Song");
    }
    fake.failing = {"MediaInfoDBSave"};
    EXPECT_EQ(Mp4Add(path.c_str()), 0);
    const std::string junk = sandbox.Write("junk.m4a", "junk");
    EXPECT_EQ(Mp4Add(junk.c_str()), 1);
    EXPECT_EQ(Mp4Add(sandbox.Write("none.m4a", Mp4("")).c_str()), 1);
    EXPECT_EQ(Mp4Add(""), -1);
    EXPECT_EQ(Mp4Delete(junk.c_str()), -1);
    const std::string save = "mp4 (#) Failed to save media info to database.";
    EXPECT_EQ(fake.log, (Lines{save, "mp4:# Failed to parse mp4 metadata from [" + junk + "].",
                               "mp4 (#) Failed to parse mp4 metadata.", save, "mp4 (#) No tracks in mp4.",
                               "mp4 (#) Failed to parse mp4 metadata.", save, "mp4 (#) Bad parameter.",
                               "mp4 (#) File exists. Skip remove it from database."}));
}

TEST(Mp4, CoversOfAKnownTypeAndEnoughBytesAreStored) {
    const test::Sandbox sandbox;
    const std::tuple<uint64_t, size_t, bool> cases[] = {{13, 9, false}, {13, 10, true},     {14, 7, false},
                                                        {14, 8, true},  {13, 200000, true}, {0, 99, false},
                                                        {0, 0, false}};
    for (const auto& [type, size, saved] : cases) {
        fake = {};
        fake.cover_folder = sandbox.MakeDir("covers");
        const std::string bytes(size, 'j');
        EXPECT_EQ(Read(sandbox, Mp4(Sound() + Tags(Tag("covr", bytes, type)))).has_cover, saved ? 1 : 0);
        EXPECT_EQ(test::ReadFile(fake.cover_folder + (type == 13 ? "/cover1.jpg" : "/cover1.png")),
                  saved ? bytes : "");
        EXPECT_EQ(fake.calls.at(1), "CleanOldCover " + fake.cover_folder);
        EXPECT_EQ(fake.log.size(), type == 0 && size > 0 ? 1U : 0U);
        std::filesystem::remove_all(fake.cover_folder);
    }
    fake.cover_folder = sandbox.MakeDir("covers");
    const std::string large = sandbox.Write(
        "large.m4a", Be(0, 4) + "moov" + Sound() + Be(0, 4) + "udta" + Be(0, 4) + "meta" + Zeros(4) +
                         Be(0, 4) + "ilst" + Be(0, 4) + "covr" + Be(0, 4) + "data" + Be(13, 4) + Zeros(4));
    for (const uintmax_t size : {1000, 300 << 20}) {
        std::filesystem::resize_file(large, size);  // sparse
        MediaInfo record{};
        EXPECT_EQ(Mp4InfoFill(large.c_str(), &record), 0);
        EXPECT_EQ(record.has_cover, size == 1000 ? 1 : 0);
    }
    fake.failing = {"GetCoverPath"};
    fake.log.clear();
    const std::string whole = Mp4(Sound() + Tags(Tag("covr", std::string(50, 'j'), 13)));
    EXPECT_EQ(Read(sandbox, whole).has_cover, 0);
    EXPECT_EQ(fake.log, Lines{"mp4 (#) FAILED to get CoverPath of " + sandbox.dir() + "/Album/Song.m4a"});

    // A cover whose box runs over the file's end is what the file holds of it.
    fake.failing.clear();
    EXPECT_EQ(Read(sandbox, whole.substr(0, whole.size() - 20)).has_cover, 1);
    EXPECT_EQ(test::ReadFile(fake.cover_folder + "/cover1.jpg"), std::string(30, 'j'));
}

TEST(Mp4, ABoxShorterThanItsHeaderFailsTheFileOnlyOnTheWay) {
    const test::Sandbox sandbox;
    const std::string bad = Be(7, 4) + "free";
    const std::string tags = Tags(Tag("\251nam", "T"));
    Read(sandbox, bad + Mp4(Sound()), 1);
    Read(sandbox, Mp4(bad + Sound()), 1);
    Read(sandbox, Mp4(Sound() + Tags(bad + Tag("\251nam", "T"))), 1);
    Read(sandbox, Mp4(Track("soun", "", SoundEntry(2, bad + Esds(1)))), 1);
    Read(sandbox, Be(1, 4) + "free" + Be(15, 8) + Mp4(Sound()), 1);
    Read(sandbox, Mp4(Sound() + tags) + bad);
    Read(sandbox, Mp4(Sound() + tags + Box("free", bad)));
    Read(sandbox, Mp4(Track("soun", "", SoundEntry(2, Esds(1) + bad))));

    // Length 0 reaches to the end, a long or too large one is followed or cut.
    const std::string movie = Sound() + tags;
    EXPECT_STREQ(Read(sandbox, Be(0, 4) + "moov" + movie).title, "T");
    EXPECT_STREQ(Read(sandbox, Be(1, 4) + "moov" + Be(16 + movie.size(), 8) + movie).title, "T");
    EXPECT_STREQ(Read(sandbox, Be(UINT32_MAX, 4) + "moov" + movie).title, "T");
    EXPECT_STREQ(Read(sandbox, Be(1, 4) + "moov" + Be(UINT64_MAX, 8) + movie).title, "T");
}

TEST(Mp4, HostileSizesAndDepthsEndAtOnce) {
    const test::Sandbox sandbox;
    const std::string whole =
        Mp4(Sound() + Tags(Tag("\251nam", "T") + Tag("covr", std::string(30, 'j'), 13)));
    for (size_t length = 6024; length < whole.size(); ++length)  // the boxes behind "mdat"
        MP4Close(MP4Read(sandbox.Write("cut.m4a", whole.substr(0, length)).c_str(), 0));

    std::string nested;
    for (size_t depth = 0; depth < 50000; ++depth)
        nested += Be((50000 - depth) * 8, 4) + (depth % 2 == 0 ? "moov" : "trak");
    Read(sandbox, nested);
    std::string many;
    for (int i = 0; i < 70000; ++i)
        many += Box("free", "");
    Read(sandbox, Mp4(many + Sound()), 1);
}

}  // namespace
}  // namespace koli
