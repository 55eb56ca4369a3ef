#include "base/open_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/foothold.h"

namespace koli {

int OpenForReading(const char* path) {
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY;
    int fd = OpenNear(path, kFlags | O_NONBLOCK);
    // With O_NONBLOCK a leased file is refused instead of waited for.
    if (fd < 0 && errno == EWOULDBLOCK) fd = OpenNear(path, kFlags);
    // The readers know what they will read; the kernel's guess triples what a cold disk has to bring.
    if (fd >= 0) posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
    return fd;
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
