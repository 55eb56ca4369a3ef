#include "base/open_file.h"

#include <fcntl.h>

#include <cerrno>

#include "base/foothold.h"

namespace koli {

int OpenForReading(const char* path) {
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY;
    const int fd = OpenNear(path, kFlags | O_NONBLOCK);
    // With O_NONBLOCK a leased file is refused instead of waited for.
    return fd < 0 && errno == EWOULDBLOCK ? OpenNear(path, kFlags) : fd;
}

}  // namespace koli
