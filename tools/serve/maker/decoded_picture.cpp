#include "tools/serve/maker/decoded_picture.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

#include "tools/serve/maker/icon.h"
#include "tools/serve/maker/jpeg.h"
#include "tools/serve/maker/tiff.h"

using namespace std::literals;

namespace koli::serve {
namespace {

constexpr int64_t kMaxPixels = 120000000;  // three or four bytes each in memory, mostly

struct Kind {
    std::string_view mark;  // the file's first bytes
    AVCodecID codec;
};
constexpr Kind kKinds[] = {{"\x89PNG\r\n\x1A\n"sv, AV_CODEC_ID_PNG},
                           {"GIF87a"sv, AV_CODEC_ID_GIF},
                           {"GIF89a"sv, AV_CODEC_ID_GIF},
                           {"BM"sv, AV_CODEC_ID_BMP},
                           {"II*\0"sv, AV_CODEC_ID_TIFF},
                           {"MM\0*"sv, AV_CODEC_ID_TIFF},
                           {"8BPS"sv, AV_CODEC_ID_PSD}};
constexpr std::string_view kJpegMark = "\xFF\xD8\xFF"sv;
constexpr std::string_view kIconMark = "\0\0\1\0"sv;

struct FreeContext {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
using Context = std::unique_ptr<AVCodecContext, FreeContext>;

struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using Packet = std::unique_ptr<AVPacket, FreePacket>;

bool BeginsWith(const std::vector<uint8_t>& file, std::string_view mark) {
    return file.size() > mark.size() &&
           std::equal(mark.begin(), mark.end(), file.begin(),
                      [](char wanted, uint8_t byte) { return static_cast<uint8_t>(wanted) == byte; });
}

AVCodecID CodecOf(const std::vector<uint8_t>& file) {
    const auto* kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                    [&](const Kind& each) { return BeginsWith(file, each.mark); });
    return kind == std::end(kKinds) ? AV_CODEC_ID_NONE : kind->codec;
}

/// Null when the library lacks the decoder, or memory.
Context Open(AVCodecID codec) {
    const AVCodec* decoder = avcodec_find_decoder(codec);
    if (decoder == nullptr) return nullptr;
    Context context(avcodec_alloc_context3(decoder));
    if (context == nullptr) return nullptr;
    context->thread_count = 1;
    context->max_pixels = kMaxPixels;
    return avcodec_open2(context.get(), decoder, nullptr) == 0 ? std::move(context) : nullptr;
}

void Nothing(void*, uint8_t*) {}

/// The file as one packet, which must not outlive it; the library would copy bytes that are not in a buffer
/// of its own kind.
Packet PacketOf(std::vector<uint8_t>& file) {
    const size_t size = file.size();
    file.resize(size + AV_INPUT_BUFFER_PADDING_SIZE);  // zeros, which decoders may read
    Packet packet(av_packet_alloc());
    if (packet == nullptr) return nullptr;
    packet->buf = av_buffer_create(file.data(), file.size(), Nothing, nullptr, AV_BUFFER_FLAG_READONLY);
    if (packet->buf == nullptr) return nullptr;
    packet->data = file.data();
    packet->size = static_cast<int>(size);
    packet->flags = AV_PKT_FLAG_KEY;
    return packet;
}

Frame FirstFrame(AVCodecContext* context, const AVPacket* packet) {
    Frame frame(av_frame_alloc());
    if (frame == nullptr || avcodec_send_packet(context, packet) < 0) return nullptr;
    int result = avcodec_receive_frame(context, frame.get());
    if (result == AVERROR(EAGAIN) && avcodec_send_packet(context, nullptr) == 0)  // the last one
        result = avcodec_receive_frame(context, frame.get());
    return result == 0 ? std::move(frame) : nullptr;
}

Frame FrameDecode(std::vector<uint8_t> file) {
    const AVCodecID codec = CodecOf(file);
    if (codec == AV_CODEC_ID_NONE) return nullptr;
    const Context context = Open(codec);
    const Packet packet = PacketOf(file);
    if (context == nullptr || packet == nullptr) return nullptr;
    return FirstFrame(context.get(), packet.get());
}

/// A picture that tells itself what of it is transparent needs no mask.
DecodedPicture IconDecode(IconPicture icon) {
    Frame frame = FrameDecode(std::move(icon.file));
    if (frame != nullptr && !icon.mask.empty() && frame->format != AV_PIX_FMT_BGRA)
        frame = Masked(*frame, icon.mask);
    return {std::move(frame)};
}

}  // namespace

DecodedPicture PictureDecode(std::vector<uint8_t> file, int side) {
    av_log_set_level(AV_LOG_QUIET);
    if (BeginsWith(file, kJpegMark)) return {JpegDecode(file, side), JpegOrientation(file)};
    if (BeginsWith(file, kIconMark)) return IconDecode(IconLargest(file));
    const int orientation = CodecOf(file) == AV_CODEC_ID_TIFF ? TiffOrientation(file) : 1;
    return {FrameDecode(std::move(file)), orientation};
}

void PictureDecodeWarmUp() {
    for (const Kind& kind : kKinds)
        Open(kind.codec);
}

}  // namespace koli::serve
