#include "audio/vbr_header.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace koli {
namespace {

constexpr int64_t kMarkSize = 4;          // bytes of "Xing" and "VBRI"
constexpr double kMaxDuration = 43200.0;  // seconds; longer ones are not believed
constexpr int kHasFrames = 1;             // flags of a Xing header
constexpr int kHasBytes = 2;

// Sixteen bytes at once: one vector register on every machine that has them, plain words elsewhere.
using Bytes16 __attribute__((vector_size(16))) = uint8_t;
constexpr int64_t kStep = 64;  // offsets that are looked at together

Bytes16 Load(const uint8_t* from) {
    Bytes16 bytes;
    memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

/// Not zero where the first two bytes of a mark stand, at the sixteen offsets from `data` on.
auto Candidates(const uint8_t* data) {
    const Bytes16 first = Load(data);
    const Bytes16 second = Load(data + 1);
    return ((first == 'X') & (second == 'i')) | ((first == 'V') & (second == 'B'));
}

/// Skips kStep offsets at a time, while no candidate is among them.  Returns the first offset that was not
/// skipped; at the end fewer than kStep are left.  One byte behind the `count` offsets is read.
int64_t SkipToCandidate(const uint8_t* data, int64_t count) {
    int64_t i = 0;
    for (; i + kStep <= count; i += kStep) {
        const auto hits = Candidates(data + i) | Candidates(data + i + 16) | Candidates(data + i + 32) |
                          Candidates(data + i + 48);
        const auto words = std::bit_cast<std::array<uint64_t, 2>>(hits);
        if ((words[0] | words[1]) != 0) break;
    }
    return i;
}

/// Looks at `count` offsets of a window, notes the first hits, and stops behind the first new one.  Returns
/// how many offsets it looked at.  Three bytes behind the last one are read.
int64_t ScanWindow(const uint8_t* data, int64_t count, VbrScan* scan) {
    for (int64_t i = SkipToCandidate(data, count); i < count;) {
        const int64_t stop = std::min(i + kStep, count);
        for (; i < stop; ++i) {
            if (scan->xing < 0 && memcmp(data + i, "Xing", kMarkSize) == 0) {
                scan->xing = scan->next + i;
                return i + 1;
            }
            if (scan->vbri < 0 && memcmp(data + i, "VBRI", kMarkSize) == 0) {
                scan->vbri = scan->next + i;
                return i + 1;
            }
        }
        i += SkipToCandidate(data + i, count - i);
    }
    return count;
}

/// Goes on with the scan until a new mark is found.  False at its end.
bool ContinueScan(CachedFileReader* reader) {
    VbrScan* scan = &reader->vbr_scan;
    const int64_t end = reader->size / 4;
    reader->ahead.Expect(scan->next, VbrScanEnd(scan->next, reader->buffer_end, reader->size));
    while (scan->next < end) {
        const ByteWindow window = CachedWindowAt(reader, scan->next, kMarkSize);
        if (window.length < kMarkSize) break;  // the file's end
        const int64_t count = std::min(window.length - (kMarkSize - 1), end - scan->next);
        const VbrScan before = *scan;
        scan->next += ScanWindow(window.data, count, scan);
        if (scan->xing != before.xing || scan->vbri != before.vbri) return true;
        scan->next = CachedSkipHole(reader, scan->next, end);
    }
    return false;
}

/// The offset of a mark: `VbrScan::xing` or `VbrScan::vbri`.  -1 when the first quarter does not hold it.
int64_t FindMark(CachedFileReader* reader, int64_t start, int64_t VbrScan::*mark) {
    VbrScan* scan = &reader->vbr_scan;
    if (scan->start != start) *scan = VbrScan{start, start, -1, -1};
    while (scan->*mark < 0 && ContinueScan(reader)) {
    }
    return scan->*mark;
}

bool IsComplete(const CachedFileReader* reader, const MpegHeaderInfo* header) {
    return reader != nullptr && header != nullptr && header->bitrate != 0 && header->sample_rate != 0 &&
           header->version != 0 && header->layer != 0;
}

/// The play time of a number of frames, in seconds; it becomes the header's duration when it is plausible.
double ApplyFrames(MpegHeaderInfo* header, uint32_t frames) {
    const double duration = static_cast<double>(static_cast<int32_t>(frames)) *
                            MpegSamplesPerFrame(header->version, header->layer) / header->sample_rate;
    if (duration > 0.0 && duration < kMaxDuration) header->duration = duration;
    return duration;
}

/// The average bit rate of so many bytes, cut to whole bit/s; one that no record can hold is dropped.
void ApplyBytes(MpegHeaderInfo* header, uint32_t bytes, double duration) {
    const double rate = bytes / duration * 8.0;
    if (rate >= 1.0 && rate < 4294967296.0) header->bitrate = static_cast<uint32_t>(rate);
}

}  // namespace

int64_t VbrScanEnd(int64_t start, int64_t buffered, int64_t size) {
    constexpr int64_t kOverlap = kMarkSize - 1;
    constexpr int64_t kBuffer = kReadAhead - kOverlap;
    const int64_t first = std::max(start, buffered - kOverlap);
    const int64_t buffers = std::max<int64_t>(size / 4 - first + kBuffer - 1, 0) / kBuffer;
    return std::min(first + buffers * kBuffer + kOverlap, size);
}

int XingHeaderRead(CachedFileReader* reader, int64_t start, MpegHeaderInfo* header) {
    if (!IsComplete(reader, header)) return -1;
    const int64_t mark = FindMark(reader, start, &VbrScan::xing);
    if (mark < 0) return -1;
    const int flags = CachedByteAt(reader, mark + 7);
    if ((flags & kHasFrames) == 0) return -1;
    const double duration = ApplyFrames(header, ReadBe32Direct(reader, mark + 8));
    if ((flags & kHasBytes) != 0 && duration > 0.0)
        ApplyBytes(header, ReadBe32Direct(reader, mark + 12), duration);
    return 0;
}

int VbriHeaderRead(CachedFileReader* reader, int64_t start, MpegHeaderInfo* header) {
    if (!IsComplete(reader, header)) return -1;
    const int64_t mark = FindMark(reader, start, &VbrScan::vbri);
    if (mark < 0) return -1;
    const double duration = ApplyFrames(header, ReadBe32Direct(reader, mark + 14));
    if (duration > 0.0) ApplyBytes(header, ReadBe32Direct(reader, mark + 10), duration);
    return 0;
}

}  // namespace koli
