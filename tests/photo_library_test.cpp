// Pictures in the media store and in the photo library.
#include "photo/photo_library.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "base/features.h"
#include "index/index_mode.h"
#include "photo/photo.h"
#include "tests/exif_bytes.h"
#include "tests/fake_platform.h"

namespace koli {
namespace {

using namespace test;
using Lines = std::vector<std::string>;

std::string CameraJpeg(const std::string& model, uint32_t width) {
    return JpegWithExif({Ascii(271, "Maker"), Ascii(272, model)},
                        {Rational(33434, 1, 125), Rational(33437, 28, 10), Short(34855, 200),
                         Ascii(36867, "2009:03:05 07:08:09"), Long(40962, width), Long(40963, 8000)});
}

TEST(PhotoMedia, AJpegBringsItsExifValuesAndOthersTheirSizeOnly) {
    const Sandbox sandbox;
    const std::string bytes = CameraJpeg("M\xC3\xB6", 9000);
    const std::string path = sandbox.Write("Trip/a.b.JPG", bytes), png = sandbox.Write("a.png", bytes);
    fake.image_sizes[png] = {3, 4};
    ASSERT_EQ(PhotoMediaAdd(path.c_str()), 0);
    ASSERT_EQ(PhotoMediaAdd(png.c_str()), 0);
    EXPECT_EQ(PhotoMediaAdd(sandbox.Write("@eaDir/x.jpg", "x").c_str()), 0);
    EXPECT_EQ(PhotoMediaAdd("/gone.jpg"), -1);

    ASSERT_EQ(fake.media.size(), 2U);
    const MediaInfo& record = fake.media[0].second;
    EXPECT_EQ(fake.media[0].first, kStorePhoto);
    const Lines texts = {record.path,         record.title,         record.album,    record.camera_make,
                         record.camera_model, record.exposure_time, record.f_number, record.date_taken};
    EXPECT_EQ(texts, (Lines{path, "a.b", "Trip", "Maker", "", "1/125 sec.", "f/2.8", "2009-3-5 7:8:9"}));
    EXPECT_EQ(record.iso_speed, 200);
    EXPECT_EQ(record.width, 0U);
    EXPECT_EQ(record.height, 8000U);
    EXPECT_EQ(fake.media[1].second.width, 3U);
    EXPECT_STREQ(fake.media[1].second.camera_make, "");
}

TEST(PhotoMedia, FailuresAreToldInTheirWords) {
    const Sandbox sandbox;
    const std::string path = sandbox.Write(std::string(254, 'd') + "/a.png", "x");
    fake.failing = {"MediaInfoDBSave", "MediaInfoDBDelete"};
    EXPECT_EQ(PhotoMediaAdd(path.c_str()), -1);
    EXPECT_EQ(PhotoMediaDelete(path.c_str()), -1);
    EXPECT_EQ(PhotoMediaDelete("/gone.png"), 0);
    EXPECT_EQ(fake.log, (Lines{"photo (#) Impossible error.", "photo (#) Failed to save playlist info.",
                               "photo (#) File exists. Skip remove it from database.",
                               "photo (#) Failed to remove /gone.png from database."}));
    EXPECT_EQ(fake.calls.back(), "MediaInfoDBDelete 2 /gone.png");
}

TEST(PhotoLibraryAdd, FillsTheRecordFromNamesFileAndExif) {
    const Sandbox sandbox;
    const std::string bytes = CameraJpeg("M", 8000);
    const std::string path = sandbox.Write("Trip/a.b.jpg", bytes);
    sandbox.Write("Trip/@eaDir/a.b.jpg/KOLIPHOTO:DESC", "By the sea\nline 2");
    ASSERT_EQ(PhotoLibraryAdd(path.c_str(), kModeUpdate), 0);

    ASSERT_EQ(fake.photos.size(), 1U);
    const auto& [mode, record] = fake.photos[0];
    EXPECT_EQ(mode, 5);
    const Lines texts = {record.path,   record.name,         record.title,     record.description,
                         record.folder, record.camera_model, record.date_taken};
    EXPECT_EQ(texts, (Lines{path, "a.b.jpg", "a.b", "By the sea\n", "Trip", "M", "2009:03:05 07:08:09"}));
    EXPECT_EQ(record.width, 8000);
    EXPECT_EQ(record.file_size, static_cast<int64_t>(bytes.size()));
}

TEST(PhotoLibraryAdd, ACaptionGoesWhenItsRowIsSafe) {
    const Sandbox sandbox;
    const std::string path = sandbox.Write("a.jpg", "x");
    for (const char* failing : {"PhotoInfoDBSave", "PhotoDBHarden", ""}) {
        const std::string title = sandbox.Write("@eaDir/a.jpg/KOLIPHOTO:TITLE", "Sunset");
        const std::string empty = sandbox.Write("@eaDir/a.jpg/KOLIPHOTO:DESC", "");
        fake.failing = {failing};
        fake.calls.clear();
        PhotoLibraryAdd(path.c_str(), kModeAdd);
        EXPECT_STREQ(fake.photos.back().second.title, "Sunset");
        EXPECT_EQ(fake.calls[0], "PhotoInfoDBSave 1 " + path);
        EXPECT_EQ(access(title.c_str(), F_OK) == 0, *failing != '\0') << failing;
        EXPECT_EQ(access(empty.c_str(), F_OK) == 0, *failing != '\0') << failing;
    }
    EXPECT_EQ(fake.calls, (Lines{"PhotoInfoDBSave 1 " + path, "PhotoDBHarden"}));
    const std::string title =
        sandbox.Write("@eaDir/empty.jpg/KOLIPHOTO:TITLE", "of a file that never enters");
    EXPECT_EQ(PhotoLibraryAdd(sandbox.Write("empty.jpg", "").c_str(), kModeAdd), -1);
    EXPECT_NE(access(title.c_str(), F_OK), 0);
}

TEST(PhotoLibraryAdd, APictureWithoutDateGetsTheFilesAndNoSizeBeyondTheBound) {
    const Sandbox sandbox;
    const std::string path = sandbox.Write("a.png", "x");
    fake.image_sizes[path] = {8001, 20};
    ASSERT_EQ(PhotoLibraryAdd(path.c_str(), kModeAdd), 0);
    const PhotoRecord& record = fake.photos.at(0).second;
    EXPECT_STRNE(record.date_taken, "");
    EXPECT_TRUE(record.width == 0 && record.height == 20);
}

TEST(PhotoLibraryAdd, RefusesWhatIsNoPhotoOfTheShare) {
    const Sandbox sandbox;
    const std::string path = sandbox.Write("a.jpg", "x");
    ASSERT_EQ(truncate(path.c_str(), kMaxPhotoSize), 0);
    EXPECT_EQ(PhotoLibraryAdd(path.c_str(), 1), 0);
    for (const int64_t size : {kMaxPhotoSize + 1, int64_t{1} << 32, int64_t{0}}) {
        ASSERT_EQ(truncate(path.c_str(), size), 0);
        EXPECT_EQ(PhotoLibraryAdd(path.c_str(), 1), -1) << size;
    }
    EXPECT_EQ(PhotoLibraryAdd(sandbox.Write(".hidden.jpg", "x").c_str(), 1), -1);
    EXPECT_EQ(PhotoLibraryAdd(sandbox.Write("my@eaDir2/a.jpg", "x").c_str(), 1), -1);
    EXPECT_EQ(PhotoLibraryAdd("/gone.jpg", 1), -1);
    EXPECT_EQ(fake.photos.size(), 1U);
    EXPECT_TRUE(fake.log.empty());

    fake.failing = {"PhotoInfoDBSave"};
    EXPECT_EQ(PhotoLibraryAdd(sandbox.Write("b.jpg", "x").c_str(), 1), -1);
    EXPECT_EQ(fake.log, Lines{"photo_index (#) Failed to save photo info."});
}

TEST(PhotoLibraryIndex, DispatchesByModeAndKind) {
    const Sandbox sandbox;
    support_photo = 1;
    const std::string photo = sandbox.Write("a.jpg", "x");
    const std::string video = sandbox.Write("a.mp4", "x");
    const std::string plain = sandbox.Write("a.avi", "x");
    const std::string convert = "KLIBExec /usr/koli/bin/koliflvconv -f ";
    const struct {
        std::string path;
        int mode, result;
        Lines calls;
    } cases[] = {
        {photo, kModeAdd, 0, {"PhotoInfoDBSave 1 " + photo}},
        {photo, kModeUpdate, 0, {"PhotoInfoDBSave 5 " + photo}},
        {"/gone.jpg", kModeDelete, 0, {"PhotoInfoDBDelete /gone.jpg"}},
        {video, kModeAdd, 0, {}},
        {video, kModeUpdate, 0, {"KOLIIndexPhotoUpdateVideoStatus " + video}},
        {plain, kModeAdd, 0, {convert + plain}},
        {plain, kModeUpdate, 0, {convert + plain, "KOLIIndexPhotoUpdateVideoStatus " + plain}},
        {"/gone.avi", kModeDelete, 0, {convert + "/gone.avi", "PhotoInfoDBDelete /gone.avi"}},
        {sandbox.Write("a.txt", "x"), kModeAdd, -1, {}},
        {"/dotless", kModeDelete, -1, {}},
        {sandbox.MakeDir("d.jpg"), kModeAdd, -1, {}},
        {photo, kModeRebuild, -1, {}},
        {photo, kModeDelete, 0, {}},
    };
    for (const auto& c : cases) {
        fake.calls.clear();
        EXPECT_EQ(PhotoLibraryIndex(c.path.c_str(), c.mode), c.result) << c.path << c.mode;
        EXPECT_EQ(fake.calls, c.calls) << c.path << c.mode;
    }
    EXPECT_EQ(fake.log,
              (Lines{"photo_index(#) Thumb daemon is not running .....\n", "photo_index (#) Bad parameter.",
                     "photo_index (#) File exists. Skip remove it from database."}));
    support_photo = 0;
}

}  // namespace
}  // namespace koli
