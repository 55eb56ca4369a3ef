#include "tools/aac/adts_stream.h"

#include <cstring>
#include <iterator>

#include "base/regular_file.h"
#include "compat/big_endian_fields.h"

namespace koli {
namespace {

constexpr int64_t kHeaderBytes = 7;
constexpr int64_t kId3v1Bytes = 128;
constexpr int64_t kSamplesPerBlock = 1024;
constexpr int kSampleRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                22050, 16000, 12000, 11025, 8000,  7350};

struct AdtsHeader {
    uint32_t fixed;   // what is the same in all headers of a stream
    int sample_rate;  // Hz
    int channels;     // 0 = told in the frame's data
    int64_t length;   // bytes of the frame, header included
    int64_t samples;  // of each channel
};

int64_t LengthIn(const uint8_t* bytes) {
    return (bytes[3] & 0x03) << 11 | bytes[4] << 3 | bytes[5] >> 5;
}

/// False when no valid header stands at `bytes`.
bool DecodeHeader(const uint8_t* bytes, AdtsHeader* header) {
    if (bytes[0] != 0xFF || (bytes[1] & 0xF6) != 0xF0) return false;
    const int rate_index = bytes[2] >> 2 & 0x0F;
    if (rate_index >= static_cast<int>(std::size(kSampleRates))) return false;
    header->fixed = compat::LoadBe32(bytes) >> 4;
    header->sample_rate = kSampleRates[rate_index];
    const int configuration = (bytes[2] & 0x01) << 2 | bytes[3] >> 6;
    header->channels = configuration == 7 ? 8 : configuration;
    header->length = LengthIn(bytes);
    header->samples = ((bytes[6] & 0x03) + 1) * kSamplesPerBlock;
    return header->length >= kHeaderBytes;
}

class AdtsScan {
  public:
    bool Run(const char* path, AdtsFigures* figures);

  private:
    const uint8_t* At(int64_t offset, int64_t count);
    int64_t EndOfTags();
    bool HeaderAt(int64_t offset, AdtsHeader* header);
    bool IsFrame(int64_t offset);
    int64_t FindFrame(int64_t offset);
    bool IsIntact(int64_t offset, const AdtsHeader& header, int64_t next_frame);
    bool IsStream(int64_t start, int64_t end) const;
    void Add(int64_t offset, const AdtsHeader& header);

