// Builds the bytes of media files, and words for what was read from them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "base/media_info.h"

namespace koli::test {

/// `value` in so many bytes, the most significant first.
inline std::string Be(uint64_t value, size_t bytes) {
    std::string text(bytes, '\0');
    for (; bytes > 0; value >>= 8)
        text[--bytes] = static_cast<char>(value);
    return text;
}

/// The same, the least significant first.
inline std::string Le(uint64_t value, size_t bytes) {
    const std::string big = Be(value, bytes);
    return {big.rbegin(), big.rend()};
}

inline std::string Padded(std::string text, size_t size, char pad = '\0') {
    text.resize(size, pad);
    return text;
}

/// The head of a PNG.
inline std::string Png(uint64_t width, uint64_t height) {
    return "\x89PNG\r\n\x1a\n" + Be(13, 4) + "IHDR" + Be(width, 4) + Be(height, 4) + "\x08\x06";
}

/// "DURATION BITRATE SAMPLE_RATE CHANNELS", the figures of sound, and " WIDTHxHEIGHT BITRATE" of a picture.
inline std::string Figures(const MediaInfo& record) {
    char text[100];
    const int end =
        snprintf(text, sizeof text, "%.9g %u %u %u", static_cast<double>(record.duration),
                 uint32_t{record.audio_bitrate}, uint32_t{record.sample_rate}, uint32_t{record.channels});
    if (record.width != 0 || record.height != 0 || record.video_bitrate != 0)
        snprintf(text + end, sizeof text - static_cast<size_t>(end), " %ux%u %u", uint32_t{record.width},
                 uint32_t{record.height}, uint32_t{record.video_bitrate});
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
