#include "platform/host/sqlite/system_calls.h"

#include <sqlite3.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>

namespace koli::host {
namespace {

thread_local int read_error = 0;  // readers of several threads have connections of their own

/// mmap() for the engine: the write-ahead log's index is shared memory, and a child that is taken over by
/// what it reads must not find it in its address space.
void* MapForThisProcessOnly(void* address, size_t size, int protection, int flags, int file, off_t offset) {
    void* area = mmap(address, size, protection, flags, file, offset);
    if (area != MAP_FAILED) madvise(area, size, MADV_DONTFORK);
    return area;
}

/// pread() for the engine.
ssize_t ReadAndNote(int file, void* bytes, size_t length, off_t offset) {
    const ssize_t count = pread(file, bytes, length, offset);
    if (count < 0 && errno != EINTR) read_error = errno;
    return count;
}

}  // namespace

void TakeOverSystemCalls() {
    sqlite3_vfs* files = sqlite3_vfs_find(nullptr);
    if (files == nullptr || files->iVersion < 3) return;
    files->xSetSystemCall(files, "mmap", reinterpret_cast<sqlite3_syscall_ptr>(MapForThisProcessOnly));
    for (const char* name : {"pread", "pread64"})
        if (files->xGetSystemCall(files, name) != nullptr)
            files->xSetSystemCall(files, name, reinterpret_cast<sqlite3_syscall_ptr>(ReadAndNote));
}

int ReadError() {
    return read_error;
}

void ForgetReadError() {
    read_error = 0;
}

}  // namespace koli::host
