#include "compat/media_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/open_file.h"

namespace koli::compat {

MediaFile::~MediaFile() {
    if (descriptor_ >= 0) close(descriptor_);
}

bool MediaFile::Open(const char* path) {
    descriptor_ = OpenForReading(path);
    struct stat status;
    if (descriptor_ < 0 || fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) return false;
    size_ = status.st_size;
    return true;
}

size_t MediaFile::Read(int64_t offset, void* buffer, size_t count) const {
    size_t done = 0;
    while (done < count) {
        const ssize_t got = pread(descriptor_, static_cast<char*>(buffer) + done, count - done,
                                  offset + static_cast<int64_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

}  // namespace koli::compat
