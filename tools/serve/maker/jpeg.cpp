#include "tools/serve/maker/jpeg.h"

#include <libexif/exif-data.h>
#include <turbojpeg.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <string_view>
#include <type_traits>

namespace koli::serve {
namespace {

constexpr int64_t kMaxPixels = 250000000;  // more than any camera's
constexpr int kSmallestScale = 1;          // of 8
constexpr int kQualities[] = {85, 50};     // the second for a picture that has no room otherwise: noise

struct DestroyCodec {
    void operator()(void* codec) const { tjDestroy(codec); }
};
using Codec = std::unique_ptr<std::remove_pointer_t<tjhandle>, DestroyCodec>;

struct FreeExif {
    void operator()(ExifData* data) const { exif_data_unref(data); }
};

struct Head {
    int width, height, subsampling, colours;
};

/// Pixels of a side that is decoded in `scale` eighths.
int Scaled(int length, int scale) {
    return (length * scale + 7) / 8;
}

int ScaleFor(const Head& head, int side) {
    int scale = kSmallestScale;
    while (scale < 8 && Scaled(std::max(head.width, head.height), scale) < side)
        ++scale;
    return scale;
}

/// Whether the head of the file has the segment of those programs that store printing colours inverted.
bool HasAdobeSegment(std::span<const uint8_t> file) {
    constexpr uint8_t kSegment = 0xEE, kPixels = 0xDA;
    constexpr std::string_view kName = "Adobe";
    for (size_t at = 2; at + 4 + kName.size() <= file.size() && file[at] == 0xFF;) {
        const uint8_t kind = file[at + 1];
        if (kind == kPixels) return false;
        if (kind == kSegment && std::equal(kName.begin(), kName.end(), file.begin() + at + 4)) return true;
        at += kind == 0xFF ? 1 : 2 + size_t{file[at + 2]} * 256 + file[at + 3];
    }
    return false;
}

/// Printing colours: light of each, times light of black; where they are not stored inverted they are ink.
void MixBlack(AVFrame& frame, bool is_inverted) {
    const unsigned ink = is_inverted ? 0 : 255;
    for (int y = 0; y < frame.height; ++y) {
        uint8_t* pixel = frame.data[0] + ptrdiff_t{y} * frame.linesize[0];
        for (int x = 0; x < frame.width; ++x, pixel += 4) {
            for (int i = 0; i < 3; ++i)
                pixel[i] = static_cast<uint8_t>((pixel[i] ^ ink) * (pixel[3] ^ ink) / 255);
            pixel[3] = 255;
        }
    }
}

}  // namespace

Frame JpegDecode(std::span<const uint8_t> file, int side) {
    const Codec codec(tjInitDecompress());
    Head head{};
    if (codec == nullptr || tjDecompressHeader3(codec.get(), file.data(), file.size(), &head.width,
                                                &head.height, &head.subsampling, &head.colours) != 0)
        return nullptr;
    if (int64_t{head.width} * head.height > kMaxPixels) return nullptr;
    const int scale = ScaleFor(head, side);
    Frame frame = NewFrame(Scaled(head.width, scale), Scaled(head.height, scale), AV_PIX_FMT_RGBA);
    if (frame == nullptr) return nullptr;
    const bool is_for_print = head.colours == TJCS_CMYK || head.colours == TJCS_YCCK;
    const int result =
        tjDecompress2(codec.get(), file.data(), file.size(), frame->data[0], frame->width, frame->linesize[0],
                      frame->height, is_for_print ? TJPF_CMYK : TJPF_RGBA,
                      TJFLAG_LIMITSCANS);  // else a picture of scans without end takes its time
    if (result != 0 && tjGetErrorCode(codec.get()) != TJERR_WARNING) return nullptr;
    if (is_for_print) MixBlack(*frame, HasAdobeSegment(file));
    return frame;
}

int JpegOrientation(std::span<const uint8_t> file) {
    const auto size = static_cast<unsigned>(std::min<size_t>(file.size(), std::numeric_limits<int>::max()));
    const std::unique_ptr<ExifData, FreeExif> data(exif_data_new_from_data(file.data(), size));
    if (data == nullptr) return 1;
    const ExifEntry* entry = exif_content_get_entry(data->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
    if (entry == nullptr || entry->format != EXIF_FORMAT_SHORT || entry->size < 2) return 1;
    const int number = exif_get_short(entry->data, exif_data_get_byte_order(data.get()));
    return number >= 1 && number <= 8 ? number : 1;
}

size_t JpegEncode(const AVFrame& frame, std::span<uint8_t> room) {
    const Codec codec(tjInitCompress());
    if (codec == nullptr) return 0;
    for (const int quality : kQualities) {
        // The library counts with the worst case, and takes no smaller buffer.
        unsigned char* bytes = nullptr;
        unsigned long size = 0;
        const int result = tjCompress2(codec.get(), frame.data[0], frame.width, frame.linesize[0],
                                       frame.height, TJPF_RGB, &bytes, &size, TJSAMP_420, quality, 0);
        const std::unique_ptr<unsigned char, decltype(&tjFree)> owner(bytes, tjFree);
        if (result != 0) return 0;
        if (size > room.size()) continue;
        std::copy_n(bytes, size, room.begin());
        return size;
    }
    return 0;
}

}  // namespace koli::serve
