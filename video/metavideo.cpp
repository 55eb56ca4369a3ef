#include "video/metavideo.h"

#include "base/float_to_uint.h"
#include "base/log.h"
#include "video/packet_audio.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metavideo";

enum SystemLayer : int32_t { kMpeg1 = 1, kMpeg2 = 2 };

constexpr int64_t kAudioPacketMargin = 15;  // bytes before the end in which no audio packet is looked at
constexpr uint32_t kStoredBitrateFactor = 1000;
constexpr int32_t kMonoMode = 3;

/// ISO/IEC 11172-1 clause 2.4.3.3: stuffing, buffer size and time stamps, each told by its first bits.
int64_t Mpeg1PayloadOffset(MpegVideoReader* reader, int64_t position) {
    position += 6;  // start code, length
    while ((MpegByteAt(reader, position) & 0x80) != 0)
        ++position;
    if ((MpegByteAt(reader, position) & 0xC0) == 0x40) position += 2;
    switch (MpegByteAt(reader, position) & 0xF0) {
        case 0x20:
            return position + 5;
        case 0x30:
            return position + 10;
        default:
            return position + 1;
    }
}

int ParseOpenFile(MpegVideoReader* reader, MediaInfo* record) {
    MpegVideoInfo info{};
    MpegHeaderInfo audio{};
    int result = 0;
    if (MpegSequenceHeaderParse(reader, 0, &info) != 0 &&
        MpegProgramStreamParse(reader, &info, &audio) != 0) {
        KOLI_LOG("Did not find video nor audio. Skip meta info");
        reader->file.reading->CannotParse("there is neither video nor audio in it");
        result = -1;
    }
    MpegVideoInfoToRecord(record, info, audio);
    return result;
}

}  // namespace

int64_t MpegPesPayloadOffset(MpegVideoReader* reader, int64_t position) {
    switch (reader->file.mode) {
        case kMpeg1:
            return Mpeg1PayloadOffset(reader, position);
        case kMpeg2:
            return position + 9 + MpegByteAt(reader, position + 8);
        default:
            return position + 10;
    }
}

int MpegProgramStreamParse(MpegVideoReader* reader, MpegVideoInfo* info, MpegHeaderInfo* audio) {
    const int64_t video = MpegStartCodeFind(reader, 0, kSequenceHeaderCode);
    if (video == -1) {
        KOLI_LOG("couldn't find any valid video.");
        return -1;
    }
    if (MpegSequenceHeaderParse(reader, video, info) != 0) {
        KOLI_LOG("failed to parse video.");
        return -1;
    }
    const int64_t packet = MpegStartCodeFind(reader, 0, kAudioStream0Code);
    if (packet == -1 || packet > reader->file.size - kAudioPacketMargin) return 0;
    PacketAudioFind(&reader->file, MpegPesPayloadOffset(reader, packet), audio);
    return 0;
}

void MpegVideoInfoToRecord(MediaInfo* record, const MpegVideoInfo& info, const MpegHeaderInfo& audio) {
    record->video_bitrate = info.bitrate_value * kStoredBitrateFactor;
    record->duration = DoubleToFloat(info.duration);
    record->width = static_cast<uint32_t>(info.width);
    record->height = static_cast<uint32_t>(info.height);
    record->audio_bitrate = audio.bitrate;
    record->sample_rate = audio.sample_rate;
    const bool has_audio = audio.sample_rate != 0;
    record->channels = !has_audio ? 0U : audio.channel_mode == kMonoMode ? 1U : 2U;
}

int MpegVideoInfoGet(const char* path, MediaInfo* record, FileReading& reading) {
    if (path == nullptr || *path == '\0' || record == nullptr) {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    MpegVideoReader reader;
    if (!CachedFileOpen(&reader.file, path, reading, LogSite(kModule))) return -1;
    reader.file.mode = kMpeg1;
    const int result = ParseOpenFile(&reader, record);
    MpegLogSuppressed(&reader);
    CachedFileClose(&reader.file);
    return result;
}

}  // namespace koli
