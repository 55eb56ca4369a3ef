#include "tools/watch/tree_changes.h"

#include <algorithm>
#include <utility>

namespace koli::watch {
namespace {

constexpr size_t kMaxHeld = 4096;

void Rewrite(std::string* path, const std::string& from, const std::string& to) {
    if (IsAtOrBelowPath(*path, from)) *path = MovedPath(*path, from, to);
}

}  // namespace

/// Extends a held move that led to `old_path`.  Changes behind it are executed when the folder is at its new
/// path already; those before it only name their results by it.
bool TreeChanges::Chain(const std::string& new_path, const std::string& old_path) {
    bool is_behind = false;
    for (Held& change : held_) {
        const bool is_chained = change.is_move && change.path == old_path;
        if (is_behind) Rewrite(&change.old_path, old_path, new_path);
        if (is_behind || change.is_move) Rewrite(&change.path, old_path, new_path);
        is_behind = is_behind || is_chained;
    }
    std::erase_if(held_, [](const Held& change) { return change.is_move && change.path == change.old_path; });
    return is_behind;
}

void TreeChanges::Moved(const std::string& new_path, const std::string& old_path, int64_t now) {
    // The daemon may have met the folder on a walk at the path between two moves.
    const bool is_chained = Chain(new_path, old_path);
    Hold(is_chained ? Held{false, old_path, "", now} : Held{true, new_path, old_path, now});
}

/// What was moved to the path or below it is gone from where it came; removals below it are part of this one.
void TreeChanges::Removed(const std::string& path, int64_t now) {
    std::erase_if(held_,
                  [&](const Held& change) { return !change.is_move && IsAtOrBelowPath(change.path, path); });
    for (Held& change : held_)
        if (IsAtOrBelowPath(change.path, path)) change = {false, change.old_path, "", change.time};
    Hold({false, path, "", now});
}

bool TreeChanges::Reappeared(const std::string& path) {
    return std::erase_if(held_, [&](const Held& change) { return !change.is_move && change.path == path; }) !=
           0;
}

void TreeChanges::Lost(const std::string& folder) {
    for (Held& change : held_)
        if (change.is_move && IsAtOrBelowPath(change.path, folder))
            change = {false, change.old_path, "", change.time};
    std::erase_if(
        held_, [&](const Held& change) { return !change.is_move && IsAtOrBelowPath(change.path, folder); });
}

std::vector<SettledChange> TreeChanges::Take() {
    std::vector<SettledChange> changes;
    for (Held& change : std::exchange(held_, {})) {
        const auto kind = change.is_move ? SettledChange::kMoveTree : SettledChange::kRemoveTree;
        changes.push_back({kind, std::move(change.path), std::move(change.old_path)});
    }
    return changes;
}

bool TreeChanges::HasMoves() const {
    return std::any_of(held_.begin(), held_.end(), [](const Held& change) { return change.is_move; });
}

bool TreeChanges::TakeOverflow() {
    return std::exchange(has_overflown_, false);
}

void TreeChanges::Hold(Held change) {
    if (held_.size() >= kMaxHeld) {
        held_.clear();
        has_overflown_ = true;
    }
    held_.push_back(std::move(change));
}

}  // namespace koli::watch
