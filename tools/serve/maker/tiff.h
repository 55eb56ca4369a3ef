// What the decoder of TIFF files does not tell.
#pragma once

#include <cstdint>
#include <span>

namespace koli::serve {

/// How the first picture of a TIFF file is to be turned: 1 to 8; 1 also when the file does not say.
int TiffOrientation(std::span<const uint8_t> file);

}  // namespace koli::serve
