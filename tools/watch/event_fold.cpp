#include "tools/watch/event_fold.h"

#include <sys/inotify.h>

#include <algorithm>
#include <utility>

#include "index/record/share_path.h"

namespace koli::watch {

bool IsUnwatchedBin(const std::string& path) {
    return IsRecycleBinPath(path.c_str()) != 0 && IsPhotoSharePath(path.c_str()) == 0;
}

namespace {

/// Both halves of a move are noted one after the other; between two reads of the queue hardly any time
/// passes.
constexpr int64_t kPairing = 500;
constexpr size_t kMaxLeaving = 1024;
/// A folder is new for so long, and so many of them are.
constexpr int64_t kFresh = 2 * kPairing;
constexpr size_t kMaxFresh = 64;

/// The daemon's own folder beside the media, and a bin from which nothing comes back that is stored.
bool IsSkipped(const FolderTree& tree, FolderId parent, const std::string& name) {
    if (name == "@eaDir") return true;
    return name == "#recycle" && IsUnwatchedBin(tree.PathOf(parent) + "/" + name);
}

}  // namespace

EventFold::EventFold(FolderTree* tree, PendingChanges* pending, FolderPort* port,
                     std::function<bool(const std::string&)> is_media)
    : tree_(*tree), pending_(*pending), port_(*port), is_media_(std::move(is_media)) {}

void EventFold::Apply(const FolderEvent& event, int64_t now) {
    if (event.mask & IN_UNMOUNT) {
        Lost(event.folder);
        return;
    }
    if (event.mask & IN_IGNORED) {
        tree_.SetWatch(event.folder, kNoWatch);
        return;
    }
    const std::string name(event.name);
    if (name.empty() || IsSkipped(tree_, event.folder, name)) return;
    if (event.mask & (IN_CREATE | IN_MOVED_TO)) CloseMove(event, name, now);
    if (event.mask & IN_CREATE) EntryCreated(event, name, now);
    if (event.mask & IN_MOVED_FROM) EntryLeft(event, name, now);
    if (event.mask & IN_MOVED_TO) EntryArrived(event, name, now);
    if (event.mask & IN_DELETE) EntryVanished(event.folder, name, now);
    if ((event.mask & IN_ISDIR) || !is_media_(name)) return;
    if (event.mask & IN_MODIFY) pending_.FileWritten(event.folder, name, now);
    if (event.mask & IN_CLOSE_WRITE) pending_.FileComplete(event.folder, name, now);
    if (event.mask & IN_ATTRIB) pending_.FileTouched(event.folder, name, now);
}

void EventFold::FolderAppeared(FolderId parent, const std::string& name, int64_t now) {
    const bool is_known = tree_.Find(parent, name) != kNoFolder;
    const FolderId folder = tree_.Add(parent, name);
    if (!is_known) pending_.FolderNew(folder, now);
    WatchTree(folder, now);
}

/// What was moved into a folder before it was watched has been noted where it left, at most.  Folders are
/// known again by their watches.
void EventFold::WatchTree(FolderId folder, int64_t now) {
    port_.WatchTree(folder);
    for (const FolderId watched : port_.TakeWatched())
        if (fresh_.size() < kMaxFresh) fresh_.push_back({watched, now});
    for (const FolderPort::Met& met : port_.TakeMet()) {
        if (!tree_.Contains(met.folder) || !tree_.Contains(met.found)) continue;
        const FolderId parent = tree_.ParentOf(met.found);
        const std::string name(tree_.NameOf(met.found));
        RemoveFromTree(met.found);
        FolderArrived(met.folder, parent, name, now);
    }
}

void EventFold::RemoveFromTree(FolderId folder) {
    std::erase_if(leaving_, [&](const Leaving& from) { return tree_.IsAtOrBelow(from.folder, folder); });
    tree_.Remove(folder, [&](FolderId removed, int watch) {
        pending_.Forget(removed);
        if (watch != kNoWatch) port_.Unwatch(watch);
    });
}

void EventFold::FolderVanished(FolderId folder, int64_t now) {
    pending_.FolderGone(folder, now);
    RemoveFromTree(folder);
}

void EventFold::Lost(FolderId folder) {
    pending_.FolderLost(folder);
    RemoveFromTree(folder);
}

void EventFold::EntryCreated(const FolderEvent& event, const std::string& name, int64_t now) {
    if (event.mask & IN_ISDIR) {
        FolderAppeared(event.folder, name, now);
        return;
    }
    switch (port_.Look(event.folder, name)) {
        case FolderPort::kLinkedTree:
            FolderAppeared(event.folder, name, now);
            break;
        case FolderPort::kGrowing:
            if (is_media_(name)) pending_.FileWritten(event.folder, name, now);
            break;
        case FolderPort::kWhole:
            if (is_media_(name)) pending_.FileComplete(event.folder, name, now);
            break;
    }
}

/// A link to a folder goes like a file, but what was stored behind it goes like a folder.
void EventFold::EntryVanished(FolderId parent, const std::string& name, int64_t now) {
    const FolderId folder = tree_.Find(parent, name);
    if (folder != kNoFolder)
        FolderVanished(folder, now);
    else if (is_media_(name))
        pending_.FileGone(parent, name, now);
}

/// Files have no watch: one that left, and of which no more was noted, is looked for in the new folders.
void EventFold::FileLeft(FolderId folder, const std::string& name, int64_t now) {
    for (const Fresh& fresh : fresh_) {
        if (!tree_.Contains(fresh.folder) || !port_.HoldsOlder(fresh.folder, name)) continue;
        pending_.FileMoved(fresh.folder, name, folder, name, now);
        return;
    }
    pending_.FileGone(folder, name, now);
}

/// What has left is not on its way any more when something else takes its name.
void EventFold::CloseMove(const FolderEvent& event, const std::string& name, int64_t now) {
    const auto is_same = [&](const Leaving& from) {
        return from.folder == event.folder && from.name == name && from.cookie != event.cookie;
    };
    const auto found = std::ranges::find_if(leaving_, is_same);
    if (found == leaving_.end()) return;
    found->time = now - kPairing;
    std::rotate(leaving_.begin(), found, found + 1);
    ExpireMoves(now);
}

void EventFold::EntryLeft(const FolderEvent& event, const std::string& name, int64_t now) {
    if (leaving_.size() >= kMaxLeaving) ExpireMoves(INT64_MAX);
    leaving_.push_back({event.cookie, event.folder, name, now});
}

bool EventFold::TakeLeaving(uint32_t cookie, Leaving* leaving) {
    for (auto it = leaving_.begin(); it != leaving_.end(); ++it) {
        if (it->cookie != cookie) continue;
        *leaving = std::move(*it);
        leaving_.erase(it);
        return true;
    }
    return false;
}

void EventFold::EntryArrived(const FolderEvent& event, const std::string& name, int64_t now) {
    Leaving from;
    const bool is_paired = TakeLeaving(event.cookie, &from);
    const FolderId moved = is_paired ? tree_.Find(from.folder, from.name) : kNoFolder;
    if (moved != kNoFolder) {
        FolderArrived(moved, event.folder, name, now);
        return;
    }
    const FolderId replaced = tree_.Find(event.folder, name);
    if (replaced != kNoFolder && is_paired && (event.mask & IN_ISDIR) != 0) {
        WatchTree(replaced, now);  // it had been met here already
        return;
    }
    if (replaced != kNoFolder) FolderVanished(replaced, now);
    if (is_paired && (event.mask & IN_ISDIR) == 0) {
        FileArrived(from, event.folder, name, now);
        return;
    }
    FolderEvent created = event;
    created.mask = IN_CREATE | (event.mask & IN_ISDIR);
    // What arrives from outside is complete, unless its writer tells otherwise by writing on.
    if (event.mask & IN_ISDIR || port_.Look(event.folder, name) == FolderPort::kLinkedTree)
        EntryCreated(created, name, now);
    else if (is_media_(name))
        pending_.FileComplete(event.folder, name, now);
}

/// The watches stay with the folders wherever they move.
void EventFold::FolderArrived(FolderId folder, FolderId parent, const std::string& name, int64_t now) {
    const std::string old_path = tree_.PathOf(folder);
    const FolderId old_parent = tree_.ParentOf(folder);
    const FolderId replaced = tree_.Find(parent, name);
    if (replaced == folder) return;
    if (replaced != kNoFolder) FolderVanished(replaced, now);
    if (tree_.Move(folder, parent, name)) {
        pending_.FolderMoved(folder, old_parent, old_path, now);
    } else {
        FolderVanished(folder, now);
        FolderAppeared(parent, name, now);
    }
}

/// Under a name that nobody stores a file is as good as not there: that is how programs upload.
void EventFold::FileArrived(const Leaving& from, FolderId folder, const std::string& name, int64_t now) {
    const bool was_media = is_media_(from.name);
    const bool is_media = is_media_(name);
    if (was_media && is_media) {
        pending_.FileMoved(folder, name, from.folder, from.name, now);
    } else if (was_media) {
        pending_.FileGone(from.folder, from.name, now);
    } else if (is_media) {
        pending_.FileComplete(folder, name, now);
    }
}

void EventFold::Settle(int64_t now) {
    ExpireMoves(now);
    std::erase_if(fresh_, [&](const Fresh& fresh) { return now - fresh.time >= kFresh; });
    WatchMissed(now);
}

/// What came into such a folder before it was watched was never noted.  One that is not found now either has
/// moved again, and is missed anew, or has gone.
void EventFold::WatchMissed(int64_t now) {
    for (const FolderId folder : port_.TakeMissed()) {
        if (!tree_.Contains(folder) || tree_.WatchOf(folder) != kNoWatch) continue;
        WatchTree(folder, now);
        const bool is_found = tree_.Contains(folder) && tree_.WatchOf(folder) != kNoWatch;
        if (is_found) pending_.FolderNew(folder, now);
    }
}

/// One at a time: a folder that is gone takes the open moves of its entries with it.
void EventFold::ExpireMoves(int64_t now) {
    while (!leaving_.empty() && now - leaving_.front().time >= kPairing) {
        const Leaving from = std::move(leaving_.front());
        leaving_.erase(leaving_.begin());
        const int64_t then = std::min(now, from.time + kPairing);
        if (tree_.Find(from.folder, from.name) == kNoFolder && is_media_(from.name))
            FileLeft(from.folder, from.name, then);
        else
            EntryVanished(from.folder, from.name, then);
    }
}

}  // namespace koli::watch
