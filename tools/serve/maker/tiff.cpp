#include "tools/serve/maker/tiff.h"

#include <algorithm>
#include <cstddef>

namespace koli::serve {
namespace {

constexpr size_t kHeadBytes = 8;
constexpr size_t kEntryBytes = 12;
constexpr uint32_t kOrientation = 274, kShort = 3;

uint32_t Number(std::span<const uint8_t> file, size_t at, size_t count) {
    const bool is_big_endian = file[0] == 'M';
    uint32_t number = 0;
    for (size_t i = 0; i < count; ++i)
        number = number << 8 | file[is_big_endian ? at + i : at + count - 1 - i];
    return number;
}

}  // namespace

int TiffOrientation(std::span<const uint8_t> file) {
    if (file.size() < kHeadBytes) return 1;
    const size_t directory = Number(file, 4, 4);
    if (directory > file.size() - 2) return 1;
    const size_t begin = directory + 2;
    const size_t count = std::min<size_t>(Number(file, directory, 2), (file.size() - begin) / kEntryBytes);
    for (size_t at = begin; at < begin + count * kEntryBytes; at += kEntryBytes) {
        if (Number(file, at, 2) != kOrientation || Number(file, at + 2, 2) != kShort) continue;
        const auto number = static_cast<int>(Number(file, at + 8, 2));
        return number >= 1 && number <= 8 ? number : 1;
    }
    return 1;
}

}  // namespace koli::serve
