#include "base/written_file_systems.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/path_names.h"

namespace koli {
namespace {

constexpr size_t kMostFileSystems = 16;  // more are synced as soon as they are met

struct WrittenFileSystem {
    dev_t device;
    int fd;  // of a folder on it
};
WrittenFileSystem written[kMostFileSystems];
size_t written_count = 0;

bool SyncAndClose(int fd) {
    const bool is_synced = syncfs(fd) == 0;
    const int error = errno;
    close(fd);
    errno = error;
    return is_synced;
}

}  // namespace

void FileSystemWritten(dev_t device, const char* path) {
    for (size_t i = 0; i < written_count; ++i)
        if (written[i].device == device) return;
    const std::string folder(path, FileNameOf(path));
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    if (written_count == kMostFileSystems) {
        SyncAndClose(fd);
    } else {
        written[written_count++] = {device, fd};
    }
}

bool WrittenFileSystemsSync() {
    bool are_synced = true;
    while (written_count > 0)
        are_synced = SyncAndClose(written[--written_count].fd) && are_synced;
    return are_synced;
}

}  // namespace koli
