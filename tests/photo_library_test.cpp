// Pictures in the media store and in the photo library: EXIF values, captions, what the converters are asked
// for.
#include "photo/photo_library.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "base/path_names.h"
#include "index/record/index_mode.h"
#include "index/record/stored_name.h"
#include "photo/caption.h"
#include "photo/conversion.h"
#include "photo/exif.h"
#include "photo/photo.h"
#include "photo/picture.h"
#include "tests/fixture.h"
#include "tests/media_bytes.h"

namespace koli::test {

// ---- Small pictures with an EXIF block, byte by byte

/// One directory entry: TIFF field type (2 ASCII, 3 SHORT, 4 LONG, 5 RATIONAL), value count, value bytes.
struct ExifField {
    uint16_t tag;
    uint16_t type;
    uint32_t count;
    std::string bytes;
};

ExifField Ascii(uint16_t tag, const std::string& text) {
    return {tag, 2, static_cast<uint32_t>(text.size()) + 1, text + std::string(1, '\0')};
}
ExifField Short(uint16_t tag, uint16_t value) {
    return {tag, 3, 1, Le(value, 2)};
}
ExifField Long(uint16_t tag, uint32_t value) {
    return {tag, 4, 1, Le(value, 4)};
}
ExifField Rational(uint16_t tag, uint32_t above, uint32_t below) {
    return {tag, 5, 1, Le(above, 4) + Le(below, 4)};
}

/// Appends a directory to the TIFF bytes and returns where it stands.
uint32_t AppendIfd(std::string* tiff, const std::vector<ExifField>& fields) {
    const size_t at = tiff->size(), data_at = at + 2 + fields.size() * 12 + 4;
    std::string ifd = Le(fields.size(), 2), data;
    for (const ExifField& field : fields) {
        const bool is_inline = field.bytes.size() <= 4;
        ifd += Le(field.tag, 2) + Le(field.type, 2) + Le(field.count, 4) +
               (is_inline ? Padded(field.bytes, 4) : Le(data_at + data.size(), 4));
        if (!is_inline) data += field.bytes;
    }
    *tiff += ifd + Le(0, 4) + data;
    return static_cast<uint32_t>(at);
}

/// A JPEG whose only segment is an EXIF block with these fields in IFD 0 and in the EXIF directory.
std::string JpegWithExif(std::vector<ExifField> ifd0, const std::vector<ExifField>& exif) {
    std::string tiff = "II*" + std::string(5, '\0');
    ifd0.push_back(Long(0x8769, AppendIfd(&tiff, exif)));
    tiff.replace(4, 4, Le(AppendIfd(&tiff, ifd0), 4));
    const std::string block = "Exif" + std::string(2, '\0') + tiff;
    return "\xFF\xD8\xFF\xE1" + Be(block.size() + 2, 2) + block + "\xFF\xDA";
}

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
    Reading unmeasured;
    ASSERT_EQ(PhotoMediaAdd(Write("a.UFO", "x").c_str(), unmeasured), 0);
    EXPECT_STREQ(unmeasured.file.failure().reason, "");
    EXPECT_EQ(PhotoMediaAdd(Write("@eaDir/x.jpg", "x").c_str(), Reading()), 0);
    ASSERT_EQ(fake.media.size(), 3U);
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

// ---- EXIF values

struct Exif : Fixture {
    PhotoRecord Read(const std::string& bytes) {
        PhotoRecord record{};
        unlink("a.jpg");  // writing over a file would wait for the disk
        const std::string path = Write("a.jpg", bytes);
        CopyText(record.path, sizeof record.path, path.c_str());
        EXPECT_EQ(ExifFillPhotoRecord(&record, Reading()), 0);
        return record;
    }
};

const std::vector<ExifField> kCamera = {Ascii(271, "Maker"), Ascii(306, "2001:01:01 00:00:00")};

TEST_F(Exif, OtherDatesAreNotTakenAndLongValuesAreCut) {
    const std::vector<ExifField> dates = {Ascii(36868, "2002:02:02 00:00:00")};  // the scanner's
    EXPECT_STREQ(Read(JpegWithExif(kCamera, dates)).date_taken, "");
    EXPECT_EQ(Read(JpegWithExif({}, {{34855, 3, 2, Le(100, 2) + Le(200, 2)}})).iso_speed, 100);
    EXPECT_STREQ(Read(JpegWithExif({Ascii(271, std::string(120, 'm'))}, {})).camera_make,
                 std::string(99, 'm').c_str());
}

TEST_F(Exif, ADateIsStoredAsFoundWhenItBeginsWithOne) {
    const std::pair<std::string, std::string> cases[] = {
        {"0000:00:00 00:00:00", ""},
        {"2009-03-05 07:08:09", ""},
        {"2009:3:5 7:8:9", "2009:3:5 7:8:9"},
        {"2009:03:05 07:08:09+01:00", "2009:03:05 07:08:09+01:00"},
        {"2009:03:05 07:08:09" + std::string(40, 'z'), "2009:03:05 07:08:09" + std::string(12, 'z')},
        {std::string(25, ' ') + "2009:03:05 07:08:09", ""},  // the cut takes the month's end away
    };
    for (const auto& [text, stored] : cases)
        EXPECT_EQ(Read(JpegWithExif({}, {Ascii(36867, text)})).date_taken, stored) << text;
}

TEST_F(Exif, FilesWithoutExifAreNoErrors) {
    const std::string jpeg = JpegWithExif(kCamera, {});
    for (const std::string& bytes : {std::string(), std::string("\x89PNG\r\n\x1a\n"),
                                     std::string("\xFF\xD8\xFF\xDA"), "\xFF\xD8\xFF\xDA" + jpeg.substr(2)})
        EXPECT_STREQ(Read(bytes).camera_make, "");

    const std::string fifo = Path("fifo.jpg");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    PhotoRecord record{};
    Reading noise;
    for (const std::string& path : {std::string(), dir(), fifo}) {
        CopyText(record.path, sizeof record.path, path.c_str());
        EXPECT_EQ(ExifFillPhotoRecord(&record, Reading()), 0);
    }
    CopyText(record.path, kPathSize,
             Write("a.jpg", "\xFF\xD8\xFF\xE1\0 Exif\0\0"s + std::string(24, 'x')).c_str());
    EXPECT_EQ(ExifFillPhotoRecord(&record, noise), 0);
    EXPECT_STREQ(noise.file.failure().reason, "the EXIF block cannot be read");
}

TEST_F(Exif, ABlockIsLookedForInTheFirst20MiBOnly) {
    const std::string jpeg = JpegWithExif(kCamera, {});
    const auto padded = [&jpeg](size_t size) {
        return "\xFF\xD8" + std::string(size, '\xFF') + jpeg.substr(2);
    };
    EXPECT_STREQ(Read(padded(1 << 20)).camera_make, "Maker");
    EXPECT_STREQ(Read(padded(21 << 20)).camera_make, "");
}

// ---- The conversion queues: whole lines, each one once

using Conversion = Fixture;

TEST_F(Conversion, KeepsOneLineForEachEntry) {
    const std::string queue = Path("queue"), longest(4095, 'x');
    for (const std::string& entry : {"/a/bc"s, "/a/bc"s, "/a/b"s, "/c'%s"s, longest, longest})
        EXPECT_EQ(WriteThumbQueue(entry.c_str(), queue.c_str()), 0);
    for (const std::string& refused : {"/a\n/etc"s, longest + "y"})
        EXPECT_EQ(WriteThumbQueue(refused.c_str(), queue.c_str()), -1);
    EXPECT_TRUE(ReadFile(queue) == "/a/bc\n/a/b\n/c'%s\n" + longest + "\n");
}

TEST_F(Conversion, AShortWriteLeavesNothingBehind) {
    const std::string queue = Write("queue", "/first\n");
    const rlimit full{10, RLIM_INFINITY}, before{RLIM_INFINITY, RLIM_INFINITY};
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    EXPECT_EQ(WriteThumbQueue("/second", queue.c_str()), -1);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(ReadFile(queue), "/first\n");
    EXPECT_EQ(fake.log, Lines{"photo_index: WriteThumbQueue(#) - failed to write (/second, 7) into " + queue +
                              ", reason=No space left on device"});
}

}  // namespace koli::test
