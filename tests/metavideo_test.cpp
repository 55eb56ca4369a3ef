// MPEG video files made bit by bit: sequence headers, start code search, the audio in a program stream.

#include <random>

#include "fuzz/memory_file.h"
#include "tests/fixture.h"
#include "tests/media_bytes.h"
#include "video/metavideo.h"

namespace koli::test {

std::string Code(int code) {
    return Be(0x100U | static_cast<unsigned>(code), 4);
}

/// A sequence header; `rate` in 400 bit/s.
std::string Sequence(uint64_t width, uint64_t height, uint64_t rate, uint64_t codes = 0x23) {
    return Code(0xB3) + Be(width << 20 | height << 8 | codes, 4) + Be(rate << 14 | 0x2000, 4);
}

const std::string kGroup = Code(0xB8) + "group";
const std::string kMpeg1Packet = Code(0xC0) + Be(0, 2) + "\x0f";

/// An MPEG-1 Layer II frame of 192 kbit/s at 44100 Hz (626 bytes), or another header, filled with `fill`.
std::string Frame(uint32_t header = 0xFFFDA000, char fill = 'a', size_t length = 626) {
    return Padded(Be(header, 4), length, fill);
}

struct MetaVideo : Fixture {
    /// The figures of a file; "" when there is no video in it.
    std::string Read(const std::string& bytes) {
        MediaInfo record{};
        return MpegVideoInfoGet(Write("a.dat", bytes).c_str(), &record, Reading()) == 0 ? Figures(record)
                                                                                        : "";
    }
};

TEST_F(MetaVideo, ABareStreamTellsSizeRateAndDurationAndTheExtensionUpperBitsOfTheFormer) {
    const std::string bare = Sequence(352, 288, 5000) + kGroup + kMpeg1Packet + Frame() + Frame();
    EXPECT_EQ(Read(Padded(bare, 1000000)), "4 0 0 0 352x288 5000000");
    EXPECT_EQ(Read(Sequence(352, 288, 0, 0x03) + kGroup), "inf 0 0 0 352x288 0");

    // Of the extension: width extension 11, height extension 10, bit rate extension 1, frame rate 2/3.
    const std::string extension = Code(0xB5) + "\x14\x01\xc0\x03\xff\x22";
    const std::string bytes =
        Padded(Sequence(720, 576, 250) + Code(0xB5) + "\x20zzzzz" + extension + kGroup + extension, 100000);
    EXPECT_EQ(Read(bytes), "8 0 0 0 8912x8768 262394000");
}

TEST_F(MetaVideo, StartCodesAreFoundAsAPlainSearchFindsThem) {
    std::mt19937 random(1);
    for (const size_t size : {3U, 4U, 5U, 8U, 16386U, 16388U, 32800U, 100001U, 100003U, 120000U}) {
        std::string bytes(size, 'x');
        for (size_t i = 0; i < size / 400 + 1; ++i)
            bytes.replace(random() % size, 4, Code(0xB3));
        for (const size_t at : {16381U, 16382U, 16383U, 16384U, 32766U, 99998U, 99999U, 100000U})
            if (at + 4 <= size) bytes.replace(at, 4, Code(0xC0));
        bytes.resize(size);
        const std::string path = Write("a.dat", bytes);
        Reading reading;
        MpegVideoReader reader;
        ASSERT_TRUE(CachedFileOpen(&reader.file, path.c_str(), reading, LogSite("t")));
        for (size_t from = 0; from <= size;) {
            const size_t hit = bytes.find(Code(0).substr(0, 2) + "\1", from);
            const bool inside = hit != std::string::npos && hit + 4 < size && hit < 100000;
            const int64_t found = MpegStartCodePrefixFind(&reader, static_cast<int64_t>(from));
            ASSERT_EQ(found, inside ? static_cast<int64_t>(hit) : -1) << size << " from " << from;
            if (!inside) break;
            from = hit + 1;
        }
        CachedFileClose(&reader.file);
    }
}

TEST_F(MetaVideo, AProgramStreamGivesTheFirstAudioFrame) {
    const std::string video = Code(0xBA) + "pack" + Sequence(352, 240, 2875);
    // An extension makes it MPEG-2: the length of a packet's header stands in its ninth byte.
    const std::string mpeg2 = Code(0xB5) + "\x10\0\0\0\0\0"s + kGroup + Code(0xC0) + "xxxx\5\xff\xf2xx\xff";
    const std::string stuffed = Code(0xC0) + Be(0, 2) + "\xff\x80\x60\x20" + "\x31" + std::string(9, '\x11');
    // Packet, frame, figures of sound without the duration.
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {kMpeg1Packet, Frame(), " 192000 44100 2"},
        {mpeg2, Frame(), " 192000 44100 2"},
        {stuffed, Frame(0xFFFDA0C0), " 192000 44100 1"},
        {kMpeg1Packet, "xx" + Frame(), " 192000 44100 2"},  // the first sync, taken unconfirmed
        {kMpeg1Packet, "\xff\xff\xff" + Frame(0xFFF48480, 'a', 192) + Frame(0xFFF48480), " 64000 24000 2"},
        {kMpeg1Packet, "\xff\xf2" + Frame(0xFFFDA000, 'a', 99), " 0 0 0"},  // not followed by another one
        {Code(0xC1) + "xxxx", Frame(), " 0 0 0"},
    };
    for (const auto& [packet, frame, sound] : cases) {
        const std::string figures = Read(video + packet + frame + std::string(30, 'z'));
        EXPECT_EQ(figures.substr(figures.find(' ')), sound + " 352x240 2875000");
    }
}

