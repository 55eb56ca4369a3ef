// Pictures in the media store and in the photo library.
#include "photo/photo_library.h"

#include <unistd.h>

#include "index/record/index_mode.h"
#include "photo/caption.h"
#include "photo/photo.h"
#include "photo/picture.h"
#include "tests/exif_bytes.h"
#include "tests/fixture.h"

namespace koli::test {

using Photo = Fixture;

std::string CameraJpeg(const std::string& model, uint32_t width) {
    return JpegWithExif({Ascii(271, "Maker"), Ascii(272, model)},
                        {Rational(33434, 1, 125), Rational(33437, 28, 10), Short(34855, 200),
                         Ascii(36867, "2009:03:05 07:08:09"), Long(40962, width), Long(40963, 8000)});
}

TEST_F(Photo, AJpegBringsItsExifValuesAndOthersTheirSizeOnly) {
    const std::string bytes = CameraJpeg("M\xC3\xB6", 9000);
    const std::string path = Write("Trip/a.b.JPG", bytes), png = Write("a.png", Png(3, 4));
    Reading sizeless;
    ASSERT_EQ(PhotoMediaAdd(path.c_str(), sizeless), 0);
    EXPECT_STREQ(sizeless.file.failure().reason, "the size of the picture cannot be read");
    ASSERT_EQ(PhotoMediaAdd(png.c_str(), Reading()), 0);
    EXPECT_EQ(PhotoMediaAdd(Write("@eaDir/x.jpg", "x").c_str(), Reading()), 0);
    ASSERT_EQ(fake.media.size(), 2U);
    const MediaInfo& record = fake.media[0].second;
    const Lines texts = {record.path,         record.title,         record.album,    record.camera_make,
                         record.camera_model, record.exposure_time, record.f_number, record.date_taken};
    EXPECT_EQ(texts, (Lines{path, "a.b", "Trip", "Maker", "", "1/125 sec.", "f/2.8", "2009-3-5 7:8:9"}));
    EXPECT_EQ(record.iso_speed, 200);
    EXPECT_EQ(Figures(record), "0 0 0 0 0x8000 0");
    EXPECT_EQ(Figures(fake.media[1].second), "0 0 0 0 3x4 0");
}

TEST_F(Photo, IsReadOnceForBothStoresAndItsRecordFilledFromNamesFileAndExif) {
    const std::string bytes = CameraJpeg("Before", 8000), path = Write("Trip/a.b.jpg", bytes);
    Write("Trip/@eaDir/a.b.jpg/KOLIPHOTO:DESC", "By the sea\nline 2");
    KnownPath known(path.c_str());
    Picture picture(path.c_str());
    known.picture = &picture;
    EXPECT_EQ(PhotoMediaAdd(known, Reading()), 0);
    Write("Trip/a.b.jpg", CameraJpeg("After!", 8000));
    EXPECT_EQ(PhotoLibraryAdd(known, kModeUpdate), 0);
    const auto [mode, record] = fake.photos.at(0);
    EXPECT_EQ(mode, kModeUpdate);
    const Lines texts = {record.path,   record.name,         record.title,     record.description,
                         record.folder, record.camera_model, record.date_taken};
    EXPECT_EQ(texts,
              (Lines{path, "a.b.jpg", "a.b", "By the sea\n", "Trip", "Before", "2009:03:05 07:08:09"}));
    EXPECT_EQ(record.width, 8000);
    EXPECT_EQ(record.file_size, static_cast<int64_t>(bytes.size()));
    picture.Forget();
    EXPECT_EQ(PhotoLibraryAdd(known, kModeAdd), 0);
    EXPECT_STREQ(fake.photos.at(1).second.camera_model, "After!");

    // One without a date gets the file's, and no size beyond the bound.
    ASSERT_EQ(PhotoLibraryAdd(Write("a.png", Png(8001, 20)).c_str(), kModeAdd), 0);
    const PhotoRecord& dateless = fake.photos.back().second;
    EXPECT_TRUE(*dateless.date_taken != '\0' && dateless.width == 0 && dateless.height == 20);
}

TEST_F(Photo, ACaptionGoesWhenItsRowIsSafe) {
    const std::string path = Write("a.jpg", Png(1, 1));
    for (const char* failing : {"PhotoInfoDBSave", "PhotoDBHarden", ""}) {
        const std::string title = Write("@eaDir/a.jpg/KOLIPHOTO:TITLE", "Sunset");
        const std::string empty = Write("@eaDir/a.jpg/KOLIPHOTO:DESC", "");
        fake.failing = {failing};
        fake.calls.clear();
        PhotoLibraryAdd(path.c_str(), kModeAdd);
        CaptionRemovalsRun();
        EXPECT_STREQ(fake.photos.back().second.title, "Sunset");
        EXPECT_EQ(access(title.c_str(), F_OK) == 0, *failing != '\0') << failing;
        EXPECT_EQ(access(empty.c_str(), F_OK) == 0, *failing != '\0') << failing;
    }
    EXPECT_EQ(fake.calls, (Lines{"PhotoInfoDBSave 1 " + path, "PhotoDBHarden"}));
    const std::string early = Write("@eaDir/empty.jpg/KOLIPHOTO:TITLE", "of an upload that has just begun");
    EXPECT_EQ(PhotoLibraryAdd(Write("empty.jpg", "").c_str(), kModeAdd), -1);
    EXPECT_EQ(access(early.c_str(), F_OK), 0);

    // Neither read nor removed through a link.
    const std::string outside = Write("outside/a.jpg/KOLIPHOTO:TITLE", "secret");
    std::filesystem::remove_all("@eaDir");
    for (const auto& [link, target] : {std::pair("@eaDir", "outside"), {"@eaDir/a.jpg", "outside/a.jpg"}}) {
        std::filesystem::create_directory_symlink(Path(target), link);
        PhotoLibraryAdd(path.c_str(), kModeAdd);
        EXPECT_STREQ(fake.photos.back().second.title, "a");
        EXPECT_EQ(ReadFile(outside), "secret");
        std::filesystem::remove(link);
        MakeDir("@eaDir");
    }
}

TEST_F(Photo, ACaptionWaitsForTheEndOfAUnitAndOneThatReplacesItStays) {
    for (const bool is_interrupted : {false, true}) {
        Lines titles;
        fake.results["PhotoDBHarden"] = 1;
        for (const char* name : {"a", "b", "c\n9"}) {
            titles.push_back(Write("@eaDir/"s + name + ".jpg/KOLIPHOTO:TITLE", "Sunset"));
            PhotoLibraryAdd(Write(name + ".jpg"s, "x").c_str(), kModeAdd);
        }
        CaptionRemovalsRun();
        CaptionRemovalsNote();
        if (is_interrupted) {  // the process that comes next knows only what was noted
            fake.results["PhotoDBHarden"] = -1;
            CaptionRemovalsRun();
        }
        Write("@eaDir/b.jpg/KOLIPHOTO:TITLE", "Dawn.."s);  // the same size
        fake.results["PhotoDBHarden"] = 0;
        is_interrupted ? CaptionRemovalsRecall() : CaptionRemovalsRun();
        EXPECT_NE(access(titles[0].c_str(), F_OK), 0);
        EXPECT_EQ(ReadFile(titles[1]), "Dawn..");
        EXPECT_NE(access(titles[2].c_str(), F_OK), 0);
        EXPECT_EQ(fake.settings["captions_taken"], "");
    }
}

TEST_F(Photo, RefusesWhatIsNoPhotoOfTheShare) {
    const std::string path = Write("a.jpg", "x");
    ASSERT_EQ(truncate(path.c_str(), kMaxPhotoSize), 0);
    EXPECT_EQ(PhotoLibraryAdd(path.c_str(), 1), 0);
    for (const int64_t size : {kMaxPhotoSize + 1, int64_t{1} << 32, int64_t{0}}) {
        ASSERT_EQ(truncate(path.c_str(), size), 0);
        EXPECT_EQ(PhotoLibraryAdd(path.c_str(), 1), -1) << size;
    }
    EXPECT_EQ(PhotoLibraryAdd("/gone.jpg", 1), -1);
    EXPECT_EQ(fake.photos.size(), 1U);
    fake.failing = {"PhotoInfoDBSave"};
    EXPECT_EQ(PhotoLibraryAdd(Write("b.jpg", "x").c_str(), 1), -1);
    EXPECT_EQ(fake.log, Lines{"photo_index (#) Failed to save photo info."});
}

}  // namespace koli::test
