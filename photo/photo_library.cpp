#include "photo/photo_library.h"

#include <cerrno>
#include <cstring>
#include <ctime>

#include "base/foothold.h"
#include "base/log.h"
#include "base/metadata_folder.h"
#include "base/passing_error.h"
#include "base/path_names.h"
#include "index/record/index_mode.h"
#include "index/record/stored_name.h"
#include "photo/caption.h"
#include "photo/conversion.h"
#include "photo/photo_trouble.h"
#include "photo/picture.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_index";

void EmptyUnlessPlain(char* text) {
    for (const char* at = text; *at != '\0'; ++at) {
        const auto byte = static_cast<unsigned char>(*at);
        if (byte < 0x20 || byte >= 0x80) {
            *text = '\0';
            return;
        }
    }
}

int32_t BelievedPixels(int32_t pixels) {
    return pixels >= 0 && pixels <= kMaxPhotoPixels ? pixels : 0;
}

void FillNames(const char* path, PhotoRecord* record) {
    CopyText(record->path, sizeof record->path, path);
    CopyText(record->name, sizeof record->name, FileNameOf(path));
    TitleFromPath(path, record->title, sizeof record->title);
    if (!AlbumFromPath(path, record->folder, sizeof record->folder)) KOLI_LOG("Impossible error.");
}

/// A look at the picture has failed, with errno set.  A link that leads nowhere is no picture.
PhotoOutcome OutcomeOfFailure(const char* path, FileReading& reading) {
    if (!MeansAbsent(errno)) {
        reading.ReadFailed(errno);
        return PhotoOutcome::kMissed;
    }
    struct stat status;
    if (LstatNear(path, &status) == 0) return PhotoOutcome::kLeftOut;
    return MeansAbsent(errno) ? PhotoOutcome::kGone : PhotoOutcome::kMissed;
}

PhotoOutcome FillSize(const KnownPath& path, PhotoRecord* record, FileReading& reading) {
    const struct stat* status = path.status();
    if (status == nullptr) return OutcomeOfFailure(path.text(), reading);
    if (PhotoSizeVerdict(status->st_size) != PhotoVerdict::kTaken) return PhotoOutcome::kLeftOut;
    record->file_size = status->st_size;
    return PhotoOutcome::kStored;
}

/// A picture without a date of its own gets the file's, in the form of this table.
void FillMissingDate(const struct stat& status, PhotoRecord* record) {
    if (record->date_taken[0] != '\0') return;
    const struct tm* local = localtime(&status.st_ctime);
    if (local == nullptr || strftime(record->date_taken, sizeof record->date_taken, "%F %T", local) == 0)
        record->date_taken[0] = '\0';
}

void FillExif(const PhotoRecord& exif, PhotoRecord* record) {
    CopyText(record->camera_make, sizeof record->camera_make, exif.camera_make);
    CopyText(record->camera_model, sizeof record->camera_model, exif.camera_model);
    CopyText(record->exposure_time, sizeof record->exposure_time, exif.exposure_time);
    CopyText(record->f_number, sizeof record->f_number, exif.f_number);
    CopyText(record->date_taken, sizeof record->date_taken, exif.date_taken);
    record->width = exif.width;
    record->height = exif.height;
    record->iso_speed = exif.iso_speed;
}

/// The values inside of the picture, and what people have handed over for it.
void FillFromContents(const KnownPath& path, PhotoRecord* record, CaptionHold& captions,
                      FileReading& reading) {
    CaptionTitleGet(path.text(), record, captions);
    CaptionDescGet(path.text(), record, captions);
    Picture own(path.text());
    Picture& picture = path.picture != nullptr ? *path.picture : own;
    FillExif(picture.Exif(reading), record);
    picture.SizeGet(&record->width, &record->height, reading);
    PhotoRecordSanitize(record);
}

/// The times are those from before it was read: one that changes meanwhile looks changed to whoever compares.
PhotoOutcome FillTimes(const KnownPath& path, PhotoRecord* record, FileReading& reading) {
    struct stat now;
    if (StatNear(path.text(), &now) != 0) return OutcomeOfFailure(path.text(), reading);
    const struct stat& status = *path.status();
    if (const char* text = ctime(&status.st_ctime); text != nullptr)
        CopyText(record->ctime, sizeof record->ctime, text);
    FillMissingDate(status, record);
    return PhotoOutcome::kStored;
}

