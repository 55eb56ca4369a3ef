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

}  // namespace koli::test
