// Builds the bytes of media files, and words for what was read from them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "base/media_info.h"

namespace koli::test {

/// `value` in so many bytes, the most significant first.
inline std::string Be(uint64_t value, int bytes) {
    std::string text;
    while (bytes-- > 0)
        text += static_cast<char>(value >> (8 * bytes));
    return text;
}

/// "DURATION BITRATE SAMPLE_RATE CHANNELS", the figures of sound.
inline std::string Figures(const MediaInfo& record) {
    char text[100];
    snprintf(text, sizeof text, "%.9g %u %u %u", static_cast<double>(record.duration),
             uint32_t{record.audio_bitrate}, uint32_t{record.sample_rate}, uint32_t{record.channels});
    return text;
}

/// "TITLE|ALBUM|ARTIST|GENRE|COMPOSER|YEAR|TRACK|DISC".
inline std::string Names(const MediaInfo& record) {
    char text[1500];
    snprintf(text, sizeof text, "%s|%s|%s|%s|%s|%d|%d|%d", record.title, record.album, record.artist,
             record.genre, record.composer, int32_t{record.year}, int32_t{record.track},
             int32_t{record.disc});
    return text;
}

}  // namespace koli::test
