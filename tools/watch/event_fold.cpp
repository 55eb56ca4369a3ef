#include "tools/watch/event_fold.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "tools/ctl/media_kinds.h"
#include "tools/watch/tree_paths.h"

namespace koli::watch {
namespace {

/// Both halves of a move are noted one after the other; between two reads of the queue hardly any time
/// passes.
constexpr int64_t kPairing = 500;
constexpr size_t kMaxLeaving = 1024;
constexpr size_t kMaxLooks = 64;  // for a file that has left, in new folders

/// The daemon's own folder beside the media, and a bin from which nothing comes back that is stored.
bool IsSkipped(const std::string& path, std::string_view name) {
    return name == "@eaDir" || (name == "#recycle" && IsUnwatchedBin(path));
}

bool IsMedia(const std::string& path) {
    return ctl::MediaKindOf(path.c_str()) != ctl::kNotIndexed;
}

/// What kind of entry has just been created, when it is no folder.
enum class Entry {
    kGrowing,     // a file whose writer is still to close it
    kWhole,       // a further name of a complete file: nobody will close it after writing
    kLinkedTree,  // a link to a folder: walked by the daemon, not watched
};

Entry Look(const std::string& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) return Entry::kGrowing;
    if (S_ISREG(status.st_mode)) return status.st_nlink > 1 ? Entry::kWhole : Entry::kGrowing;
    if (!S_ISLNK(status.st_mode)) return Entry::kGrowing;
    return IsFolder(path) ? Entry::kLinkedTree : Entry::kWhole;
}

/// True when the folder holds a file of that name that is older than the folder: it was moved there.
bool HoldsOlder(const std::string& folder, const std::string& name) {
    const auto born = [](const std::string& path) {
        struct statx status;
        const bool is_known = statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &status) == 0 &&
                              (status.stx_mask & STATX_BTIME) != 0;
        return is_known ? std::pair<int64_t, int64_t>(status.stx_btime.tv_sec, status.stx_btime.tv_nsec)
                        : std::pair<int64_t, int64_t>();
    };
    const auto file = born(folder + "/" + name);
    return file.first != 0 && file < born(folder);
}

}  // namespace

void EventFold::Apply(const FolderEvent& event, int64_t now) {
    if (event.mask & IN_UNMOUNT) return Lost(event.folder);
    if (event.name.empty() || (event.mask & IN_IGNORED)) return;
    const std::string path = event.folder + "/" + std::string(event.name);
    if (IsSkipped(path, event.name)) return;
    const bool is_folder = (event.mask & IN_ISDIR) != 0;
    if (event.mask & (IN_CREATE | IN_MOVED_TO)) CloseMove(event, path, now);
    if (event.mask & IN_CREATE) EntryCreated(path, is_folder, now);
    if (event.mask & IN_MOVED_FROM) {
        if (leaving_.size() >= kMaxLeaving) Settle(INT64_MAX);
        leaving_.push_back({event.cookie, path, now});
    }
    if (event.mask & IN_MOVED_TO) EntryArrived(event, path, now);
    if (event.mask & IN_DELETE) EntryVanished(path, now);
    if (is_folder || !IsMedia(path)) return;
    if (event.mask & IN_MODIFY) pending_.File(path, PendingChanges::kWriting, now);
    if (event.mask & IN_CLOSE_WRITE) pending_.File(path, PendingChanges::kComplete, now);
    if (event.mask & IN_ATTRIB) pending_.FileTouched(path, now);
}

// Folders.

/// What was moved into a folder before it was watched has been noted where it left, at most.  Folders are
/// known again by their watches.
bool EventFold::WatchTree(const std::string& folder, int64_t now) {
    std::vector<FolderWatches::Met> met;
    const bool is_watched = watches_.AddTree(folder, false, &met);
    for (const auto& [known, found] : met) {
        if (!watches_.IsKnown(known) || !watches_.IsKnown(found)) continue;
        Forget(found);
        FolderArrived(found, known, now);
        if (IsFolder(known)) FolderAppeared(known, now);  // the note was of another one
    }
    return is_watched;
}

void EventFold::FolderAppeared(const std::string& path, int64_t now) {
    if (!watches_.IsKnown(path)) pending_.FolderNew(path, now);
    WatchTree(path, now);
}

/// The watches stay with the folders wherever they move.  One that could not be watched where it had been,
/// because it had moved on, is new here: what came into it was never noted.
void EventFold::FolderArrived(const std::string& path, const std::string& from, int64_t now) {
    if (path == from) return;
    if (watches_.IsKnown(path)) EntryVanished(path, now);
    watches_.Move(path, from);
    for (Leaving& leaving : leaving_)
        if (IsAtOrBelow(ParentOf(leaving.path), from)) leaving.path = MovedPath(leaving.path, from, path);
    pending_.FolderMoved(path, from, now);
    for (const std::string& folder : watches_.Known(path, false))
        if (WatchTree(folder, now)) pending_.FolderNew(folder, now);
}

