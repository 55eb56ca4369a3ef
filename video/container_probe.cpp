#include "video/container_probe.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

#include <malloc.h>
#include <unistd.h>

#include <cctype>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <vector>

#include "base/log.h"
#include "base/parse_number.h"
#include "base/path_names.h"
#include "base/regular_file.h"
#include "video/id3_latin.h"
#include "video/media_input.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metamedia";

/// Demuxers, by the names that the library gives them (one of several names is enough), that read nothing but
/// the file itself: no playlists, no concat scripts, no streaming manifests, no session descriptions, no
/// image sequences.  What they would open is refused, but only of these does a file hold all that they tell.
constexpr const char kFormats[] =
    "aac,ac3,eac3,aiff,amr,ape,asf,au,avi,caf,dts,flac,flv,m4v,matroska,mov,mp3,mpc,mpc8,mpeg,mpegts,mpegvideo,ogg,rm,swf,tta,truehd,w64,wav,wtv,wv,xwma";

/// Decoders of the usual files, all of the library's own making.
constexpr AVCodecID kUsualCodecs[] = {AV_CODEC_ID_H264,       AV_CODEC_ID_HEVC,  AV_CODEC_ID_MPEG1VIDEO,
                                      AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_MPEG4, AV_CODEC_ID_MSMPEG4V3,
                                      AV_CODEC_ID_FLV1,       AV_CODEC_ID_WMV2,  AV_CODEC_ID_AAC,
                                      AV_CODEC_ID_AC3,        AV_CODEC_ID_MP2,   AV_CODEC_ID_MP3,
                                      AV_CODEC_ID_VORBIS};

constexpr int64_t kMicroseconds = 1000000;

// The linear PCM identifiers of 16 bits a sample, and behind them those of 8 bits.
static_assert(AV_CODEC_ID_PCM_S16LE == 0x10000 && AV_CODEC_ID_PCM_U16BE == 0x10003);
static_assert(AV_CODEC_ID_PCM_S8 == 0x10004 && AV_CODEC_ID_PCM_ALAW == 0x10007);

/// Opens and closes a decoder without any data.
void WarmUpDecoder(AVCodecID id) {
    struct FreeDecoder {
        void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    };
    const AVCodec* codec = avcodec_find_decoder(id);
    const std::unique_ptr<AVCodecContext, FreeDecoder> context(avcodec_alloc_context3(codec));
    if (context == nullptr) return;
    context->thread_count = 1;
    context->width = context->height = 16;
    context->sample_rate = 44100;
    av_channel_layout_default(&context->ch_layout, 2);
    avcodec_open2(context.get(), codec, nullptr);  // one that refuses has made its tables all the same
}

/// Has the library look into the streams, whose decoders need not make the pictures look well: nobody sees
/// them.
bool FindStreams(AVFormatContext* input) {
    std::vector<AVDictionary*> options(input->nb_streams);
    for (AVDictionary*& option : options)
        av_dict_set(&option, "skip_loop_filter", "all", 0);
    const bool is_found = avformat_find_stream_info(input, options.empty() ? nullptr : options.data()) >= 0;
    for (AVDictionary*& option : options)
        av_dict_free(&option);
    return is_found;
}

