// What the stand-ins for media libraries read their files with: positional reads of a regular file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/read_ahead.h"

namespace koli::compat {

/// An open regular file.  Closed by its destructor.
class MediaFile {
  public:
    MediaFile() = default;
    ~MediaFile();
    MediaFile(const MediaFile&) = delete;
    MediaFile& operator=(const MediaFile&) = delete;

    /// Opens `path` for reading, close-on-exec.  False when it cannot be opened or is no regular file (a FIFO
    /// or a device is not waited for).
    bool Open(const char* path);

    /// Length in bytes at the time of Open, at most 2^62.
    int64_t size() const { return size_; }

    /// The open file, -1 for none; stays this object's.
    int descriptor() const { return descriptor_; }

    /// Reads up to `count` bytes at `offset`; returns how many there were, 0 at the end, after an error, and
    /// once the file has had its processor time.
    size_t Read(int64_t offset, void* buffer, size_t count) const;

    /// `offset` itself, or, when it lies in a hole of a sparse file, the hole's end.
    int64_t SkipHole(int64_t offset) const;

  private:
    int descriptor_ = -1;
    int64_t size_ = 0;
    mutable ReadAhead ahead_;  // of what Read was asked for
};

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
