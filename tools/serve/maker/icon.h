// The pictures that an icon file holds.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace koli::serve {

/// The largest picture of the icon file `file`, as the file it would be by itself: a PNG as it lies there, a
/// bitmap with the head that it lacks.  Its mask is not applied: where the picture itself has no
/// transparency, nothing of it is transparent.  Empty for what is no icon, or one that is cut.
std::vector<uint8_t> IconLargest(std::span<const uint8_t> file);

}  // namespace koli::serve
