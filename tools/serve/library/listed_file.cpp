#include "tools/serve/library/listed_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <memory>
#include <string_view>

#include "platform/host/ea_path.h"

namespace koli::serve {
namespace {

constexpr int kFileFlags = O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kEntriesMax = 1000;  // of a folder of covers that are looked at

OpenVerdict VerdictOf(int error) {
    return error == ENOENT || error == ENOTDIR ? OpenVerdict::kGone : OpenVerdict::kNotServed;
}

/// Opens `way`, which names no "." or "..", below `folder`, step by step; -1 with errno set.
int OpenStepwise(int folder, std::string_view way, int flags) {
    UniqueFd held;
    for (;;) {
        const size_t slash = way.find('/');
        const std::string name(way.substr(0, slash));
        const int fd = openat(folder, name.c_str(), slash == std::string_view::npos ? flags : kFolderFlags);
        if (fd < 0 || slash == std::string_view::npos) return fd;
        held = UniqueFd(fd);
        folder = held.get();
        way.remove_prefix(slash + 1);
    }
}

/// The same in one call, where the kernel has it.
int OpenBeneath(int folder, const std::string& way, int flags) {
    open_how how{};
    how.flags = static_cast<unsigned>(flags);
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    const long fd = syscall(SYS_openat2, folder, way.c_str(), &how, sizeof how);
    const bool is_unknown = fd < 0 && (errno == ENOSYS || errno == EPERM);
    return is_unknown ? OpenStepwise(folder, way, flags) : static_cast<int>(fd);
}

/// Every name is one: none is empty, "." or "..".
bool IsPlain(std::string_view path) {
    if (!path.starts_with('/') || path.size() >= PATH_MAX || path.find('\0') != std::string_view::npos)
        return false;
    for (size_t begin = 1, end = 0; end != std::string_view::npos; begin = end + 1) {
        end = path.find('/', begin);
        const std::string_view name = path.substr(begin, end - begin);
        if (name.empty() || name == "." || name == "..") return false;
    }
    return true;
}

/// Opens what is at `path`; the descriptor, or -1 with errno set.
int OpenBelow(const std::string& path, int flags) {
    errno = ENOENT;
    if (!IsPlain(path)) return -1;
    const size_t volume = path.find('/', 1);
    const size_t share = volume != std::string::npos ? path.find('/', volume + 1) : volume;
    if (share == std::string::npos) return -1;
    const UniqueFd top(open(path.substr(0, share).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    return top.valid() ? OpenBeneath(top.get(), path.substr(share + 1), flags) : -1;
}

OpenVerdict Taken(int fd, UniqueFd* file) {
    if (fd < 0) return VerdictOf(errno);
    UniqueFd opened(fd);
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return OpenVerdict::kNotServed;
    *file = std::move(opened);
    return OpenVerdict::kOpened;
}

/// The number in "cover12.jpg"; 0 for other names, such as the daemon leaves alone.
unsigned CoverNumber(std::string_view name) {
    constexpr std::string_view kPrefix = "cover";
    if (!name.starts_with(kPrefix) || !(name.ends_with(".jpg") || name.ends_with(".png"))) return 0;
    const std::string_view digits = name.substr(kPrefix.size(), name.size() - kPrefix.size() - 4);
    const char* const behind = digits.data() + digits.size();
    unsigned number = 0;
    const auto [end, error] = std::from_chars(digits.data(), behind, number);
    return error == std::errc() && end == behind && !digits.starts_with('0') ? number : 0;
}

}  // namespace

OpenVerdict OpenBelowShare(const std::string& path, UniqueFd* file) {
    return Taken(OpenBelow(path, kFileFlags), file);
}

OpenVerdict OpenFirstCover(const std::string& path, UniqueFd* file) {
    char covers[PATH_MAX];
    if (!EaPath(path.c_str(), nullptr, covers, sizeof covers)) return OpenVerdict::kGone;
    const int fd = OpenBelow(covers, kFolderFlags);
    if (fd < 0) return VerdictOf(errno);
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(fdopendir(fd), closedir);
    if (folder == nullptr) {
        close(fd);
        return OpenVerdict::kNotServed;
    }
    std::string best;
    unsigned best_number = UINT_MAX;
    for (int i = 0; i < kEntriesMax; ++i) {
        const dirent* const entry = readdir(folder.get());
        if (entry == nullptr) break;
        const unsigned number = CoverNumber(entry->d_name);
        if (number == 0 || number >= best_number) continue;
        best = entry->d_name;
        best_number = number;
    }
    if (best.empty()) return OpenVerdict::kGone;
    return Taken(openat(dirfd(folder.get()), best.c_str(), kFileFlags), file);
}

}  // namespace koli::serve
