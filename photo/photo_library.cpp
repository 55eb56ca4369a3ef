#include "photo/photo_library.h"

#include <sys/stat.h>

#include <cstring>
#include <ctime>

#include "base/log.h"
#include "base/path_names.h"
#include "index/index_mode.h"
#include "photo/caption.h"
#include "photo/conversion.h"
#include "photo/exif.h"
#include "photo/metadata_folder.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

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
    if (CaptionTitleGet(path, record) == 0) TitleFromPath(path, record->title, sizeof record->title);
    CaptionDescGet(path, record);
    if (!AlbumFromPath(path, record->folder, sizeof record->folder)) KOLI_LOG("%s (%d) Impossible error.");
}

bool FillSize(const char* path, PhotoRecord* record) {
    struct stat status;
    if (stat(path, &status) != 0 || status.st_size <= 0 || status.st_size > kMaxPhotoSize) return false;
    record->file_size = status.st_size;
    return true;
}

/// A picture without a date of its own gets the file's, in the form of this table.
void FillMissingDate(const struct stat& status, PhotoRecord* record) {
    if (record->date_taken[0] != '\0') return;
    const struct tm* local = localtime(&status.st_ctime);
    if (local == nullptr || strftime(record->date_taken, sizeof record->date_taken, "%F %T", local) == 0)
        record->date_taken[0] = '\0';
}

/// False when the file has gone since its size was taken.
bool FillFromPicture(const char* path, PhotoRecord* record) {
    ExifFillPhotoRecord(record);
    struct stat status;
    if (stat(path, &status) != 0) return false;
    if (const char* text = ctime(&status.st_ctime); text != nullptr)
        CopyText(record->ctime, sizeof record->ctime, text);

    int width = 0;
    int height = 0;
    if (KOLIIndexImgResGet(path, &width, &height) == 0) {
        record->width = width;
        record->height = height;
    }
    PhotoRecordSanitize(record);
    FillMissingDate(status, record);
    return true;
}

}  // namespace

WebKind WebKindOf(const char* path) {
    const char* dot = strrchr(path, '.');
    if (dot == nullptr) return WebKind::kNone;
    if (BlKOLIIndexIsPhotoOnWeb(dot + 1) != 0) return WebKind::kPhoto;
    if (BlKOLIIndexIsVideoOnWeb(dot + 1) != 0) return WebKind::kVideo;
    return WebKind::kNone;
}

int PhotoLibraryIndex(const char* path, int mode) {
    if (path == nullptr || (mode != kModeAdd && mode != kModeDelete && mode != kModeUpdate)) {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    if (IsDirExist(path) != 0) return -1;
    const char* dot = strrchr(path, '.');
    if (dot == nullptr) return -1;

    const WebKind kind = WebKindOf(path);
    if (kind == WebKind::kNone) {
        if (BlKOLIIndexIsVideo(dot + 1) == 0) return -1;
        KLIBExec(paths::kFlvConverter, "-f", path, nullptr, nullptr);
    }
    switch (mode) {
        case kModeDelete:
            PhotoLibraryDelete(path);
            return 0;
        case kModeAdd:
            if (kind == WebKind::kPhoto) PhotoLibraryAdd(path, mode);
            ConversionRequest(path, kConvertThumbnail | kConvertFlv);
            return 0;
        case kModeUpdate:
            if (kind == WebKind::kPhoto) {
                PhotoLibraryAdd(path, mode);
            } else {
                KOLIIndexPhotoUpdateVideoStatus(path);
            }
            return 0;
        default:
            KOLI_LOG("%s (%d) Bad mode!! This should never happen.");
            return -1;
    }
}

int PhotoLibraryAdd(const char* path, int mode) {
    if (path == nullptr) {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    if (MentionsMetadataFolder(path) || FileNameOf(path)[0] == '.') return -1;

    CaptionHold captions;
    PhotoRecord record{};
    FillNames(path, &record);
    if (!FillSize(path, &record) || !FillFromPicture(path, &record)) return -1;
    if (PhotoInfoDBSave(&record, mode) != 0) {
        captions.Keep();
        KOLI_LOG("%s (%d) Failed to save photo info.");
        return -1;
    }
    return 0;
}

int PhotoLibraryDelete(const char* path) {
    if (path == nullptr) {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    if (IsFileExist(path, nullptr) != 0) {
        KOLI_LOG("%s (%d) File exists. Skip remove it from database.");
        return -1;
    }
    if (MentionsMetadataFolder(path)) return -1;
    if (PhotoInfoDBDelete(path) != 0) KOLI_LOG("%s (%d) Failed to remove %s from database.", path);
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
