#include "base/held_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "base/foothold.h"
#include "base/metadata_folder.h"
#include "base/path_names.h"

namespace koli {
namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

/// Cuts the last component, and its '/', off; returns it.
std::string_view CutLast(std::string_view* path) {
    const size_t slash = path->rfind('/');
    const std::string_view last = slash == std::string_view::npos ? *path : path->substr(slash + 1);
    *path = slash == std::string_view::npos ? std::string_view() : path->substr(0, slash == 0 ? 1 : slash);
    return last;
}

/// What stands before `name`, the last component of `path`.
std::string_view FolderOf(const char* path, const char* name) {
    const auto length = static_cast<size_t>(name - path);
    return {path, length > 1 ? length - 1 : length};
}

}  // namespace

HeldFolder::HeldFolder(int fd) : fd_(fd), error_(fd < 0 ? errno : 0) {}

HeldFolder::HeldFolder(HeldFolder&& other) noexcept : fd_(other.fd_), error_(other.error_) {
    other.fd_ = -1;
}

HeldFolder::~HeldFolder() {
    const int error = errno;  // whoever asks why an operation failed may do so later
    if (fd_ >= 0) close(fd_);
    errno = error;
}

HeldFolder HeldFolder::Open(std::string_view path) {
    return HeldFolder(OpenNear(path.empty() ? "." : std::string(path).c_str(), kFolderFlags));
}

HeldFolder HeldFolder::OpenAttributes(std::string_view path, mode_t mode) {
    std::string_view folder = path;
    const std::string name(CutLast(&folder));
    if (CutLast(&folder) != kMetadataFolder) return Open(path);
    return Open(folder).Enter(kMetadataFolder, mode).Enter(name.c_str(), mode);
}

/// The descriptor; -1 with errno set.
int HeldFolder::Checked() const {
    if (fd_ < 0) errno = error_;
    return fd_;
}

HeldFolder HeldFolder::Enter(const char* name, mode_t mode) const {
    if (Checked() < 0) return HeldFolder(-1);
    const int fd = openat(fd_, name, kFolderFlags | O_NOFOLLOW);
    if (fd >= 0 || errno != ENOENT || mode == 0) return HeldFolder(fd);
    if (mkdirat(fd_, name, mode) != 0 && errno != EEXIST) return HeldFolder(-1);
    return HeldFolder(openat(fd_, name, kFolderFlags | O_NOFOLLOW));
}

int HeldFolder::OpenFile(const char* name, int flags, mode_t mode) const {
    return Checked() < 0 ? -1 : openat(fd_, name, flags | O_NOFOLLOW | O_CLOEXEC, mode);
}

int HeldFolder::Look(const char* name, struct stat* status) const {
    return Checked() < 0 ? -1 : fstatat(fd_, name, status, AT_SYMLINK_NOFOLLOW);
}

int HeldFolder::Remove(const char* name) const {
    return Checked() < 0 ? -1 : unlinkat(fd_, name, 0);
}

DIR* HeldFolder::Stream() {
    DIR* const stream = Checked() < 0 ? nullptr : fdopendir(fd_);
    if (stream != nullptr) fd_ = -1;
    return stream;
}

AttributeFile::AttributeFile(const char* path)
    : name_(FileNameOf(path)), folder_(HeldFolder::OpenAttributes(FolderOf(path, name_))) {}

}  // namespace koli
