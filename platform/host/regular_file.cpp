#include "platform/host/regular_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/open_file.h"

namespace koli {

RegularFile::RegularFile(const char* path) {
    if (path == nullptr) return;
    const int descriptor = OpenForReading(path);
    if (descriptor < 0) return;
    struct stat status;
    const bool is_known = fstat(descriptor, &status) == 0;
    if (!is_known || !S_ISREG(status.st_mode)) {
        const int error = is_known ? EINVAL : errno;
        close(descriptor);
        errno = error;
        return;
    }
    descriptor_ = descriptor;
    size_ = static_cast<uint64_t>(status.st_size);
}

RegularFile::~RegularFile() {
    if (descriptor_ >= 0) close(descriptor_);
}

ssize_t RegularFile::ReadAt(uint64_t offset, void* buffer, size_t count) const {
    ssize_t got;
    do {
        got = pread(descriptor_, buffer, count, static_cast<off_t>(offset));
    } while (got < 0 && errno == EINTR);
    return got;
}

}  // namespace koli
