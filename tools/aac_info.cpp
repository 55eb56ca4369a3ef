// koliaacinfo: prints the figures of a raw AAC stream (ADTS) on one line, for hosts whose AAC decoder cannot.
//
//     koliaacinfo -i FILE
//     aac duration;12.539;samplerate;44100;channel;2;bitrate;128012;
//
// The seconds and the bit rate are those of all the stream's whole frames; rate and channels stand in the
// first frame's header.  Exit status 0 with the line, 1 without it: no raw AAC stream, 2: wrong call.
//
// ADTS frame header, ISO/IEC 13818-7 clause 6.2, in bits:
//
//     12 sync word FFF     2 layer 0             4 sampling rate index   13 frame length in bytes
//      1 MPEG version      1 no CRC              1 private               11 buffer fullness
//                          2 profile             3 channels               2 raw data blocks - 1
//                                                4 flags
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/log.h>
}

namespace {

constexpr int kHeaderBytes = 7;
constexpr int kSamplesPerBlock = 1024;
constexpr int kSampleRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                22050, 16000, 12000, 11025, 8000,  7350};

struct AdtsHeader {
    int sample_rate;   // Hz
    int channels;      // 0 = told in the frame's data
    int frame_length;  // bytes, header included
    int samples;       // of each channel
};

/// False when no valid header stands at `bytes`.
bool DecodeHeader(const uint8_t* bytes, int size, AdtsHeader* header) {
    if (size < kHeaderBytes || bytes[0] != 0xFF || (bytes[1] & 0xF6) != 0xF0) return false;
    const int rate_index = bytes[2] >> 2 & 0x0F;
    if (rate_index >= static_cast<int>(std::size(kSampleRates))) return false;
    header->sample_rate = kSampleRates[rate_index];
    const int configuration = (bytes[2] & 0x01) << 2 | bytes[3] >> 6;
    header->channels = configuration == 7 ? 8 : configuration;
    header->frame_length = (bytes[3] & 0x03) << 11 | bytes[4] << 3 | bytes[5] >> 5;
    header->samples = ((bytes[6] & 0x03) + 1) * kSamplesPerBlock;
    return header->frame_length >= kHeaderBytes;
}

struct StreamFigures {
    AdtsHeader first = {};
    double seconds = 0;
    int64_t bits = 0;
    int64_t frames = 0;
    int64_t adjoining = 0;          // frames that stand directly behind another, or at the file's start
    int64_t expected_position = 0;  // where the next frame would adjoin

    void Add(const AdtsHeader& header, int64_t position) {
        if (frames++ == 0) first = header;
        if (position == expected_position) ++adjoining;
        expected_position = position + header.frame_length;
        seconds += static_cast<double>(header.samples) / header.sample_rate;
        bits += int64_t{header.frame_length} * 8;
    }

    /// Sync words turn up by chance in any data; a stream's frames follow each other.
    bool IsStream() const { return frames > 0 && adjoining >= (frames + 1) / 2; }
};

struct CloseInput {
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

/// Opens a raw AAC stream and nothing else, from the local file alone.  Null on failure.
std::unique_ptr<AVFormatContext, CloseInput> OpenAac(const char* path) {
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    av_dict_set(&options, "format_whitelist", "aac", 0);
    AVFormatContext* input = nullptr;
    const std::string url = std::string("file:") + path;
    const int result = avformat_open_input(&input, url.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (result < 0) return nullptr;
    input->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;  // packets as the demuxer cuts them
    return std::unique_ptr<AVFormatContext, CloseInput>(input);
}

bool PrintFigures(const char* path) {
    const auto input = OpenAac(path);
    const std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
    if (input == nullptr || packet == nullptr) return false;

    StreamFigures figures;
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        AdtsHeader header;
        if (DecodeHeader(packet->data, packet->size, &header) && packet->size == header.frame_length)
            figures.Add(header, packet->pos);
        av_packet_unref(packet.get());
    }
    if (!figures.IsStream()) return false;
    const auto bitrate = static_cast<int64_t>(static_cast<double>(figures.bits) / figures.seconds);
    return printf("aac duration;%.3f;samplerate;%d;channel;%d;bitrate;%lld;\n", figures.seconds,
                  figures.first.sample_rate, figures.first.channels, static_cast<long long>(bitrate)) > 0 &&
           fflush(stdout) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 || strcmp(argv[1], "-i") != 0) {
        fprintf(stderr, "usage: koliaacinfo -i FILE\n");
        return 2;
    }
    av_log_set_level(AV_LOG_QUIET);
    return PrintFigures(argv[2]) ? 0 : 1;
}
