#include "platform/host/sqlite/file_privacy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/log.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";

/// True when it was open to others before.
bool CloseToOthers(const std::string& file) {
    // Closing a descriptor that can be read from would give up the locks that this process has on the file.
    const int fd = open(file.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat status;
    const bool is_open = fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1 &&
                         status.st_uid == geteuid() && (status.st_mode & S_IRWXO) != 0;
    const std::string name = "/proc/self/fd/" + std::to_string(fd);
    const bool is_changed = is_open && chmod(name.c_str(), status.st_mode & (S_IRWXU | S_IRWXG)) == 0;
    close(fd);
    return is_changed;
}

}  // namespace

void KeepFromOthers(const std::string& database) {
    bool is_changed = false;
    for (const char* part : {"", "-wal", "-shm"})
        is_changed |= CloseToOthers(database + part);
    if (is_changed)
        KOLI_LOG("%s was open to everybody, and is open to its owner and group now.", database.c_str());
}

}  // namespace koli::host
