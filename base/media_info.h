// MediaInfo: what is known about one music, video, photo or playlist file, as it is handed to the media
// store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "base/big_endian.h"

namespace koli {

inline constexpr size_t kPathSize = 4096;  // bytes of a path field, terminator included
inline constexpr size_t kTextSize = 255;   // bytes of a name or tag field, terminator included

/// Store types: the first argument of MediaInfoDBSave and MediaInfoDBDelete.
enum StoreType : int {
    kStoreMusic = 0,
    kStoreVideo = 1,
    kStorePhoto = 2,
    kStorePlaylist = 3,
    kStoreBelowDirectory = 5,  // delete only: a path and everything below it, in every table
};

/// The record is exchanged with the store as a block of memory, so offsets and widths are part of the
/// interface.  Zero the whole record before filling it (`MediaInfo record{}`).  Text fields are
/// NUL-terminated and cut at size - 1 bytes; numbers are big-endian.
///
/// A text field whose `..._utf16` mark is 1 holds a byte-order mark (FE FF or FF FE) and UTF-16 code units up
/// to a zero unit; without the mark it holds UTF-8 or the tag's own single-byte encoding, as found.
struct MediaInfo {
    uint32_t reserved;       // always 0
    char path[kPathSize];    // full path, the file system's bytes
    BeInt32 track;           // 0 = unknown
    BeInt32 disc;            // 0 = unknown
    BeInt32 year;            // 0 = unknown
    char title[kTextSize];   // preset: file name without its last extension
    char album[kTextSize];   // preset: name of the directory that holds the file
    char artist[kTextSize];  // '' = unknown
    char genre[kTextSize];   // a name, or a decimal ID3 genre number above 147
    char composer[kTextSize];
    char comment[kTextSize];
    char camera_make[100];   // EXIF 271
    char camera_model[100];  // EXIF 272
    char exposure_time[20];  // EXIF 33434 as rendered, such as "1/125 sec."
    char f_number[20];       // EXIF 33437 as rendered, such as "f/2.8"
    char date_taken[32];     // "%d-%d-%d %d:%d:%d", unpadded; '' = unknown
    char ctime[32];          // status-change time as text
    char mtime[32];          // modification time as text
    uint8_t alignment[2];    // always 0
    BeFloat duration;        // seconds; 0 = unknown
    BeUint32 audio_bitrate;  // bit/s; 0 = unknown
    BeUint32 video_bitrate;  // bit/s; from the MPEG video parser 1000 times the coded value (unit 400 bit/s)
    BeUint32 sample_rate;    // Hz; 0 = unknown
    BeUint32 channels;       // 0 = unknown
    BeUint32 width;          // pixels; 0 = unknown
    BeUint32 height;         // pixels; 0 = unknown
    uint64_t file_size;      // bytes, host order, as IsFileExist delivers it
    uint32_t reserved_6016;  // always 0
    BeInt32 title_utf16;     // 1 = `title` is UTF-16, else 0
    BeInt32 artist_utf16;
    BeInt32 album_utf16;
    BeInt32 genre_utf16;
    BeInt32 composer_utf16;
    BeInt32 comment_utf16;
    BeInt32 has_cover;       // 1 = a cover picture was extracted
    BeInt32 iso_speed;       // EXIF 34855; 0 = unknown
    uint32_t reserved_6052;  // always 0
};

static_assert(std::is_trivially_copyable_v<MediaInfo> && std::is_standard_layout_v<MediaInfo>);
static_assert(sizeof(MediaInfo) == 6056);
static_assert(offsetof(MediaInfo, reserved) == 0);
static_assert(offsetof(MediaInfo, path) == 4);
static_assert(offsetof(MediaInfo, track) == 4100);
static_assert(offsetof(MediaInfo, disc) == 4104);
static_assert(offsetof(MediaInfo, year) == 4108);
static_assert(offsetof(MediaInfo, title) == 4112);
static_assert(offsetof(MediaInfo, album) == 4367);
static_assert(offsetof(MediaInfo, artist) == 4622);
static_assert(offsetof(MediaInfo, genre) == 4877);
static_assert(offsetof(MediaInfo, composer) == 5132);
static_assert(offsetof(MediaInfo, comment) == 5387);
static_assert(offsetof(MediaInfo, camera_make) == 5642);
static_assert(offsetof(MediaInfo, camera_model) == 5742);
static_assert(offsetof(MediaInfo, exposure_time) == 5842);
static_assert(offsetof(MediaInfo, f_number) == 5862);
static_assert(offsetof(MediaInfo, date_taken) == 5882);
static_assert(offsetof(MediaInfo, ctime) == 5914);
static_assert(offsetof(MediaInfo, mtime) == 5946);
static_assert(offsetof(MediaInfo, duration) == 5980);
static_assert(offsetof(MediaInfo, audio_bitrate) == 5984);
static_assert(offsetof(MediaInfo, video_bitrate) == 5988);
static_assert(offsetof(MediaInfo, sample_rate) == 5992);
static_assert(offsetof(MediaInfo, channels) == 5996);
static_assert(offsetof(MediaInfo, width) == 6000);
static_assert(offsetof(MediaInfo, height) == 6004);
static_assert(offsetof(MediaInfo, file_size) == 6008);
static_assert(offsetof(MediaInfo, reserved_6016) == 6016);
static_assert(offsetof(MediaInfo, title_utf16) == 6020);
static_assert(offsetof(MediaInfo, artist_utf16) == 6024);
static_assert(offsetof(MediaInfo, album_utf16) == 6028);
static_assert(offsetof(MediaInfo, genre_utf16) == 6032);
static_assert(offsetof(MediaInfo, composer_utf16) == 6036);
static_assert(offsetof(MediaInfo, comment_utf16) == 6040);
static_assert(offsetof(MediaInfo, has_cover) == 6044);
static_assert(offsetof(MediaInfo, iso_speed) == 6048);
static_assert(offsetof(MediaInfo, reserved_6052) == 6052);

}  // namespace koli
