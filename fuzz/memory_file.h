// A file in memory with a path, for code that opens its input by name.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

namespace koli::test {

inline int MemoryDescriptor() {
    static const int fd = memfd_create("input", MFD_CLOEXEC);
    return fd;
}

/// Replaces the contents of this process's one memory file and returns its path: its own, or a `link` to it
/// that stands where something can be made beside it.
inline std::string MemoryFile(const void* bytes, size_t size, const std::string& link = "") {
    const int fd = MemoryDescriptor();
    if (ftruncate(fd, 0) != 0 || pwrite(fd, bytes, size, 0) != static_cast<ssize_t>(size)) abort();
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    return symlink(path.c_str(), link.c_str()) == 0 || !link.empty() ? link : path;
}

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
