#include "base/written_file_systems.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "base/path_names.h"

namespace koli {
namespace {

constexpr size_t kMostFileSystems = 16;  // more are synced as soon as they are met

struct WrittenFileSystem {
    dev_t device;
    int fd;  // of `folder`
    std::string folder;
};
WrittenFileSystem written[kMostFileSystems];
size_t written_count = 0;
std::string fault;

/// The file system must not be held any longer, synced or not: it may be one that is taken away.
void SyncAndClose(int fd, const std::string& folder) {
    const int error = syncfs(fd) == 0 ? 0 : errno;
    close(fd);
    if (error == 0) return;
    fault = folder + ": " + strerror(error);
    std::replace_if(
        fault.begin(), fault.end(), [](unsigned char letter) { return letter < ' '; }, '?');
}

}  // namespace

void FileSystemWritten(dev_t device, const char* path) {
    for (size_t i = 0; i < written_count; ++i)
        if (written[i].device == device) return;
    std::string folder(path, FileNameOf(path));
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    if (written_count == kMostFileSystems)
        SyncAndClose(fd, folder);
    else
        written[written_count++] = {device, fd, std::move(folder)};
}

bool WrittenFileSystemsSync() {
    while (written_count > 0) {
        const WrittenFileSystem& last = written[--written_count];
        SyncAndClose(last.fd, last.folder);
    }
    return fault.empty();
}

std::string WrittenFileSystemsFault() {
    return std::exchange(fault, "");
}

}  // namespace koli
