// Builds the bytes of ID3 tags and MPEG audio streams.
#pragma once

#include "tests/media_bytes.h"

namespace koli::test {

inline std::string Be32(int64_t n) {
    return Be(static_cast<uint64_t>(n), 4);
}

inline std::string Syncsafe(size_t n) {
    return Be((n >> 21 & 0x7F) << 24 | (n >> 14 & 0x7F) << 16 | (n >> 7 & 0x7F) << 8 | (n & 0x7F), 4);
}

/// A frame of a 2.3 tag; `declared` is its size field when that is to be wrong.
inline std::string Frame(const std::string& id, const std::string& data, int64_t declared = -1) {
    return id + Be32(declared < 0 ? static_cast<int64_t>(data.size()) : declared) + std::string(2, '\0') +
           data;
}

inline std::string Text(const std::string& id, const std::string& text, char encoding = 0) {
    return Frame(id, encoding + text);
}

/// A text frame of a 2.2 tag, encoding 0.
inline std::string Text22(const std::string& id, const std::string& text) {
    return id + Be32(static_cast<int64_t>(text.size()) + 1).substr(1) + '\0' + text;
}

inline std::string Tag(const std::string& frames, char version = 3) {
    return "ID3" + std::string{version, 0, 0} + Syncsafe(frames.size()) + frames;
}

inline std::string Trailer(const std::string& title, const std::string& artist, const std::string& album,
                           const std::string& year, const std::string& comment, char genre) {
    return "TAG" + Padded(title, 30) + Padded(artist, 30) + Padded(album, 30) + Padded(year, 4) +
           Padded(comment, 30) + genre;
}

/// A 2.3 picture frame.
inline std::string Picture(const std::string& mime, char type, const std::string& image,
                           int64_t declared = -1) {
    return Frame("APIC", '\0' + mime + '\0' + type + "front" + '\0' + image, declared);
}

/// `count` frames of MPEG-1 Layer III, 128 kbit/s, 44100 Hz, joint stereo: 417 bytes each.
inline std::string Audio(int count = 4) {
    std::string audio;
    while (count-- > 0)
        audio += Padded("\xFF\xFB\x90\x64", 417, 'a');
    return audio;
}

}  // namespace koli::test
