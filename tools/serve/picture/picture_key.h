// Which small picture of which file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace koli::serve {

/// What tells the picture of a file from that of what it was before, and from any other: its name, and size,
/// time and inode of what is open as `file`.  Nothing when that cannot be asked.
std::optional<std::string> PictureKey(int file, std::string_view name);

/// The 64-bit FNV-1a hash.  Names can be made to collide: whoever finds something by it compares the whole.
uint64_t PictureHash(std::string_view bytes);

}  // namespace koli::serve
