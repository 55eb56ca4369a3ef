#include "base/open_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/foothold.h"

namespace koli {

int OpenForReading(const char* path) {
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY;
    const int fd = OpenNear(path, kFlags | O_NONBLOCK);
    // With O_NONBLOCK a leased file is refused instead of waited for.
    return fd < 0 && errno == EWOULDBLOCK ? OpenNear(path, kFlags) : fd;
}

int OpenRegularForReading(const char* path) {
    const int fd = OpenForReading(path);
    if (fd < 0) return -1;
    struct stat status;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) return fd;
    close(fd);
    errno = EINVAL;
    return -1;
}

}  // namespace koli
