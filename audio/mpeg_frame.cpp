#include "audio/mpeg_frame.h"

#include <algorithm>
#include <cstring>

#include "base/log.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metaid3";

/// Bytes behind which a frame that was not found will hardly be found.
constexpr int64_t kLongSearch = 1 << 18;
constexpr int64_t kSearchMargin = 10;  // bytes before the end of the audio in which no search begins a frame

// By version - 1, layer - 1 and, in the first table, the 4-bit index; 0 is the free format, 15 is forbidden.
// Bit rates in kbit/s, sample rates in Hz.
constexpr uint16_t kBitrates[2][3][15] = {
    {
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
    },
    {
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
    },
};
constexpr uint16_t kSampleRates[2][3] = {{44100, 48000, 32000}, {22050, 24000, 16000}};
constexpr int kSamplesPerFrame[2][3] = {{384, 1152, 1152}, {384, 1152, 576}};
// Bytes x Hz per kbit/s.  Those of MPEG-2 Layer I and II are half of the standard's; existing libraries rely
// on it.
constexpr uint32_t kLengthFactors[2][3] = {{48000, 144000, 144000}, {24000, 72000, 72000}};

bool IsSync(int first, int second) {
    return first == 0xFF && (second & 0xE0) == 0xE0;  // MPEG-2.5 included
}

/// The first sync from `position` on, or the end of the search when there is none.
int64_t FindSync(CachedFileReader* reader, int64_t position) {
    const int64_t end = reader->size - kSearchMargin;
    position = std::max<int64_t>(position, 0);
    while (position < end) {
        const ByteWindow window = CachedWindowAt(reader, position, 2);
        if (window.length < 2) return end;
        const int64_t count = std::min(window.length - 1, end - position);
        const void* found = memchr(window.data, 0xFF, static_cast<size_t>(count));
        if (found == nullptr) {
            position = CachedSkipHole(reader, position + count, end);
            continue;
        }
        const auto* sync = static_cast<const uint8_t*>(found);
        position += sync - window.data;
        if (IsSync(sync[0], sync[1])) return position;
        ++position;
    }
    return std::max(position, end);
}

/// Decodes the three bytes behind a sync's first one.  Everything but the position and what the file's size
/// tells is filled, the bit rate still in kbit/s.  False for what no accepted stream contains.
bool DecodeHeader(const uint8_t (&b)[3], MpegHeaderInfo* header) {
    const bool is_mpeg25 = (b[0] & 0x10) == 0;
    const int layer_bits = (b[0] & 0x06) >> 1;
    const int bitrate_index = b[1] >> 4;
    const int sample_rate_index = (b[1] & 0x0F) >> 2;
    if (is_mpeg25 || layer_bits == 0 || sample_rate_index > 2 || bitrate_index == 15) return false;

    header->version = (b[0] & 0x08) != 0 ? 1 : 2;
    header->layer = 4 - layer_bits;
    header->crc_protected = (b[0] & 0x01) == 0 ? 1 : 0;
    const auto version = static_cast<size_t>(header->version - 1);
    const auto layer = static_cast<size_t>(header->layer - 1);
    header->bitrate = kBitrates[version][layer][bitrate_index];
    header->sample_rate = kSampleRates[version][sample_rate_index];
    header->bytes_per_second = static_cast<float>(header->bitrate * 1000 / 8.0);
    header->padding = (b[1] & 0x02) != 0 ? 1 : 0;
    header->channel_mode = b[2] >> 6;
    header->mode_extension = header->channel_mode == 1 ? (b[2] >> 4) & 3 : -1;
    header->copyright = (b[2] & 0x08) != 0 ? 1 : 0;
    header->original = (b[2] & 0x04) != 0 ? 1 : 0;
    header->emphasis = b[2] & 3;

    const int32_t slot = header->layer == 1 ? 4 : 1;  // bytes
    header->frame_length =
        static_cast<int32_t>(header->bitrate * kLengthFactors[version][layer] / header->sample_rate) +
        slot * header->padding;
    return true;
}

/// Whether a sync at `bytes` begins what DecodeHeader accepts; four bytes are looked at.
bool IsHeader(const uint8_t* bytes) {
    return (bytes[1] & 0xF0) == 0xF0 && (bytes[1] & 0x06) != 0 && (bytes[2] & 0x0C) != 0x0C &&
           bytes[2] < 0xF0;
}

