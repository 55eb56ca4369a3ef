// When pending changes are due, and in which order they leave.
#include <algorithm>
#include <utility>

#include "tools/watch/pending_changes.h"

namespace koli::watch {

/// True while some file in the unit is being written.  A burst is its folder alone.
bool PendingChanges::IsWriting(FolderId unit, int64_t now) const {
    const bool covers = Covers(unit);
    for (const auto& [id, folder] : folders_) {
        if (folder.writing == 0 || (id != unit && !(covers && tree_.IsAtOrBelow(id, unit)))) continue;
        for (const auto& [name, file] : folder.files)
            if (file.state == kWriting && now - file.last < kStalled) return true;
    }
    return false;
}

/// One file after another can be written without a pause that a look from time to time would find.
void PendingChanges::ReleaseOverdue(FolderId unit, int64_t now) {
    Folder& folder = folders_[unit];
    if (now - folder.first >= kLongest && !IsWriting(unit, now)) folder.may_release = true;
}

bool PendingChanges::IsUnitDue(FolderId id, const Folder& folder, int64_t now) const {
    const int64_t age = now - folder.first;
    if (folder.may_release || age >= kLongestHold) return true;
    if (now - folder.last < kQuiet && age < kLongest) return false;
    return !IsWriting(id, now);
}

bool PendingChanges::IsFileDue(const File& file, int64_t now, bool all) const {
    if (file.state == kWriting) return now - file.last >= kStalled;
    return all || now - file.last >= kQuiet || now - file.first >= kLongest;
}

/// Of a folder that is asked for as a whole only removals are told one by one.
void PendingChanges::TakeFiles(FolderId id, Folder& folder, int64_t now, bool all, Dues* dues) {
    const std::string prefix = tree_.PathOf(id) + "/";
    const bool is_covered = CoverOf(id) != kNoFolder;
    for (auto it = folder.files.begin(); it != folder.files.end();) {
        auto& [name, file] = *it;
        if (!IsFileDue(file, now, all)) {
            ++it;
            continue;
        }
        const auto kind = file.state == kGone ? SettledChange::kRemoveFile : SettledChange::kAddFile;
        if (kind == SettledChange::kRemoveFile || !is_covered)
            dues->push_back({file.order, {kind, prefix + name}});
        SetState(folder, file, kGone);
        it = folder.files.erase(it);
        --files_;
    }
    if (folder.files.empty()) folder.next_count = kBurst;
}

/// A unit inside a tree that is asked for as a whole is part of that request.
void PendingChanges::TakeUnits(int64_t now, bool all, Dues* dues) {
    constexpr SettledChange::Kind kKinds[] = {SettledChange::kAddBurst, SettledChange::kAddBurst,
                                              SettledChange::kAddTree, SettledChange::kCompareTree};
    std::vector<FolderId> taken;
    for (const auto& [id, folder] : folders_) {
        if (folder.unit == kNone) continue;
        const bool is_covered = CoverOf(tree_.ParentOf(id)) != kNoFolder;
        if (!is_covered && !all && !IsUnitDue(id, folder, now)) continue;
        taken.push_back(id);
        if (is_covered) continue;
        dues->push_back({++order_, {kKinds[folder.unit], tree_.PathOf(id), "", folder.unit_files}});
    }
    for (const FolderId id : taken) {
        Folder& folder = folders_[id];
        folder.unit = kNone;
        folder.may_release = false;
        folder.unit_files = 0;
    }
}

void PendingChanges::DropIdleFolders(int64_t now, bool all) {
    std::erase_if(folders_, [&](const auto& entry) {
        const Folder& folder = entry.second;
        const bool counts = folder.new_folders != 0 && !all && now - folder.last_new_folder < kQuiet;
        return folder.files.empty() && folder.unit == kNone && !counts;
    });
}

/// A folder that is still to be asked for has to be an album before one that moves into it.
std::vector<SettledChange> PendingChanges::TakeMoves() {
    std::vector<SettledChange> changes = journal_.Take();
    for (auto& [id, folder] : folders_)
        if (std::exchange(folder.receives, false))
            changes.push_back({SettledChange::kAddAlbum, tree_.PathOf(id)});
    return changes;
}

/// The moves go first: all other paths are those behind them.
std::vector<SettledChange> PendingChanges::Take(int64_t now, bool all) {
    Dues dues;
    // Files of all folders before the units: those say which files need no request of their own.
    for (auto& [id, folder] : folders_)
        if (!folder.files.empty()) TakeFiles(id, folder, now, all, &dues);
    TakeUnits(now, all, &dues);
    std::sort(dues.begin(), dues.end(), [](const Due& a, const Due& b) { return a.order < b.order; });

    std::vector<SettledChange> changes;
    if (all || !dues.empty() || journal_.IsDue(now, kQuiet)) changes = TakeMoves();
    DropIdleFolders(now, all);
    for (Due& due : dues)
        changes.push_back(std::move(due.change));
    return changes;
}

}  // namespace koli::watch
