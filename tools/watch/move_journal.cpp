#include "tools/watch/move_journal.h"

#include <utility>

namespace koli::watch {
namespace {

constexpr size_t kMany = 4096;
constexpr size_t kMaxHeld = 32768;

}  // namespace

void MoveJournal::Moved(SettledChange::Kind kind, const std::string& new_path, const std::string& old_path,
                        int64_t now) {
    Hold({kind, new_path, old_path}, now);
}

/// A tree is removed from its deepest folders upwards: their removals are part of this one.
void MoveJournal::Removed(const std::string& path, int64_t now) {
    while (!held_.empty() && held_.back().kind == SettledChange::kRemoveTree &&
           IsAtOrBelowPath(held_.back().path, path))
        held_.pop_back();
    Hold({SettledChange::kRemoveTree, path}, now);
}

void MoveJournal::Lost(const std::string& folder) {
    for (SettledChange& change : held_) {
        if (change.old_path.empty() || !IsAtOrBelowPath(change.path, folder)) continue;
        const bool is_file = change.kind == SettledChange::kMoveFile;
        change = {is_file ? SettledChange::kRemoveFile : SettledChange::kRemoveTree, change.old_path};
    }
    std::erase_if(held_, [&](const SettledChange& change) {
        return change.old_path.empty() && IsAtOrBelowPath(change.path, folder);
    });
}

std::vector<SettledChange> MoveJournal::Take() {
    return std::exchange(held_, {});
}

bool MoveJournal::IsDue(int64_t now, int64_t quiet) const {
    return !held_.empty() && (now - oldest_ >= quiet || held_.size() >= kMany);
}

bool MoveJournal::TakeOverflow() {
    return std::exchange(has_overflown_, false);
}

void MoveJournal::Hold(SettledChange change, int64_t now) {
    if (held_.size() >= kMaxHeld) {
        held_.clear();
        has_overflown_ = true;
    }
    if (held_.empty()) oldest_ = now;
    held_.push_back(std::move(change));
}

}  // namespace koli::watch
