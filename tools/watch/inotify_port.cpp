#include "tools/watch/inotify_port.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "base/directory_listing.h"
#include "tools/ctl/context.h"

namespace koli::watch {
namespace {

constexpr uint32_t kEntryMask =
    IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE | IN_ONLYDIR;
constexpr uint32_t kTopMask = kEntryMask | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr size_t kReadSize = size_t{64} << 10;
constexpr int kMaxReads = 64;  // buffers read in one go

bool IsSameFolder(const std::string& one, const std::string& other) {
    struct stat a;
    struct stat b;
    return stat(one.c_str(), &a) == 0 && stat(other.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
           a.st_ino == b.st_ino;
}

}  // namespace

bool InotifyPort::Open() {
    Close();
    descriptor_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return descriptor_ >= 0;
}

void InotifyPort::Close() {
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = -1;
}

/// Folders that are watched already are not looked into again: what came since has been or will be noted.
void InotifyPort::WatchTree(FolderId folder) {
    std::vector<FolderId> open{folder};
    while (!open.empty()) {
        const FolderId next = open.back();
        open.pop_back();
        const std::string path = tree_.PathOf(next);
        if (WatchOne(next, path)) AddSubfolders(next, path, &open);
    }
}

/// A link is followed at a top only.  A folder that the kernel knows already under another path of the tree
/// is a second mount of it and keeps that one, or it has moved here and the note of that is still to be read.
bool InotifyPort::WatchOne(FolderId folder, const std::string& path) {
    const bool is_top = tree_.ParentOf(folder) == kNoFolder;
    const uint32_t mask = is_top ? kTopMask : kEntryMask | IN_DONT_FOLLOW;
    const int watch = inotify_add_watch(descriptor_, path.c_str(), mask);
    if (watch < 0) {
        TellFailure(folder, path);
        return false;
    }
    const FolderId owner = tree_.FolderOf(watch);
    if (owner == folder) return false;
    if (owner != kNoFolder) {
        if (IsSameFolder(tree_.PathOf(owner), path))
            gaps.linked = true;
        else
            met_.push_back({owner, folder});
        return false;
    }
    tree_.SetWatch(folder, watch);
    watched_.push_back(folder);
    return true;
}

void InotifyPort::TellFailure(FolderId folder, const std::string& path) {
    if (errno == ENOSPC)
        gaps.limit = true;
    else if (errno == ENOTDIR)
        gaps.linked = true;
    else if (errno == ENOENT)
        missed_.push_back(folder);
    else
        ctl::Complain("cannot watch %s: %s", path.c_str(), strerror(errno));
}

std::vector<FolderId> InotifyPort::TakeMissed() {
    return std::exchange(missed_, {});
}

std::vector<FolderPort::Met> InotifyPort::TakeMet() {
    return std::exchange(met_, {});
}

std::vector<FolderId> InotifyPort::TakeWatched() {
    return std::exchange(watched_, {});
}

bool InotifyPort::HoldsOlder(FolderId folder, const std::string& name) {
    const std::string path = tree_.PathOf(folder);
    struct statx parent;
    struct statx file;
    const auto look = [](const std::string& looked, struct statx* status) {
        return statx(AT_FDCWD, looked.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, status) == 0 &&
               (status->stx_mask & STATX_BTIME) != 0;
    };
    if (!look(path + "/" + name, &file) || !look(path, &parent)) return false;
    const auto born = [](const struct statx& status) {
        return std::pair(status.stx_btime.tv_sec, status.stx_btime.tv_nsec);
    };
    return born(file) < born(parent);
}

/// The links among them are kept too: when one goes, what was stored behind it goes.
void InotifyPort::AddSubfolders(FolderId folder, const std::string& path, std::vector<FolderId>* found) {
    DirectoryListing listing;
    if (!listing.Open(path.c_str())) return;
    for (auto entry = listing.Next(); entry.name != nullptr; entry = listing.Next()) {
        if (entry.type == DT_REG) continue;
        const std::string below = path + "/" + entry.name;
        struct stat status;
        const bool is_folder =
            entry.type == DT_DIR || (stat(below.c_str(), &status) == 0 && S_ISDIR(status.st_mode));
        if (!is_folder || IsUnwatchedBin(below)) continue;
        found->push_back(tree_.Add(folder, entry.name));
    }
}

void InotifyPort::Unwatch(int watch) {
    inotify_rm_watch(descriptor_, watch);
}

FolderPort::Entry InotifyPort::Look(FolderId folder, const std::string& name) {
    const std::string path = tree_.PathOf(folder) + "/" + name;
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) return kGrowing;
    if (S_ISREG(status.st_mode)) return status.st_nlink > 1 ? kWhole : kGrowing;
    if (!S_ISLNK(status.st_mode)) return kGrowing;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) ? kLinkedTree : kWhole;
}

/// Bounded, so that whoever makes changes without a pause cannot keep the rest from being done.
bool InotifyPort::Read(const std::function<void(const FolderEvent&)>& take) {
    alignas(inotify_event) char buffer[kReadSize];
    for (int i = 0; i < kMaxReads; ++i) {
        const ssize_t size = read(descriptor_, buffer, sizeof buffer);
        if (size <= 0) return size < 0 && (errno == EAGAIN || errno == EINTR);
        if (!TakeEvents(buffer, buffer + size, take)) return false;
    }
    return true;
}

/// False at the kernel's note that it had no room for others.
bool InotifyPort::TakeEvents(const char* at, const char* end,
                             const std::function<void(const FolderEvent&)>& take) {
    while (at < end) {
        const auto* event = reinterpret_cast<const inotify_event*>(at);
        at += sizeof *event + event->len;
        if (event->mask & IN_Q_OVERFLOW) return false;
        const FolderId folder = tree_.FolderOf(event->wd);
        // The name is filled up with zeros.
        const std::string_view name(event->name, event->len != 0 ? strlen(event->name) : 0);
        if (folder != kNoFolder) take({folder, event->mask, event->cookie, name});
    }
    return true;
}

}  // namespace koli::watch
