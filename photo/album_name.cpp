#include "photo/album_name.h"

#include <cstring>

#include "base/log.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";

}  // namespace

int PhotoShareDepth(const char* path) {
    if (path == nullptr || *path == '\0') {
        KOLI_LOG("%s (%d) Bad parameter.");
        return kNoAlbum;
    }
    const char* name = AlbumNameOf(path);
    if (*name == '\0') return kNoAlbum;
    const char* slash = strchr(name, '/');
    if (slash == nullptr) return kTopAlbum;
    return strchr(slash + 1, '/') == nullptr ? kSubAlbum : kNoAlbum;
}

const char* AlbumNameOf(const char* path) {
    const size_t length = strlen(path);
    return length > kShareTopLength ? path + kShareTopLength + 1 : path + length;
}

bool IsShareTop(const char* path) {
    return strlen(path) == kShareTopLength;
}

}  // namespace koli