TEST_F(MetaVideo, ZerosBeforeTheNextFrameAreCountedAtTheHeadOfTheFile) {
    // The byte at the frame's length + 1 begins a run of zeros at the head; as many are expected behind the
    // frame.
    for (const size_t zeros : {0U, 5U, 40000U}) {
        const std::string head = Sequence(352, 240, 2875) + kGroup;
        std::string bytes =
            "x" + head + std::string(627 - head.size() - 1, 'x') + std::string(zeros, '\0') + "x";
        bytes += kMpeg1Packet + "\xff\xf2" + Frame();
        const std::string follower = Frame(0xFFFDA000, 'b');
        for (const size_t gap : {zeros, zeros + 1})
            EXPECT_EQ(Read(bytes + std::string(gap, 'c') + follower).find(" 192000 ") < 20, gap == zeros);
    }
}

TEST_F(MetaVideo, AHoleIsOneStep) {
    const std::string bytes = Sequence(352, 240, 2875) + kGroup + kMpeg1Packet + "\xff\xf2" + Frame();
    const std::string path = MemoryFile(("x" + bytes).data(), bytes.size() + 1);
    std::filesystem::resize_file(path, uintmax_t{1} << 62);
    MediaInfo record{};
    EXPECT_EQ(MpegVideoInfoGet(path.c_str(), &record, Reading()), 0);
    EXPECT_EQ(record.sample_rate, 0U);
    EXPECT_EQ(fake.log, Lines{"metaid3 (#) MPEG Header not found"});
}

TEST_F(MetaVideo, WithoutAVideoTheFieldsBecomeZero) {
    const std::string path = Write("a.dat", std::string(100000, 'x') + Sequence(352, 288, 5000));
    MediaInfo record{};
    record.width = record.height = 7;
    record.duration = 7;
    EXPECT_EQ(MpegVideoInfoGet((path + "x").c_str(), &record, Reading()), -1);
    EXPECT_EQ(Figures(record), "7 0 0 0 7x7 0");
    EXPECT_EQ(MpegVideoInfoGet(path.c_str(), &record, Reading()), -1);
    EXPECT_EQ(Figures(record), "0 0 0 0");
    EXPECT_EQ(fake.log, (Lines{"metavideo (#) Unable to open " + path + "x ",
                               "metavideo (#) couldn't find any valid video.",
                               "metavideo (#) Did not find video nor audio. Skip meta info"}));

    const std::string whole =
        "x" + Sequence(352, 240, 2875) + kGroup + kMpeg1Packet + "\xff" + Frame() + Frame();
    for (size_t length = 0; length < whole.size(); ++length)
        EXPECT_EQ(Read(whole.substr(0, length)).empty(),
                  length <= 5);  // the last four bytes are not searched
}

}  // namespace koli::test
