#include "compat/mp4_track.h"

#include <algorithm>
#include <cstring>

namespace koli::compat {
namespace {

// Offsets into a sample entry's payload (ISO/IEC 14496-12 clause 12.1.3 and 12.2.3).
constexpr int64_t kEntryVersion = 8;    // sound: 2 bytes, QuickTime's; else 0
constexpr int64_t kEntryChannels = 16;  // sound: 2 bytes
constexpr int64_t kEntryWidth = 24;     // pictures: 2 bytes, the height behind it
constexpr int64_t kSoundBoxes = 28;     // where the boxes begin
constexpr int64_t kPictureBoxes = 78;
constexpr int64_t kQuickTime1Extra = 16;  // bytes more, by QuickTime's version
constexpr int64_t kQuickTime2Extra = 36;

constexpr uint32_t kUnknown32 = ~uint32_t{};  // a duration that is not known, in the short form

/// "mdhd": version, flags, two times, time scale, duration; times and duration of 4 bytes in version 0 and of
/// 8 in version 1.
void ReadMediaHeader(BoxReader* reader, const Box& mdhd, Mp4Track* track) {
    uint8_t fields[32];
    if (!reader->Fields(mdhd, 0, fields, 20)) return;
    if (fields[0] == 1) {
        if (!reader->Fields(mdhd, 0, fields, 32)) return;
        track->time_scale = LoadBe32(fields + 20);
        track->duration = LoadBe64(fields + 24);
    } else {
        track->time_scale = LoadBe32(fields + 12);
        const uint32_t duration = LoadBe32(fields + 16);
        if (duration != kUnknown32) track->duration = duration;
    }
}

/// The descriptors in an "esds" box, ISO/IEC 14496-1 clause 7.2.6: each has a tag byte and a length of up to
/// four bytes of 7 bits.
class DescriptorReader {
  public:
    DescriptorReader(const uint8_t* bytes, size_t size) : bytes_(bytes), size_(size) {}

    /// Takes a descriptor's tag and length; false when another one stands here.
    bool Begin(uint8_t tag) {
        if (size_ < 1 || *bytes_ != tag) return false;
        Skip(1);
        for (int i = 0; i < 4; ++i) {
            if (size_ < 1) return false;
            const bool is_last = (*bytes_ & 0x80) == 0;
            Skip(1);
            if (is_last) break;
        }
        return true;
    }
    void Skip(size_t count) {
        count = std::min(count, size_);
        bytes_ += count;
        size_ -= count;
    }
    const uint8_t* bytes() const { return bytes_; }
    size_t size() const { return size_; }

  private:
    const uint8_t* bytes_;
    size_t size_;
};

/// The average bit rate of the decoder configuration inside the stream descriptor; 0 without one.
uint32_t AverageBitrate(const uint8_t* bytes, size_t size) {
    constexpr uint8_t kStreamDescriptor = 3, kDecoderConfig = 4;
    constexpr size_t kConfigSize = 13;  // object type 1, stream type 1, buffer 3, maximum 4, average 4
    DescriptorReader reader(bytes, size);
    if (!reader.Begin(kStreamDescriptor) || reader.size() < 3) return 0;
    const uint8_t flags = reader.bytes()[2];
    reader.Skip(3);
    if ((flags & 0x80) != 0) reader.Skip(2);  // depends on
    if ((flags & 0x40) != 0) reader.Skip(reader.size() > 0 ? reader.bytes()[0] + size_t{1} : 0);  // URL
    if ((flags & 0x20) != 0) reader.Skip(2);  // clock reference
    if (!reader.Begin(kDecoderConfig) || reader.size() < kConfigSize) return 0;
    return LoadBe32(reader.bytes() + 9);
}

/// `row` are the boxes of a sample entry.  QuickTime keeps the "esds" one level further down.
uint32_t ReadBitrate(BoxReader* reader, BoxCursor row) {
    Box esds, wave;
    if (!reader->Find(row, FourCc("esds"), &esds) &&
        !(reader->Find(row, FourCc("wave"), &wave) &&
          reader->Find(BoxReader::Inside(wave), FourCc("esds"), &esds)))
        return 0;
    constexpr size_t kMaxDescriptors = 320;  // longest way to the bit rate: a URL of 255 bytes lies before it
    uint8_t descriptors[kMaxDescriptors];
    const BoxCursor inside = BoxReader::Inside(esds, 4);  // version, flags
    const size_t size =
        static_cast<size_t>(std::min<int64_t>(inside.end - inside.position, sizeof descriptors));
    return AverageBitrate(descriptors, reader->file().Read(inside.position, descriptors, size));
}

int64_t SoundBoxes(const uint8_t* entry) {
    const uint16_t version = LoadBe16(entry + kEntryVersion);
    return kSoundBoxes + (version == 1 ? kQuickTime1Extra : version == 2 ? kQuickTime2Extra : 0);
}

/// "stsd": version, flags, count, then the sample entries; the first one counts.
void ReadSampleEntry(BoxReader* reader, const Box& stsd, Mp4Track* track) {
    uint8_t version = 0;
    uint8_t fields[kSoundBoxes];
    Box entry;
    BoxCursor entries = BoxReader::Inside(stsd, 8);
    if (!reader->Fields(stsd, 0, &version, 1) || !reader->Next(&entries, &entry) ||
        !reader->Fields(entry, 0, fields, sizeof fields))
        return;
    if (strcmp(track->type, "soun") == 0) {
        track->channels = LoadBe16(fields + kEntryChannels);
        // A version of the whole list leaves no room for QuickTime's versions of an entry.
        const int64_t boxes = version == 0 ? SoundBoxes(fields) : kSoundBoxes;
        track->bitrate = ReadBitrate(reader, BoxReader::Inside(entry, boxes));
    } else {
        track->width = LoadBe16(fields + kEntryWidth);
        track->height = LoadBe16(fields + kEntryWidth + 2);
        track->bitrate = ReadBitrate(reader, BoxReader::Inside(entry, kPictureBoxes));
    }
}

}  // namespace

Mp4Track Mp4TrackRead(BoxReader* reader, const Box& trak) {
    Mp4Track track;
    Box mdia, box;
    if (!reader->Find(BoxReader::Inside(trak), FourCc("mdia"), &mdia)) return track;
    const BoxCursor media = BoxReader::Inside(mdia);
    uint8_t handler[4];
    if (reader->Find(media, FourCc("hdlr"), &box) && reader->Fields(box, 8, handler, sizeof handler))
        memcpy(track.type, handler, sizeof handler);
    if (reader->Find(media, FourCc("mdhd"), &box)) ReadMediaHeader(reader, box, &track);

    if (strcmp(track.type, "soun") != 0 && strcmp(track.type, "vide") != 0) return track;
    if (reader->Find(media, FourCc("minf"), &box) &&
        reader->Find(BoxReader::Inside(box), FourCc("stbl"), &box) &&
        reader->Find(BoxReader::Inside(box), FourCc("stsd"), &box))
        ReadSampleEntry(reader, box, &track);
    return track;
}

}  // namespace koli::compat
