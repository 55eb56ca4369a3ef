#include "video/packet_audio.h"

#include <algorithm>

namespace koli {
namespace {

constexpr int64_t kSearchMargin = 10;     // bytes before the end in which no frame begins
constexpr size_t kMaxFrameLength = 1729;  // Layer II: 384 kbit/s at 32000 Hz, with padding

/// The runs of zero bytes at the head of the file, by the offset where they begin to be counted.  Measured
/// once: the search below asks for them again and again.
class HeadZeros {
  public:
    explicit HeadZeros(CachedFileReader* reader) {
        uint8_t head[kSize];
        CachedCopy(reader, 0, head, sizeof head);
        ends_[kSize] = head[kSize - 1] == 0 ? CachedSkipZeros(reader, kSize, reader->size) : kSize;
        for (size_t at = kSize; at-- > 0;)
            ends_[at] = head[at] != 0 ? static_cast<int64_t>(at) : ends_[at + 1];
    }

    /// How many zero bytes stand from `offset` (at most kMaxFrameLength + 1) on.
    int64_t CountFrom(size_t offset) const { return ends_[offset] - static_cast<int64_t>(offset); }

  private:
    static constexpr size_t kSize = kMaxFrameLength + 2;

    int64_t ends_[kSize + 1];  // by offset: where the run ends that holds it
};

/// Confirms frames by the header behind them.
class FollowerCheck {
  public:
    explicit FollowerCheck(CachedFileReader* reader) : near_(reader), zeros_(reader) {
        far_.fp = reader->fp;
        far_.reading = reader->reading;
        far_.size = reader->size;
        far_.end_of_file = reader->end_of_file;
    }

    /// The zero bytes that may stand before the next header are counted at the file's head, not behind the
    /// frame: what has been stored so far relies on it.
    bool IsFollowed(const MpegHeaderInfo& frame) {
        const int64_t behind = frame.position + frame.frame_length;
        const int64_t left = std::max<int64_t>(near_->size - behind, 0);
        const int64_t zeros = zeros_.CountFrom(static_cast<size_t>(frame.frame_length) + 1);
        const int64_t next = behind + std::min(zeros, left);
        // A long way ahead has a buffer of its own: one buffer would be filled twice for each frame.
        CachedFileReader* reader = next - frame.position > kReadAhead / 2 ? &far_ : near_;
        return MpegFrameCheck(reader, next) == 0;
    }

  private:
    CachedFileReader* near_;
    CachedFileReader far_ = {};  // on the same file, which it does not own
    HeadZeros zeros_;
};

}  // namespace

void PacketAudioFind(CachedFileReader* reader, int64_t position, MpegHeaderInfo* audio) {
    if (MpegFrameFind(reader, &position, audio) != 0) return;
    if (position < reader->size - kSearchMargin) {
        FollowerCheck check(reader);
        for (; position < reader->size - kSearchMargin; position = MpegSkipBadSyncs(reader, position + 1))
            if (MpegFrameFind(reader, &position, audio) != 0 && check.IsFollowed(*audio)) return;
    }
    *audio = MpegHeaderInfo{};
}

}  // namespace koli
