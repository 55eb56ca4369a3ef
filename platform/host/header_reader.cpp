#include "platform/host/header_reader.h"

#include <cstring>

namespace koli {

bool HeaderReader::Holds(uint64_t offset, size_t count) const {
    return offset >= start_ && offset - start_ <= length_ && length_ - (offset - start_) >= count;
}

/// The `count` bytes at `offset`, valid until the next call; null, and no longer ok, when they are not to be
/// had.
const uint8_t* HeaderReader::Bytes(uint64_t offset, size_t count) {
    if (ok_ && !Holds(offset, count)) {
        ok_ = offset <= kOffsetMax && ++refills_ <= kRefillsMax;
        if (ok_) {
            start_ = offset;
            length_ = source_.ReadAt(offset, window_, sizeof window_);
            ok_ = length_ >= count;
        }
    }
    return ok_ ? window_ + (offset - start_) : nullptr;
}

uint64_t HeaderReader::Big(uint64_t offset, size_t width) {
    const uint8_t* bytes = Bytes(offset, width);
    uint64_t value = 0;
    for (size_t i = 0; bytes != nullptr && i < width; ++i)
        value = value << 8 | bytes[i];
    return value;
}

uint64_t HeaderReader::Little(uint64_t offset, size_t width) {
    const uint8_t* bytes = Bytes(offset, width);
    uint64_t value = 0;
    for (size_t i = width; bytes != nullptr && i > 0; --i)
        value = value << 8 | bytes[i - 1];
    return value;
}

bool HeaderReader::StartsWith(const char* bytes, size_t count) {
    if (refills_ == 0) {
        ++refills_;
        length_ = source_.ReadAt(0, window_, sizeof window_);
    }
    return Holds(0, count) && memcmp(window_, bytes, count) == 0;
}

}  // namespace koli
