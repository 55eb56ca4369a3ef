// Numbers and marks as they stand in media files.
#pragma once

#include <cstdint>

namespace koli::compat {

/// Unsigned big-endian integers; `bytes` needs no alignment.
inline uint16_t LoadBe16(const uint8_t* bytes) {
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}
inline uint32_t LoadBe32(const uint8_t* bytes) {
    return static_cast<uint32_t>(LoadBe16(bytes)) << 16 | LoadBe16(bytes + 2);
}
inline uint64_t LoadBe64(const uint8_t* bytes) {
    return static_cast<uint64_t>(LoadBe32(bytes)) << 32 | LoadBe32(bytes + 4);
}

/// A four-character code as the 32-bit number that stands in the file.
constexpr uint32_t FourCc(const char (&code)[5]) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value = value << 8 | static_cast<uint8_t>(code[i]);
    return value;
}

}  // namespace koli::compat
