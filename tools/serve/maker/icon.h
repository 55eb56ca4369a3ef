// The pictures that an icon file holds.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace koli::serve {

struct IconPicture {
    std::vector<uint8_t> file;  // as it would be by itself; empty = none
    std::vector<uint8_t> mask;  // what Masked takes; empty = none
};

/// The largest picture of the icon file `file`: a PNG as it lies there, a bitmap with the head that it lacks,
/// and its mask.  None of what is no icon, or one that is cut.
IconPicture IconLargest(std::span<const uint8_t> file);

}  // namespace koli::serve
