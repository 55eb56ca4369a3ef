// A file in memory with a path, for code that opens its input by name.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

namespace koli::test {

/// Replaces the contents of this process's one memory file and returns its path: its own, or a `link` to it
/// that stands where something can be made beside it.
inline std::string MemoryFile(const void* bytes, size_t size, const std::string& link = "") {
    static const int fd = memfd_create("input", MFD_CLOEXEC);
    if (ftruncate(fd, 0) != 0 || pwrite(fd, bytes, size, 0) != static_cast<ssize_t>(size)) abort();
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    return symlink(path.c_str(), link.c_str()) == 0 || !link.empty() ? link : path;
}

}  // namespace koli::test