PhotoOutcome StorePhoto(const KnownPath& known, int mode) {
    const char* const path = known.text();
    if (PhotoNameVerdict(path) != PhotoVerdict::kTaken) return PhotoOutcome::kLeftOut;
    FileReading reading(path, KOLIDBTick);
    if (reading.past() == PastReading::kDownUnopened) return PhotoOutcome::kMissed;
    CaptionHold captions(reading);
    PhotoRecord record{};
    FillNames(path, &record);
    PhotoOutcome outcome = FillSize(known, &record, reading);
    if (outcome == PhotoOutcome::kStored) {
        if (reading.past() == PastReading::kNothing) FillFromContents(known, &record, captions, reading);
        outcome = FillTimes(known, &record, reading);
    }
    if (outcome != PhotoOutcome::kStored) {
        PhotoTroubleTell(reading);
        return outcome;
    }
    if (PhotoInfoDBSave(&record, mode) != 0) {
        KOLI_LOG("Failed to save photo info.");
        return PhotoOutcome::kMissed;
    }
    captions.Release();
    PhotoTroubleTell(reading);
    return outcome;
}

PhotoOutcome AddFile(const KnownPath& path, WebKind kind) {
    const PhotoOutcome outcome =
        kind == WebKind::kPhoto ? StorePhoto(path, kModeAdd) : PhotoOutcome::kLeftOut;
    ConversionRequest(path, kConvertThumbnail | kConvertFlv);
    return outcome;
}

PhotoOutcome UpdateFile(const KnownPath& path, WebKind kind) {
    if (kind == WebKind::kPhoto) return StorePhoto(path, kModeUpdate);
    return KOLIIndexPhotoUpdateVideoStatus(path.text()) == 0 ? PhotoOutcome::kLeftOut : PhotoOutcome::kMissed;
}

}  // namespace

WebKind WebKindOf(const char* path) {
    const char* dot = strrchr(path, '.');
    if (dot == nullptr) return WebKind::kNone;
    if (BlKOLIIndexIsPhotoOnWeb(dot + 1) != 0) return WebKind::kPhoto;
    if (BlKOLIIndexIsVideoOnWeb(dot + 1) != 0) return WebKind::kVideo;
    return WebKind::kNone;
}

int PhotoLibraryIndex(const KnownPath& path, int mode, PhotoOutcome* outcome) {
    *outcome = PhotoOutcome::kLeftOut;
    if (path.text() == nullptr || (mode != kModeAdd && mode != kModeDelete && mode != kModeUpdate)) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    if (path.IsDirectory()) return -1;
    const char* dot = strrchr(path.text(), '.');
    if (dot == nullptr) return -1;

    const WebKind kind = WebKindOf(path.text());
    if (kind == WebKind::kNone) {
        if (BlKOLIIndexIsVideo(dot + 1) == 0) return -1;
        FlvConvert(path);
    }
    switch (mode) {
        case kModeDelete:
            PhotoLibraryDelete(path.text());
            return 0;
        case kModeAdd:
            *outcome = AddFile(path, kind);
            return 0;
        case kModeUpdate:
            *outcome = UpdateFile(path, kind);
            return 0;
        default:
            KOLI_LOG("Bad mode!! This should never happen.");
            return -1;
    }
}

int PhotoLibraryIndex(const KnownPath& path, int mode) {
    PhotoOutcome outcome;
    return PhotoLibraryIndex(path, mode, &outcome);
}

int PhotoLibraryAdd(const KnownPath& path, int mode) {
    if (path.text() == nullptr) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    return StorePhoto(path, mode) == PhotoOutcome::kStored ? 0 : -1;
}

int PhotoLibraryDelete(const char* path) {
    if (path == nullptr) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    if (const int kind = KLIBPathLook(path); kind == KLIB_PATH_FILE || kind == KLIB_PATH_UNKNOWN) {
        KOLI_LOG("File exists. Skip remove it from database.");
        return -1;
    }
    if (MentionsMetadataFolder(path)) return -1;
    if (PhotoInfoDBDelete(path) != 0) KOLI_LOG("Failed to remove %s from database.", path);
    return 0;
}

int PhotoRecordSanitize(PhotoRecord* record) {
    if (record == nullptr) return -1;
    record->width = BelievedPixels(record->width);
    record->height = BelievedPixels(record->height);
    EmptyUnlessPlain(record->date_taken);
    EmptyUnlessPlain(record->camera_make);
    EmptyUnlessPlain(record->camera_model);
    return 0;
}

}  // namespace koli
