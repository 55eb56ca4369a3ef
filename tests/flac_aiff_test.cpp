// FLAC and AIFF files made byte by byte: figures, comments, and what damage does to them.
#include <FLAC/metadata.h>

#include <fstream>

#include "audio/aiff.h"
#include "audio/flac.h"
#include "tests/fixture.h"
#include "tests/media_bytes.h"

namespace koli::test {

std::string FlacBlock(uint64_t type, const std::string& body) {
    return Be(type, 1) + Be(body.size(), 3) + body;
}

std::string StreamInfo(uint64_t rate, uint64_t channels, uint64_t samples) {
    return FlacBlock(0, Be(4096, 2) + Be(4096, 2) + Be(0, 6) +
                            Be(rate << 44 | (channels - 1) << 41 | 15ULL << 36 | samples, 8) + Be(0, 16));
}

/// The last block.
std::string Comments(const Lines& list) {
    std::string body = Le(4, 4) + "test" + Le(list.size(), 4);
    for (const std::string& comment : list)
        body += Le(comment.size(), 4) + comment;
    return FlacBlock(0x84, body);
}

struct Flac : Fixture {
    MediaInfo Read(const std::string& bytes) {
        MediaInfo record{};
        record.year = 7;
        EXPECT_EQ(FlacMetadataRead(Write("a.flac", "fLaC" + bytes).c_str(), &record, Reading()), 0);
        return record;
    }
};

TEST_F(Flac, CommentsAreTakenByNameAndTheLastOneWins) {
    const MediaInfo named =
        Read(StreamInfo(48000, 1, 0) +
             Comments({"title=First", "TITLE=", "Artist=A=B", "ALBUM=" + std::string(300, 'x'), "DATE=1999",
                       "GENRE=Jazz", "TRACKNUMBER=3/12", "COMPOSER=no", "TITLE=S\xc3\xb6ng", "ARTISTS=no"}));
    EXPECT_EQ(Names(named), "S\xc3\xb6ng|" + std::string(254, 'x') + "|A=B|Jazz||1999|3|0");
    EXPECT_EQ(Figures(named), "0 0 48000 1");
    const MediaInfo dated =
        Read(StreamInfo(0, 2, 5) + Comments({"DATE=2004-05-01", "TRACKNUMBER=99999999999"}));
    EXPECT_EQ(Names(dated), "|||||0|2147483647|0");
    EXPECT_EQ(Figures(dated), "0 0 0 2");
}

TEST_F(Flac, BitRateIsThatOfTheWholeFileOverASinglePrecisionTimeCommentsOrNot) {
    const std::string large = Write("a.flac", "fLaC" + StreamInfo(44100, 2, 10000000) + Comments({}));
    std::filesystem::resize_file(large, 30000000);
    MediaInfo record{};
    EXPECT_EQ(FlacMetadataRead(large.c_str(), &record, Reading()), 0);
    EXPECT_EQ(Figures(record), "226 1058399 44100 2");
    const std::string path = Write("b.flac", "fLaC\x80" + StreamInfo(44100, 2, 441000).substr(1));
    EXPECT_EQ(FlacFileAdd(path.c_str(), Reading()), 1);
    EXPECT_EQ(Figures(fake.media.at(0).second), "10 33 44100 2");
    EXPECT_EQ(FlacMetadataRead(dir().c_str(), &record, Reading()), -1);
    EXPECT_EQ(fake.log, (Lines{"flac (#) Can't get Flac comment tags: " + path + ".",
                               "flac (#) Failed to parse music metadata.",
                               "flac (#) Stat file error: " + dir() + "."}));
}

/// Zeros at the front and at the end become holes where they fill whole blocks.
void AppendSparsely(const std::string& path, const std::string& bytes) {
    const size_t first = std::min(bytes.find_first_not_of('\0'), bytes.size());
    const size_t last = std::max(bytes.find_last_not_of('\0') + 1, first);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) + first);
    std::ofstream(path, std::ios::app) << bytes.substr(first, last - first);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) + bytes.size() - last);
}

