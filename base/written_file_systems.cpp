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

}  // namespace

void FileSystemWritten(dev_t device, const char* path) {
    for (size_t i = 0; i < written_count; ++i)
        if (written[i].device == device) return;
    const std::string folder(path, FileNameOf(path));
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    if (written_count == kMostFileSystems) {
        syncfs(fd);
        close(fd);
    } else {
        written[written_count++] = {device, fd};
    }
}

bool WrittenFileSystemsSync() {
    size_t failed = 0;
    int error = 0;
    for (size_t i = 0; i < written_count; ++i) {
        if (syncfs(written[i].fd) == 0) {
            close(written[i].fd);
        } else {
            error = errno;
            written[failed++] = written[i];
        }
    }
    written_count = failed;
    errno = error;
    return failed == 0;
}

}  // namespace koli
