#include "compat/mp4_boxes.h"

#include <algorithm>
#include <cstring>

namespace koli::compat {
namespace {

constexpr size_t kShortHeader = 8;

}  // namespace

bool BoxHeaderParse(const uint8_t* header, size_t got, BoxCursor* cursor, Box* box) {
    const int64_t left = cursor->end - cursor->position;
    if (left < static_cast<int64_t>(kShortHeader) || got < kShortHeader) return false;
    size_t header_size = kShortHeader;
    uint64_t size = LoadBe32(header);
    if (size == 1) {
        header_size = kBoxHeaderSize;
        size = got == kBoxHeaderSize ? LoadBe64(header + 8) : 0;
    } else if (size == 0) {
        size = static_cast<uint64_t>(left);
    }
    size = std::min(size, static_cast<uint64_t>(left));
    if (size < header_size) return false;
    box->type = LoadBe32(header + 4);
    box->payload = cursor->position + static_cast<int64_t>(header_size);
    box->end = cursor->position + static_cast<int64_t>(size);
    cursor->position = box->end;
    return true;
}

size_t BoxReader::ReadSmall(int64_t offset, uint8_t* bytes, size_t count) {
    const int64_t end = offset + static_cast<int64_t>(count);
    if (offset < window_start_ || end > window_start_ + static_cast<int64_t>(window_size_)) {
        window_start_ = offset;
        window_size_ = file_.Read(offset, window_, sizeof window_);
    }
    const auto skip = static_cast<size_t>(offset - window_start_);
    const size_t got = std::min(count, window_size_ - skip);
    memcpy(bytes, window_ + skip, got);
    return got;
}

bool BoxReader::Next(BoxCursor* cursor, Box* box) {
    if (is_damaged_ || cursor->end - cursor->position < static_cast<int64_t>(kShortHeader)) return false;

    uint8_t header[kBoxHeaderSize];
    const size_t got = ReadSmall(cursor->position, header, sizeof header);
    is_damaged_ = ++boxes_ > kMaxBoxes || !BoxHeaderParse(header, got, cursor, box);
    return !is_damaged_;
}

bool BoxReader::Find(BoxCursor row, uint32_t type, Box* box) {
    while (Next(&row, box))
        if (box->type == type) return true;
    return false;
}

BoxCursor BoxReader::Inside(const Box& box, int64_t skip) {
    return {std::min(box.payload + skip, box.end), box.end};
}

bool BoxReader::Fields(const Box& box, int64_t skip, uint8_t* bytes, size_t count) {
    if (box.end - box.payload - skip < static_cast<int64_t>(count)) return false;
    return ReadSmall(box.payload + skip, bytes, count) == count;
}

}  // namespace koli::compat
