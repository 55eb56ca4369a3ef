// Opening files that users can replace at any moment.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "base/file_reading.h"
#include "base/read_ahead.h"

namespace koli {

/// Opens `path` for reading, close-on-exec; neither a FIFO nor a device that took the file's place can block
/// the caller, who checks what was opened.  A file on which a file server holds a lease (a client has it
/// open) is waited for until the server has given the lease up.  Returns the descriptor, or -1 with errno
/// set.
int OpenForReading(const char* path);

/// A stream that reads the descriptor and owns it; null with errno set, and the descriptor closed, when there
/// is none (-1) or no stream for it.
FILE* StreamOf(int descriptor);

/// pread(), begun again when a signal interrupts it.
ssize_t ReadAt(int descriptor, int64_t offset, void* buffer, size_t count);

/// A regular file that OpenForReading has opened; closed at the end of its life.
class RegularFile {
  public:
    RegularFile() = default;
    explicit RegularFile(const char* path) { Open(path); }
    ~RegularFile() { Close(); }
    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    /// Closes what was open before.  False with errno set, EINVAL for null and for what is no regular file.
    bool Open(const char* path);
    void Close();

    bool ok() const { return descriptor_ >= 0; }
    /// Bytes at the time of opening.
    int64_t size() const { return size_; }
    /// Stays this object's; -1 for none.
    int descriptor() const { return descriptor_; }
    /// Gives the descriptor away, -1 when there is none.
    int Release();

  private:
    int descriptor_ = -1;
    int64_t size_ = 0;
};

/// A regular file whose reading counts (base/file_reading.h): what has failed is told, and all reads fail
/// once the file has had its processor time.
class MediaFile {
  public:
    /// `reading` must live as long as the file is read.  False when it cannot be opened or is no regular
    /// file.
    bool Open(const char* path, FileReading& reading);
    /// What is read from here on belongs to another reading of the file.
    void HandTo(FileReading& reading) { reading_ = &reading; }
    void Close() { file_.Close(); }

    bool ok() const { return file_.ok(); }
    /// Bytes at the time of Open, at most 2^62: no offset in it can overflow.
    int64_t size() const;
    int descriptor() const { return file_.descriptor(); }

    /// Reads up to `count` bytes at `offset`; returns how many there were, 0 at the end and after an error.
    size_t Read(int64_t offset, void* buffer, size_t count) const;

    /// `offset` itself, or, when it lies in a hole of a sparse file, the hole's end.
    int64_t SkipHole(int64_t offset) const;

  private:
    FileReading* reading_ = nullptr;
    RegularFile file_;
    mutable ReadAhead ahead_;  // of what Read was asked for
};

}  // namespace koli
