#include "tools/watch/move_journal.h"

#include <utility>

namespace koli::watch {
namespace {

constexpr size_t kMany = 4096;
constexpr size_t kMaxHeld = 32768;

}  // namespace

bool MoveJournal::Moved(SettledChange::Kind kind, const std::string& new_path, const std::string& old_path,
                        int64_t now) {
    const bool is_tree = kind == SettledChange::kMoveTree;
    FileRemoved(new_path);
    const bool is_first = !here_.contains(old_path);
    if (is_first) Hold(Found(is_tree, old_path), now);
    if (!is_tree) Place(held_[static_cast<size_t>(here_[old_path])], new_path);
    for (size_t i = 0; is_tree && i < held_.size(); ++i)
        if (IsAtOrBelowPath(held_[i].now, old_path))
            Place(held_[i], MovedPath(held_[i].now, old_path, new_path));
    if (is_tree && !is_first) Clear(old_path, now);
    return is_first;
}

void MoveJournal::FileRemoved(const std::string& path) {
    if (const auto held = here_.find(path); held != here_.end())
        Place(held_[static_cast<size_t>(held->second)], "");
}

void MoveJournal::Removed(const std::string& path, int64_t now) {
    for (size_t i = 0; !here_.empty() && i < held_.size(); ++i)
        if (IsAtOrBelowPath(held_[i].now, path)) Place(held_[i], "");
    Clear(path, now);
}

/// Whatever is stored at the path has no folder any more: one that was there, or what a walk has met of one
/// that only came by.  A tree is removed from its deepest folders upwards: their removals are part of this
/// one.
void MoveJournal::Clear(const std::string& path, int64_t now) {
    Held gone = Found(true, path);
    gone.was_removed = true;
    gone.now.clear();
    while (!held_.empty() && held_.back().was_removed && held_.back().inside == gone.inside &&
           IsAtOrBelowPath(held_.back().stored, gone.stored)) {
        held_.pop_back();
        trees_.pop_back();
    }
    Hold(std::move(gone), now);
}

void MoveJournal::Lost(const std::string& folder) {
    for (Held& held : held_) {
        const bool is_inside = IsAtOrBelowPath(held.stored, folder);
        const bool was_moved_there = IsAtOrBelowPath(held.now, folder);
        if (is_inside && (held.was_removed || was_moved_there)) held.is_lost = true;
        if (was_moved_there) Place(held, "");
    }
}

std::vector<SettledChange> MoveJournal::Take() {
    std::vector<SettledChange> changes;
    for (Held& held : held_) {
        const bool is_gone = held.now.empty();
        auto kind = held.is_tree ? SettledChange::kMoveTree : SettledChange::kMoveFile;
        if (is_gone) kind = held.is_tree ? SettledChange::kRemoveTree : SettledChange::kDropFile;
        if (held.is_lost) kind = SettledChange::kStay;
        SettledChange change{kind, is_gone ? held.stored : held.now, is_gone ? "" : held.stored};
        change.inside = held.inside;
        changes.push_back(std::move(change));
    }
    held_.clear();
    trees_.clear();
    here_.clear();
    return changes;
}

bool MoveJournal::IsDue(int64_t now, int64_t quiet) const {
    return !held_.empty() && (now - oldest_ >= quiet || held_.size() >= kMany);
}

bool MoveJournal::TakeOverflow() {
    return std::exchange(has_overflown_, false);
}

/// What has not moved yet is stored where it is, or below the path at which the folder around it is stored.
MoveJournal::Held MoveJournal::Found(bool is_tree, const std::string& path) const {
    const int inside = TreeAround(path);
    if (inside < 0) return {is_tree, false, path, path, inside};
    const Held& around = held_[static_cast<size_t>(inside)];
    return {is_tree, false, MovedPath(path, around.now, around.stored), path, inside};
}

void MoveJournal::Hold(Held held, int64_t now) {
    if (held_.size() >= kMaxHeld) {
        Take();
        held.inside = -1;
        has_overflown_ = true;
    }
    if (held_.empty()) oldest_ = now;
    const auto index = static_cast<int>(held_.size());
    if (held.is_tree) trees_.push_back(index);
    if (!held.now.empty()) here_[held.now] = index;
    held_.push_back(std::move(held));
}

void MoveJournal::Place(Held& held, const std::string& path) {
    const auto index = static_cast<int>(&held - held_.data());
    if (const auto known = here_.find(held.now); known != here_.end() && known->second == index)
        here_.erase(known);
    held.now = path;
    if (!path.empty()) here_[path] = index;
}

/// The innermost folder that has moved with `path` in it; -1 for none.
int MoveJournal::TreeAround(const std::string& path) const {
    int around = -1;
    size_t longest = 0;
    for (const int index : trees_) {
        const std::string& folder = held_[static_cast<size_t>(index)].now;
        if (folder.size() <= longest || !IsAtOrBelowPath(path, folder)) continue;
        longest = folder.size();
        around = index;
    }
    return around;
}

}  // namespace koli::watch
