#include "tools/serve/picture/cache_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

namespace koli::serve {
namespace {

constexpr uint64_t kBlock = 4096;
constexpr size_t kMaxFiles = 1000000;     // that are looked at: more than any bound has room for
constexpr time_t kAbandonedSeconds = 60;  // of a file that is being written
constexpr size_t kNameLength = 16;
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

struct CloseListing {
    void operator()(DIR* listing) const { closedir(listing); }
};
using Listing = std::unique_ptr<DIR, CloseListing>;

Listing ListingOf(const UniqueFd& folder) {
    const int descriptor = fcntl(folder.get(), F_DUPFD_CLOEXEC, 0);
    Listing listing(descriptor >= 0 ? fdopendir(descriptor) : nullptr);
    if (listing == nullptr && descriptor >= 0) close(descriptor);
    return listing;
}

std::optional<uint64_t> HashOf(std::string_view name) {
    uint64_t hash = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), hash, 16);
    if (name.size() != kNameLength || error != std::errc() || end != name.data() + name.size())
        return std::nullopt;
    return hash;
}

}  // namespace

uint64_t CacheBytes(uint64_t size) {
    return (size + kBlock - 1) / kBlock * kBlock;
}

UniqueFd CacheFolderOpen(const std::string& folder, std::string* error) {
    std::error_code ignored;  // what matters is whether it can be opened
    std::filesystem::create_directories(std::filesystem::path(folder).parent_path(), ignored);
    mkdir(folder.c_str(), 0700);
    UniqueFd opened(open(folder.c_str(), kFolderFlags));
    struct stat info {};
    if (!opened.valid() || fstat(opened.get(), &info) != 0) {
        *error = strerror(errno);
        return {};
    }
    if (info.st_uid == geteuid() && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0) return opened;
    *error = "others may write to it";
    return {};
}

UniqueFd CacheSubfolder(int folder, int number, bool is_made) {
    char name[3];
    snprintf(name, sizeof name, "%02x", static_cast<unsigned>(number) & 0xFFU);
    if (is_made) mkdirat(folder, name, 0700);
    return UniqueFd(openat(folder, name, kFolderFlags));
}

std::string CacheFileName(uint64_t hash) {
    char name[kNameLength + 1];
    snprintf(name, sizeof name, "%016llx", static_cast<unsigned long long>(hash));
    return name;
}

void CacheFilesList(int folder, int number, std::vector<CachedFile>* files) {
    const UniqueFd subfolder = CacheSubfolder(folder, number, false);
    if (!subfolder.valid()) return;
    const Listing listing = ListingOf(subfolder);
    if (listing == nullptr) return;
    const time_t now = time(nullptr);
    while (const dirent* entry = readdir(listing.get())) {
        struct stat info {};
        if (files->size() >= kMaxFiles) return;
        if (fstatat(subfolder.get(), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISREG(info.st_mode))
            continue;
        const std::optional<uint64_t> hash = HashOf(entry->d_name);
        if (hash && CacheSubfolderOf(*hash) == number)
            files->push_back({info.st_mtim,
                              static_cast<uint32_t>(CacheBytes(static_cast<uint64_t>(info.st_size))), *hash});
        else if (std::string_view(entry->d_name).ends_with(".tmp") && info.st_mtime < now - kAbandonedSeconds)
            unlinkat(subfolder.get(), entry->d_name, 0);
    }
}

}  // namespace koli::serve
