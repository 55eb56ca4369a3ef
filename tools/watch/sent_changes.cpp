#include "tools/watch/sent_changes.h"

#include <algorithm>
#include <utility>

namespace koli::watch {
namespace {

/// Changes of each kind.  With more moves or removals everything is compared; with more additions every
/// folder that moves is read again.
constexpr size_t kMaxSent = 4096;

}  // namespace

std::vector<SettledChange> SentChanges::Complete(const SettledChange& change) {
    std::vector<SettledChange> changes;
    if (change.kind == SettledChange::kMoveTree) {
        CompleteMove(change, &changes);
    } else if (change.kind == SettledChange::kRemoveTree) {
        CompleteRemoval(change, &changes);
    } else {
        changes.push_back(change);
    }
    Note(change);
    return changes;
}

void SentChanges::Note(const SettledChange& change) {
    switch (change.kind) {
        case SettledChange::kMoveTree:
            if (HasRoom(moves_)) moves_.push_back({change.path, change.old_path});
            break;
        case SettledChange::kRemoveTree:
            if (HasRoom(removed_)) removed_.push_back(change.path);
            break;
        case SettledChange::kAddFile:
        case SettledChange::kAddTree:
        case SettledChange::kAddBurst:
            if (added_.size() < kMaxSent)
                added_.push_back({change.path});
            else
                has_more_added_ = true;
            break;
        default:
            break;
    }
}

template <typename List>
bool SentChanges::HasRoom(const List& list) {
    if (list.size() < kMaxSent) return true;
    is_doubtful_ = true;
    return false;
}

void SentChanges::CompleteMove(const SettledChange& move, std::vector<SettledChange>* changes) {
    for (Move& sent : moves_) {
        if (!IsAtOrBelowPath(sent.path, move.old_path)) continue;
        sent.path = MovedPath(sent.path, move.old_path, move.path);
        changes->push_back({SettledChange::kMoveTree, sent.path, sent.old_path});
        is_doubtful_ = true;
    }
    changes->push_back(move);
    // What was to be added under the old path is not found there any more.
    const auto is_inside = [&](const Added& sent) { return IsAtOrBelowPath(sent.path, move.old_path); };
    if (has_more_added_ || std::ranges::any_of(added_, is_inside))
        changes->push_back({SettledChange::kAddTree, move.path});
}

void SentChanges::CompleteRemoval(const SettledChange& removal, std::vector<SettledChange>* changes) {
    for (const Move& sent : moves_) {
        if (!IsAtOrBelowPath(sent.path, removal.path)) continue;
        changes->push_back({SettledChange::kRemoveTree, sent.old_path});
        is_doubtful_ = true;
    }
    changes->push_back(removal);
}

/// A removal is refused when there is a folder of that name again, and a move to what is not there any more
/// goes wrong.  What was to be added and has moved since is remembered until that move has been told.
bool SentChanges::Executed(const std::function<bool(const std::string&)>& exists) {
    const auto is_refused = [&](const std::string& path) { return exists(path); };
    const auto is_lost = [&](const Move& move) { return !exists(move.path); };
    if (std::ranges::any_of(removed_, is_refused) || std::ranges::any_of(moves_, is_lost))
        is_doubtful_ = true;
    moves_.clear();
    removed_.clear();
    has_more_added_ = false;
    std::erase_if(added_,
                  [&](Added& sent) { return std::exchange(sent.was_missing, true) || exists(sent.path); });
    return std::exchange(is_doubtful_, false);
}

}  // namespace koli::watch
