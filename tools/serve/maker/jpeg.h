// JPEG, as most pictures come and as all small ones go.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "tools/serve/maker/frame.h"

namespace koli::serve {

/// Decodes a whole JPEG file as RGBA, in an eighth to the whole of its size: its longer side is then `side`
/// pixels or more, if it has as many.  What is missing of a cut picture is grey.  Null when it cannot be
/// read, or is too large.
Frame JpegDecode(std::span<const uint8_t> file, int side);

/// How the camera was held: 1 to 8; 1 also when the file does not say.
int JpegOrientation(std::span<const uint8_t> file);

/// Writes the RGB frame to `room` as a baseline JPEG with nothing but its pixels.  Returns its bytes, 0 when
/// they have no room.
size_t JpegEncode(const AVFrame& frame, std::span<uint8_t> room);

}  // namespace koli::serve
