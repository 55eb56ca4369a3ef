// A read-only view of a folder on a disk that lets everybody wait:
//
//   slow_share FOLDER MOUNTPOINT MILLISECONDS
//
// Each first look at a file, each listing of a directory and each read request takes so long, as many at a
// time as there are; what has been read stays in the page cache. It runs until it is unmounted.
#define FUSE_USE_VERSION 31

#include <dirent.h>
#include <fcntl.h>
#include <fuse.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>

namespace {

using Clock = std::chrono::steady_clock;

std::string folder;
std::chrono::milliseconds delay;
std::mutex mutex;
std::unordered_set<std::string> named;                         // what was looked up
std::unordered_map<std::string, Clock::time_point> come_over;  // whose attributes are here, and when

std::string Real(const char* path) {
    return folder + path;
}

void Wait() {
    std::this_thread::sleep_for(delay);
}

/// The first one to need what `path` names waits, or, with a '/' behind it, its listing; whoever comes
/// meanwhile, for the rest of that time.
void WaitForFirstLook(const std::string& path) {
    Clock::time_point end;
    {
        const std::lock_guard lock(mutex);
        end = come_over.try_emplace(path, Clock::now() + delay).first->second;
    }
    std::this_thread::sleep_until(end);
}

bool IsFirstLookUp(const char* path) {
    const std::lock_guard lock(mutex);
    return named.insert(path).second;
}

void* Init(fuse_conn_info* connection, fuse_config* config) {
    connection->max_background = 1024;
    connection->congestion_threshold = 1024;  // above it, what is asked for ahead would be left out
    connection->max_readahead = 1 << 20;
    config->kernel_cache = 1;
    config->entry_timeout = config->negative_timeout = 3600;
    config->attr_timeout = 0;  // asked for again, so that the first look is seen
    config->use_ino = 1;
    return nullptr;
}

/// Look-ups in one directory wait for each other, as long as the FUSE library does not tell the kernel that
/// they need not; on a disk they do not.  So a name comes at once, with its directory, and what it names is
/// waited for when that is asked for its attributes or opened.
int GetAttributes(const char* path, struct stat* status, fuse_file_info*) {
    const bool is_there = lstat(Real(path).c_str(), status) == 0;
    const int error = errno;
    if (!IsFirstLookUp(path) || !is_there) WaitForFirstLook(path);
    return is_there ? 0 : -error;
}

int Open(const char* path, fuse_file_info* file) {
    WaitForFirstLook(path);
    const int fd = open(Real(path).c_str(), O_RDONLY | O_CLOEXEC);
    file->fh = static_cast<uint64_t>(fd);
    file->keep_cache = 1;
    return fd >= 0 ? 0 : -errno;
}

int Read(const char*, char* bytes, size_t size, off_t offset, fuse_file_info* file) {
    Wait();
    const ssize_t count = pread(static_cast<int>(file->fh), bytes, size, offset);
    return count >= 0 ? static_cast<int>(count) : -errno;
}

int Release(const char*, fuse_file_info* file) {
    return close(static_cast<int>(file->fh));
}

int ReadLink(const char* path, char* target, size_t size) {
    const ssize_t length = readlink(Real(path).c_str(), target, size - 1);
    if (length < 0) return -errno;
    target[length] = '\0';
    return 0;
}

int ReadDirectory(const char* path, void* buffer, fuse_fill_dir_t fill, off_t, fuse_file_info*,
                  fuse_readdir_flags) {
    WaitForFirstLook(std::string(path) + '/');
    DIR* const stream = opendir(Real(path).c_str());
    if (stream == nullptr) return -errno;
    while (const dirent* entry = readdir(stream)) {
        struct stat status {};
        status.st_ino = entry->d_ino;
        status.st_mode = static_cast<mode_t>(entry->d_type) << 12;
        fill(buffer, entry->d_name, &status, 0, fuse_fill_dir_flags{});
    }
    closedir(stream);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: slow_share FOLDER MOUNTPOINT MILLISECONDS\n");
        return 2;
    }
    char* const real = realpath(argv[1], nullptr);
    if (real == nullptr) {
        perror(argv[1]);
        return 1;
    }
    folder = real;
    free(real);
    delay = std::chrono::milliseconds(atoi(argv[3]));
    fuse_operations operations{};
    operations.init = Init;
    operations.getattr = GetAttributes;
    operations.open = Open;
    operations.read = Read;
    operations.release = Release;
    operations.readlink = ReadLink;
    operations.readdir = ReadDirectory;
    char name[] = "slow_share", flag[] = "-o", options[] = "ro,allow_other,max_threads=256";
    char* arguments[] = {name, flag, options, argv[2], nullptr};
    return fuse_main(4, arguments, &operations, nullptr);
}
