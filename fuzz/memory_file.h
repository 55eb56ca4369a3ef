// A file in memory with a path, for code that opens its input by name.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "tests/host_temp_dir.h"

namespace koli::test {

inline int MemoryDescriptor() {
    static const int fd = memfd_create("input", MFD_CLOEXEC);
    return fd;
}

inline const std::string& MemoryPath() {
    static const std::string path = "/proc/self/fd/" + std::to_string(MemoryDescriptor());
    return path;
}

/// Replaces the contents of this process's one memory file and returns its path: its own, or that of a link
/// to it.  Its pages are kept: to give them back and take them anew costs more than many a reader.
inline std::string MemoryFile(const void* bytes, size_t size, const std::string& path = MemoryPath()) {
    const int fd = MemoryDescriptor();
    if (pwrite(fd, bytes, size, 0) != static_cast<ssize_t>(size) ||
        ftruncate(fd, static_cast<off_t>(size)) != 0)
        abort();
    return path;
}

/// A folder in memory: covers and captions are written by the million.
class MemoryFolder : public TempDir {
  public:
    MemoryFolder() : TempDir(mkdtemp("/dev/shm/koli-fuzz-XXXXXX"s.data())) {}

    /// Makes a link to the memory file where something can be made beside it; returns its path.
    std::string Link(const std::string& name) const {
        if (symlink(MemoryPath().c_str(), Path(name).c_str()) != 0) abort();
        return Path(name);
    }
};

/// Pushes the memory file's bytes from `at` on back by `size`, a hole as far as the pages allow.
inline void InsertHole(size_t at, size_t size) {
    const int fd = MemoryDescriptor();
    std::string rest(static_cast<size_t>(lseek(fd, 0, SEEK_END)) - at, '\0');
    if (pread(fd, rest.data(), rest.size(), static_cast<off_t>(at)) < 0) abort();
    if (ftruncate(fd, static_cast<off_t>(at)) != 0 ||
        pwrite(fd, rest.data(), rest.size(), static_cast<off_t>(at + size)) < 0)
        abort();
}

}  // namespace koli::test
