// A picture's pixels in memory, in the form that the scaling library knows.
#pragma once

extern "C" {
#include <libavutil/frame.h>
}

#include <cstdint>
#include <memory>
#include <span>

namespace koli::serve {

struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Frame = std::unique_ptr<AVFrame, FreeFrame>;

/// A frame with room for its pixels; null when there is no memory.
Frame NewFrame(int width, int height, AVPixelFormat format);

/// In the box of `side` by `side`, as RGBA: as large as it is, or smaller, in its own proportions.  Null when
/// the library does not know the format, or there is no memory.
Frame Shrunk(const AVFrame& from, int side);

/// As RGBA, transparent where the bit of `mask` is set: rows from the bottom up, each filled up to whole
/// words of 32 bits.  Null when the mask is too short, the library does not know the format, or there is no
/// memory.
Frame Masked(const AVFrame& from, std::span<const uint8_t> mask);

/// An RGBA frame as RGB on white paper, turned and mirrored as `orientation` says: 1 to 8, as cameras number
/// them.  Null when there is no memory.
Frame Upright(const AVFrame& from, int orientation);

}  // namespace koli::serve