void EventFold::Forget(const std::string& folder) {
    std::erase_if(leaving_, [&](const Leaving& from) { return IsAtOrBelow(ParentOf(from.path), folder); });
    watches_.Remove(folder);
}

void EventFold::Lost(const std::string& folder) {
    pending_.FolderLost(folder);
    Forget(folder);
}

// Files, and what may be one.

void EventFold::EntryCreated(const std::string& path, bool is_folder, int64_t now) {
    const Entry entry = is_folder ? Entry::kLinkedTree : Look(path);
    if (entry == Entry::kLinkedTree)
        FolderAppeared(path, now);
    else if (IsMedia(path))
        pending_.File(path, entry == Entry::kWhole ? PendingChanges::kComplete : PendingChanges::kWriting,
                      now);
}

/// A link to a folder goes like a file, but what was stored behind it goes like a folder.
void EventFold::EntryVanished(const std::string& path, int64_t now) {
    if (watches_.IsKnown(path)) {
        pending_.FolderGone(path, now);
        Forget(path);
    } else if (IsMedia(path)) {
        pending_.File(path, PendingChanges::kGone, now);
    }
}

/// What arrives from outside is complete, unless its writer tells otherwise by writing on.
void EventFold::EntryArrived(const FolderEvent& event, const std::string& path, int64_t now) {
    const std::string from = TakeLeaving(event.cookie);
    const bool is_folder = (event.mask & IN_ISDIR) != 0;
    if (!from.empty() && watches_.IsKnown(from)) return FolderArrived(path, from, now);
    if (watches_.IsKnown(path)) {
        if (is_folder && !from.empty()) return void(WatchTree(path, now));  // it had been met here already
        EntryVanished(path, now);
    }
    if (is_folder || (from.empty() && Look(path) == Entry::kLinkedTree))
        FolderAppeared(path, now);
    else
        FileArrived(path, from, now);
}

/// Under a name that nobody stores a file is as good as not there: that is how programs upload.
void EventFold::FileArrived(const std::string& path, const std::string& from, int64_t now) {
    const bool was_media = IsMedia(from);
    const bool is_media = IsMedia(path);
    if (was_media && is_media)
        pending_.FileMoved(path, from, now);
    else if (was_media)
        pending_.File(from, PendingChanges::kGone, now);
    else if (is_media)
        pending_.File(path, PendingChanges::kComplete, now);
}

/// Files have no watch: one that left, and of which no more was noted, is looked for in the new folders.  Of
/// a large tree that is being copied only the first ones are gone through: many files may leave meanwhile.
void EventFold::FileLeft(const std::string& path, int64_t now) {
    size_t looks = kMaxLooks;
    for (const std::string& top : pending_.NewFolders(kMaxLooks)) {
        for (const std::string& folder : watches_.Known(top, true, looks)) {
            if (HoldsOlder(folder, NameOf(path)))
                return pending_.FileMoved(folder + "/" + NameOf(path), path, now);
            --looks;
        }
    }
    pending_.File(path, PendingChanges::kGone, now);
}

// Moves of which one half has been read.

/// What has left is not on its way any more when something else takes its name.
void EventFold::CloseMove(const FolderEvent& event, const std::string& path, int64_t now) {
    const auto found = std::ranges::find_if(
        leaving_, [&](const Leaving& from) { return from.path == path && from.cookie != event.cookie; });
    if (found == leaving_.end()) return;
    found->time = now - kPairing;
    std::rotate(leaving_.begin(), found, found + 1);
    Settle(now);
}

/// "" when nothing has left with that cookie.
std::string EventFold::TakeLeaving(uint32_t cookie) {
    const auto found = std::ranges::find(leaving_, cookie, &Leaving::cookie);
    if (found == leaving_.end()) return "";
    std::string path = std::move(found->path);
    leaving_.erase(found);
    return path;
}

/// One at a time: a folder that is gone takes the open moves of its entries with it.
void EventFold::Settle(int64_t now) {
    while (!leaving_.empty() && now - leaving_.front().time >= kPairing) {
        const Leaving from = std::move(leaving_.front());
        leaving_.erase(leaving_.begin());
        const int64_t then = std::min(now, from.time + kPairing);
        if (!watches_.IsKnown(from.path) && IsMedia(from.path))
            FileLeft(from.path, then);
        else
            EntryVanished(from.path, then);
    }
}

}  // namespace koli::watch
