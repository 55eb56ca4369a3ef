#include "tools/watch/sent_changes.h"

#include <algorithm>
#include <utility>

namespace koli::watch {
namespace {

/// Changes of each kind.  With more folders vacated everything is compared; with more additions every folder
/// that moves is read again.
constexpr size_t kMaxSent = 4096;

}  // namespace

std::vector<SettledChange> SentChanges::Complete(const SettledChange& change) {
    std::vector<SettledChange> changes{change};
    const bool is_tree_move = change.kind == SettledChange::kMoveTree;
    if (is_tree_move || change.kind == SettledChange::kRemoveTree) NoteVacated(change);
    if (is_tree_move) {
        const auto is_inside = [&](const Added& sent) { return IsAtOrBelowPath(sent.path, change.old_path); };
        if (has_more_added_ || std::ranges::any_of(added_, is_inside))
            changes.push_back({SettledChange::kAddTree, change.path});
    }
    for (const SettledChange& asked : changes)
        if (asked.kind <= SettledChange::kAddBurst || asked.kind == SettledChange::kMoveFile)
            NoteAdded(asked.path);
    return changes;
}

void SentChanges::NoteAdded(const std::string& path) {
    if (added_.size() < kMaxSent)
        added_.push_back({path});
    else
        has_more_added_ = true;
}

void SentChanges::NoteVacated(const SettledChange& change) {
    const bool is_move = !change.old_path.empty();
    for (Vacated& sent : vacated_)
        if (is_move && IsAtOrBelowPath(sent.moved_to, change.old_path))
            sent.moved_to = MovedPath(sent.moved_to, change.old_path, change.path);
    if (vacated_.size() >= kMaxSent)
        has_more_vacated_ = true;
    else
        vacated_.push_back(is_move ? Vacated{change.old_path, change.path} : Vacated{change.path, ""});
}

/// A folder that stands where another one was: a walk may have met it before that one's rows had moved, and
/// then some of its own went along.  What was to be added and has moved since is remembered until that move
/// has been told.
bool SentChanges::Executed(const std::function<bool(const std::string&)>& exists,
                           std::vector<std::string>* stale) {
    for (const Vacated& sent : std::exchange(vacated_, {})) {
        if (!exists(sent.path)) continue;
        stale->push_back(sent.path);
        if (!sent.moved_to.empty()) stale->push_back(sent.moved_to);
    }
    has_more_added_ = false;
    std::erase_if(added_,
                  [&](Added& sent) { return std::exchange(sent.was_missing, true) || exists(sent.path); });
    return !std::exchange(has_more_vacated_, false);
}

}  // namespace koli::watch
