#include "photo/albums/album_name.h"

#include <cstring>

#include "base/log.h"
#include "index/record/share_path.h"
#include "platform/paths.h"

namespace koli {
namespace {

constexpr const char kModule[] = "photo_share";

int DepthOf(const char* name) {
    if (*name == '\0') return kNoAlbum;
    const char* slash = strchr(name, '/');
    if (slash == nullptr) return kTopAlbum;
    return strchr(slash + 1, '/') == nullptr ? kSubAlbum : kNoAlbum;
}

}  // namespace

int PhotoShareDepth(const char* path) {
    if (path == nullptr || *path == '\0') {
        KOLI_LOG("Bad parameter.");
        return kNoAlbum;
    }
    return DepthOf(AlbumNameOf(path));
}

int AlbumLevelOf(const char* path) {
    const char* name = AlbumNameOf(path);
    const char* inside = IsRecycleBinPath(path) != 0 ? strchr(name, '/') : nullptr;
    return DepthOf(inside != nullptr ? inside + 1 : name);
}

const char* AlbumNameOf(const char* path) {
    const size_t length = strlen(path);
    return length > kShareTopLength ? path + kShareTopLength + 1 : path + length;
}

bool IsShareTop(const char* path) {
    return strlen(path) == kShareTopLength;
}

bool IsOnOtherVolume(const char* path) {
    char target[kPathSize];
    if (!ShareTargetGet(paths::kPhotoShare, target)) return false;
    if (strlen(target) <= kVolumeLength || target[kVolumeLength] != '/') return false;
    return strncmp(path, target, kVolumeLength + 1) != 0;
}

}  // namespace koli
