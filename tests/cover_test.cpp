// Pictures of a tag and the cover files that they become.
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "audio/mp3.h"
#include "tests/fixture.h"
#include "tests/mp3_bytes.h"

static std::function<void()> meanwhile;  // what somebody does once the platform has made a cover's folder

// The platform here makes nothing of the picture's type; others may.
extern "C" int __real_GetCoverPath(const char*, char*, int, int, int, int);
extern "C" int __wrap_GetCoverPath(const char* audio, char* path, int size, int type, int index,
                                   int image_type) {
    koli::test::Record("GetCoverPath", type, index, image_type);
    const int result = __real_GetCoverPath(audio, path, size, type, index, image_type);
    if (meanwhile) meanwhile();
    return result;
}

namespace koli::test {

const std::string kImage = "0123456789";

struct Cover : Fixture {
    /// Indexes a file with these frames; returns whether a cover was saved.
    bool Save(const std::string& frames, char version = 3, const std::string& behind = Audio()) {
        fake.log.clear();
        MediaInfo record{};
        Mp3MetadataParse(Write("a.mp3", Tag(frames, version) + behind).c_str(), &record, Reading());
        return record.has_cover != 0;
    }
    const std::string path_ = Write("a.mp3", "");
    const std::string covers_ = MakeDir("@eaDir/a.mp3"), jpg_ = covers_ + "/cover1.jpg";
    const std::string png_ = covers_ + "/cover1.png";
};

TEST_F(Cover, IsWrittenWithTheModeAndOwnerOfTheMediaFile) {
    const std::string image = std::string(200000, 'j') + "end";
    ASSERT_EQ(symlink(Write("victim", "precious").c_str(), jpg_.c_str()), 0);
    ASSERT_TRUE(geteuid() != 0 || chown(path_.c_str(), 1234, 4321) == 0);
    ASSERT_TRUE(Save(Picture("image/JPEG", 3, image) + Picture("image/png", 3, kImage)));
    EXPECT_EQ(ReadFile(jpg_), image);
    EXPECT_EQ(ReadFile("victim"), "precious");
    struct stat media, cover;
    ASSERT_TRUE(stat(path_.c_str(), &media) == 0 && stat(jpg_.c_str(), &cover) == 0);
    EXPECT_EQ(cover.st_mode & 07777, 0777U);
    EXPECT_EQ(std::pair(cover.st_uid, cover.st_gid), std::pair(media.st_uid, media.st_gid));
    EXPECT_EQ(fake.log, Lines{});
}

TEST_F(Cover, IsTakenFromTheFirstPictureThatIsGood) {
    const std::string good = Picture("image/png", 4, kImage);
    const std::pair<std::string, Lines> cases[] = {
        {Picture("image/gif", 3, kImage), {"metaid3 (#) Wrong MIME type: image/gif, file:" + path_}},
        {Picture("image/jpeg", 21, kImage), {"metaid3 (#) Wrong cover type: 21"}},
        {Picture("image/jpg", 20, kImage.substr(1)), {}},
        {Picture("image/png", 0, kImage.substr(3)), {}},
        {Frame("APIC", "\0image/jpeg\0\3no zero at all"s), {}}};
    for (const auto& [bad, log] : cases) {
        EXPECT_TRUE(Save(bad + good));
        EXPECT_EQ(fake.log, log);
        EXPECT_EQ(ReadFile(png_), kImage);
        EXPECT_EQ(fake.calls.back(), "GetCoverPath 4 1 2");
    }
    EXPECT_FALSE(Save(Text22("PIC", "gif\3d\0"s + kImage), 2));
    EXPECT_FALSE(Save(Text22("PIC", "jPg\3d\0"s + kImage), 2, ""));  // is saved, though no audio follows
    EXPECT_EQ(ReadFile(jpg_), kImage);
    EXPECT_EQ(ReadFile(png_), "");  // the old covers are gone

    std::string many;
    for (int i = 0; i < 70; ++i)
        many += Picture("image/gif", 3, kImage);
    EXPECT_FALSE(Save(many + good));
    EXPECT_EQ(fake.log.size(), 65U);
}

TEST_F(Cover, StaysInTheShareWhenAFolderBecomesALinkMeanwhile) {
    MakeDir("outside/a.mp3");
    for (const auto& [swapped, target] :
         {std::pair("@eaDir", "outside"), {"@eaDir/a.mp3", "outside/a.mp3"}}) {
        meanwhile = [&, from = swapped, to = target] {
            std::filesystem::rename(from, "aside");
            std::filesystem::create_directory_symlink(Path(to), from);
        };
        EXPECT_FALSE(Save(Picture("image/png", 3, kImage)));
        meanwhile = nullptr;
        EXPECT_EQ(fake.log, Lines{"metaid3 (#) FAILED to unlink :" + png_ + ",  reason=Not a directory"});
        EXPECT_TRUE(std::filesystem::is_empty("outside/a.mp3"));
        std::filesystem::remove(swapped);
        std::filesystem::rename("aside", swapped);
    }
}

TEST_F(Cover, IsNeitherLargeNorAHole) {
    Write("a.mp3", "ID3\3"s + Be32(0).substr(2) + Syncsafe(80 << 20));
    for (const int size : {33 << 20, 33 << 20, 64 << 10, 64 << 10}) {
        const uintmax_t data = std::filesystem::file_size(path_) + 10;
        std::ofstream(path_, std::ios::app) << Picture("image/jpeg", 3, kImage, size);
        std::filesystem::resize_file(path_, data + static_cast<uintmax_t>(size));
    }
    std::ofstream(path_, std::ios::app) << Picture("image/jpeg", 3, kImage);
    MediaInfo record{};
    Mp3MetadataParse(path_.c_str(), &record, Reading());
    EXPECT_EQ(ReadFile(jpg_), kImage);
    EXPECT_EQ(fake.log.at(0), "metaid3 (#) A picture of more than 32 MiB is not saved: " + path_);
    EXPECT_EQ(fake.log.at(1), "metaid3 (#) A picture with a hole of the file in it is not saved: " + path_);
    EXPECT_EQ(fake.calls, Lines{"GetCoverPath 3 1 1"});
}

TEST_F(Cover, ThatFailsLeavesNothingBehind) {
    for (const int64_t size : {5000LL, 0x7FFFFFFFLL, 0x80000000LL, 0xFFFFFFFFLL, 4LL}) {
        EXPECT_FALSE(Save(Picture("image/jpeg", 3, kImage, size), 3, ""));
        EXPECT_EQ(fake.log[0] == "metaid3 (#) FAILED TO WRITE PIC FILE, reason=No data available",
                  size == 5000 || size == 0x7FFFFFFF);
        EXPECT_NE(access(jpg_.c_str(), F_OK), 0);
    }
    const std::string good = Picture("image/jpeg", 3, kImage);
    std::filesystem::create_directory(jpg_);
    EXPECT_FALSE(Save(good));
    EXPECT_EQ(fake.log, Lines{"metaid3 (#) FAILED to unlink :" + jpg_ + ",  reason=Is a directory"});
    std::filesystem::remove(jpg_);
    ASSERT_EQ(chmod(dir().c_str(), 0755) + chmod(covers_.c_str(), 0555), 0);
    {
        const AsNobody nobody;
        EXPECT_FALSE(Save(good));
    }
    EXPECT_EQ(fake.log, Lines{"metaid3 (#) FAILED TO OPEN " + jpg_ + ", reason=Permission denied"});
    std::filesystem::remove_all(covers_);
    Write("@eaDir/a.mp3", "in the way");
    EXPECT_FALSE(Save(good));
    EXPECT_EQ(fake.log, Lines{"metaid3 (#) FAILED to get CoverPath :" + path_});
}

}  // namespace koli::test
