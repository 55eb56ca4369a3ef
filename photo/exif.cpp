#include "photo/exif.h"

#include <libexif/exif-data.h>
#include <libexif/exif-loader.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

#include "base/foothold.h"
#include "base/log.h"
#include "base/open_file.h"
#include "base/parse_number.h"
#include "base/path_names.h"
#include "photo/exif_memory.h"

namespace koli {
namespace {

constexpr const char kModule[] = "exif";

/// How far into a file its EXIF block is looked for.  The loader skips other blocks by reading them, and a
/// file of the right bytes would be read to its very end, whatever its size.  Every file that the photo
/// library takes is shorter.
constexpr size_t kSearchLimit = size_t{20} << 20;

constexpr size_t kReadSize = 16384;  // usually all of a camera's block
constexpr size_t kFeedSize = 1024;   // the loader's own step, which bounds its recursion

ExifMemory memory;

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
void FeedFile(ExifLoader* loader, const char* path, FileReading& reading) {
    const int fd = OpenForReading(path);
    if (fd < 0) return reading.ReadFailed(errno);
    unsigned char block[kReadSize];
    for (size_t total = 0; total < kSearchLimit && reading.MayGoOn();) {
        const ssize_t got = read(fd, block, sizeof block);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) reading.ReadFailed(errno);
        if (got <= 0 || !Feed(loader, block, static_cast<size_t>(got))) break;
        total += static_cast<size_t>(got);
    }
    close(fd);
}

/// What libexif says of a block whose frame makes no sense.  Maker notes are the makers' own, and often make
/// none.
void NoteDamage(ExifLog*, ExifLogCode code, const char* domain, const char*, va_list, void* is_damaged) {
    if (code == EXIF_LOG_CODE_CORRUPT_DATA && strcmp(domain, "ExifData") == 0)
        *static_cast<bool*>(is_damaged) = true;
}

/// Null for a file without EXIF data.  `is_damaged` must live as long as what is returned.
ExifDataPtr Load(const char* path, bool* is_damaged, FileReading& reading) {
    const std::unique_ptr<ExifLoader, Unref> loader(exif_loader_new());
    if (loader == nullptr) return nullptr;
    const std::unique_ptr<ExifLog, Unref> log(exif_log_new());
    exif_log_set_func(log.get(), NoteDamage, is_damaged);
    exif_loader_log(loader.get(), log.get());
    FeedFile(loader.get(), path, reading);
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

int Store(int tag, const char* text, PhotoRecord* record) {
    switch (tag) {
        case EXIF_TAG_MAKE:
            CopyText(record->camera_make, sizeof record->camera_make, text);
            return 0;
        case EXIF_TAG_MODEL:
            CopyText(record->camera_model, sizeof record->camera_model, text);
            return 0;
        case EXIF_TAG_EXPOSURE_TIME:
            CopyText(record->exposure_time, sizeof record->exposure_time, text);
            return 0;
        case EXIF_TAG_FNUMBER:
            CopyText(record->f_number, sizeof record->f_number, text);
            return 0;
        case EXIF_TAG_DATE_TIME_ORIGINAL:
            StoreDate(text, record);
            return 0;
        case EXIF_TAG_ISO_SPEED_RATINGS:
            record->iso_speed = ParseInt32(text);
            return 0;
        case EXIF_TAG_PIXEL_X_DIMENSION:
            record->width = ParseInt32(text);
            return 0;
        case EXIF_TAG_PIXEL_Y_DIMENSION:
            record->height = ParseInt32(text);
            return 0;
        default:
            KOLI_LOG("%s (%d) Impossible error occurred.");
            return -1;
    }
}

int StoreDirectory(const ExifContent& directory, PhotoRecord* record) {
    for (unsigned i = 0; i < directory.count; ++i) {
        ExifEntry* entry = directory.entries[i];
        if (!IsWanted(entry->tag)) continue;
        ExifMemory::Value value{.tag = entry->tag, .text = {}};
        exif_entry_get_value(entry, value.text, sizeof value.text);
        if (Store(value.tag, value.text, record) != 0) return -1;
        memory.Add(value);
    }
    return 0;
}

int FillFromFile(PhotoRecord* record, FileReading& reading) {
    bool is_damaged = false;
    const ExifDataPtr data = Load(record->path, &is_damaged, reading);
    if (data == nullptr) return 0;
    for (const ExifContent* directory : data->ifd)
        if (directory != nullptr && StoreDirectory(*directory, record) != 0) return -1;
    if (is_damaged && memory.begin() == memory.end()) {
        reading.Trouble("the EXIF block cannot be read");
        memory.Forget();  // who asks again is to be told as well
    }
    return 0;
}

int FillFromMemory(PhotoRecord* record) {
    for (const ExifMemory::Value& value : memory)
        if (Store(value.tag, value.text, record) != 0) return -1;
    return 0;
}

}  // namespace

int ExifFillPhotoRecord(PhotoRecord* record, FileReading& reading) {
    if (record == nullptr) {
        KOLI_LOG("%s (%d) Bad parameter.");
        return -1;
    }
    struct stat file;
    if (StatNear(record->path, &file) != 0) {
        reading.ReadFailed(errno);
        return 0;
    }
    if (memory.Recall(file)) return FillFromMemory(record);
    memory.Begin(file);
    const int result = FillFromFile(record, reading);
    if (!reading.IsWhole()) memory.Forget();
    return result;
}

}  // namespace koli
