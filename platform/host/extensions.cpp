// What the table of formats says of an extension.
#include "base/formats.h"
#include "platform/koliindex.h"

namespace {

using koli::Format;
using koli::FormatReader;
using koli::FormatUse;

bool HasUse(const char* extension, FormatUse use) {
    const Format* format = koli::FormatFind(extension);
    return format != nullptr && format->use == use;
}

}  // namespace

extern "C" {

int BlKOLIIndexIsJpeg(const char* extension) {
    return HasUse(extension, FormatUse::kWebJpeg) ? 1 : 0;
}

int BlKOLIIndexIsPhotoOnWeb(const char* extension) {
    return HasUse(extension, FormatUse::kWebJpeg) || HasUse(extension, FormatUse::kWebPicture) ? 1 : 0;
}

int BlKOLIIndexIsVideoOnWeb(const char* extension) {
    return HasUse(extension, FormatUse::kWebVideo) ? 1 : 0;
}

// Subtitles and disc images, which nobody reads, are none.
int BlKOLIIndexIsVideo(const char* extension) {
    const Format* format = koli::FormatFind(extension);
    return format != nullptr &&
                   (format->reader == FormatReader::kVideoProbe || format->reader == FormatReader::kVideoCd)
               ? 1
               : 0;
}

int BlKOLIIndexIsPhotoOnWebFile(const char* path) {
    return BlKOLIIndexIsPhotoOnWeb(KOLIIndexExtGet(path));
}

int BlKOLIIndexIsVideoOnWebFile(const char* path) {
    return BlKOLIIndexIsVideoOnWeb(KOLIIndexExtGet(path));
}

}  // extern "C"
