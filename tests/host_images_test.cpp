// Picture sizes: every format, cut off at every length, damaged, and bounded in what is read.
#include <gtest/gtest.h>

#include "platform/host/image_size.h"
#include "platform/koliindex.h"
#include "tests/host_temp_dir.h"
#include "tests/media_bytes.h"

namespace koli::test {

std::string Segment(int marker, const std::string& data) {
    return "\xff" + Be(static_cast<uint64_t>(marker), 1) + Be(data.size() + 2, 2) + data;
}

std::string Jpeg(int frame, const std::string& before = "") {
    return "\xff\xd8" + Segment(0xE1, "Exif") + before + "\xff\xff" +
           Segment(frame, "\x08" + Be(480, 2) + Be(640, 2) + "\1\1\x11" + Be(0, 1)) + "\xff\xda";
}

std::string Bmp(uint64_t header, const std::string& size) {
    return "BM" + std::string(12, '\0') + Le(header, 4) + size;
}

using Put = std::string (*)(uint64_t, size_t);

/// ImageLength as LONG before ImageWidth as SHORT, behind one entry of no interest.
std::string Tiff(Put put, uint64_t count = 1) {
    return (put == Be ? "MM" : "II") + put(42, 2) + put(10, 4) + "xx" + put(3, 2) + put(254, 2) + put(4, 2) +
           put(1, 4) + put(7, 4) + put(257, 2) + put(4, 2) + put(1, 4) + put(480, 4) + put(256, 2) +
           put(3, 2) + put(count, 4) + put(640, 2) + "xx";
}

std::string BigTiff(Put put) {
    return (put == Be ? "MM" : "II") + put(43, 2) + put(8, 2) + put(0, 2) + put(16, 8) + put(2, 8) +
           put(256, 2) + put(16, 2) + put(1, 8) + put(640, 8) + put(257, 2) + put(3, 2) + put(1, 8) +
           put(480, 2);
}

std::string Psd(uint64_t version) {
    return "8BPS" + Be(version, 2) + std::string(6, '\0') + Be(3, 2) + Be(480, 4) + Be(640, 4);
}

std::string Ico(const std::vector<std::string>& sizes) {
    std::string bytes = Le(0, 2) + Le(1, 2) + Le(sizes.size(), 2);
    for (const std::string& size : sizes)
        bytes += size + std::string(14, '\0');
    return bytes;
}

/// "640x480" as the platform tells it, "-" when it refuses and leaves both numbers alone.
std::string SizeOf(const std::string& bytes) {
    static const TempDir dir;
    int width = -7, height = -7;
    const int result = KOLIIndexImgResGet(dir.Write("any.txt", bytes).c_str(), &width, &height);
    if (result == -1 && width == -7 && height == -7) return "-";
    return result == 0 ? std::to_string(width) + "x" + std::to_string(height) : "?";
}

TEST(ImageSize, IsToldByContentAndNeverFromACutHeader) {
    const std::string many_segments = Segment(0xC4, "x") + Segment(0xC8, "x") + Segment(0xCC, "x");
    for (const std::string& bytes :
         {Jpeg(0xC0), Jpeg(0xCF, "\xff\x01"), Jpeg(0xC2, many_segments), Png(640, 480), Tiff(Le), Tiff(Be),
          "GIF87a" + Le(640, 2) + Le(480, 2), "GIF89a" + Le(640, 2) + Le(480, 2), BigTiff(Le), BigTiff(Be),
          Bmp(12, Le(640, 2) + Le(480, 2)), Bmp(124, Le(640, 4) + Le(0xFFFFFE20, 4)), Psd(1), Psd(2)}) {
        EXPECT_EQ(SizeOf(bytes), "640x480") << testing::PrintToString(bytes);
        bool whole = false;  // from some length on the header is complete, and stays so
        for (size_t length = 0; length < bytes.size(); ++length) {
            const std::string size = SizeOf(bytes.substr(0, length));
            whole = whole || size == "640x480";
            EXPECT_EQ(size, whole ? "640x480" : "-") << length << testing::PrintToString(bytes);
        }
    }
    EXPECT_EQ(SizeOf(Ico({"\x10\x10", "\x20\x30", "\x20\x20"})), "32x48");
    EXPECT_EQ(SizeOf(Ico({"\x10\x10", std::string("\0\x80", 2), "\xff\x7f"})), "256x128");
    EXPECT_EQ(SizeOf(Png(0x7FFFFFFF, 1)), "2147483647x1");
}

TEST(ImageSize, RefusesDamagedAndImpossibleHeaders) {
    const std::string segment("\xff\xe2\0\1", 4), wild = Le(~uint64_t{0}, 8);
    const std::string big_tiff = "II" + Le(43, 2) + Le(8, 2) + Le(0, 2);
    for (const std::string& bytes :
         {std::string("text"), Png(0, 1), Png(1, 0), Png(0x80000000, 1), Png(1, 0xFFFFFFFF), Tiff(Le, 2),
          Psd(3), Bmp(40, Le(0xFFFFFFFF, 4) + Le(480, 4)), Bmp(40, Le(640, 4) + Le(0x80000000, 4)),
          Jpeg(0xDA), Bmp(13, Le(640, 4) + Le(480, 4)), Ico({}), Ico({"\x20\x20", "\x10"}).substr(0, 23),
          Jpeg(0xD9), Jpeg(0xC0, segment), Jpeg(0xC0, "x"), Tiff(Le).substr(0, 4) + wild, big_tiff + wild})
        EXPECT_EQ(SizeOf(bytes), "-") << testing::PrintToString(bytes);
    int width = 0, height = 0;
    for (const char* path : {"/", "/dev/zero", "/gone", static_cast<const char*>(nullptr)})
        EXPECT_EQ(KOLIIndexImgResGet(path, &width, &height), -1);
}

/// Endless bytes: `head`, then `tail` over and over; counts the reads.
struct EndlessSource : ByteSource {
    std::string head, tail;
    int reads = 0;
    size_t ReadAt(uint64_t offset, void* buffer, size_t count) override {
        ++reads;
        for (size_t i = 0; i < count; ++i, ++offset)
            static_cast<char*>(buffer)[i] =
                offset < head.size() ? head[static_cast<size_t>(offset)]
                                     : tail[static_cast<size_t>((offset - head.size()) % tail.size())];
        return count;
    }
};

TEST(ImageSize, ReadsLittleHoweverLargeTheFile) {
    const std::string tiff = "II" + Le(42, 2) + Le(8, 4) + Le(0xFFFF, 2);
    const std::string photo = "\xff\xd8" + Segment(0xE1, std::string(60000, 'x')) + Jpeg(0xC0).substr(2);
    for (const auto& [head, tail] : {std::pair{photo, std::string("x")},
                                     {"\xff\xd8", "\xff"},
                                     {"\xff\xd8", Segment(0xE1, "")},
                                     {"\xff\xd8", Segment(0xE1, std::string(1000, 'x'))},
                                     {tiff, std::string(12, 'x')},
                                     {Le(0x00010000, 4) + "\xff\xff", "x"}}) {
        EndlessSource source;
        source.head = head;
        source.tail = tail;
        ImageSize size{};
        EXPECT_EQ(ReadImageSize(source, &size), head == photo);
        EXPECT_LE(source.reads, head == photo ? 3 : HeaderReader::kRefillsMax);
    }
}

}  // namespace koli::test
