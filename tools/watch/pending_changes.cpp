#include "tools/watch/pending_changes.h"

#include <algorithm>
#include <utility>

namespace koli::watch {

bool PendingChanges::Covers(FolderId folder) const {
    const auto found = folders_.find(folder);
    return found != folders_.end() && (found->second.unit == kNewTree || found->second.unit == kCompareUnit);
}

/// The folder at or above `folder` that will be asked for with all below it; kNoFolder when there is none.
FolderId PendingChanges::CoverOf(FolderId folder) const {
    while (folder != kNoFolder && !Covers(folder))
        folder = tree_.ParentOf(folder);
    return folder;
}

PendingChanges::Folder& PendingChanges::Bump(FolderId folder, int64_t now) {
    Folder& bumped = folders_[folder];
    bumped.last = now;
    return bumped;
}

void PendingChanges::StartUnit(FolderId id, Unit unit, int64_t now) {
    Folder& folder = folders_[id];
    if (folder.unit == kNone) folder.first = now;
    folder.unit = std::max(folder.unit, unit);
    folder.last = now;
    folder.may_release = false;
}

void PendingChanges::SetState(Folder& folder, File& file, State state) {
    if (file.state == kWriting) --folder.writing;
    if (state == kWriting) ++folder.writing;
    file.state = state;
}

PendingChanges::File& PendingChanges::Put(FolderId id, const std::string& name, State state, int64_t now) {
    if (files_ >= kMaxPending) {
        Forget(id);
        StartUnit(id, kCompareUnit, now);
    }
    Folder& folder = folders_[id];
    const auto [found, is_new] = folder.files.try_emplace(name);
    if (is_new) ++files_;
    File& file = found->second;
    SetState(folder, file, state);
    if (state != kWriting && !std::exchange(file.is_complete, true)) file.first = now;
    file.last = now;
    file.order = ++order_;
    return file;
}

void PendingChanges::Drop(Folder& folder, const std::string& name) {
    const auto found = folder.files.find(name);
    if (found == folder.files.end()) return;
    SetState(folder, found->second, kGone);
    folder.files.erase(found);
    --files_;
}

void PendingChanges::FileWritten(FolderId id, const std::string& name, int64_t now) {
    Put(id, name, kWriting, now).is_changed = true;
    const FolderId cover = CoverOf(id);
    Bump(cover != kNoFolder ? cover : id, now);
}

/// A file in a folder that is asked for as a whole needs no request of its own, unless it was moved there.
void PendingChanges::FileComplete(FolderId id, const std::string& name, int64_t now) {
    const File& file = Put(id, name, kComplete, now);
    const bool is_moved = !file.origin.empty();
    const FolderId cover = CoverOf(id);
    const FolderId unit = cover != kNoFolder ? cover : id;
    if (cover == kNoFolder) FoldBurst(id, now);
    if (folders_[unit].unit == kNone) return;
    Folder& folder = Bump(unit, now);
    ++folder.unit_files;
    if (!is_moved) Drop(folders_[id], name);
    ReleaseOverdue(unit, now);
}

void PendingChanges::FileTouched(FolderId id, const std::string& name, int64_t now) {
    const auto found = folders_.find(id);
    if (found != folders_.end()) {
        const auto file = found->second.files.find(name);
        if (file != found->second.files.end() && file->second.state == kWriting) return;
    }
    FileComplete(id, name, now);
}

/// Replaces the names of complete files by the request for their folder when there are too many of them.
void PendingChanges::FoldBurst(FolderId id, int64_t now) {
    Folder& folder = folders_[id];
    if (folder.unit != kNone || folder.files.size() <= folder.next_count) return;
    folder.next_count = folder.files.size() + kBurst;
    const auto is_plain = [](const auto& entry) {
        return entry.second.state == kComplete && entry.second.origin.empty();
    };
    size_t plain = 0;
    for (const auto& entry : folder.files)
        plain += is_plain(entry) ? 1 : 0;
    if (plain <= kBurst) return;
    files_ -= std::erase_if(folder.files, is_plain);
    StartUnit(id, kBurstUnit, now);
    folder.unit_files = plain - 1;  // the caller counts the last one
}

/// In a new folder there is, or was, something that may be stored: it was moved there, or it has left and the
/// daemon had met it already, on a walk from further above.  A walk of the folder alone would not set that
/// right.
void PendingChanges::DoubtCover(FolderId cover, int64_t now) {
    Bump(cover, now).unit = kCompareUnit;
}

void PendingChanges::FileGone(FolderId id, const std::string& name, int64_t now) {
    File& file = Put(id, name, kGone, now);
    if (!file.origin.empty()) loose_.push_back({SettledChange::kRemoveFile, std::exchange(file.origin, "")});
    const FolderId cover = CoverOf(id);
    if (cover == kNoFolder) return;
    Drop(folders_[id], name);
    DoubtCover(cover, now);
    ReleaseOverdue(cover, now);
}

/// A file that was written and then moved is complete at its new name only; one that was only moved takes its
/// stored data along.  What may be stored of a name in between is that of a file that it replaced there.
void PendingChanges::FileMoved(FolderId id, const std::string& name, FolderId old_id,
                               const std::string& old_name, int64_t now) {
    const std::string path = tree_.PathOf(id) + "/" + name;
    std::string origin = tree_.PathOf(old_id) + "/" + old_name;
    State state = kComplete;
    bool is_changed = false;
    const bool was_covered = CoverOf(old_id) != kNoFolder;
    Folder& old_folder = folders_[old_id];
    if (const auto old = old_folder.files.find(old_name); old != old_folder.files.end()) {
        if (old->second.state == kWriting) state = kWriting;
        is_changed = old->second.is_changed;
        origin = old->second.origin;
        Drop(old_folder, old_name);
        FileGone(old_id, old_name, now);
    } else if (was_covered) {
        origin.clear();
        FileGone(old_id, old_name, now);
    }
    File& file = Put(id, name, state, now);
    if (!file.origin.empty()) loose_.push_back({SettledChange::kRemoveFile, file.origin});
    file.origin = origin == path ? "" : origin;
    file.is_changed = is_changed;
    if (state == kComplete && file.origin.empty()) FileComplete(id, name, now);
}

void PendingChanges::FolderNew(FolderId id, int64_t now) {
    const bool is_replaced = trees_.Reappeared(tree_.PathOf(id));
    const FolderId parent = tree_.ParentOf(id);
    const FolderId cover = CoverOf(parent);
    if (cover != kNoFolder) {
        Bump(cover, now);
        return;
    }
    StartUnit(id, is_replaced ? kCompareUnit : kNewTree, now);
    if (parent != kNoFolder) FoldNewFolders(parent, now);
}

/// Many new folders in one become a comparison of that one; what they hold themselves is then covered by it.
void PendingChanges::FoldNewFolders(FolderId parent, int64_t now) {
    Folder& folder = folders_[parent];
    if (now - folder.last_new_folder >= kQuiet) folder.new_folders = 0;
    folder.last_new_folder = now;
    if (++folder.new_folders <= kBurst) return;
    folder.new_folders = 0;
    StartUnit(parent, kCompareUnit, now);
}

void PendingChanges::FolderMoved(FolderId id, FolderId old_parent, const std::string& old_path, int64_t now) {
    const std::string path = tree_.PathOf(id);
    const FolderId old_cover = CoverOf(old_parent);
    const FolderId cover = CoverOf(tree_.ParentOf(id));
    const bool is_replaced = trees_.Reappeared(path);
    const bool is_compared = is_replaced || (Covers(id) && folders_[id].unit == kCompareUnit);
    if (cover != kNoFolder) DoubtCover(cover, now);
    if (old_cover != kNoFolder || Covers(id)) {
        // New under its new path, too; under the old one the daemon may have met it on a walk from above.
        if (old_cover != kNoFolder)
            DoubtCover(old_cover, now);
        else
            trees_.Removed(old_path, now);
        if (cover == kNoFolder) StartUnit(id, is_compared ? kCompareUnit : kNewTree, now);
        return;
    }
    RebaseOrigins(path, old_path);
    trees_.Moved(path, old_path, now);
    if (is_replaced) StartUnit(id, kCompareUnit, now);
}

/// Moves of folders are asked for before whatever else is told by its path.
void PendingChanges::RebaseOrigins(const std::string& new_path, const std::string& old_path) {
    const auto rebase = [&](std::string* path) {
        if (IsAtOrBelowPath(*path, old_path)) *path = MovedPath(*path, old_path, new_path);
    };
    for (auto& [id, folder] : folders_)
        for (auto& [name, file] : folder.files)
            rebase(&file.origin);
    for (SettledChange& removal : loose_)
        rebase(&removal.path);
}

void PendingChanges::FolderGone(FolderId id, int64_t now) {
    const FolderId cover = CoverOf(tree_.ParentOf(id));
    if (cover != kNoFolder)
        DoubtCover(cover, now);
    else
        trees_.Removed(tree_.PathOf(id), now);
}

void PendingChanges::FolderLost(FolderId id) {
    const std::string path = tree_.PathOf(id);
    trees_.Lost(path);
    std::erase_if(loose_, [&](const SettledChange& change) { return IsAtOrBelowPath(change.path, path); });
    for (auto& [other, folder] : folders_)
        if (tree_.IsAtOrBelow(other, id))
            for (auto& [name, file] : folder.files)
                if (IsAtOrBelowPath(file.origin, path)) file.origin.clear();
}

/// Files that were moved into the folder are gone from where they came.
void PendingChanges::Forget(FolderId id) {
    const auto found = folders_.find(id);
    if (found == folders_.end()) return;
    for (const auto& [name, file] : found->second.files)
        if (!file.origin.empty()) loose_.push_back({SettledChange::kRemoveFile, file.origin});
    files_ -= found->second.files.size();
    folders_.erase(found);
}

}  // namespace koli::watch
