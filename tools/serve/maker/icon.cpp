#include "tools/serve/maker/icon.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <tuple>
#include <utility>

namespace koli::serve {
namespace {

constexpr size_t kDirectoryBytes = 6;
constexpr size_t kEntryBytes = 16;
constexpr size_t kFileHeadBytes = 14;      // that a bitmap has as a file
constexpr uint32_t kBitmapHeadBytes = 40;  // the only kind that icons have
constexpr uint32_t kColoursMax = 256;
constexpr uint8_t kPngMark[] = {0x89, 'P', 'N', 'G'};

uint32_t Number(std::span<const uint8_t> bytes, size_t at, size_t count) {
    uint32_t number = 0;
    for (size_t i = count; i-- > 0;)
        number = number << 8 | bytes[at + i];
    return number;
}

void Write(std::vector<uint8_t>& bytes, size_t at, uint32_t number) {
    for (size_t i = 0; i < 4; ++i)
        bytes[at + i] = static_cast<uint8_t>(number >> (8 * i));
}

/// What the entry at `at` points to; empty when that is not in the file.
std::span<const uint8_t> PictureOf(std::span<const uint8_t> file, size_t at) {
    const size_t size = Number(file, at + 8, 4), offset = Number(file, at + 12, 4);
    if (offset > file.size() || size > file.size() - offset) return {};
    return file.subspan(offset, size);
}

/// More is better: pixels, then their bits.  A side of 0 is 256.
auto Rank(std::span<const uint8_t> file, size_t at) {
    const auto side = [&](size_t where) { return file[where] == 0 ? 256U : file[where]; };
    return std::tuple(side(at) * side(at + 1), Number(file, at + 6, 2));
}

/// Bytes of its table of colours, behind its head; nothing for one that is too large.
std::optional<size_t> ColourBytes(std::span<const uint8_t> bitmap) {
    const uint32_t bits = Number(bitmap, 14, 2), told = Number(bitmap, 32, 4);
    const uint32_t colours = told == 0 && bits <= 8 ? 1U << bits : told;
    return colours <= kColoursMax ? std::optional(size_t{4} * colours) : std::nullopt;
}

/// The mask stands behind the pixels; rows of both are filled up to whole words.
std::vector<uint8_t> MaskOf(std::span<const uint8_t> bitmap, size_t colour_bytes) {
    constexpr uint32_t kMaxSide = 65535;
    const uint32_t width = Number(bitmap, 4, 4), height = Number(bitmap, 8, 4) / 2;
    if (width > kMaxSide || height > kMaxSide || Number(bitmap, 16, 4) != 0) return {};
    const auto row_bytes = [&](size_t bits) { return (width * bits + 31) / 32 * 4; };
    const size_t begin = kBitmapHeadBytes + colour_bytes + row_bytes(Number(bitmap, 14, 2)) * height;
    const size_t size = row_bytes(1) * height;
    if (begin > bitmap.size() || size > bitmap.size() - begin) return {};
    const auto mask = bitmap.subspan(begin, size);
    return {mask.begin(), mask.end()};
}

/// A bitmap of an icon counts its mask as half of its height, and begins with the second of a file's heads.
IconPicture BitmapFile(std::span<const uint8_t> bitmap) {
    if (bitmap.size() < kBitmapHeadBytes || Number(bitmap, 0, 4) != kBitmapHeadBytes) return {};
    const auto colour_bytes = ColourBytes(bitmap);
    if (!colour_bytes) return {};
    std::vector<uint8_t> file(kFileHeadBytes + bitmap.size());
    file[0] = 'B';
    file[1] = 'M';
    Write(file, 2, static_cast<uint32_t>(file.size()));
    Write(file, 10, static_cast<uint32_t>(kFileHeadBytes + kBitmapHeadBytes + *colour_bytes));
    std::copy(bitmap.begin(), bitmap.end(), file.begin() + kFileHeadBytes);
    Write(file, kFileHeadBytes + 8, Number(bitmap, 8, 4) / 2);
    return {std::move(file), MaskOf(bitmap, *colour_bytes)};
}

}  // namespace

IconPicture IconLargest(std::span<const uint8_t> file) {
    if (file.size() < kDirectoryBytes) return {};
    const size_t count = std::min<size_t>(Number(file, 4, 2), (file.size() - kDirectoryBytes) / kEntryBytes);
    size_t best = 0;  // where its entry is
    for (size_t i = 0; i < count; ++i) {
        const size_t at = kDirectoryBytes + i * kEntryBytes;
        if (PictureOf(file, at).empty()) continue;
        if (best == 0 || Rank(file, at) > Rank(file, best)) best = at;
    }
    if (best == 0) return {};
    const std::span<const uint8_t> picture = PictureOf(file, best);
    if (picture.size() > sizeof kPngMark &&
        std::equal(std::begin(kPngMark), std::end(kPngMark), picture.begin()))
        return {{picture.begin(), picture.end()}, {}};
    return BitmapFile(picture);
}

}  // namespace koli::serve