TEST_F(Flac, ReadsWhatLibFlacReadsWithoutReadingItsHoles) {
    const std::string info = StreamInfo(44100, 2, 441000), comments = Comments({"TITLE=x"});
    const std::string good = "fLaC" + info + comments, hole(70000, '\0');
    std::string chain = "fLaC" + info;
    for (int i = 0; i < 5000; ++i)
        chain += FlacBlock(1, "");
    const std::string tag = "ID3\4" + Be(0, 4) + "\1\2" + std::string(130, 'f');
    const std::string long_tag = "ID3\4" + Be(0, 3) + "\4\x22\x70", with_chain = chain + comments;
    const std::string pieces[] = {good,   with_chain, hole, tag,  long_tag,
                                  "\xff", "\xff\xf8", "x",  "ID", "fLa"};
    for (const std::string& first : pieces)
        for (const std::string& second : pieces)
            for (const std::string& third : {hole, good + hole, hole + good}) {
                const std::string path = Write("a.flac", "");
                for (const std::string& piece : {first, second, third})
                    AppendSparsely(path, piece);
                MediaInfo record{};
                FLAC__StreamMetadata stream_info, *tags = nullptr;
                const bool is_read = FLAC__metadata_get_streaminfo(path.c_str(), &stream_info) != 0 &&
                                     FLAC__metadata_get_tags(path.c_str(), &tags) != 0;
                EXPECT_EQ(FlacMetadataRead(path.c_str(), &record, Reading()), is_read ? 0 : -1)
                    << first.substr(0, 20) << second.substr(0, 20);
                if (tags != nullptr) FLAC__metadata_object_delete(tags);
            }
    const std::string far = Write("far.flac", "");
    std::filesystem::resize_file(far, uintmax_t{1} << 40);
    std::ofstream(far, std::ios::app) << good;
    MediaInfo record{};
    EXPECT_EQ(FlacMetadataRead(far.c_str(), &record, Reading()), 0);
}

std::string Chunk(const std::string& name, const std::string& body) {
    return name + Be(body.size(), 4) + body + std::string(body.size() & 1, '\0');
}

/// The rate as an 80-bit number: sign and exponent, and mantissa.
std::string Comm(uint64_t channels, uint64_t frames, uint64_t exponent = 0x400E,
                 uint64_t mantissa = 0xAC44ULL << 48, const std::string& compression = "") {
    return Chunk("COMM", Be(channels, 2) + Be(frames, 4) + Be(16, 2) + Be(exponent, 2) + Be(mantissa, 8) +
                             compression);
}

struct Aiff : Fixture {
    /// Of a form of this type with these chunks.
    std::string FiguresOf(const std::string& type_and_chunks, size_t length = SIZE_MAX) {
        MediaInfo record{};
        const std::string bytes = Chunk("FORM", type_and_chunks).substr(0, length);
        EXPECT_EQ(AiffMetadataRead(Write("Album/a.b.aif", bytes).c_str(), &record, Reading()), 0);
        EXPECT_EQ(Names(record), "a.b|Album||||0|0|0");
        return Figures(record);
    }
};

TEST_F(Aiff, FindsTheFormatWhereverItsChunkStandsAndTakesTheNearestRate) {
    const std::string ima4 = Comm(1, 6890, 0x400E, 0xAC44ULL << 48, "ima4" + Be(0, 2));  // packets of 64
    const std::pair<std::string, const char*> cases[] = {
        {"AIFF" + Comm(2, 441000), "10 1411200 44100 2"},
        {"AIFC" + Chunk("SSND", "odd") + Comm(2, 441000), "10 1411200 44100 2"},
        {"AIFC" + ima4, "9.99909306 705600 44100 1"},
        // Rates that no recorder has.
        {"AIFF" + Comm(2, 1, 0xC00E, 0xAC44ULL << 48), "0 0 0 2"},               // negative
        {"AIFF" + Comm(2, 1, 0x7FFF, 1ULL << 63), "0 4294967295 4294967295 2"},  // infinite
        {"AIFF" + Comm(2, 1, 0x7FFF, 3ULL << 62), "0 0 0 2"},                    // not a number
        {"AIFF" + Comm(2, 1, 0x401F, 1ULL << 63), "2.32830644e-10 4294967295 4294967295 2"},
        {"AIFF" + Comm(2, 1, 0x3000, 1ULL << 63), "0 0 0 2"},    // 2^-4095: 0 as a double
        {"AIFF" + Comm(2, 1, 0x3BFF, 1ULL << 63), "inf 0 0 2"},  // 2^-1024: a subnormal
        {"AIFF" + Comm(2, 1, 0x3FFE, 1ULL << 63), "2 16 0 2"},   // one half
    };
    for (const auto& [bytes, figures] : cases)
        EXPECT_EQ(FiguresOf(bytes), figures);
}

TEST_F(Aiff, DamagedFilesAreStoredByName) {
    const std::string comm = Comm(2, 441000), nothing = "0 0 0 0";
    for (size_t length = 0; length < 12 + comm.size(); ++length)
        EXPECT_EQ(FiguresOf("AIFF" + comm, length), nothing);
    std::string chunks;
    for (int i = 0; i < 5000; ++i)
        chunks += Chunk("ANNO", "");
    EXPECT_EQ(FiguresOf("AIFF" + chunks + comm), nothing);
    EXPECT_EQ(FiguresOf("WAVE" + comm), nothing);
}

}  // namespace koli::test
