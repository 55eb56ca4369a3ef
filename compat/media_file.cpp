#include "compat/media_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/open_file.h"
#include "base/reading.h"

namespace koli::compat {
namespace {

constexpr int64_t kMaxSize = int64_t{1} << 62;  // so that no offset in a file can overflow

}  // namespace

MediaFile::~MediaFile() {
    if (descriptor_ >= 0) close(descriptor_);
}

bool MediaFile::Open(const char* path) {
    ReadingOpen(path);
    descriptor_ = OpenForReading(path);
    if (descriptor_ < 0) ReadingFailed(errno);
    struct stat status;
    if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) {
        ReadingFailed(errno);
        return false;
    }
    if (!S_ISREG(status.st_mode)) return false;
    size_ = std::min<int64_t>(status.st_size, kMaxSize);
    return true;
}

size_t MediaFile::Read(int64_t offset, void* buffer, size_t count) const {
    ahead_.BeforeRead(descriptor_, offset, static_cast<int64_t>(count));
    size_t done = 0;
    while (done < count && ReadingMayGoOn()) {
        const ssize_t got = pread(descriptor_, static_cast<char*>(buffer) + done, count - done,
                                  offset + static_cast<int64_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) ReadingFailed(errno);
        if (got <= 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

int64_t MediaFile::SkipHole(int64_t offset) const {
    int64_t data = lseek(descriptor_, offset, SEEK_DATA);
    if (data == -1 && errno == ENXIO) data = size_;  // a hole up to the end of the file
    return std::max(offset, std::min(data, size_));
}

}  // namespace koli::compat
