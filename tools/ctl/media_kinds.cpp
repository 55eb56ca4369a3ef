#include "tools/ctl/media_kinds.h"

#include <strings.h>

#include <cstring>
#include <iterator>

#include "base/media_info.h"
#include "base/path_names.h"
#include "index/share_path.h"
#include "platform/koliindex.h"

namespace koli::ctl {
namespace {

constexpr MediaKind kKinds[] = {
    {"mp3", kStoreMusic},    {"mp1", kStoreMusic},    {"mp2", kStoreMusic},  {"mpa", kStoreMusic},
    {"wma", kStoreMusic},    {"wav", kStoreMusic},    {"ogg", kStoreMusic},  {"m4a", kStoreMusic},
    {"aac", kStoreMusic},    {"ac3", kStoreMusic},    {"ram", kStoreMusic},  {"ra", kStoreMusic},
    {"m4p", kStoreMusic},    {"flac", kStoreMusic},   {"aiff", kStoreMusic}, {"aif", kStoreMusic},
    {"pcm", kStoreMusic},    {"m4b", kStoreMusic},    {"ape", kStoreMusic},  {"m3u", kStorePlaylist},
    {"wpl", kStorePlaylist}, {"avi", kStoreVideo},    {"mpg", kStoreVideo},  {"mpeg", kStoreVideo},
    {"dat", kStoreVideo},    {"asf", kStoreVideo},    {"wmv", kStoreVideo},  {"vob", kStoreVideo},
    {"mov", kStoreVideo},    {"rm", kStoreVideo},     {"rmvb", kStoreVideo}, {"mp4", kStoreVideo},
    {"divx", kStoreVideo},   {"xvid", kStoreVideo},   {"flv", kStoreVideo},  {"mkv", kStoreVideo},
    {"ts", kStoreVideo},     {"m2ts", kStoreVideo},   {"m2t", kStoreVideo},  {"mts", kStoreVideo},
    {"m4v", kStoreVideo},    {"3gp", kStoreVideo},    {"3g2", kStoreVideo},  {"qt", kStoreVideo},
    {"swf", kStoreVideo},    {"dvr-ms", kStoreVideo}, {"iso", kStoreVideo},  {"ifo", kStoreVideo},
    {"srt", kStoreVideo},    {"ass", kStoreVideo},    {"ssa", kStoreVideo},  {"idx", kStoreVideo},
    {"sub", kStoreVideo},    {"smi", kStoreVideo},    {"psb", kStoreVideo},  {"trp", kStoreVideo},
    {"tp", kStoreVideo},     {"jpg", kStorePhoto},    {"jpeg", kStorePhoto}, {"jpe", kStorePhoto},
    {"bmp", kStorePhoto},    {"gif", kStorePhoto},    {"ico", kStorePhoto},  {"png", kStorePhoto},
    {"psd", kStorePhoto},    {"tif", kStorePhoto},    {"tiff", kStorePhoto}, {"ufo", kStorePhoto},
};
static_assert(std::size(kKinds) == 68);

int KindOfExtension(const char* extension) {
    // Bit 5 makes a letter lower case and leaves digits alone.
    const int first = static_cast<unsigned char>(extension[0]) | 0x20;
    for (const MediaKind& kind : kKinds)
        if (kind.extension[0] == first && strcasecmp(kind.extension, extension) == 0) return kind.type;
    return kNotIndexed;
}

}  // namespace

std::span<const MediaKind> MediaKinds() {
    return kKinds;
}

int MediaKindOf(const char* path) {
    const char* extension = KOLIIndexExtGet(path);
    if (extension == nullptr || strncmp(FileNameOf(path), "._", 2) == 0) return kNotIndexed;
    const int type = KindOfExtension(extension);
    return type == kStorePhoto && strstr(path, "@eaDir") != nullptr ? kNotIndexed : type;
}

bool IsLibraryPhoto(const char* path, long long size) {
    return size >= 1 && size <= kLibraryPhotoMaxSize && IsPhotoSharePath(path) != 0 &&
           FileNameOf(path)[0] != '.' && BlKOLIIndexIsPhotoOnWebFile(path) != 0 &&
           strstr(path, "@eaDir") == nullptr;
}

}  // namespace koli::ctl
