// EXIF values: which are taken, in what form, and what damaged files do.
#include "photo/exif.h"

#include <sys/stat.h>
#include <unistd.h>

#include "base/path_names.h"
#include "tests/exif_bytes.h"
#include "tests/fixture.h"

namespace koli::test {

struct Exif : Fixture {
    PhotoRecord Read(const std::string& bytes) {
        PhotoRecord record{};
        unlink("a.jpg");  // writing over a file would wait for the disk
        const std::string path = Write("a.jpg", bytes);
        CopyText(record.path, sizeof record.path, path.c_str());
        EXPECT_EQ(ExifFillPhotoRecord(&record), 0);
        return record;
    }
};

const std::vector<ExifField> kCamera = {Ascii(271, "Maker"), Ascii(306, "2001:01:01 00:00:00")};
const std::vector<ExifField> kShot = {Rational(33434, 1, 125), Short(34855, 200),
                                      Ascii(36868, "2002:02:02 00:00:00"), Long(40962, 9000),
                                      Short(40963, 600)};

TEST_F(Exif, EightTagsAndNoOthersFillTheRecord) {
    const PhotoRecord record = Read(JpegWithExif(kCamera, kShot));
    EXPECT_STREQ(record.camera_make, "Maker");
    EXPECT_STREQ(record.exposure_time, "1/125 sec.");
    EXPECT_STREQ(record.date_taken, "");  // neither the file's nor the scanner's
    EXPECT_EQ(record.iso_speed, 200);
    EXPECT_EQ(record.width, 9000);
    EXPECT_EQ(record.height, 600);
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
    for (const std::string& path : {std::string(), dir(), fifo}) {
        PhotoRecord record{};
        CopyText(record.path, sizeof record.path, path.c_str());
        EXPECT_EQ(ExifFillPhotoRecord(&record), 0);
    }
    EXPECT_EQ(ExifFillPhotoRecord(nullptr), -1);
    EXPECT_EQ(fake.log, Lines{"exif (#) Bad parameter."});
}

TEST_F(Exif, ABlockIsLookedForInTheFirst20MiBOnly) {
    const std::string jpeg = JpegWithExif(kCamera, {});
    const auto padded = [&jpeg](size_t size) {
        return "\xFF\xD8" + std::string(size, '\xFF') + jpeg.substr(2);
    };
    EXPECT_STREQ(Read(padded(1 << 20)).camera_make, "Maker");
    EXPECT_STREQ(Read(padded(21 << 20)).camera_make, "");
}

}  // namespace koli::test
