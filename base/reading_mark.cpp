#include "base/reading_mark.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "base/path_names.h"

namespace koli {
namespace {

constexpr uint32_t kLayout = 0x4B4D0001;
constexpr size_t kMostSuspects = 64;  // with more, the one that was counted longest ago is forgotten
constexpr int kBarredAt = 2;          // times

/// A file that has brought a daemon down.
struct Suspect {
    uint64_t path;  // hash
    uint64_t device, inode;
    int64_t size;
    int64_t seconds, nanoseconds;  // of the modification
    int32_t count;                 // 0 = a free place
    uint32_t reserved;
};

/// The file's content.
struct Area {
    uint32_t layout;
    uint32_t next;        // the place of the next suspect
    uint32_t is_reading;  // `path` is being read
    uint32_t reserved;
    char path[kPathSize];
    Suspect suspects[kMostSuspects];
};

Area* area = nullptr;
size_t suspect_count = 0;  // places in use: with none, nothing has to be looked up

void CountPlaces() {
    suspect_count = 0;
    for (const Suspect& suspect : area->suspects)
        suspect_count += suspect.count > 0 ? 1 : 0;
}

uint64_t HashOf(const char* path) {
    uint64_t hash = 0xcbf29ce484222325;  // FNV-1a
    for (; *path != '\0'; ++path)
        hash = (hash ^ static_cast<unsigned char>(*path)) * 0x100000001b3;
    return hash;
}

/// False, with nothing but the path's hash, when the file cannot be looked at.
bool DescribeFile(const char* path, Suspect* file) {
    struct stat status;
    const bool is_there = stat(path, &status) == 0;
    if (!is_there) status = {};
    *file = {HashOf(path),
             status.st_dev,
             status.st_ino,
             status.st_size,
             status.st_mtim.tv_sec,
             status.st_mtim.tv_nsec,
             1,
             0};
    return is_there;
}

/// Some file systems number their files anew at each start: there the path tells.
bool IsSameFile(const Suspect& a, const Suspect& b) {
    const bool is_same = a.path == b.path || (a.inode != 0 && a.device == b.device && a.inode == b.inode);
    return is_same && a.size == b.size && a.seconds == b.seconds && a.nanoseconds == b.nanoseconds;
}

/// Of a file that could not be looked at, on a volume that came later perhaps, the path is all that counts.
bool IsUnseen(const Suspect& suspect) {
    return suspect.device == 0 && suspect.inode == 0 && suspect.seconds == 0;
}

/// Null when the file, as it is now, has brought nothing down.  One that was unseen is known from now on.
const Suspect* SuspectOf(const char* path) {
    Suspect file;
    if (suspect_count == 0 || !DescribeFile(path, &file)) return nullptr;
    for (Suspect& suspect : area->suspects) {
        if (suspect.count <= 0) continue;
        if (IsSameFile(suspect, file)) return &suspect;
        if (suspect.path != file.path || !IsUnseen(suspect)) continue;
        file.count = suspect.count;
        suspect = file;
        return &suspect;
    }
    return nullptr;
}

/// One that changes all the time, an upload perhaps, is the same by its path: it gets no further attempt for
/// each of its forms.
int Count(const char* path) {
    Suspect file;
    const bool is_seen = DescribeFile(path, &file);
    for (Suspect& suspect : area->suspects) {
        if (suspect.count <= 0 || (!IsSameFile(suspect, file) && suspect.path != file.path)) continue;
        const bool is_counted_on = !is_seen || IsUnseen(suspect) || IsSameFile(suspect, file);
        file.count = is_counted_on ? suspect.count + 1 : kBarredAt;
        if (!is_seen) return suspect.count = file.count;
        suspect = file;
        return file.count;
    }
    area->suspects[area->next++ % kMostSuspects] = file;
    return file.count;
}

/// The descriptor of a file of the right size, all of whose bytes are there: a page that the file system has
/// no room for would end the process at its first use.
int OpenFile(const char* mark_file) {
    const int fd = open(mark_file, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (fd < 0) return -1;
    struct stat status;
    const bool is_ready = fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && fchmod(fd, 0600) == 0 &&
                          (status.st_size == sizeof(Area) || ftruncate(fd, 0) == 0);
    const int error = is_ready ? posix_fallocate(fd, 0, sizeof(Area)) : errno;
    if (error == 0) return fd;
    close(fd);
    errno = error;
    return -1;
}

/// Maps the file and closes it; null, with errno set, when that fails, and for -1.
Area* Map(int fd, int flags) {
    if (fd < 0) return nullptr;
    void* mapped = mmap(nullptr, sizeof(Area), PROT_READ | PROT_WRITE, flags, fd, 0);
    close(fd);
    if (mapped == MAP_FAILED) return nullptr;
    if (madvise(mapped, sizeof(Area), MADV_DONTFORK) == 0) return static_cast<Area*>(mapped);
    munmap(mapped, sizeof(Area));
    return nullptr;
}

void Take(Area* mapped) {
    if (area != nullptr) munmap(area, sizeof(Area));
    area = mapped;
    area->path[sizeof area->path - 1] = '\0';
    CountPlaces();
}

}  // namespace

bool ReadingMarkOpen(const char* mark_file) {
    Area* const mapped = Map(OpenFile(mark_file), MAP_SHARED);
    if (mapped == nullptr) return false;
    if (mapped->layout != kLayout) {
        memset(mapped, 0, sizeof *mapped);
        mapped->layout = kLayout;
    }
    Take(mapped);
    return true;
}

bool ReadingMarkOpenToAsk(const char* mark_file) {
    const int fd = open(mark_file, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    struct stat status;
    const bool is_whole = fd >= 0 && fstat(fd, &status) == 0 && status.st_size == sizeof(Area);
    if (fd >= 0 && !is_whole) {
        close(fd);
        errno = EINVAL;
    }
    Area* const mapped = is_whole ? Map(fd, MAP_PRIVATE) : nullptr;
    if (mapped == nullptr) return false;
    if (mapped->layout != kLayout) memset(mapped, 0, sizeof *mapped);
    Take(mapped);
    return true;
}

int ReadingMarkTakeOver(bool counts, char (&path)[kPathSize]) {
    if (area == nullptr || area->is_reading == 0) return 0;
    CopyText(path, sizeof path, area->path);
    ReadingMarkClear();
    const int count = counts ? Count(path) : 0;
    CountPlaces();
    return count;
}

void ReadingMarkClear() {
    if (area != nullptr) area->is_reading = 0;
}

/// The process may end between any two of these steps: the path counts only when it is whole.
void ReadingMarkSet(const char* path) {
    if (area == nullptr) return;
    area->is_reading = 0;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (path == nullptr) return;
    CopyText(area->path, sizeof area->path, path);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    area->is_reading = 1;
}

PastReading ReadingMarkLook(const char* path) {
    const Suspect* suspect = SuspectOf(path);
    if (suspect == nullptr || suspect->count < kBarredAt) return PastReading::kNothing;
    return suspect->count == kBarredAt ? PastReading::kDownTwice : PastReading::kDownUnopened;
}

void ReadingMarkForgive() {
    if (area == nullptr || suspect_count == 0) return;
    for (Suspect& suspect : area->suspects)
        if (suspect.count < kBarredAt) suspect = {};
    CountPlaces();
}

}  // namespace koli
