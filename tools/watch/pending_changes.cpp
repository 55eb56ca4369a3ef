#include "tools/watch/pending_changes.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "index/record/share_path.h"
#include "tools/watch/tree_paths.h"

namespace koli::watch {

/// The folder at or above `path` that will be asked for with all below it; "" when there is none.
std::string PendingChanges::CoverOf(std::string path) const {
    for (; !path.empty(); path.resize(path.rfind('/')))
        if (const auto found = folders_.find(path); found != folders_.end() && found->second.unit != kNone)
            break;
    return path;
}

PendingChanges::Unit PendingChanges::UnitOver(const std::string& path) const {
    const std::string cover = CoverOf(path);
    return cover.empty() ? kNone : folders_.at(cover).unit;
}

void PendingChanges::Bump(const std::string& path, int64_t now) {
    Folder& folder = folders_[path];
    if (folder.first == 0) folder.first = now;
    folder.last = now;
    // One file after another can be written without a pause that a look from time to time would find.
    if (folder.unit != kNone && now - folder.first >= kLongest && !IsWriting(path, now))
        folder.may_release = true;
}

void PendingChanges::StartUnit(const std::string& path, Unit unit, int64_t now) {
    Folder& folder = folders_[path];
    if (folder.unit == kNone) folder.first = now;
    folder.unit = std::max(folder.unit, unit);
    folder.last = now;
    folder.may_release = false;
}

void PendingChanges::Drop(const std::string& path) {
    const auto folder = folders_.find(ParentOf(path));
    if (folder != folders_.end()) files_ -= folder->second.files.erase(NameOf(path));
}

void PendingChanges::DropTree(const std::string& path) {
    for (const auto& node : ExtractTree(folders_, path))
        files_ -= node.mapped().files.size();
}

/// A complete file in a folder that is asked for as a whole needs no request of its own.  One that is gone is
/// told even there: on a walk from above the daemon may have met it.
void PendingChanges::File(const std::string& path, State state, int64_t now) {
    const std::string parent = ParentOf(path);
    if (state == kGone) moves_.FileGone(path);
    if (files_ >= kMaxPending) {
        DropTree(parent);
        StartUnit(parent, kCompareUnit, now);
    }
    const std::string cover = CoverOf(parent);
    Drop(path);
    Folder& folder = folders_[parent];
    if (state == kComplete && cover.empty() && folder.files.size() >= kBurst) {
        ++folder.more;
    } else if (state != kComplete || cover.empty()) {
        folder.files[NameOf(path)] = {state, now};
        ++files_;
    }
    if (state == kGone || (state == kComplete && cover.empty())) Bump(parent, now);
    if (!cover.empty()) Bump(cover, now);
}

void PendingChanges::FileTouched(const std::string& path, int64_t now) {
    const auto folder = folders_.find(ParentOf(path));
    if (folder != folders_.end()) {
        const auto file = folder->second.files.find(NameOf(path));
        if (file != folder->second.files.end() && file->second.state == kWriting) return;
    }
    File(path, kComplete, now);
}

/// What is pending of the file goes along.  What is pending of a file that it replaces is void.
void PendingChanges::FileMoved(const std::string& to, const std::string& from, int64_t now) {
    const bool is_first = moves_.Moved(false, to, from, now);
    Drop(to);
    State state = UnitOver(ParentOf(from)) != kNone ? kComplete : kGone;
    if (const auto folder = folders_.find(ParentOf(from)); folder != folders_.end()) {
        if (folder->second.more > 0) state = kComplete;
        const auto file = folder->second.files.find(NameOf(from));
        if (file != folder->second.files.end()) state = file->second.state;
    }
    Drop(from);
    if (!is_first) File(from, kGone, now);
    if (state != kGone) File(to, state, now);
}

/// In the bin of the photo share only moves and removals count.
void PendingChanges::FolderNew(const std::string& path, int64_t now) {
    if (IsRecycleBinPath(path.c_str()) != 0) return;
    const std::string cover = CoverOf(ParentOf(path));
    if (cover.empty())
        StartUnit(path, kNewTree, now);
    else
        Bump(cover, now);
}

/// What is new has to be asked for under its new path.  Of what is new in a photo share captions and rights
/// may be stored all the same; elsewhere it is enough that nothing stays at the old path.
void PendingChanges::FolderMoved(const std::string& to, const std::string& from, int64_t now) {
    const Unit unit = std::max(UnitOver(from), UnitOver(ParentOf(to)));
    const std::string cover = CoverOf(ParentOf(to));
    // A folder that is still to be asked for has to be an album before one that moves into it.
    if (!cover.empty()) moves_.NeedsAlbum(cover);
    if (unit != kNone && IsPhotoSharePath(to.c_str()) == 0 && IsPhotoSharePath(from.c_str()) == 0)
        moves_.FolderGone(from, now);
    else
        moves_.Moved(true, to, from, now);
    MoveTree(folders_, from, to);
    if (!cover.empty())
        Bump(cover, now);
    else if (unit != kNone)
        StartUnit(to, unit, now);
}

void PendingChanges::FolderGone(const std::string& path, int64_t now) {
    DropTree(path);
    moves_.FolderGone(path, now);
    if (const std::string cover = CoverOf(ParentOf(path)); !cover.empty()) Bump(cover, now);
}

void PendingChanges::FolderLost(const std::string& path) {
    DropTree(path);
    moves_.Lost(path);
}

std::vector<std::string> PendingChanges::NewFolders(size_t most) const {
    std::vector<std::string> found;
    for (const auto& [path, folder] : folders_) {
        if (found.size() == most) break;
        if (folder.unit == kNewTree) found.push_back(path);
    }
    return found;
}

/// True while some file in the unit is being written.
bool PendingChanges::IsWriting(const std::string& unit, int64_t now) const {
    bool is_writing = false;
    ForTree(folders_, unit, [&](auto folder) {
        for (const auto& [name, file] : folder->second.files)
            is_writing |= file.state == kWriting && now - file.last < kStalled;
    });
    return is_writing;
}

/// Of a folder that is asked for as a whole only removals are told one by one.
void PendingChanges::TakeFiles(const std::string& path, Folder* folder, int64_t now, bool all,
                               std::vector<Request>* requests) {
    const bool is_due = all || now - folder->last >= kQuiet || now - folder->first >= kLongest;
    const bool is_burst = is_due && folder->more > 0;
    const bool is_covered = is_burst || !CoverOf(path).empty();
    files_ -= std::erase_if(folder->files, [&](const auto& entry) {
        const auto& [name, file] = entry;
        const bool is_taken = file.state == kWriting ? now - file.last >= kStalled : is_due;
        if (is_taken && (file.state == kGone || !is_covered))
            requests->push_back({file.state == kGone ? 'd' : 'a', path + "/" + name});
        return is_taken;
    });
    if (is_burst) requests->push_back({Request::kBurst, path, "", kBurst + std::exchange(folder->more, 0)});
    if (is_due && folder->unit == kNone) folder->first = 0;
}

/// A unit inside a tree that is asked for as a whole is part of that request.
void PendingChanges::TakeUnit(const std::string& path, Folder* folder, int64_t now, bool all,
                              std::vector<Request>* requests) {
    const int64_t age = now - folder->first;
    const bool is_covered = !CoverOf(ParentOf(path)).empty();
    const bool is_due = all || folder->may_release || age >= kLongestHold ||
                        ((now - folder->last >= kQuiet || age >= kLongest) && !IsWriting(path, now));
    if (folder->unit == kNone || (!is_covered && !is_due)) return;
    if (!is_covered) requests->push_back({folder->unit == kNewTree ? 'A' : Request::kCompare, path});
    folder->unit = kNone;
    folder->may_release = false;
    folder->first = 0;
}

/// Files of all folders before the units, which say what needs no request of its own; and units before those
/// around them.
std::vector<Request> PendingChanges::Take(int64_t now, bool all) {
    std::vector<Request> rest;
    for (auto& [path, folder] : folders_)
        TakeFiles(path, &folder, now, all, &rest);
    for (auto it = folders_.rbegin(); it != folders_.rend(); ++it)
        TakeUnit(it->first, &it->second, now, all, &rest);
    std::erase_if(folders_, [](const auto& entry) {
        return entry.second.files.empty() && entry.second.more == 0 && entry.second.unit == kNone;
    });
    std::vector<Request> requests;
    if (all || !rest.empty() || moves_.IsDue(now, kQuiet)) requests = TakeMoves();
    std::ranges::move(rest, std::back_inserter(requests));
    return requests;
}

}  // namespace koli::watch
