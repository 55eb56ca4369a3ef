// The cached reader, frame headers, the frame search and the variable-bit-rate headers.

#include <fstream>
#include <functional>
#include <map>
#include <random>

#include <fcntl.h>

#include "tests/fixture.h"
#include "tests/mp3_bytes.h"
#include "tests/mpeg_model.h"

// What pread makes of a call; the real one when it is empty.
using Pread = std::function<ssize_t(int, void*, size_t, off_t)>;
static Pread failing_pread;
extern "C" ssize_t __real_pread64(int fd, void* bytes, size_t count, off_t offset);
extern "C" ssize_t __wrap_pread64(int fd, void* bytes, size_t count, off_t offset) {
    return failing_pread ? failing_pread(fd, bytes, count, offset) : __real_pread64(fd, bytes, count, offset);
}

/// What was asked for ahead of the reads, from where to where; -1 as the end of a file without read-ahead.
static std::vector<std::pair<off_t, off_t>> asked_for;
extern "C" int __wrap_posix_fadvise64(int, off_t offset, off_t length, int advice) {
    asked_for.emplace_back(offset, advice == POSIX_FADV_WILLNEED ? offset + length : -1);
    return 0;
}

namespace koli::test {

/// An open reader on a file of these bytes.
struct Opened {
    explicit Opened(const std::string& bytes) : path(MemoryFile(bytes.data(), bytes.size())) {
        EXPECT_TRUE(CachedFileOpen(&reader, path.c_str(), reading, LogSite("m")));
    }
    ~Opened() { CachedFileClose(&reader); }
    Opened(const Opened&) = delete;
    const std::string path;
    Reading reading{path.c_str()};
    CachedFileReader reader;
    MpegHeaderInfo header{};
    int64_t position = 0;
};

using Mpeg = Fixture;

TEST_F(Mpeg, GivesSeventeenForWhatIsNotThere) {
    Opened file(std::string(16384, 'x') + "\x01\x02\x83\x04");
    CachedFileReader* reader = &file.reader;
    EXPECT_EQ(CachedByteAt(reader, -1), 17);
    EXPECT_EQ(CachedByteAt(reader, 16386), 0x83);
    EXPECT_EQ(CachedByteAt(reader, 16388), 17);
    EXPECT_EQ(CachedByteAt(reader, 0), 'x');
    EXPECT_EQ(ReadSyncsafe32(reader, 16384), (1U << 21 | 2U << 14 | 0x83U << 7 | 4U));
    EXPECT_EQ(ReadSyncsafe32(reader, 16387), (4U << 21 | 17U << 14 | 17U << 7 | 17U));
    EXPECT_EQ(ReadBe32Direct(reader, 16384), 0x01028304U);
    EXPECT_EQ(ReadBe32Direct(reader, 16386), 0x83040000U);
    EXPECT_EQ(ReadBe32Direct(reader, -4), 17U);
}

TEST_F(Mpeg, DecodesByTheTables) {
    // Header; version, layer, length, bit rate, sample rate, mode, mode extension.
    const std::pair<std::string, std::tuple<int, int, int, uint32_t, uint32_t, int, int>> cases[] = {
        {"\xFF\xFB\x90\x64", {1, 3, 417, 128000, 44100, 1, 2}},
        {"\xFF\xFB\x92\xC0", {1, 3, 418, 128000, 44100, 3, -1}},
        {"\xFF\xFD\xE4\0"s, {1, 2, 1152, 384000, 48000, 0, -1}},
        {"\xFF\xFE\xEA\x80", {1, 1, 676, 448000, 32000, 2, -1}},
        {"\xFF\xF3\xE8\x80", {2, 3, 720, 160000, 16000, 2, -1}},
        {"\xFF\xF5\x10\x80", {2, 2, 26, 8000, 22050, 2, -1}},
        {"\xFF\xF7\xE4\x80", {2, 1, 256, 256000, 24000, 2, -1}},
        {"\xFF\xFB\x02\x80", {1, 3, 1, 0, 44100, 2, -1}}};
    for (const auto& [bytes, expected] : cases) {
        Opened file("xx" + Padded(bytes, 998));
        const MpegHeaderInfo& h = file.header;
        ASSERT_EQ(MpegFrameFind(&file.reader, &file.position, &file.header), 1);
        EXPECT_EQ(h.position, 2);
        EXPECT_DOUBLE_EQ(h.duration, 1000.0 / (h.bitrate / 1000) * 0.008);
        EXPECT_EQ(std::tuple(h.version, h.layer, h.frame_length, h.bitrate, h.sample_rate, h.channel_mode,
                             h.mode_extension),
                  expected);
    }
    for (const char* bad : {"\xFF\xE3\x90\x64", "\xFF\xEB\x90\x64", "\xFF\xF9\x90\x64", "\xFF\xFB\x9C\x64",
                            "\xFF\xFB\xF0\x64", "\xFE\xFB\x90\x64", "\xFF\xDB\x90\x64", "\xFF\xFB"}) {
        Opened file(Padded(bad, 1000));  // the last one has no bit rate, no padding, and so no length
        EXPECT_EQ(MpegFrameFind(&file.reader, &file.position, &file.header), 0);
        EXPECT_EQ(MpegFrameCheck(&file.reader, 0), bad[2] != '\0' ? -1 : 0);
    }
}

TEST_F(Mpeg, LimitsItsMessageForOneFile) {
    Opened file(std::string(100, 'x'));
    for (int i = 0; i < 20; ++i, file.position %= 90)
        EXPECT_EQ(MpegFrameFind(&file.reader, &file.position, &file.header), 0);
    EXPECT_EQ(file.position, 0);  // was left at the end of each search
    MpegFrameLogSuppressed(&file.reader);
    ASSERT_EQ(fake.log.size(), 17U);
    EXPECT_EQ(fake.log[15], "metaid3 (#) MPEG Header not found");
    EXPECT_EQ(fake.log[16], "metaid3 (#) MPEG Header not found, 4 more times");
}

TEST_F(Mpeg, AgreesWithTheByteWiseOnes) {
    std::mt19937 random(7);
    std::vector<std::string> pieces = {"Xing", "VBRI", "Vi", "\xFF", "\xFF\xFB\x90\x64"};
    pieces.insert(pieces.end(),
                  {"\xFF\xF7\x94\xC4", "\xFF\xFB\x02\x64", Audio(1).substr(17), Padded("", 30)});
    const size_t small = pieces.size();
    pieces.insert(pieces.end(), {Audio(1).substr(0, 416), "\xFF\xFB\0"s, Padded("", 300), Padded("", 17000)});
    for (const size_t at : {900, 963, 964, 16317, 16380, 16381, 16382, 16383, 16384, 19999, 20000})
        ASSERT_TRUE(AgreesWithModel(Padded(Audio(2), 80000).replace(at, 4, "Xing"), 0)) << at;
    for (int round = 0; round < 400; ++round) {
        std::string bytes;
        for (size_t count = random() % 200; count > 0; --count)
            bytes += pieces[random() % (round % 8 == 0 ? pieces.size() : small)];
        ASSERT_TRUE(AgreesWithModel(bytes, round % 3)) << round;
    }
}

TEST_F(Mpeg, ReadsWhatLiesBehindAnUnreadableBlockAndAsksForThatOnce) {
    std::string bytes = Padded(Audio(50), 40000, 'x') + Audio(3);
    std::map<off_t, int> failed;
    failing_pread = [&failed](int fd, void* to, size_t count, off_t at) -> ssize_t {
        if (at / 4096 != 2 && at / 4096 != 5)  // short in front of those blocks, and for no reason
            return __real_pread64(fd, to,
                                  std::min<size_t>({count, 3000, 4096 - static_cast<size_t>(at % 4096)}), at);
        ++failed[at];
        errno = EIO;
        return at / 4096 == 2 ? -1 : 0;  // the disk fails; the file has become shorter
    };
    Opened file(bytes);
    bytes.replace(2 * 4096, 4096, 4096, '\x11').replace(5 * 4096, 4096, 4096, '\x11');
    for (const int64_t start : {0, 8192, 10000, 20000, 36863})  // across both blocks, from within, and again
        for (int64_t at = start; at < static_cast<int64_t>(bytes.size()); ++at)
            ASSERT_EQ(CachedByteAt(&file.reader, at), static_cast<uint8_t>(bytes[static_cast<size_t>(at)]))
                << at;
    EXPECT_EQ(failed, (std::map<off_t, int>{{8192, 1}, {20480, 1}}));
    EXPECT_EQ(fake.log, Lines{"reading (#) Failed to read " + file.path + ": Input/output error"});
    EXPECT_FALSE(file.reading.file.IsWhole());
    EXPECT_STREQ(file.reading.file.failure().reason, "the file cannot be read: Input/output error");
    EXPECT_TRUE(MpegFirstFrame(&file.reader, 20434, &file.header));
    EXPECT_EQ(file.header.position, 40000);

    failing_pread = [](int, void*, size_t, off_t) -> ssize_t { return errno = EIO, -1; };
    Opened dead(bytes + std::string(4 << 20, 'x'));
    EXPECT_EQ(CachedByteAt(&dead.reader, 4 << 20), 17);
    EXPECT_FALSE(MpegFirstFrame(&dead.reader, 0, &dead.header));
    EXPECT_EQ(dead.reader.unreadable.failures, UnreadableBlocks::kMost);
    Opened backwards(bytes + std::string(4 << 20, 'x'));
    for (int64_t at = 4 << 20; at >= 0; at -= 8192)
        EXPECT_EQ(CachedByteAt(&backwards.reader, at), 17);
    EXPECT_EQ(backwards.reader.unreadable.failures, UnreadableBlocks::kMost + 1);
    failing_pread = nullptr;
}

TEST_F(Mpeg, AsksTheDiskForWhatAScanReadsAndForNothingElse) {
    asked_for.clear();
    Opened file(Audio(50000));
    ASSERT_TRUE(MpegFirstFrame(&file.reader, 0, &file.header));
    EXPECT_EQ(asked_for, (std::vector<std::pair<off_t, off_t>>{{0, -1}}));  // no read-ahead of the kernel's
    EXPECT_EQ(XingHeaderRead(&file.reader, 0, &file.header), -1);
    EXPECT_EQ(VbriHeaderRead(&file.reader, 0, &file.header), -1);
    off_t end = 16381;  // where the first buffer has no whole mark any more
    for (size_t i = 1; i < asked_for.size(); ++i) {
        EXPECT_LE(asked_for[i].first, end);
        end = std::max(end, asked_for[i].second);
    }
    EXPECT_EQ(end, 16381 + 318 * 16381 + 3);   // the buffers up to behind the first quarter
    EXPECT_EQ(asked_for.size(), 1U + 2 * 21);  // of 256 KB and their second halves
}

TEST_F(Mpeg, StepsOverTheHolesOfASparseFile) {
    Opened file("\xFF\xFB\x90");  // a frame that ends in the first hole
    for (const auto& [at, behind] :
         {std::pair(1LL << 38, "Xing" + Be32(1) + Be32(10000)), std::pair(1LL << 41, Audio(2))}) {
        std::filesystem::resize_file(file.path, at);
        std::ofstream(file.path, std::ios::app) << behind;
        file.reader.size = file.reader.end_of_file = at + static_cast<int64_t>(behind.size());
    }
    EXPECT_TRUE(MpegFirstFrame(&file.reader, 0, &file.header));
    EXPECT_EQ(file.header.position, 1LL << 41);
    EXPECT_EQ(XingHeaderRead(&file.reader, 0, &file.header), 0);
}

TEST_F(Mpeg, ReadsAHostileFileAFewTimesAtMost) {
    const auto bytes_read = [] {
        std::string name;
        int64_t count = 0;
        std::ifstream("/proc/self/io") >> name >> count;
        return count;
    };
    std::string cluster;  // candidates of different lengths, all of which lead into the zeros behind
    for (int i = 0; i < 100; ++i)
        cluster += i % 2 != 0 ? "\xFF\xFB\x90" : "\xFF\xFB\xE0";
    for (const std::string& unit : {"\xFF\xFB\x90\x64"s, cluster + std::string(40000, '\0'), "\xFF"s}) {
        std::string bytes;
        while (bytes.size() < 2000000)
            bytes += unit;
        Opened file(bytes);
        const int64_t before = bytes_read();
        EXPECT_FALSE(MpegFirstFrame(&file.reader, 0, &file.header));
        EXPECT_LT(bytes_read() - before, 6 * 2000000);
    }
}

}  // namespace koli::test
