#include "photo/exif.h"

#include <libexif/exif-data.h>
#include <libexif/exif-loader.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <memory>

#include "base/log.h"
#include "base/parse_number.h"
#include "base/path_names.h"

namespace koli {
namespace {

constexpr const char kModule[] = "exif";

/// How far into a file its EXIF block is looked for.  The loader skips other blocks by reading them, and a
/// file of the right bytes would be read to its very end, whatever its size.  Every file that the photo
/// library takes is shorter.
constexpr int64_t kSearchLimit = int64_t{20} << 20;

constexpr int64_t kReadSize = 16384;   // bytes; usually all of a camera's block
constexpr size_t kFeedSize = 1024;     // the loader's own step, which bounds its recursion
constexpr size_t kRenderedSize = 128;  // bytes of a value as text, terminator included

struct Unref {
    void operator()(ExifLoader* loader) const { exif_loader_unref(loader); }
    void operator()(ExifData* data) const { exif_data_unref(data); }
    void operator()(ExifLog* log) const { exif_log_unref(log); }
};
using ExifDataPtr = std::unique_ptr<ExifData, Unref>;

/// False when the loader wants no more: its block is complete, or this is no file that has one.
bool Feed(ExifLoader* loader, unsigned char* bytes, size_t size) {
    for (size_t at = 0; at < size; at += kFeedSize) {
        const size_t step = std::min(kFeedSize, size - at);
        if (exif_loader_write(loader, bytes + at, static_cast<unsigned>(step)) == 0) return false;
    }
    return true;
}

/// Does what exif_loader_write_file does, within kSearchLimit.
void FeedFile(ExifLoader* loader, const MediaFile& file) {
    const int64_t end = std::min(file.size(), kSearchLimit);
    unsigned char block[kReadSize];
    for (int64_t at = 0; at < end;) {
        const size_t got = file.Read(at, block, static_cast<size_t>(std::min(kReadSize, end - at)));
        if (got == 0 || !Feed(loader, block, got)) return;
        at += static_cast<int64_t>(got);
    }
}

/// What libexif says of a block whose frame makes no sense.  Maker notes are the makers' own, and often make
/// none.
void NoteDamage(ExifLog*, ExifLogCode code, const char* domain, const char*, va_list, void* is_damaged) {
    if (code == EXIF_LOG_CODE_CORRUPT_DATA && strcmp(domain, "ExifData") == 0)
        *static_cast<bool*>(is_damaged) = true;
}

/// Null for a file without EXIF data.  `is_damaged` must live as long as what is returned.
ExifDataPtr Load(const MediaFile& file, bool* is_damaged) {
    const std::unique_ptr<ExifLoader, Unref> loader(exif_loader_new());
    if (loader == nullptr) return nullptr;
    const std::unique_ptr<ExifLog, Unref> log(exif_log_new());
    exif_log_set_func(log.get(), NoteDamage, is_damaged);
    exif_loader_log(loader.get(), log.get());
    FeedFile(loader.get(), file);
    return ExifDataPtr(exif_loader_get_data(loader.get()));
}

bool IsWanted(int tag) {
    constexpr int kWanted[] = {
        EXIF_TAG_MAKE,
        EXIF_TAG_MODEL,
        EXIF_TAG_EXPOSURE_TIME,
        EXIF_TAG_FNUMBER,
        EXIF_TAG_DATE_TIME_ORIGINAL,
        EXIF_TAG_ISO_SPEED_RATINGS,
        EXIF_TAG_PIXEL_X_DIMENSION,
        EXIF_TAG_PIXEL_Y_DIMENSION,
    };
    return std::find(std::begin(kWanted), std::end(kWanted), tag) != std::end(kWanted);
}

/// Cut to its field first: what is checked is what is stored.
void StoreDate(const char* text, PhotoRecord* record) {
    char date[sizeof record->date_taken];
    CopyText(date, sizeof date, text);
    struct tm parsed {};
    if (strptime(date, "%Y:%m:%d %H:%M:%S", &parsed) != nullptr)
        CopyText(record->date_taken, sizeof record->date_taken, date);
}

void Store(int tag, const char* text, PhotoRecord* record) {
    switch (tag) {
        case EXIF_TAG_MAKE:
            CopyText(record->camera_make, sizeof record->camera_make, text);
            return;
        case EXIF_TAG_MODEL:
            CopyText(record->camera_model, sizeof record->camera_model, text);
            return;
        case EXIF_TAG_EXPOSURE_TIME:
            CopyText(record->exposure_time, sizeof record->exposure_time, text);
            return;
        case EXIF_TAG_FNUMBER:
            CopyText(record->f_number, sizeof record->f_number, text);
            return;
        case EXIF_TAG_DATE_TIME_ORIGINAL:
            StoreDate(text, record);
            return;
        case EXIF_TAG_ISO_SPEED_RATINGS:
            record->iso_speed = ParseInt32(text);
            return;
        case EXIF_TAG_PIXEL_X_DIMENSION:
            record->width = ParseInt32(text);
            return;
        case EXIF_TAG_PIXEL_Y_DIMENSION:
            record->height = ParseInt32(text);
            return;
        default:
            KOLI_LOG("Impossible error occurred.");
    }
}

/// Returns how many values there were.
int StoreDirectory(const ExifContent& directory, PhotoRecord* record) {
    int stored = 0;
    for (unsigned i = 0; i < directory.count; ++i) {
        ExifEntry* entry = directory.entries[i];
        if (!IsWanted(entry->tag)) continue;
        char text[kRenderedSize] = {};
        exif_entry_get_value(entry, text, sizeof text);
        Store(entry->tag, text, record);
        ++stored;
    }
    return stored;
}

}  // namespace

int ExifFillPhotoRecord(PhotoRecord* record, FileReading& reading) {
    if (record == nullptr) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    MediaFile file;
    if (file.Open(record->path, reading) && !ExifRead(file, record)) reading.Trouble(kExifUnreadable);
    return 0;
}

bool ExifRead(const MediaFile& file, PhotoRecord* record) {
    bool is_damaged = false;
    const ExifDataPtr data = Load(file, &is_damaged);
    if (data == nullptr) return true;
    int stored = 0;
    for (const ExifContent* directory : data->ifd)
        if (directory != nullptr) stored += StoreDirectory(*directory, record);
    return !is_damaged || stored > 0;
}

}  // namespace koli