/// The tags of a container.  Ogg keeps them on its streams: there the first audio stream is asked for what
/// the container itself lacks.
class Tags {
  public:
    explicit Tags(AVFormatContext& context) : container_(context.metadata), id3_(&context) {
        if (strcmp(context.iformat->name, "ogg") != 0) return;
        for (unsigned i = 0; i < context.nb_streams && stream_ == nullptr; ++i)
            if (context.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
                stream_ = context.streams[i]->metadata;
    }

    /// Copies the text of the first of the names that has one, if any.
    template <size_t N>
    void CopyIfAny(char (&field)[N], std::initializer_list<const char*> names) {
        const char* text = First(names, [](const char* candidate) { return *candidate != '\0'; });
        if (text != nullptr) CopyText(field, N, id3_.BytesOf(text).c_str());
    }
    /// The leading digits of the first of the names that has some, or 0.
    int32_t Number(std::initializer_list<const char*> names) const {
        const char* text =
            First(names, [](const char* candidate) { return isdigit(*Digits(candidate)) != 0; });
        return text != nullptr ? ParseInt32(text, nullptr) : 0;
    }

  private:
    static const unsigned char* Digits(const char* text) {
        return reinterpret_cast<const unsigned char*>(text + strspn(text, " \t\n\v\f\r"));
    }
    template <typename Test>
    const char* First(std::initializer_list<const char*> names, Test usable) const {
        for (const AVDictionary* tags : {container_, stream_})
            for (const char* name : names) {
                const AVDictionaryEntry* tag = av_dict_get(tags, name, nullptr, 0);
                if (tag != nullptr && usable(tag->value)) return tag->value;
            }
        return nullptr;
    }

    const AVDictionary* container_;
    const AVDictionary* stream_ = nullptr;
    Id3Latin id3_;
};

void ReadContainer(const AVFormatContext& context, Tags& tags, MediaInfo* record) {
    record->video_bitrate = static_cast<uint32_t>(context.bit_rate);
    const int64_t seconds = context.duration / kMicroseconds;
    record->duration = static_cast<float>(seconds);
    tags.CopyIfAny(record->genre, {"genre"});
    tags.CopyIfAny(record->artist, {"artist", "author"});
    tags.CopyIfAny(record->title, {"title"});
    if (const int32_t year = tags.Number({"date", "year"}); year != 0) record->year = year;
    record->track = tags.Number({"track"});
}

/// The bit rate of an audio stream in bit/s, 0 when unknown.
uint32_t AudioBitRate(const AVCodecParameters& codec) {
    const auto samples =
        static_cast<uint32_t>(codec.sample_rate) * static_cast<uint32_t>(codec.ch_layout.nb_channels);
    if (codec.codec_id >= AV_CODEC_ID_PCM_S16LE && codec.codec_id <= AV_CODEC_ID_PCM_U16BE)
        return samples * 16;
    if (codec.codec_id >= AV_CODEC_ID_PCM_S8 && codec.codec_id <= AV_CODEC_ID_PCM_ALAW) return samples * 8;
    return static_cast<uint32_t>(codec.bit_rate);
}

struct Found {
    bool video = false;
    bool audio = false;
};

void ReadVideo(const AVCodecParameters& codec, MediaInfo* record) {
    if (codec.width == 0) return;
    record->width = static_cast<uint32_t>(codec.width);
    record->height = static_cast<uint32_t>(codec.height);
}

void ReadAudio(const AVCodecParameters& codec, MediaInfo* record) {
    record->channels = static_cast<uint32_t>(codec.ch_layout.nb_channels);
    if (codec.sample_rate != 0) record->sample_rate = static_cast<uint32_t>(codec.sample_rate);
    if (const uint32_t rate = AudioBitRate(codec); rate != 0) record->audio_bitrate = rate;
}

/// Reads one stream.  False for a type that means nothing here (logged).
bool ReadStream(const AVStream& stream, const char* path, Found* found, MediaInfo* record) {
    const AVCodecParameters& codec = *stream.codecpar;
    switch (codec.codec_type) {
        case AVMEDIA_TYPE_VIDEO:
            if ((stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) return true;
            ReadVideo(codec, record);
            found->video = true;
            return true;
        case AVMEDIA_TYPE_AUDIO:
            ReadAudio(codec, record);
            found->audio = true;
            return true;
        case AVMEDIA_TYPE_DATA:
        case AVMEDIA_TYPE_SUBTITLE:
            return true;
        default:
            KOLI_LOG_COLON("Invalid stream type:%d from [%s].", static_cast<int>(codec.codec_type), path);
            return false;
    }
}

}  // namespace

void ContainerProbeWarmUp() {
    static bool done = false;
    if (done) return;
    done = true;
    av_log_set_level(AV_LOG_QUIET);
    for (const AVCodecID id : kUsualCodecs)
        WarmUpDecoder(id);
    malloc_trim(0);  // a child would copy what the decoders have left behind, page by page
}

int MiscMediaInfoProbe(const char* path, MediaInfo* record, FileReading& reading) {
    const int file = RegularFile(path).Release();
    const int result = MiscMediaInfoProbeFile(file, path, record, reading);
    if (file >= 0) close(file);
    return result;
}

int MiscMediaInfoProbeFile(int file, const char* path, MediaInfo* record, FileReading& reading) {
    av_log_set_level(AV_LOG_QUIET);
    const MediaInput container(file, path, kFormats, reading);
    AVFormatContext* const input = container.get();
    if (input == nullptr) {
        KOLI_LOG("Failed to av_open_input_file() file [%s].", path);
        return reading.CannotParse("the container could not be opened"), 1;
    }
    if (!FindStreams(input)) {
        KOLI_LOG("Could not find codec parameters.  %s", path);
        return reading.CannotParse("the streams of the container could not be made out"), 1;
    }
    Tags tags(*input);
    ReadContainer(*input, tags, record);

    Found found;
    for (unsigned i = 0; i < input->nb_streams; ++i)
        if (!ReadStream(*input->streams[i], path, &found, record))
            return reading.CannotParse("there is a stream of an unknown type in the container"), 1;
    if (!found.video && !found.audio)
        return reading.CannotParse("there is neither sound nor picture in the container"), 1;
    if (!found.video) tags.CopyIfAny(record->album, {"album"});
    return 0;
}

}  // namespace koli
