#include "tools/serve/picture/picture_cache.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <tuple>
#include <vector>

#include "tools/serve/picture/cache_folder.h"
#include "tools/serve/picture/maker_channel.h"
#include "tools/serve/picture/picture_key.h"

namespace koli::serve {
namespace {

constexpr size_t kMaxKey = 8192;      // bytes: two of the longest paths
constexpr time_t kUseSeconds = 3600;  // between two marks of use
constexpr char kMark[] = {'k', 'o', 'l', 'i', 's', 'm', 'a', '1'};

/// How a file begins.  The key and the picture follow, and nothing behind them.
struct Head {
    char mark[sizeof kMark];
    uint32_t key_bytes;
    uint32_t picture_bytes;
    uint64_t hash;  // of the picture: after a power cut a file may be as long as it was, and empty
};

iovec Part(const void* bytes, size_t size) {
    return {const_cast<void*>(bytes), size};
}

std::string WholeFile(int file, size_t size) {
    std::string bytes(size, '\0');
    const ssize_t count = read(file, bytes.data(), size);
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}

/// The picture in `bytes`, if they are a file of `key`.
std::optional<std::string> PictureIn(const std::string& bytes, std::string_view key) {
    Head head{};
    if (bytes.size() < sizeof head) return std::nullopt;
    memcpy(&head, bytes.data(), sizeof head);
    if (memcmp(head.mark, kMark, sizeof kMark) != 0 || head.key_bytes != key.size() ||
        bytes.size() != sizeof head + size_t{head.key_bytes} + head.picture_bytes ||
        bytes.compare(sizeof head, key.size(), key) != 0)
        return std::nullopt;
    std::string picture = bytes.substr(sizeof head + key.size());
    return head.hash == PictureHash(picture) ? std::optional(std::move(picture)) : std::nullopt;
}

void MarkUsed(int file, const struct stat& info) {
    if (info.st_mtime < time(nullptr) - kUseSeconds) futimens(file, nullptr);
}

/// Writes the file under another name first.
bool Write(int folder, const std::string& name, std::string_view key, std::string_view picture) {
    const std::string unfinished = name + '.' + std::to_string(getpid()) + ".tmp";
    unlinkat(folder, unfinished.c_str(), 0);
    const UniqueFd file(
        openat(folder, unfinished.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.valid()) return false;
    Head head{
        {}, static_cast<uint32_t>(key.size()), static_cast<uint32_t>(picture.size()), PictureHash(picture)};
    memcpy(head.mark, kMark, sizeof kMark);
    const std::array parts = {Part(&head, sizeof head), Part(key.data(), key.size()),
                              Part(picture.data(), picture.size())};
    const ssize_t size = writev(file.get(), parts.data(), static_cast<int>(parts.size()));
    if (size == static_cast<ssize_t>(sizeof head + key.size() + picture.size()) &&
        renameat(folder, unfinished.c_str(), folder, name.c_str()) == 0)
        return true;
    unlinkat(folder, unfinished.c_str(), 0);
    return false;
}

}  // namespace

bool PictureCache::Open(const std::string& folder, uint64_t bound, std::string* error) {
    folder_ = CacheFolderOpen(folder, error);
    if (!folder_.valid()) return false;
    bound_ = bound;
    tidier_ = std::thread([this] { Tidy(); });
    return true;
}

void PictureCache::Close() {
    {
        const std::lock_guard lock(mutex_);
        is_closing_ = true;
    }
    wake_.notify_one();
    if (tidier_.joinable()) tidier_.join();
}

std::optional<std::string> PictureCache::Find(std::string_view key) {
    if (!folder_.valid()) return std::nullopt;
    const uint64_t hash = PictureHash(key);
    const UniqueFd folder = CacheSubfolder(folder_.get(), CacheSubfolderOf(hash), false);
    if (!folder.valid()) return std::nullopt;
    const UniqueFd file(openat(folder.get(), CacheFileName(hash).c_str(),
                               O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat info {};
    if (!file.valid() || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    const auto size = static_cast<uint64_t>(info.st_size);
    if (size > sizeof(Head) + kMaxKey + PictureSlot::kBytes) return std::nullopt;
    std::optional<std::string> picture = PictureIn(WholeFile(file.get(), size), key);
    if (picture) MarkUsed(file.get(), info);
    return picture;
}

void PictureCache::Keep(std::string_view key, std::string_view picture) {
    if (!folder_.valid() || key.size() > kMaxKey) return;
    const uint64_t hash = PictureHash(key);
    const UniqueFd folder = CacheSubfolder(folder_.get(), CacheSubfolderOf(hash), true);
    if (!folder.valid() || !Write(folder.get(), CacheFileName(hash), key, picture)) return;
    const std::lock_guard lock(mutex_);
    bytes_ += CacheBytes(sizeof(Head) + key.size() + picture.size());
    if (bytes_ > trim_above_) wake_.notify_one();
}

void PictureCache::Tidy() {
    pthread_setname_np(pthread_self(), "serve-cache");
    std::unique_lock lock(mutex_);
    while (!is_closing_) {
        const uint64_t before = bytes_;
        lock.unlock();
        const uint64_t left = Trim();
        lock.lock();
        bytes_ = left + (bytes_ - before);  // with what was kept meanwhile
        // Where nothing can be removed it is not tried for each picture.
        trim_above_ = left > bound_ ? bytes_ + bound_ / 16 : bound_;
        wake_.wait(lock, [this] { return is_closing_ || bytes_ > trim_above_; });
    }
}

/// Removes the longest unused, unless all are within the bound, until a sixteenth of it is free.  Returns
/// what is left.
uint64_t PictureCache::Trim() const {
    std::vector<CachedFile> files;
    for (int number = 0; number < kCacheFolders; ++number)
        CacheFilesList(folder_.get(), number, &files);
    uint64_t bytes = 0;
    for (const CachedFile& file : files)
        bytes += file.bytes;
    if (bytes <= bound_) return bytes;
    std::sort(files.begin(), files.end(), [](const CachedFile& one, const CachedFile& other) {
        return std::tie(one.used.tv_sec, one.used.tv_nsec) < std::tie(other.used.tv_sec, other.used.tv_nsec);
    });
    for (const CachedFile& file : files) {
        if (bytes <= bound_ - bound_ / 16) break;
        const UniqueFd folder = CacheSubfolder(folder_.get(), CacheSubfolderOf(file.hash), false);
        if (unlinkat(folder.get(), CacheFileName(file.hash).c_str(), 0) == 0) bytes -= file.bytes;
    }
    return bytes;
}

}  // namespace koli::serve
