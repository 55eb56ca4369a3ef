// MP4 files made box by box, the handler over them, and what damage does to them.
#include <tuple>

#include "base/path_names.h"
#include "tests/fixture.h"
#include "tests/media_bytes.h"
#include "video/metamedia.h"
#include "video/mp4.h"

static koli::MediaInfo probe_record{};
static int probe_result = -1;

// The guarded probe of these tests.
int koli::MiscMediaInfoGet(const char*, MediaInfo* record, FileReading&) {
    *record = probe_record;
    return probe_result;
}

namespace koli::test {

std::string Box(const std::string& type, const std::string& body) {
    return Be(body.size() + 8, 4) + type + body;
}

std::string MediaHeader(uint64_t scale, uint64_t duration, bool is_long = false) {
    return is_long ? Box("mdhd", Be(1, 1) + Be(0, 19) + Be(scale, 4) + Be(duration, 8) + Be(0, 4))
                   : Box("mdhd", Be(0, 12) + Be(scale, 4) + Be(duration, 4) + Be(0, 4));
}

std::string Esds(uint64_t bitrate) {
    const std::string config = "\x04\x80\x80\x80\x0d" + Be(0, 5) + Be(999999, 4) + Be(bitrate, 4);
    return Box("esds", Be(0, 4) + "\x03\x80\x80\x80\x1c" + Be(0, 2) + "\x60" + "\x02ur" + Be(0, 2) + config);
}

std::string SoundEntry(uint64_t channels, const std::string& boxes, uint64_t version = 0) {
    return Box("mp4a", Be(0, 8) + Be(version, 2) + Be(0, 6) + Be(channels, 2) + Be(0, 10) +
                           Be(0, version == 1 ? 16 : 0) + boxes);
}

std::string PictureEntry(uint64_t width, uint64_t height, const std::string& boxes) {
    return Box("mp4v", Be(0, 24) + Be(width, 2) + Be(height, 2) + Be(0, 50) + boxes);
}

std::string Track(const std::string& type, const std::string& header, const std::string& entry) {
    const std::string stsd = Box("stsd", Be(0, 4) + Be(1, 4) + entry);
    return Box("trak",
               Box("tkhd", Be(0, 20)) + Box("mdia", header + Box("hdlr", Be(0, 8) + type + Be(0, 12)) +
                                                        Box("minf", Box("stbl", Box("stts", "") + stsd))));
}

std::string Tag(const std::string& item, const std::string& value, uint64_t type = 1) {
    return Box(item, Box("data", Be(type, 4) + Be(0, 4) + value));
}

std::string Tags(const std::string& items, bool is_full = true) {
    return Box("udta", Box("meta", (is_full ? Be(0, 4) : "") + Box("hdlr", Be(0, 24)) + Box("ilst", items)));
}

std::string Mp4File(const std::string& movie) {
    return Box("ftyp", "M4A ") + Box("mdat", Be(0, 6000)) + Box("moov", Box("mvhd", "") + movie);
}

const std::string kSound = Track("soun", MediaHeader(44100, 44100 * 12 + 44099), SoundEntry(2, Esds(128000)));

struct Mp4 : Fixture {
    MediaInfo Read(const std::string& bytes, int expected = 0) {
        MediaInfo record{};
        EXPECT_EQ(Mp4InfoFill(Write("Album/Song.m4a", bytes).c_str(), &record, Reading()), expected);
        return record;
    }
    const std::string covers_ = MakeDir("Album/@eaDir/Song.m4a");
};

TEST_F(Mp4, TagsFillTheirFields) {
    const std::string items = Tag("\251nam", "Title") + Tag("\251nam", "second") + Tag("\251alb", "Alb") +
                              Tag("\251ART", "Art") + Tag("\251gen", "text") + Tag("gnre", Be(18, 2), 0) +
                              Tag("\251cmt", std::string(5000, 'c')) + Tag("\251wrt", "Wri") +
                              Tag("\251day", "2009") + Tag("trkn", Be(3, 4) + Be(12, 2) + Be(0, 2), 0) +
                              Tag("disk", Be(2, 4), 0) + Box("----", Box("mean", Be(0, 3)));
    for (const bool is_full : {true, false}) {
        const MediaInfo record = Read(Mp4File(kSound + Tags(items, is_full)));
        EXPECT_EQ(Names(record), "Title|Alb|Art|Rock|Wri|2009|3|2");
        EXPECT_EQ(record.comment, std::string(254, 'c'));
    }
    const std::string others = Tag("gnre", Be(149, 2), 0) + Tag("\251gen", "text") +
                               Tag("\251day", "2009-05-01") + Box("\251nam", "");
    EXPECT_EQ(Names(Read(Mp4File(kSound + Tags(others)))), "Song|Album||text||0|0|0");
}

TEST_F(Mp4, FiguresComeFromTheFirstSoundAndTheLastVideoTrack) {
    const std::string first_of_two = kSound + Track("soun", MediaHeader(8000, 8000), SoundEntry(1, Esds(1)));
    const std::string videos = Track("vide", MediaHeader(1000, 5000), PictureEntry(320, 240, Esds(7))) +
                               Track("vide", MediaHeader(90000, 90000ULL << 32 | 90000 * 7, true),
                                     PictureEntry(640, 480, Esds(900000)));
    const std::pair<std::string, const char*> cases[] = {
        {Track("text", "", "") + first_of_two, "12 128000 44100 2"},
        {first_of_two + videos, "7 128000 44100 2 640x480 900000"},
        {Track("soun", MediaHeader(44100, UINT32_MAX), SoundEntry(2, "")), "0 0 44100 2"},
        {Track("soun", MediaHeader(44100, UINT64_MAX, true), SoundEntry(2, Esds(5))), "0 5 44100 2"},
        {Track("soun", MediaHeader(1, UINT64_MAX - 1, true), SoundEntry(2, Esds(5))), "4.2949673e+09 5 1 2"},
        {Track("soun", MediaHeader(0, 44100), SoundEntry(6, Box("esds", "\3"))), "0 0 0 6"},
        {Track("soun", "", ""), "0 0 0 0"},
        {Track("soun", MediaHeader(1, 9),
               SoundEntry(2, Box("wave", Box("frma", "mp4a") + Esds(64000) + Be(8, 4) + Be(0, 4)), 1)),
         "9 64000 1 2"},
    };
    for (const auto& [tracks, figures] : cases)
        EXPECT_EQ(Figures(Read(Mp4File(tracks))), figures);
}

TEST_F(Mp4, TheProbeWinsWhereItFoundSomething) {
    const std::string path = Write("Album/Song.m4a", Mp4File(kSound));
    probe_record.sample_rate = 48000;
    probe_record.duration = 12.5F;
    CopyText(probe_record.title, sizeof probe_record.title, "not taken");
    for (const int result : {0, 1}) {
        probe_result = result;
        ASSERT_EQ(Mp4Add(path.c_str(), Reading()), 0);
        const MediaInfo& record = fake.media.back().second;
        EXPECT_EQ(Figures(record), result == 0 ? "12.5 128000 48000 2" : "12 128000 44100 2");
        EXPECT_STREQ(record.title, "Song");
    }
    const std::string junk = Write("junk.m4a", "junk"), failed = "mp4 (#) Failed to parse mp4 metadata.";
    EXPECT_EQ(Mp4Add(junk.c_str(), Reading()), 1);
    EXPECT_EQ(Mp4Add(Write("none.m4a", Mp4File("")).c_str(), Reading()), 1);
    EXPECT_EQ(fake.log, (Lines{"mp4:# Failed to parse mp4 metadata from [" + junk + "].", failed,
                               "mp4 (#) No tracks in mp4.", failed}));
}

TEST_F(Mp4, CoversOfAKnownTypeAndEnoughBytesAreStored) {
    const std::tuple<uint64_t, size_t, bool> cases[] = {{13, 9, false}, {13, 10, true},     {14, 7, false},
                                                        {14, 8, true},  {13, 200000, true}, {0, 99, false},
                                                        {0, 0, false}};
    for (const auto& [type, size, saved] : cases) {
        fake.log.clear();
        const std::string bytes(size, 'j');
        EXPECT_EQ(Read(Mp4File(kSound + Tags(Tag("covr", bytes, type)))).has_cover, saved ? 1 : 0);
        EXPECT_EQ(ReadFile(covers_ + (type == 13 ? "/cover1.jpg" : "/cover1.png")), saved ? bytes : "");
        EXPECT_EQ(fake.log.size(), type == 0 && size > 0 ? 1U : 0U);
    }
    const std::string open = Be(0, 4);  // the length of a box that reaches to the end
    const std::string large =
        Write("large.m4a", open + "moov" + kSound + open + "udta" + open + "meta" + Be(0, 4) + open + "ilst" +
                               open + "covr" + open + "data" + Be(13, 4) + Be(0, 4));
    std::filesystem::resize_file(large, 33 << 20);  // sparse
    EXPECT_EQ(Mp4Add(large.c_str(), Reading()), 0);
    EXPECT_EQ(fake.log, Lines{"mp4 (#) A picture of more than 32 MiB is not saved: " + large});
    // A cover whose box runs over the file's end is what the file holds of it.
    const std::string whole = Mp4File(kSound + Tags(Tag("covr", std::string(50, 'j'), 13)));
    EXPECT_EQ(Read(whole.substr(0, whole.size() - 20)).has_cover, 1);
    EXPECT_EQ(ReadFile(covers_ + "/cover1.jpg"), std::string(30, 'j'));
    std::filesystem::rename("Album/@eaDir", "aside");
    Write("Album/@eaDir", "in the way");
    EXPECT_EQ(Read(whole).has_cover, 0);
    EXPECT_EQ(fake.log.back(), "mp4 (#) FAILED to get CoverPath of " + Path("Album/Song.m4a"));
}

TEST_F(Mp4, ABoxShorterThanItsHeaderFailsTheFileOnlyOnTheWay) {
    const std::string bad = Be(7, 4) + "free", name = Tag("\251nam", "T"), movie = kSound + Tags(name);
    const std::string track = Track("vide", MediaHeader(1, 99), PictureEntry(9, 9, bad + Esds(1)));
    const std::string other = Box("trak", Box("mdia", bad));
    for (const std::string& bytes :
         {bad + Mp4File(kSound), Mp4File(bad + kSound), Mp4File(kSound + Tags(bad + name)),
          Mp4File(Track("soun", "", SoundEntry(2, bad + Esds(1)))),
          Be(1, 4) + "free" + Be(15, 8) + Mp4File(kSound), Mp4File(kSound + bad + Tags(name)),
          Mp4File(other + kSound + Tags(name)), Mp4File(track + kSound), Mp4File(kSound + bad)})
        Read(bytes, 1);
    // Behind it, or in a box that need not be looked at; length 0 reaches to the end, a long or too large one
    // is followed or cut.
    for (const std::string& bytes :
         {Mp4File(kSound + other + track + Tags(name)), Mp4File(movie + bad),
          Mp4File(kSound + Tags(name + bad)),
          Mp4File(kSound + Tags(Box("covr", "") + name + Box("covr", bad)) + track),
          Mp4File(kSound + Tags(name + Box("covr", bad) + Tag("\251alb", "A"))), Mp4File(movie) + bad,
          Mp4File(movie + Box("free", bad)), Be(0, 4) + "moov" + movie,
          Be(1, 4) + "moov" + Be(16 + movie.size(), 8) + movie, Be(UINT32_MAX, 4) + "moov" + movie,
          Be(1, 4) + "moov" + Be(UINT64_MAX, 8) + movie}) {
        EXPECT_STREQ(Read(bytes).title, "T");
        EXPECT_EQ(Figures(Read(bytes)), "12 128000 44100 2");
    }
    const std::string sound = Track("soun", "", SoundEntry(2, Esds(1) + bad));
    EXPECT_STREQ(Read(Mp4File(sound + Tags(name))).title, "T");
}

TEST_F(Mp4, HostileSizesAndDepthsEndAtOnce) {
    const std::string whole =
        Mp4File(kSound + Tags(Tag("\251nam", "T") + Tag("covr", std::string(30, 'j'), 13)));
    for (size_t length = 6024; length < whole.size(); ++length)  // the boxes behind "mdat"
        MP4Close(MP4Read(Write("cut.m4a", whole.substr(0, length)).c_str(), 0, Reading()));

    std::string nested, many;
    for (size_t depth = 0; depth < 50000; ++depth)
        nested += Be((50000 - depth) * 8, 4) + (depth % 2 == 0 ? "moov" : "trak");
    Read(nested);
    for (int i = 0; i < 70000; ++i)
        many += Box("free", "");
    Read(Mp4File(many + kSound), 1);
}

}  // namespace koli::test
