// MediaInfo, field by field: what the store's columns, the cleaning of a record and the take-over from the
// guarded probe go through.
#pragma once

#include <tuple>

#include "base/media_info.h"

namespace koli {

/// What else is to be known of a field, as a bit set.
enum MediaFieldRules : unsigned {
    kFieldIsBytes = 1,    // the file system's bytes: stored as they are
    kFieldIsCleaned = 2,  // white space, control characters and negative numbers go before it is saved
    kFieldIsProbed = 4    // the guarded probe may write it
};

/// One field; T is its type in the record.
template <typename T>
struct MediaField {
    const char* column;  // of the tables music, video, photo and playlist
    T MediaInfo::*member;
    unsigned rules = 0;
    BeInt32 MediaInfo::*utf16 = nullptr;  // of a text that may be UTF-16: its mark
};
template <typename T>
MediaField(const char*, T MediaInfo::*, unsigned = 0, BeInt32 MediaInfo::* = nullptr) -> MediaField<T>;

/// All fields that are stored, `path` first.
inline constexpr std::tuple kMediaFields{
    MediaField{"path", &MediaInfo::path, kFieldIsBytes},
    MediaField{"title", &MediaInfo::title, kFieldIsCleaned | kFieldIsProbed, &MediaInfo::title_utf16},
    MediaField{"album", &MediaInfo::album, kFieldIsCleaned | kFieldIsProbed, &MediaInfo::album_utf16},
    MediaField{"artist", &MediaInfo::artist, kFieldIsCleaned | kFieldIsProbed, &MediaInfo::artist_utf16},
    MediaField{"genre", &MediaInfo::genre, kFieldIsCleaned | kFieldIsProbed, &MediaInfo::genre_utf16},
    MediaField{"composer", &MediaInfo::composer, kFieldIsCleaned, &MediaInfo::composer_utf16},
    MediaField{"comment", &MediaInfo::comment, kFieldIsCleaned, &MediaInfo::comment_utf16},
    MediaField{"track", &MediaInfo::track, kFieldIsCleaned | kFieldIsProbed},
    MediaField{"disc", &MediaInfo::disc, kFieldIsCleaned},
    MediaField{"year", &MediaInfo::year, kFieldIsCleaned | kFieldIsProbed},
    MediaField{"duration", &MediaInfo::duration, kFieldIsCleaned | kFieldIsProbed},
    MediaField{"audio_bitrate", &MediaInfo::audio_bitrate, kFieldIsProbed},
    MediaField{"video_bitrate", &MediaInfo::video_bitrate, kFieldIsProbed},
    MediaField{"sample_rate", &MediaInfo::sample_rate, kFieldIsProbed},
    MediaField{"channels", &MediaInfo::channels, kFieldIsProbed},
    MediaField{"width", &MediaInfo::width, kFieldIsProbed},
    MediaField{"height", &MediaInfo::height, kFieldIsProbed},
    MediaField{"file_size", &MediaInfo::file_size},
    MediaField{"has_cover", &MediaInfo::has_cover},
    MediaField{"camera_make", &MediaInfo::camera_make},
    MediaField{"camera_model", &MediaInfo::camera_model},
    MediaField{"exposure_time", &MediaInfo::exposure_time},
    MediaField{"f_number", &MediaInfo::f_number},
    MediaField{"date_taken", &MediaInfo::date_taken},
    MediaField{"iso_speed", &MediaInfo::iso_speed},
    MediaField{"ctime", &MediaInfo::ctime},
    MediaField{"mtime", &MediaInfo::mtime},
};

/// Calls `visit` with each of them, in their order.
template <typename Visit>
constexpr void EachMediaField(Visit&& visit) {
    std::apply([&visit](const auto&... field) { (visit(field), ...); }, kMediaFields);
}

}  // namespace koli
