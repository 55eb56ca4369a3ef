#include "tools/watch/folder_watches.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/directory_listing.h"
#include "index/record/share_path.h"
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

bool IsFolder(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool IsUnwatchedBin(const std::string& path) {
    return IsRecycleBinPath(path.c_str()) != 0 && IsPhotoSharePath(path.c_str()) == 0;
}

bool FolderWatches::Open() {
    Close();
    descriptor_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return descriptor_ >= 0;
}

void FolderWatches::Close() {
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = -1;
    folders_.clear();
    by_watch_.clear();
}

/// Folders that are watched already are not looked into again: what came since has been or will be noted.
bool FolderWatches::AddTree(const std::string& path, bool is_top, std::vector<Met>* met) {
    std::vector<std::string> open{path};
    while (!open.empty()) {
        const std::string next = std::move(open.back());
        open.pop_back();
        folders_.try_emplace(next, kNoWatch);
        if (WatchOne(next, is_top && next == path, met)) AddSubfolders(next, &open);
    }
    return folders_[path] != kNoWatch;
}

/// A folder that the kernel knows already under another path is a second mount of it and keeps that one, or
/// it has moved here.
bool FolderWatches::WatchOne(const std::string& path, bool is_top, std::vector<Met>* met) {
    const int watch =
        inotify_add_watch(descriptor_, path.c_str(), is_top ? kTopMask : kEntryMask | IN_DONT_FOLLOW);
    if (watch < 0) {
        NoteFailure(path);
        return false;
    }
    const auto folder = folders_.find(path);
    if (folder->second != watch) Unwatch(path);  // another one stood there
    const auto [owner, is_new] = by_watch_.try_emplace(watch, &folder->first);
    if (is_new) folder->second = watch;
    if (is_new || *owner->second == path) return is_new;
    if (IsSameFolder(*owner->second, path))
        gaps.linked = true;
    else
        met->push_back({*owner->second, path});
    return false;
}

void FolderWatches::NoteFailure(const std::string& path) {
    if (errno == ENOSPC)
        gaps.limit = true;
    else if (errno == ENOTDIR)
        gaps.linked = true;
    else if (errno != ENOENT)
        ctl::Complain("cannot watch %s: %s", path.c_str(), strerror(errno));
}

/// What has moved on since it was watched is looked into where it is now.
void FolderWatches::AddSubfolders(const std::string& path, std::vector<std::string>* found) {
    DirectoryListing listing;
    if (!listing.Open(path.c_str())) return Unwatch(path);
    for (auto entry = listing.Next(); entry.name != nullptr; entry = listing.Next()) {
        if (entry.type == DT_REG) continue;
        std::string below = path + "/" + entry.name;
        if ((entry.type == DT_DIR || IsFolder(below)) && !IsUnwatchedBin(below))
            found->push_back(std::move(below));
    }
}

void FolderWatches::Unwatch(const std::string& path) {
    int& watch = folders_[path];
    if (watch != kNoWatch) inotify_rm_watch(descriptor_, watch);
    by_watch_.erase(watch);
    watch = kNoWatch;
}

void FolderWatches::Move(const std::string& to, const std::string& from) {
    Remove(to);
    MoveTree(folders_, from, to);
}

void FolderWatches::Remove(const std::string& path) {
    for (const std::string& folder : Known(path, true))
        Unwatch(folder);
    ExtractTree(folders_, path);
}

std::vector<std::string> FolderWatches::Known(const std::string& path, bool is_watched, size_t most) const {
    std::vector<std::string> known;
    ForTree(folders_, path, most, [&](auto folder) {
        if ((folder->second != kNoWatch) == is_watched) known.push_back(folder->first);
    });
    return known;
}

/// Bounded, so that whoever makes changes without a pause cannot keep the rest from being done.
bool FolderWatches::Read(const std::function<void(const FolderEvent&)>& take) {
    alignas(inotify_event) char buffer[kReadSize];
    for (int i = 0; i < kMaxReads; ++i) {
        const ssize_t size = read(descriptor_, buffer, sizeof buffer);
        if (size <= 0) return size < 0 && (errno == EAGAIN || errno == EINTR);
        if (!TakeEvents(buffer, buffer + size, take)) return false;
    }
    return true;
}

/// False at the kernel's note that it had no room for others.
bool FolderWatches::TakeEvents(const char* at, const char* end,
                               const std::function<void(const FolderEvent&)>& take) {
    while (at < end) {
        const auto* event = reinterpret_cast<const inotify_event*>(at);
        at += sizeof *event + event->len;
        if (event->mask & IN_Q_OVERFLOW) return false;
        const auto watch = by_watch_.find(event->wd);
        if (watch == by_watch_.end()) continue;
        const std::string folder = *watch->second;
        if (event->mask & IN_IGNORED) Unwatch(folder);
        // The name is filled up with zeros.
        take({folder, event->mask, event->cookie, {event->name, event->len != 0 ? strlen(event->name) : 0}});
    }
    return true;
}

}  // namespace koli::watch
