#include "base/folder_way.h"

#include <dirent.h>
#include <sys/stat.h>

#include "base/foothold.h"

namespace koli {

bool IsOnTheWay(const FolderWay* way, dev_t device, ino_t inode) {
    for (; way != nullptr; way = way->above)
        if (way->inode == inode && way->device == device) return true;
    return false;
}

bool IsLink(unsigned char type, const char* path) {
    if (type != DT_UNKNOWN) return type == DT_LNK;
    struct stat status;
    return LstatNear(path, &status) == 0 && S_ISLNK(status.st_mode);
}

bool LinkLimit::MayFollow(const FolderWay& way, const char* path, LogSite site) {
    if (IsFree(way)) return true;
    if (followed_ < kDeepLinksMax) {
        ++followed_;
        return true;
    }
    if (!has_left_out_)
        LogError(site, "Too many links below links: %s and those after it are not followed.", path);
    has_left_out_ = true;
    return false;
}

}  // namespace koli
