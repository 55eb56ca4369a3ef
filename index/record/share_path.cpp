#include "index/record/share_path.h"

#include <strings.h>
#include <unistd.h>

#include <cstring>

namespace koli {
namespace {

constexpr const char kPhotoName[] = "photo";
constexpr size_t kPhotoNameLength = sizeof kPhotoName - 1;

bool EndsComponent(char c) {
    return c == '/' || c == '\0';
}

/// Takes each ".." of an absolute path, with the component in front of it, out of its text; above the root
/// there is nothing.
void ResolveParents(char* path) {
    if (*path != '/') return;
    char* end = path;  // of what has been kept
    for (const char* at = path; *at == '/';) {
        const size_t length = 1 + strcspn(at + 1, "/");
        if (length == 3 && strncmp(at, "/..", 3) == 0) {
            while (end > path && *--end != '/') {
            }
        } else {
            memmove(end, at, length);
            end += length;
        }
        at += length;
    }
    if (end == path) *end++ = '/';
    *end = '\0';
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
    constexpr size_t kLength = sizeof kRecycleFolder - 1;
    if (slash == nullptr || strncmp(slash + 1, kRecycleFolder, kLength) != 0) return 0;
    return EndsComponent(slash[1 + kLength]) ? 1 : 0;
}

bool ShareTargetGet(const char* share_link, char (&target)[kPathSize]) {
    memset(target, 0, sizeof target);
    char text[kPathSize] = {};
    if (readlink(share_link, text, sizeof text - 1) < 0) return false;
    const char* slash = strrchr(share_link, '/');
    const size_t folder = *text != '/' && slash != nullptr ? static_cast<size_t>(slash - share_link) + 1 : 0;
    const size_t length = strlen(text);
    if (folder + length >= sizeof target) return false;
    memcpy(target, share_link, folder);
    memcpy(target + folder, text, length + 1);
    PathCollapse(target);
    ResolveParents(target);
    return true;
}

void PathCollapse(char* path) {
    const bool is_absolute = *path == '/';
    char* out = path + (*path != '\0' ? 1 : 0);  // the first character stays when nothing else does
    char* const start = is_absolute ? out : path;
    const char* at = path;
    char* end = start;
    while (*at != '\0') {
        const size_t length = strcspn(at, "/");
        if (length > 0 && !(length == 1 && *at == '.')) {
            if (end != start) *end++ = '/';
            memmove(end, at, length);
            end += length;
        }
        at += length;
        at += strspn(at, "/");
    }
    *(end != start ? end : out) = '\0';
}

bool HasParentComponent(const char* path) {
    for (const char* at = strstr(path, ".."); at != nullptr; at = strstr(at + 1, ".."))
        if ((at == path || at[-1] == '/') && EndsComponent(at[2])) return true;
    return false;
}

}  // namespace koli
