#include "tools/watch/pending_changes.h"

#include <algorithm>
#include <utility>

#include "index/record/share_path.h"

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
    Put(id, name, kWriting, now);
    const FolderId cover = CoverOf(id);
    Bump(cover != kNoFolder ? cover : id, now);
}

/// A file in a folder that is asked for as a whole needs no request of its own.
void PendingChanges::FileComplete(FolderId id, const std::string& name, int64_t now) {
    Put(id, name, kComplete, now);
    const FolderId cover = CoverOf(id);
    const FolderId unit = cover != kNoFolder ? cover : id;
    if (cover == kNoFolder) FoldBurst(id, now);
    if (folders_[unit].unit == kNone) return;
    Folder& folder = Bump(unit, now);
    ++folder.unit_files;
    Drop(folders_[id], name);
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
    const auto is_plain = [](const auto& entry) { return entry.second.state == kComplete; };
    size_t plain = 0;
    for (const auto& entry : folder.files)
        plain += is_plain(entry) ? 1 : 0;
    if (plain <= kBurst) return;
    files_ -= std::erase_if(folder.files, is_plain);
    StartUnit(id, kBurstUnit, now);
    folder.unit_files = plain - 1;  // the caller counts the last one
}

/// Told even in a folder that is asked for as a whole: on a walk from above the daemon may have met the file.
void PendingChanges::FileGone(FolderId id, const std::string& name, int64_t now) {
    if (!journal_.empty()) journal_.FileRemoved(tree_.PathOf(id) + "/" + name);
    Put(id, name, kGone, now);
    const FolderId cover = CoverOf(id);
    if (cover == kNoFolder) return;
    Bump(cover, now);
    ReleaseOverdue(cover, now);
}

/// What is pending of the file goes along.  What is pending of a file that it replaces is void.
void PendingChanges::FileMoved(FolderId id, const std::string& name, FolderId old_id,
                               const std::string& old_name, int64_t now) {
    const bool is_first = journal_.Moved(SettledChange::kMoveFile, tree_.PathOf(id) + "/" + name,
                                         tree_.PathOf(old_id) + "/" + old_name, now);
    Drop(folders_[id], name);
    Folder& from = folders_[old_id];
    const auto old = from.files.find(old_name);
    State state = UnitOver(old_id) != kNone ? kComplete : kGone;
    if (old != from.files.end()) state = old->second.state;
    Drop(from, old_name);
    if (!is_first) FileGone(old_id, old_name, now);
    if (state == kWriting) FileWritten(id, name, now);
    if (state == kComplete) FileComplete(id, name, now);
}

/// The unit that files of the folder are part of.
PendingChanges::Unit PendingChanges::UnitOver(FolderId folder) const {
    const FolderId cover = CoverOf(folder);
    const auto found = folders_.find(cover != kNoFolder ? cover : folder);
    return found != folders_.end() ? found->second.unit : kNone;
}

/// In the bin of the photo share only moves and removals count.
void PendingChanges::FolderNew(FolderId id, int64_t now) {
    if (IsRecycleBinPath(tree_.PathOf(id).c_str()) != 0) return;
    const FolderId parent = tree_.ParentOf(id);
    const FolderId cover = CoverOf(parent);
    if (cover != kNoFolder) {
        Bump(cover, now);
        return;
    }
    StartUnit(id, kNewTree, now);
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

/// What is new has to be asked for under its new path.  Of what is new in a photo share captions and rights
/// may be stored all the same; elsewhere it is enough that nothing stays at the old path.
void PendingChanges::FolderMoved(FolderId id, FolderId old_parent, const std::string& old_path, int64_t now) {
    const std::string path = tree_.PathOf(id);
    const Unit unit = std::max(UnitOver(id), UnitOver(old_parent));
    const bool is_new = unit == kNewTree || unit == kCompareUnit;
    if (is_new && !IsPhotoSharePath(path.c_str()) && !IsPhotoSharePath(old_path.c_str()))
        journal_.Removed(old_path, now);
    else
        journal_.Moved(SettledChange::kMoveTree, path, old_path, now);
    const FolderId cover = CoverOf(tree_.ParentOf(id));
    if (cover != kNoFolder)
        Bump(cover, now).receives = true;
    else if (is_new)
        StartUnit(id, unit, now);
}

void PendingChanges::FolderGone(FolderId id, int64_t now) {
    journal_.Removed(tree_.PathOf(id), now);
    const FolderId cover = CoverOf(tree_.ParentOf(id));
    if (cover != kNoFolder) Bump(cover, now);
}

void PendingChanges::FolderLost(FolderId id) {
    journal_.Lost(tree_.PathOf(id));
}

void PendingChanges::Forget(FolderId id) {
    const auto found = folders_.find(id);
    if (found == folders_.end()) return;
    files_ -= found->second.files.size();
    folders_.erase(found);
}

}  // namespace koli::watch
