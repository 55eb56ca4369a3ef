#include "audio/flac_guard.h"

#include <cstring>

#include "compat/media_file.h"

namespace koli {
namespace {

using compat::FourCc;
using compat::LoadBe32;
using compat::MediaFile;

constexpr int64_t kHarmlessSize = 64LL << 20;       // bytes that libFLAC may search through
constexpr int kMaxBlocks = 4096;                    // metadata blocks of one file
constexpr int64_t kMaxMetadataBytes = 256LL << 20;  // all its metadata blocks together
constexpr size_t kMarkerSize = 4;                   // "fLaC"
constexpr size_t kBlockHeader = 4;                  // 1 bit last, 7 bits type, 24 bits length
constexpr size_t kId3Header = 10;  // "ID3", version 2 bytes, flags, length as four times 7 bits

/// Where the marker should be: behind an ID3v2 tag, or at the start.
int64_t MarkerPosition(const MediaFile& media) {
    uint8_t header[kId3Header];
    if (media.Read(0, header, sizeof header) != sizeof header || memcmp(header, "ID3", 3) != 0) return 0;
    int64_t length = 0;
    for (int i = 6; i < 10; ++i)
        length = length << 7 | (header[i] & 0x7F);
    return static_cast<int64_t>(kId3Header) + length;
}

bool ChainEnds(const MediaFile& media, int64_t start) {
    int64_t position = start;
    for (int blocks = 0; blocks < kMaxBlocks && position - start <= kMaxMetadataBytes; ++blocks) {
        uint8_t header[kBlockHeader];
        if (media.Read(position, header, sizeof header) != sizeof header) return true;
        if ((header[0] & 0x80) != 0) return true;
        position += static_cast<int64_t>(kBlockHeader) + (LoadBe32(header) & 0xFFFFFF);
    }
    return false;
}

}  // namespace

bool FlacMetadataIsBounded(const char* path, int64_t size) {
    if (size <= kHarmlessSize) return true;
    MediaFile media;
    if (!media.Open(path)) return false;
    const int64_t position = MarkerPosition(media);
    uint8_t marker[kMarkerSize];
    return media.Read(position, marker, sizeof marker) == sizeof marker &&
           LoadBe32(marker) == FourCc("fLaC") &&
           ChainEnds(media, position + static_cast<int64_t>(kMarkerSize));
}

}  // namespace koli
