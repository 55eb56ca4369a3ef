#include "tools/serve/maker/frame.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cstddef>

namespace koli::serve {
namespace {

struct FreeScaler {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

uint8_t OnWhite(unsigned colour, unsigned opacity) {
    return static_cast<uint8_t>((colour * opacity + 255 * (255 - opacity) + 127) / 255);
}

}  // namespace

Frame NewFrame(int width, int height, AVPixelFormat format) {
    Frame frame(av_frame_alloc());
    if (frame == nullptr) return nullptr;
    frame->width = width;
    frame->height = height;
    frame->format = format;
    return av_frame_get_buffer(frame.get(), 0) == 0 ? std::move(frame) : nullptr;
}

Frame Shrunk(const AVFrame& from, int side) {
    const int64_t longest = std::max(from.width, from.height);
    const auto fitted = [&](int64_t length) {
        if (longest <= side) return static_cast<int>(length);
        return static_cast<int>(std::max<int64_t>(1, (length * side + longest / 2) / longest));
    };
    Frame to = NewFrame(fitted(from.width), fitted(from.height), AV_PIX_FMT_RGBA);
    if (to == nullptr) return nullptr;
    const std::unique_ptr<SwsContext, FreeScaler> scaler(
        sws_getContext(from.width, from.height, static_cast<AVPixelFormat>(from.format), to->width,
                       to->height, AV_PIX_FMT_RGBA, SWS_AREA | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (scaler == nullptr) return nullptr;
    const int rows =
        sws_scale(scaler.get(), from.data, from.linesize, 0, from.height, to->data, to->linesize);
    return rows == to->height ? std::move(to) : nullptr;
}

Frame Masked(const AVFrame& from, std::span<const uint8_t> mask) {
    const size_t row_bytes = (static_cast<size_t>(from.width) + 31) / 32 * 4;
    if (mask.size() < row_bytes * static_cast<size_t>(from.height)) return nullptr;
    Frame to = Shrunk(from, std::max(from.width, from.height));
    for (int y = 0; to != nullptr && y < to->height; ++y) {
        const auto row = mask.subspan(row_bytes * static_cast<size_t>(to->height - 1 - y), row_bytes);
        uint8_t* const out = to->data[0] + ptrdiff_t{y} * to->linesize[0];
        for (size_t x = 0; x < static_cast<size_t>(to->width); ++x)
            if ((row[x / 8] << x % 8 & 0x80) != 0) out[4 * x + 3] = 0;
    }
    return to;
}

Frame Upright(const AVFrame& from, int orientation) {
    const bool is_lying = orientation >= 5;
    const bool is_mirrored = orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
    const bool is_upside_down = orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
    Frame to =
        NewFrame(is_lying ? from.height : from.width, is_lying ? from.width : from.height, AV_PIX_FMT_RGB24);
    if (to == nullptr) return nullptr;
    for (int y = 0; y < to->height; ++y) {
        uint8_t* out = to->data[0] + ptrdiff_t{y} * to->linesize[0];
        for (int x = 0; x < to->width; ++x, out += 3) {
            const int across = is_lying ? y : x, down = is_lying ? x : y;
            const int column = is_mirrored ? from.width - 1 - across : across;
            const int row = is_upside_down ? from.height - 1 - down : down;
            const uint8_t* in = from.data[0] + ptrdiff_t{row} * from.linesize[0] + ptrdiff_t{column} * 4;
            for (int i = 0; i < 3; ++i)
                out[i] = OnWhite(in[i], in[3]);
        }
    }
    return to;
}

}  // namespace koli::serve
