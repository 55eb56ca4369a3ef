// A picture's pixels in memory, in the form that the scaling library knows.
#pragma once

extern "C" {
#include <libavutil/frame.h>
}

#include <memory>

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

/// An RGBA frame as RGB on white paper, turned and mirrored as `orientation` says: 1 to 8, as cameras number
/// them.  Null when there is no memory.
Frame Upright(const AVFrame& from, int orientation);

}  // namespace koli::serve
