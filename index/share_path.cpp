#include "index/share_path.h"

#include <strings.h>
#include <unistd.h>

#include <cstring>

namespace koli {
namespace {

constexpr size_t kVolumeLength = 8;  // "/volume1"
constexpr const char kPhotoName[] = "photo";
constexpr size_t kPhotoNameLength = sizeof kPhotoName - 1;
constexpr const char kRecycleFolder[] = "/#recycle";
constexpr size_t kRecycleFolderLength = sizeof kRecycleFolder - 1;

bool EndsComponent(char c) {
    return c == '/' || c == '\0';
}

}  // namespace

int IsPhotoSharePath(const char* path) {
    if (path == nullptr || strnlen(path, kVolumeLength + 1) <= kVolumeLength) return 0;
    if (path[kVolumeLength] != '/') return 0;
    const char* share = path + kVolumeLength + 1;
    if (strncasecmp(share, kPhotoName, kPhotoNameLength) != 0) return 0;
    return EndsComponent(share[kPhotoNameLength]) ? 1 : 0;
}

int IsRecycleBinPath(const char* path) {
    if (path == nullptr) return 0;
    const char* slash = strchr(path, '/');
    for (int found = 1; slash != nullptr && found < 3; ++found)
        slash = strchr(slash + 1, '/');
    if (slash == nullptr || strncmp(slash, kRecycleFolder, kRecycleFolderLength) != 0) return 0;
    return EndsComponent(slash[kRecycleFolderLength]) ? 1 : 0;
}

int ShareTargetGet(const char* share_link, char (&target)[kPathSize]) {
    memset(target, 0, sizeof target);
    if (readlink(share_link, target, sizeof target - 1) < 0) return -1;
    DropTrailingSlashes(target);
    return 0;
}

void DropTrailingSlashes(char* path) {
    size_t length = strlen(path);
    while (length > 1 && path[length - 1] == '/')
        path[--length] = '\0';
}

}  // namespace koli
