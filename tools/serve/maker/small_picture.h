// A small picture of a large one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace koli::serve {

/// Makes a JPEG of the picture that the whole file `file` holds: neither wider nor higher than `side` pixels
/// and never enlarged, upright, its transparent parts white, without whatever else the file says.  Writes it
/// to `room`.  Returns its bytes; 0 when the file holds no picture that can be read, or the JPEG has no room.
/// Not for a process that has something to lose.
size_t SmallPictureMake(std::vector<uint8_t> file, int side, std::span<uint8_t> room);

}  // namespace koli::serve
