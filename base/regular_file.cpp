#include "base/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/foothold.h"

namespace koli {
namespace {

constexpr int64_t kMaxSize = int64_t{1} << 62;

void CloseKeepingError(int descriptor) {
    const int error = errno;
    close(descriptor);
    errno = error;
}

}  // namespace

int OpenForReading(const char* path) {
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY;
    int fd = OpenNear(path, kFlags | O_NONBLOCK);
    // With O_NONBLOCK a leased file is refused instead of waited for.
    if (fd < 0 && errno == EWOULDBLOCK) fd = OpenNear(path, kFlags);
    // The readers know what they will read; the kernel's guess triples what a cold disk has to bring.
    if (fd >= 0) posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
    return fd;
}

FILE* StreamOf(int descriptor) {
    if (descriptor < 0) return nullptr;
    FILE* stream = fdopen(descriptor, "r");
    if (stream == nullptr) CloseKeepingError(descriptor);
    return stream;
}

ssize_t ReadAt(int descriptor, int64_t offset, void* buffer, size_t count) {
    ssize_t got;
    do {
        got = pread(descriptor, buffer, count, offset);
    } while (got < 0 && errno == EINTR);
    return got;
}

bool RegularFile::Open(const char* path) {
    Close();
    errno = EINVAL;
    const int descriptor = path != nullptr ? OpenForReading(path) : -1;
    if (descriptor < 0) return false;
    struct stat status;
    const bool is_known = fstat(descriptor, &status) == 0;
    if (!is_known || !S_ISREG(status.st_mode)) {
        if (is_known) errno = EINVAL;
        CloseKeepingError(descriptor);
        return false;
    }
    descriptor_ = descriptor;
    size_ = status.st_size;
    return true;
}

void RegularFile::Close() {
    if (descriptor_ >= 0) CloseKeepingError(Release());
}

int RegularFile::Release() {
    return std::exchange(descriptor_, -1);
}

bool MediaFile::Open(const char* path, FileReading& reading) {
    HandTo(reading);
    if (!file_.Open(path)) reading.ReadFailed(errno);
    return file_.ok();
}

int64_t MediaFile::size() const {
    return std::min(file_.size(), kMaxSize);
}

size_t MediaFile::Read(int64_t offset, void* buffer, size_t count) const {
    ahead_.BeforeRead(descriptor(), offset, static_cast<int64_t>(count));
    size_t done = 0;
    while (done < count && reading_->MayGoOn()) {
        const ssize_t got = ReadAt(descriptor(), offset + static_cast<int64_t>(done),
                                   static_cast<char*>(buffer) + done, count - done);
        if (got < 0) reading_->ReadFailed(errno);
        if (got <= 0) break;
        done += static_cast<size_t>(got);
    }
    return done;
}

int64_t MediaFile::SkipHole(int64_t offset) const {
    int64_t data = lseek(descriptor(), offset, SEEK_DATA);
    if (data == -1 && errno == ENXIO) data = size();  // a hole up to the end of the file
    return std::max(offset, std::min(data, size()));
}

}  // namespace koli
