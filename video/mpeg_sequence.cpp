#include "video/mpeg_sequence.h"

#include <limits>

#include "base/log.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metavideo";

constexpr int32_t kMpeg2 = 2;
constexpr int kSequenceExtensionId = 1;
constexpr uint32_t kBitrateUnit = 400;  // bit/s

// By the 4-bit code; the other codes are reserved.
constexpr double kFrameRates[16] = {0, 24000.0 / 1001, 24, 25, 30000.0 / 1001, 30, 50, 60000.0 / 1001, 60};

/// Seconds that a file takes at a coded bit rate.
double EstimateDuration(int64_t file_size, uint32_t bitrate_value) {
    if (bitrate_value == 0) return std::numeric_limits<double>::infinity();
    return static_cast<double>(file_size) * 8.0 / static_cast<double>(bitrate_value * kBitrateUnit);
}

void ParseExtensions(MpegVideoReader* reader, int64_t position, MpegVideoInfo* info) {
    int code = 0;
    while ((position = MpegStartCodeNext(reader, position, &code)) != -1 && code != kGroupOfPicturesCode) {
        if (code == kExtensionCode && MpegByteAt(reader, position + 4) >> 4 == kSequenceExtensionId)
            MpegSequenceExtensionParse(reader, position + 4, info);
        ++position;
    }
}

}  // namespace

int MpegSequenceHeaderParse(MpegVideoReader* reader, int64_t position, MpegVideoInfo* info) {
    if (!MpegStartCodeAt(reader, position, kSequenceHeaderCode)) return -1;
    info->reserved = 0;
    info->width = MpegWordAt(reader, position + 4) >> 4;
    info->height = MpegWordAt(reader, position + 5) & 0xFFF;
    info->frame_rate = kFrameRates[MpegByteAt(reader, position + 7) & 0x0F];
    info->aspect_ratio = static_cast<uint8_t>(MpegByteAt(reader, position + 7) >> 4);
    if (info->aspect_ratio == 0) KOLI_LOG("invalid aspect_ratio.");
    info->bitrate_value = static_cast<uint32_t>(MpegWordAt(reader, position + 8)) << 2 |
                          static_cast<uint32_t>(MpegByteAt(reader, position + 10)) >> 6;
    // From the 18 bits alone: an extension does not change it any more.
    info->duration = EstimateDuration(reader->file.size, info->bitrate_value);
    ParseExtensions(reader, position + 8, info);
    return 0;
}

int MpegSequenceExtensionParse(MpegVideoReader* reader, int64_t position, MpegVideoInfo* info) {
    reader->file.mode = kMpeg2;
    if (info == nullptr) return 0;
    // Each field reads its bytes anew: in a file that ends here, each read is one message.
    const auto byte = [reader, position](int64_t offset) { return MpegByteAt(reader, position + offset); };
    info->width |= (byte(1) & 0x01) << 13;  // the upper of the two bits alone; what is stored relies on it
    info->height |= (byte(2) & 0x60) << 7;
    info->bitrate_value |= static_cast<uint32_t>((byte(2) & 0x1F) << 7 | (byte(3) & 0xFE) >> 1) << 18;
    const int n = (byte(5) & 0x60) >> 5;
    const int d = byte(5) & 0x1F;
    info->frame_rate = info->frame_rate * (n + 1) / (d + 1);
    return 1;
}

}  // namespace koli
