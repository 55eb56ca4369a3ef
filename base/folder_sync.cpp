#include "base/folder_sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "base/path_names.h"

namespace koli {

bool FolderSync(const char* folder) {
    const int fd = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool is_synced = fsync(fd) == 0;
    const int error = errno;
    close(fd);
    errno = error;
    return is_synced;
}

bool FolderSyncOf(const char* path) {
    char folder[PATH_MAX] = ".";
    const auto length = static_cast<size_t>(FileNameOf(path) - path);
    if (length >= sizeof folder) {
        errno = ENAMETOOLONG;
        return false;
    }
    if (length > 0) CopyText(folder, length + 1, path);
    return FolderSync(folder);
}

}  // namespace koli
