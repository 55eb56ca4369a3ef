#include "base/formats.h"

#include <strings.h>

#include <iterator>

namespace koli {
namespace {

/// Searched from the top, the first match wins.  "mp4" is video although "m4a" and its like go through the
/// MP4 reader as music; disc images and subtitles are stored as video without being opened.
constexpr Format kFormats[] = {
    {"mp3", FormatReader::kMp3},
    {"mp1", FormatReader::kMusicProbe},
    {"mp2", FormatReader::kMusicProbe},
    {"mpa", FormatReader::kMusicProbe},
    {"wma", FormatReader::kMusicProbe},
    {"wav", FormatReader::kMusicProbe},
    {"ogg", FormatReader::kMusicProbe},
    {"m4a", FormatReader::kMp4},
    {"aac", FormatReader::kAac},
    {"ac3", FormatReader::kMusicProbe},
    {"ram", FormatReader::kMusicProbe},
    {"ra", FormatReader::kMusicProbe},
    {"m4p", FormatReader::kMp4},
    {"flac", FormatReader::kFlac},
    {"aiff", FormatReader::kAiff},
    {"aif", FormatReader::kAiff},
    {"pcm", FormatReader::kMusicName},
    {"m4b", FormatReader::kMp4},
    {"ape", FormatReader::kMusicProbe},
    {"m3u", FormatReader::kPlaylist},
    {"wpl", FormatReader::kPlaylist},
    {"avi", FormatReader::kVideoProbe},
    {"mpg", FormatReader::kVideoProbe},
    {"mpeg", FormatReader::kVideoProbe},
    {"dat", FormatReader::kVideoCd},
    {"asf", FormatReader::kVideoProbe},
    {"wmv", FormatReader::kVideoProbe},
    {"vob", FormatReader::kVideoProbe},
    {"mov", FormatReader::kVideoProbe},
    {"rm", FormatReader::kVideoProbe},
    {"rmvb", FormatReader::kVideoProbe},
    {"mp4", FormatReader::kVideoProbe, FormatUse::kWebVideo},
    {"divx", FormatReader::kVideoProbe},
    {"xvid", FormatReader::kVideoProbe},
    {"flv", FormatReader::kVideoProbe, FormatUse::kWebVideo},
    {"mkv", FormatReader::kVideoProbe},
    {"ts", FormatReader::kVideoProbe},
    {"m2ts", FormatReader::kVideoProbe},
    {"m2t", FormatReader::kVideoProbe},
    {"mts", FormatReader::kVideoProbe},
    {"m4v", FormatReader::kVideoProbe, FormatUse::kWebVideo},
    {"3gp", FormatReader::kVideoProbe},
    {"3g2", FormatReader::kVideoProbe},
    {"qt", FormatReader::kVideoProbe},
    {"swf", FormatReader::kVideoProbe},
    {"dvr-ms", FormatReader::kVideoProbe},
    {"iso", FormatReader::kVideoName},
    {"ifo", FormatReader::kVideoName},
    {"srt", FormatReader::kVideoName},
    {"ass", FormatReader::kVideoName},
    {"ssa", FormatReader::kVideoName},
    {"idx", FormatReader::kVideoName},
    {"sub", FormatReader::kVideoName},
    {"smi", FormatReader::kVideoName},
    {"psb", FormatReader::kVideoName},
    {"trp", FormatReader::kVideoProbe},
    {"tp", FormatReader::kVideoProbe},
    {"jpg", FormatReader::kPicture, FormatUse::kWebJpeg},
    {"jpeg", FormatReader::kPicture, FormatUse::kWebJpeg},
    {"jpe", FormatReader::kPicture, FormatUse::kWebJpeg},
    {"bmp", FormatReader::kPicture, FormatUse::kWebPicture},
    {"gif", FormatReader::kPicture, FormatUse::kWebPicture},
    {"ico", FormatReader::kPicture},
    {"png", FormatReader::kPicture, FormatUse::kWebPicture},
    {"psd", FormatReader::kPicture},
    {"tif", FormatReader::kPicture},
    {"tiff", FormatReader::kPicture},
    {"ufo", FormatReader::kPicture, FormatUse::kUnmeasured},
};
static_assert(std::size(kFormats) == 68);

/// By FormatReader.
constexpr StoreType kStores[] = {kStoreMusic, kStoreMusic, kStoreMusic, kStoreMusic,
                                 kStoreMusic, kStoreMusic, kStoreMusic, kStorePlaylist,
                                 kStoreVideo, kStoreVideo, kStoreVideo, kStorePhoto};
static_assert(std::size(kStores) == static_cast<size_t>(FormatReader::kCount));

}  // namespace

std::span<const Format> Formats() {
    return kFormats;
}

const Format* FormatFind(const char* extension) {
    if (extension == nullptr) return nullptr;
    // Setting bit 5 turns an upper-case letter into its lower-case one and leaves digits alone: a cheap first
    // look, asked once per row and file.
    const int first = static_cast<unsigned char>(extension[0]) | 0x20;
    for (const Format& format : kFormats)
        if (format.extension[0] == first && strcasecmp(format.extension, extension) == 0) return &format;
    return nullptr;
}

StoreType FormatStore(FormatReader reader) {
    return kStores[static_cast<size_t>(reader)];
}

}  // namespace koli
