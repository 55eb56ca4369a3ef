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

}  // namespace koli
