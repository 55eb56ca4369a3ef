// FLAC and AIFF files made byte by byte: figures, comments, and what damage does to them.
#include <gtest/gtest.h>

#include <filesystem>

#include "audio/aiff.h"
#include "audio/flac.h"
#include "tests/fake_platform.h"
#include "tests/media_bytes.h"

namespace koli {
namespace {

using test::Be;
using test::fake;
using test::Figures;
using test::Names;
using Lines = std::vector<std::string>;

std::string Le32(size_t value) {
    const std::string big = Be(value, 4);
    return {big.rbegin(), big.rend()};
}

// ---- FLAC

std::string FlacBlock(int type, const std::string& body, bool last) {
    return Be(static_cast<uint64_t>(type | (last ? 0x80 : 0)), 1) + Be(body.size(), 3) + body;
}

std::string StreamInfo(uint64_t rate, uint64_t channels, uint64_t samples) {
    return Be(4096, 2) + Be(4096, 2) + Be(0, 6) +
           Be(rate << 44 | (channels - 1) << 41 | 15ULL << 36 | samples, 8) + std::string(16, '\0');
}

std::string Comments(const std::vector<std::string>& list) {
    std::string body = Le32(4) + "test" + Le32(list.size());
    for (const std::string& comment : list)
        body += Le32(comment.size()) + comment;
    return body;
}

std::string Flac(const std::string& stream_info, const std::vector<std::string>& comments) {
    return "fLaC" + FlacBlock(0, stream_info, false) + FlacBlock(4, Comments(comments), true);
}

TEST(Flac, BitRateIsThatOfTheWholeFileOverASinglePrecisionTime) {
    const test::Sandbox sandbox;
    std::string bytes = Flac(StreamInfo(44100, 2, 10000000), {});
    bytes.resize(30000000);
    const std::string path = sandbox.Write("Album/Song.x.flac", bytes);
    ASSERT_EQ(FlacFileAdd(path.c_str()), 0);
    const MediaInfo& record = fake.media.at(0).second;
    EXPECT_EQ(fake.calls, Lines{"MediaInfoDBSave 0 " + path});
    EXPECT_EQ(Figures(record), "226 1058399 44100 2");
    EXPECT_EQ(Names(record), "Song.x|Album||||0|0|0");
    EXPECT_EQ(record.file_size, 30000000U);
    EXPECT_STREQ(record.mtime, "mtime");
}

TEST(Flac, CommentsAreTakenByNameAndTheLastOneWins) {
    const test::Sandbox sandbox;
    const std::string path = sandbox.Write(
        "a.flac", Flac(StreamInfo(48000, 1, 0),
                       {"title=First", "TITLE=", "Artist=A=B", "ALBUM=" + std::string(300, 'x'), "DATE=1999",
                        "GENRE=Jazz", "TRACKNUMBER=3/12", "COMPOSER=no", "TITLE=S\xc3\xb6ng", "ARTISTS=no"}));
    MediaInfo record{};
    ASSERT_EQ(FlacMetadataRead(path.c_str(), &record), 0);
    EXPECT_EQ(Names(record), "S\xc3\xb6ng|" + std::string(254, 'x') + "|A=B|Jazz||1999|3|0");
    EXPECT_EQ(Figures(record), "0 0 48000 1");

    const std::string dated =
        sandbox.Write("b.flac", Flac(StreamInfo(0, 2, 5), {"DATE=2004-05-01", "TRACKNUMBER=99999999999"}));
    record.year = 7;
    ASSERT_EQ(FlacMetadataRead(dated.c_str(), &record), 0);
    EXPECT_EQ(record.year, 0);
    EXPECT_EQ(record.track, INT32_MAX);
    EXPECT_EQ(Figures(record), "0 0 0 2");
}

TEST(Flac, KeepsWhatItHasWhenTheCommentsAreMissing) {
    const test::Sandbox sandbox;
    const std::string path =
        sandbox.Write("A/b.flac", "fLaC" + FlacBlock(0, StreamInfo(44100, 2, 441000), true));
    EXPECT_EQ(FlacFileAdd(path.c_str()), 1);
    EXPECT_EQ(Figures(fake.media.at(0).second), "10 33 44100 2");
    EXPECT_EQ(Names(fake.media.at(0).second), "b|A||||0|0|0");
    EXPECT_EQ(fake.log, (Lines{"flac (#) Can't get Flac comment tags: " + path + ".",
                               "flac (#) Failed to parse music metadata."}));
    fake.log.clear();
    MediaInfo record{};
    EXPECT_EQ(FlacFileAdd(""), -1);
    EXPECT_EQ(FlacFileAdd((path + "x").c_str()), -1);
    EXPECT_EQ(FlacMetadataRead(sandbox.dir().c_str(), &record), -1);
    EXPECT_EQ(fake.log,
              (Lines{"flac (#) Bad parameter.", "flac (#) Stat file error: " + sandbox.dir() + "."}));
}

TEST(Flac, LargeFilesWithEndlessChainsOrMarkersFarAwayAreNotFollowed) {
    const test::Sandbox sandbox;
    const std::string good = Flac(StreamInfo(44100, 2, 441000), {"TITLE=x"});
    std::string chain = "fLaC" + FlacBlock(0, StreamInfo(44100, 2, 441000), false);
    for (int i = 0; i < 5000; ++i)
        chain += FlacBlock(1, "", false);
    chain += good.substr(4 + 4 + 34);
    for (const std::string& bytes :
         {good, "ID3\4" + std::string(4, '\0') + "\1\2" + std::string(130, 'f') + good, chain,
          std::string(100, '\0') + good}) {
        const std::string path = sandbox.Write("a.flac", bytes);
        for (const uintmax_t size : {bytes.size(), size_t{100} << 20}) {
            std::filesystem::resize_file(path, size);  // sparse
            MediaInfo record{};
            const bool is_read = bytes == good || bytes[0] == 'I' || size == bytes.size();
            EXPECT_EQ(FlacMetadataRead(path.c_str(), &record), is_read ? 0 : -1) << size;
        }
    }
}

// ---- AIFF

const std::string kRate44100 = Be(0x400E, 2) + Be(0xAC44ULL << 48, 8);

std::string Chunk(const std::string& name, const std::string& body) {
    return name + Be(body.size(), 4) + body + std::string(body.size() & 1, '\0');
}

std::string Comm(uint64_t channels, uint64_t frames, uint64_t bits, const std::string& rate = kRate44100) {
    return Be(channels, 2) + Be(frames, 4) + Be(bits, 2) + rate;
}

std::string Form(const std::string& type, const std::string& chunks) {
    return Chunk("FORM", type + chunks);
}

MediaInfo ReadAiff(const test::Sandbox& sandbox, const std::string& bytes) {
    MediaInfo record{};
    EXPECT_EQ(AiffMetadataRead(sandbox.Write("Album/a.b.aif", bytes).c_str(), &record), 0);
    return record;
}

TEST(Aiff, FindsTheFormatWhereverItsChunkStands) {
    const test::Sandbox sandbox;
    const std::string comm = Chunk("COMM", Comm(2, 441000, 16));
    for (const std::string& bytes : {Form("AIFF", comm), Form("AIFC", Chunk("SSND", "odd") + comm)}) {
        const MediaInfo record = ReadAiff(sandbox, bytes);
        EXPECT_EQ(Figures(record), "10 1411200 44100 2");
        EXPECT_EQ(Names(record), "a.b|Album||||0|0|0");
    }
    const MediaInfo ima4 =
        ReadAiff(sandbox, Form("AIFC", Chunk("COMM", Comm(1, 6890, 16) + "ima4" + Be(0, 2))));
    EXPECT_EQ(ima4.duration, static_cast<float>(6890 * 64.0 / 44100));
}

TEST(Aiff, RatesThatNoRecorderHasAreStoredAsTheNearestNumbers) {
    const test::Sandbox sandbox;
    const std::pair<std::string, std::string> cases[] = {
        {Be(0xC00E, 2) + Be(0xAC44ULL << 48, 8), "0 0 0 2"},               // negative
        {Be(0x7FFF, 2) + Be(1ULL << 63, 8), "0 4294967295 4294967295 2"},  // infinite
        {Be(0x7FFF, 2) + Be(3ULL << 62, 8), "0 0 0 2"},                    // not a number
        {Be(0x401F, 2) + Be(1ULL << 63, 8), "2.32830644e-10 4294967295 4294967295 2"},
        {Be(0x3000, 2) + Be(1ULL << 63, 8), "0 0 0 2"},    // 2^-4095: 0 as a double
        {Be(0x3BFF, 2) + Be(1ULL << 63, 8), "inf 0 0 2"},  // 2^-1024: a subnormal
        {Be(0x3FFE, 2) + Be(1ULL << 63, 8), "2 16 0 2"},   // one half
    };
    for (const auto& [rate, figures] : cases)
        EXPECT_EQ(Figures(ReadAiff(sandbox, Form("AIFF", Chunk("COMM", Comm(2, 1, 16, rate))))), figures);
}

TEST(Aiff, DamagedFilesAreStoredByName) {
    const test::Sandbox sandbox;
    const std::string whole = Form("AIFF", Chunk("COMM", Comm(2, 441000, 16)));
    for (size_t length = 0; length < whole.size(); ++length)
        EXPECT_EQ(ReadAiff(sandbox, whole.substr(0, length)).channels, 0U);
    std::string chunks;
    for (int i = 0; i < 5000; ++i)
        chunks += Chunk("ANNO", "");
    EXPECT_EQ(ReadAiff(sandbox, Form("AIFF", chunks + whole.substr(12))).channels, 0U);
    EXPECT_EQ(ReadAiff(sandbox, Form("WAVE", whole.substr(12))).channels, 0U);

    const std::string path = sandbox.Write("x.aif", "junk");
    fake.calls.clear();
    EXPECT_EQ(AiffFileAdd(path.c_str()), 0);
    EXPECT_EQ(fake.calls, (Lines{"MediaInfoValid " + path, "MediaInfoDBSave 0 " + path}));
    EXPECT_EQ(AiffFileDelete(path.c_str()), -1);
    fake.failing = {"MediaInfoDBSave"};
    EXPECT_EQ(AiffFileAdd(path.c_str()), -1);
    EXPECT_EQ(AiffFileAdd(nullptr), -1);
    EXPECT_EQ(fake.log,
              (Lines{"aiff (#) File exists. Skip remove it from database.",
                     "aiff (#) Failed to save media info to database.", "aiff (#) Bad parameter."}));
}

}  // namespace
}  // namespace koli
