#include "photo/photo.h"

#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "base/media_info.h"
#include "base/metadata_folder.h"
#include "base/parse_number.h"
#include "base/path_names.h"
#include "base/photo_record.h"
#include "index/record/util.h"
#include "photo/photo_library.h"
#include "photo/picture.h"
#include "platform/koliindex.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo";

constexpr int kDateNumbers = 6;  // year, month, day, hours, minutes, seconds

/// Reads six numbers as scanf does with "%dS%dS%d %d:%d:%d", where S is `separator`: blanks before a number
/// count for nothing.
bool ParseDate(const char* text, char separator, int (&numbers)[kDateNumbers]) {
    const char between[kDateNumbers] = {separator, separator, ' ', ':', ':', '\0'};
    for (int i = 0; i < kDateNumbers; ++i) {
        const char* end = nullptr;
        numbers[i] = ParseInt32(text, &end);
        if (end == text) return false;
        text = end;
        if (between[i] == ' ' || between[i] == '\0') continue;
        if (*text != between[i]) return false;
        ++text;
    }
    return true;
}

/// The media store keeps dates with dashes, and without the zeros that EXIF pads its numbers with.
void FillDate(const char* exif_date, MediaInfo* record) {
    int n[kDateNumbers];
    if (ParseDate(exif_date, '-', n)) {
        CopyText(record->date_taken, sizeof record->date_taken, exif_date);
    } else if (ParseDate(exif_date, ':', n)) {
        snprintf(record->date_taken, sizeof record->date_taken, "%d-%d-%d %d:%d:%d", n[0], n[1], n[2], n[3],
                 n[4], n[5]);
    }
}

void FillFromExif(const PhotoRecord& exif, MediaInfo* record) {
    PhotoRecord photo = exif;
    PhotoRecordSanitize(&photo);

    CopyText(record->camera_make, sizeof record->camera_make, photo.camera_make);
    CopyText(record->camera_model, sizeof record->camera_model, photo.camera_model);
    CopyText(record->exposure_time, sizeof record->exposure_time, photo.exposure_time);
    CopyText(record->f_number, sizeof record->f_number, photo.f_number);
    FillDate(photo.date_taken, record);
    record->width = static_cast<uint32_t>(photo.width);
    record->height = static_cast<uint32_t>(photo.height);
    record->iso_speed = photo.iso_speed;
}

/// What is inside of the file, once its name has an extension.
void FillFromContents(const KnownPath& path, const char* extension, MediaInfo* record, FileReading& reading) {
    Picture own(path.text());
    Picture& picture = path.picture != nullptr ? *path.picture : own;
    if (BlKOLIIndexIsJpeg(extension) != 0) FillFromExif(picture.Exif(reading), record);

    int width = 0;
    int height = 0;
    if (picture.SizeGet(&width, &height, reading)) {
        record->width = static_cast<uint32_t>(width);
        record->height = static_cast<uint32_t>(height);
    }
    if (!reading.IsWhole()) picture.Forget();
}

}  // namespace

int PhotoMediaAdd(const KnownPath& path, FileReading& reading) {
    MediaInfo record;
    if (!MediaInfoBegin(path, &record, LogSite(kModule))) return -1;
    if (MentionsMetadataFolder(path.text())) return 0;

    MediaInfoNames(path.text(), NamesFromPath::kPreset, &record, LogSite(kModule));
    if (const char* dot = strrchr(path.text(), '.'); dot != nullptr) {
        FillFromContents(path, dot + 1, &record, reading);
    } else {
        record.ctime[0] = record.mtime[0] = '\0';
    }
    return SaveMediaInfo(kStorePhoto, record, -1, LogSite(kModule), "Failed to save playlist info.");
}

int PhotoMediaDelete(const char* path) {
    if (path == nullptr) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    return DeleteMediaInfo(kStorePhoto, path, LogSite(kModule), "Failed to remove %s from database.",
                           RemoveFailure::kIsReportedOnly);
}

}  // namespace koli
