// The extension lists of the indexers.
#include <strings.h>

#include <algorithm>
#include <iterator>

#include "platform/koliindex.h"

namespace {

constexpr const char* kJpeg[] = {"jpg", "jpeg", "jpe"};
constexpr const char* kPhotoOnWeb[] = {"jpg", "jpeg", "jpe", "bmp", "gif", "png"};
constexpr const char* kVideoOnWeb[] = {"flv", "mp4", "m4v"};

// Every extension whose add handler probes or parses a video; subtitles and disc images are none.
constexpr const char* kVideo[] = {"avi",  "mpg", "mpeg", "dat",  "asf", "wmv", "vob",    "mov",  "rm",
                                  "rmvb", "mp4", "divx", "xvid", "flv", "mkv", "ts",     "m2ts", "m2t",
                                  "mts",  "m4v", "3gp",  "3g2",  "qt",  "swf", "dvr-ms", "trp",  "tp"};
static_assert(std::size(kVideo) == 27);

template <typename List>
int IsIn(const List& list, const char* extension) {
    const auto equal = [extension](const char* known) { return strcasecmp(known, extension) == 0; };
    return extension != nullptr && std::any_of(std::begin(list), std::end(list), equal) ? 1 : 0;
}

}  // namespace

extern "C" {

int BlKOLIIndexIsJpeg(const char* extension) {
    return IsIn(kJpeg, extension);
}

int BlKOLIIndexIsPhotoOnWeb(const char* extension) {
    return IsIn(kPhotoOnWeb, extension);
}

int BlKOLIIndexIsVideoOnWeb(const char* extension) {
    return IsIn(kVideoOnWeb, extension);
}

int BlKOLIIndexIsVideo(const char* extension) {
    return IsIn(kVideo, extension);
}

int BlKOLIIndexIsPhotoOnWebFile(const char* path) {
    return BlKOLIIndexIsPhotoOnWeb(KOLIIndexExtGet(path));
}

int BlKOLIIndexIsVideoOnWebFile(const char* path) {
    return BlKOLIIndexIsVideoOnWeb(KOLIIndexExtGet(path));
}

}  // extern "C"
