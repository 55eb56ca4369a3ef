#include <algorithm>

#include "platform/host/image_size.h"

namespace koli {
namespace {

constexpr uint64_t kTiffEntriesMax =
    4096;  // of directory 0; the size's tags are among the lowest and stand first
constexpr uint64_t kImageWidth = 256, kImageLength = 257;
constexpr uint64_t kShort = 3, kLong = 4, kLong8 = 16;

/// A file's two choices, byte order and offset size, and the numbers that follow from them.
struct Tiff {
    HeaderReader& in;
    bool big_endian;
    bool wide = false;  // BigTIFF

    uint64_t Number(uint64_t at, size_t width) const {
        return big_endian ? in.Big(at, width) : in.Little(at, width);
    }
    size_t offset_size() const { return wide ? 8 : 4; }
    size_t entry_count_size() const { return wide ? 8 : 2; }
    uint64_t entry_size() const { return 4 + 2 * offset_size(); }
};

/// The single number of the entry at `at`; 0 when it is none.  Numbers shorter than their field stand at its
/// start.
uint64_t EntryNumber(const Tiff& tiff, uint64_t at) {
    const uint64_t type = tiff.Number(at + 2, 2);
    if (tiff.Number(at + 4, tiff.offset_size()) != 1) return 0;
    const uint64_t value = at + 4 + tiff.offset_size();
    if (type == kShort) return tiff.Number(value, 2);
    if (type == kLong) return tiff.Number(value, 4);
    return type == kLong8 && tiff.wide ? tiff.Number(value, 8) : 0;
}

}  // namespace

bool ReadTiffSize(HeaderReader& in, ImageSize* size) {
    Tiff tiff{in, in.Big(0, 1) == 'M'};
    tiff.wide = tiff.Number(2, 2) == 43;
    if (tiff.wide && (tiff.Number(4, 2) != 8 || tiff.Number(6, 2) != 0)) return false;

    const uint64_t directory = tiff.wide ? tiff.Number(8, 8) : tiff.Number(4, 4);
    const uint64_t count = std::min(tiff.Number(directory, tiff.entry_count_size()), kTiffEntriesMax);
    uint64_t at = directory + tiff.entry_count_size();
    uint64_t width = 0, height = 0;
    for (uint64_t i = 0; i < count && in.ok() && (width == 0 || height == 0); ++i, at += tiff.entry_size()) {
        const uint64_t tag = tiff.Number(at, 2);
        if (tag == kImageWidth) width = EntryNumber(tiff, at);
        if (tag == kImageLength) height = EntryNumber(tiff, at);
    }
    return in.ok() && SetImageSize(width, height, size);
}

}  // namespace koli
