// PhotoRecord: what is known about one picture of the photo share, as it is handed to the photo database.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace koli {

/// Shared with the photo database as a block of memory: offsets and widths are binding.  Zero the whole
/// record before filling it (`PhotoRecord record{}`).  Text is NUL-terminated and cut at size - 1 bytes;
/// numbers are in host order.
struct PhotoRecord {
    uint32_t reserved;       // always 0
    char path[4096];         // full path, the file system's bytes
    char name[255];          // last path component, extension kept
    char title[255];         // hand-entered caption, else the name without its extension
    char description[255];   // hand-entered caption, else ''
    char folder[255];        // name of the directory that holds the file
    char camera_make[100];   // EXIF 271
    char camera_model[100];  // EXIF 272
    char exposure_time[20];  // EXIF 33434 as rendered
    char f_number[20];       // EXIF 33437 as rendered
    char date_taken[32];     // "%Y:%m:%d %H:%M:%S" from EXIF, else "%F %T" of the status-change time
    char ctime[32];          // ctime() text of the status-change time, its newline included
    int32_t width;           // pixels, 0 to 8000; 0 = unknown
    int32_t height;          // pixels, 0 to 8000; 0 = unknown
    int32_t iso_speed;       // EXIF 34855; 0 = unknown
    uint32_t alignment;      // always 0
    int64_t file_size;       // bytes
};

static_assert(std::is_trivially_copyable_v<PhotoRecord> && std::is_standard_layout_v<PhotoRecord>);
static_assert(sizeof(PhotoRecord) == 5448);
static_assert(offsetof(PhotoRecord, path) == 4);
static_assert(offsetof(PhotoRecord, name) == 4100);
static_assert(offsetof(PhotoRecord, title) == 4355);
static_assert(offsetof(PhotoRecord, description) == 4610);
static_assert(offsetof(PhotoRecord, folder) == 4865);
static_assert(offsetof(PhotoRecord, camera_make) == 5120);
static_assert(offsetof(PhotoRecord, camera_model) == 5220);
static_assert(offsetof(PhotoRecord, exposure_time) == 5320);
static_assert(offsetof(PhotoRecord, f_number) == 5340);
static_assert(offsetof(PhotoRecord, date_taken) == 5360);
static_assert(offsetof(PhotoRecord, ctime) == 5392);
static_assert(offsetof(PhotoRecord, width) == 5424);
static_assert(offsetof(PhotoRecord, height) == 5428);
static_assert(offsetof(PhotoRecord, iso_speed) == 5432);
static_assert(offsetof(PhotoRecord, alignment) == 5436);
static_assert(offsetof(PhotoRecord, file_size) == 5440);

}  // namespace koli