    MediaFile file_;
    AdtsFigures sum_;
    uint32_t fixed_ = 0;  // of the frame added last, before that of the first header; 0 = none has been seen
    int64_t end_ = 0;     // of the frame added last
    int64_t adjoining_ = 0;  // frames that stand directly behind another, or where the stream begins
    int64_t window_start_ = 0;
    int64_t window_size_ = 0;
    uint8_t window_[65536];  // the file's bytes from window_start_ on
};

/// `count` bytes, valid until the next call; null when the file does not hold them all.
const uint8_t* AdtsScan::At(int64_t offset, int64_t count) {
    if (offset < window_start_ || offset + count > window_start_ + window_size_) {
        window_start_ = offset;
        window_size_ = static_cast<int64_t>(file_.Read(offset, window_, sizeof window_));
        if (window_size_ < count) return nullptr;
    }
    return window_ + (offset - window_start_);
}

/// ID3v2.4 section 3: 10 bytes with the length of what follows, and a footer if bit 4 of the flags is set.
int64_t AdtsScan::EndOfTags() {
    int64_t end = 0;
    for (const uint8_t* tag = At(0, 10); tag != nullptr && memcmp(tag, "ID3", 3) == 0; tag = At(end, 10)) {
        end += (tag[5] & 0x10) != 0 ? 20 : 10;
        end += (tag[6] & 0x7F) << 21 | (tag[7] & 0x7F) << 14 | (tag[8] & 0x7F) << 7 | (tag[9] & 0x7F);
    }
    return end;
}

bool AdtsScan::HeaderAt(int64_t offset, AdtsHeader* header) {
    const uint8_t* bytes = At(offset, kHeaderBytes);
    return bytes != nullptr && DecodeHeader(bytes, header);
}

/// Whether a whole frame is likely to stand at `offset`: one of the stream, by the 28 bits that tell it, or
/// one with two of its own kind behind it.
bool AdtsScan::IsFrame(int64_t offset) {
    AdtsHeader header, next;
    if (!HeaderAt(offset, &header) || offset + header.length > file_.size()) return false;
    if (header.fixed == fixed_) return true;
    int64_t behind = offset + header.length;
    for (int i = 0; i < 2 && behind != file_.size(); ++i) {
        if (!HeaderAt(behind, &next) || next.fixed != header.fixed) return false;
        behind += next.length;
    }
    return true;
}

/// The first frame from `offset` on, the file's size when there is none.
int64_t AdtsScan::FindFrame(int64_t offset) {
    while (const uint8_t* bytes = At(offset, kHeaderBytes)) {
        const int64_t count = window_start_ + window_size_ - offset - (kHeaderBytes - 1);
        const auto* sync = static_cast<const uint8_t*>(memchr(bytes, 0xFF, static_cast<size_t>(count)));
        if (sync == nullptr) {
            offset = file_.SkipHole(offset + count);
            continue;
        }
        offset += sync - bytes;
        if (IsFrame(offset)) return offset;
        ++offset;
    }
    return file_.size();
}

/// Whether the frame at `offset` is as long as its header says, judged by where the next one is found.  When
/// it is not found at its end, either this length is damaged or the header behind it: that one may still tell
/// the right length, and a wrong length here leaves about one frame between the two.
bool AdtsScan::IsIntact(int64_t offset, const AdtsHeader& header, int64_t next_frame) {
    const int64_t end = offset + header.length;
    if (next_frame <= end) return next_frame == end;
    if (next_frame == file_.size() || sum_.frames == 0) return true;
    const uint8_t* behind = At(end, kHeaderBytes);
    if (behind != nullptr && LengthIn(behind) == next_frame - end) return true;
    return next_frame - offset > sum_.bytes * 3 / (sum_.frames * 2);  // in this order: a hole may be vast
}

void AdtsScan::Add(int64_t offset, const AdtsHeader& header) {
    if (sum_.frames++ == 0) {
        sum_.sample_rate = header.sample_rate;
        sum_.channels = header.channels;
    }
    sum_.ticks += header.samples * (AdtsFigures::kTicksPerSecond / header.sample_rate);
    sum_.bytes += header.length;
    if (offset == end_) ++adjoining_;
    fixed_ = header.fixed;
    end_ = offset + header.length;
}

bool AdtsScan::IsStream(int64_t start, int64_t end) const {
    if (sum_.frames == 1) return end_ == end || end_ == end - kId3v1Bytes;
    return adjoining_ * 2 > sum_.frames || sum_.bytes > (end - start) / 4;
}

bool AdtsScan::Run(const char* path, AdtsFigures* figures) {
    FileReading reading(path);
    if (!file_.Open(path, reading)) return false;
    const int64_t start = EndOfTags(), end = file_.size();
    end_ = start;
    for (int64_t offset = start; offset < end;) {
        AdtsHeader header, next;
        if (!HeaderAt(offset, &header)) {
            offset = FindFrame(offset + 1);
            continue;
        }
        if (fixed_ == 0) fixed_ = header.fixed;
        const int64_t behind = offset + header.length;
        const bool is_followed = behind == end || (HeaderAt(behind, &next) && next.fixed == header.fixed);
        const int64_t next_frame = is_followed ? behind : FindFrame(offset + 1);
        if (behind <= end && IsIntact(offset, header, next_frame)) Add(offset, header);
        offset = next_frame;
    }
    *figures = sum_;
    return sum_.frames > 0 && IsStream(start, end) && reading.IsWhole();
}

}  // namespace

bool AdtsRead(const char* path, AdtsFigures* figures) {
    return AdtsScan().Run(path, figures);
}

double AdtsSeconds(const AdtsFigures& figures) {
    return static_cast<double>(figures.ticks) / AdtsFigures::kTicksPerSecond;
}

int64_t AdtsBitrate(const AdtsFigures& figures) {
    // The product with all ticks of a second would overflow: a long division, by two factors of them.
    constexpr int64_t kFactors[] = {5040, 5600};
    static_assert(kFactors[0] * kFactors[1] == AdtsFigures::kTicksPerSecond);
    const int64_t bits = figures.bytes * 8;
    int64_t rate = bits / figures.ticks, rest = bits % figures.ticks;
    for (const int64_t factor : kFactors) {
        rate = rate * factor + rest * factor / figures.ticks;
        rest = rest * factor % figures.ticks;
    }
    return rate;
}

}  // namespace koli
