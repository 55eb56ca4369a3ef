// A regular file opened for reading, for files that others may have replaced with something that blocks.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace koli {

/// Opens `path` without waiting (a FIFO or a device is refused, not waited for) and closes it again at the
/// end of its life.  Links are followed.
class RegularFile {
  public:
    explicit RegularFile(const char* path);
    ~RegularFile();
    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    /// False when `path` is null, cannot be opened or is no regular file; after the constructor errno tells
    /// why.
    bool ok() const { return descriptor_ >= 0; }
    /// Bytes at the time of opening.
    uint64_t size() const { return size_; }
    /// Reads up to `count` bytes at `offset`.  Returns the bytes read, 0 at the end of the file, -1 on
    /// failure.
    ssize_t ReadAt(uint64_t offset, void* buffer, size_t count) const;

  private:
    int descriptor_ = -1;
    uint64_t size_ = 0;
};

}  // namespace koli