bool DecodeHeaderAt(CachedFileReader* reader, int64_t position, MpegHeaderInfo* header) {
    uint8_t b[3];
    CachedCopy(reader, position + 1, b, sizeof b);
    return DecodeHeader(b, header);
}

/// The furthest run of zero bytes that has been measured.  All frames that end in one run share its end, so
/// neither the run nor the header behind it is looked at twice.
struct ZeroRun {
    int64_t start = 0;
    int64_t end = 0;  // exclusive
    bool is_checked = false;
    bool ends_at_header = false;  // once checked
};

/// Where the zero bytes from `from` on end.  Shorter runs before the remembered one are measured each time:
/// they lie within one frame's length of the search, while a run that replaces it lies behind it.
int64_t EndOfZeros(CachedFileReader* reader, int64_t from, ZeroRun* run) {
    if (from >= run->start && from < run->end) return run->end;
    if (from < run->start) {
        const int64_t end = CachedSkipZeros(reader, from, run->start);
        if (end != run->start) return end;
        run->start = from;
        return run->end;
    }
    const int64_t end = CachedSkipZeros(reader, from, reader->size + 1);
    if (end > from) *run = {from, end};
    return end;
}

/// Whether another header follows the frame.  The zeros are counted from one byte behind the place where that
/// header is expected, so behind zeros it is looked for at their last one.
bool IsFollowed(CachedFileReader* reader, const MpegHeaderInfo& header, ZeroRun* run) {
    const int64_t expected = header.position + header.frame_length;
    if (expected >= reader->size) return MpegFrameCheck(reader, expected) == 0;
    const int64_t end = EndOfZeros(reader, expected + 1, run);
    if (end != run->end) return MpegFrameCheck(reader, end - 1) == 0;
    if (!run->is_checked) {
        run->ends_at_header = MpegFrameCheck(reader, end - 1) == 0;
        run->is_checked = true;
    }
    return run->ends_at_header;
}

}  // namespace

int MpegFrameFind(CachedFileReader* reader, int64_t* position, MpegHeaderInfo* header) {
    if (reader == nullptr || position == nullptr || header == nullptr) {
        KOLI_LOG("Bad parameter.");
        return 0;
    }
    *position = FindSync(reader, *position);
    if (*position >= reader->size - kSearchMargin) {
        if (reader->header_not_found.Admit()) KOLI_LOG("MPEG Header not found");
        return 0;
    }
    header->position = *position;
    if (!DecodeHeaderAt(reader, *position, header) || header->frame_length == 0) return 0;
    header->duration = static_cast<double>(reader->size) / static_cast<double>(header->bitrate) * 0.008;
    header->bitrate *= 1000;
    return 1;
}

int64_t MpegSkipBadSyncs(CachedFileReader* reader, int64_t position) {
    const ByteWindow window = CachedWindowAt(reader, position, 4);
    const int64_t count = std::min(window.length - 3, reader->size - kSearchMargin - position);
    int64_t i = 0;
    while (i < count && IsSync(window.data[i], window.data[i + 1]) && !IsHeader(window.data + i))
        ++i;
    return position + i;
}

int MpegFrameCheck(CachedFileReader* reader, int64_t position) {
    MpegHeaderInfo scratch{};
    if (!IsSync(CachedByteAt(reader, position), CachedByteAt(reader, position + 1))) return -1;
    return DecodeHeaderAt(reader, position, &scratch) ? 0 : -1;
}

bool MpegFirstFrame(CachedFileReader* reader, int64_t start, MpegHeaderInfo* header) {
    ZeroRun run;
    for (int64_t position = start; position < reader->size - kSearchMargin;
         position = MpegSkipBadSyncs(reader, position + 1)) {
        if (position - start > kLongSearch) reader->ahead.Expect(position, reader->size);
        if (MpegFrameFind(reader, &position, header) != 0 && IsFollowed(reader, *header, &run)) return true;
    }
    return false;
}

void MpegFrameLogSuppressed(const CachedFileReader* reader) {
    const int64_t count = reader->header_not_found.Suppressed();
    if (count > 0) KOLI_LOG("MPEG Header not found, %lld more times", static_cast<long long>(count));
}

int MpegSamplesPerFrame(int32_t version, int32_t layer) {
    return kSamplesPerFrame[version == 1 ? 0 : 1][layer - 1];
}

}  // namespace koli
