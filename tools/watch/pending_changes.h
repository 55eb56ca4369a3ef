// What has happened in the watched folders and is not settled yet.  No system calls, no clock of its own:
// told what happened and when, it hands out what is to be asked for.
//
//   a file       is due kQuiet after its last change, kLongest after its first one; never while it is written
//   a new folder is due as one change kQuiet after the last change in it, or at a moment without an open file
//                after kLongest; kLongestHold at last
//   a burst      more than kBurst files of one folder: one change for all, due like a new folder
//   a move       kQuiet after the first one that is held, and before whatever else is handed out: all else is
//                told by the paths behind the moves
//
// Times are milliseconds of a clock that does not jump.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/watch/folder_tree.h"
#include "tools/watch/move_journal.h"
#include "tools/watch/settled_change.h"

namespace koli::watch {

inline constexpr int64_t kQuiet = 2000;
inline constexpr int64_t kLongest = 30'000;
inline constexpr int64_t kLongestHold = 600'000;
inline constexpr int64_t kStalled = 30'000;  // an open file that nobody writes to any more counts as complete
inline constexpr size_t kBurst = 64;
inline constexpr size_t kMaxPending = 32768;  // files held by name; then whole folders are compared

class PendingChanges {
  public:
    /// `tree` stays the caller's and must outlive this.
    explicit PendingChanges(const FolderTree* tree) : tree_(*tree) {}

    /// The file was created or written to, and its writer has not closed it.
    void FileWritten(FolderId folder, const std::string& name, int64_t now);
    /// The file is complete: closed after writing, moved in, linked.
    void FileComplete(FolderId folder, const std::string& name, int64_t now);
    /// Its times or rights changed; of a file that is being written this says nothing.
    void FileTouched(FolderId folder, const std::string& name, int64_t now);
    void FileGone(FolderId folder, const std::string& name, int64_t now);
    void FileMoved(FolderId folder, const std::string& name, FolderId old_folder, const std::string& old_name,
                   int64_t now);

    /// The folder has just been added to the tree.
    void FolderNew(FolderId folder, int64_t now);
    /// The folder has just been moved in the tree.
    void FolderMoved(FolderId folder, FolderId old_parent, const std::string& old_path, int64_t now);
    /// The folder is about to be removed from the tree; Forget is called for it and all below it.
    void FolderGone(FolderId folder, int64_t now);
    /// The folder is out of reach and about to be removed from the tree: nothing in it counts as gone.
    void FolderLost(FolderId folder);
    /// The folder is being removed from the tree.
    void Forget(FolderId folder);

    /// What is due, in the order in which it must be asked for.
    std::vector<SettledChange> TakeDue(int64_t now) { return Take(now, false); }
    /// Everything but files that are being written.
    std::vector<SettledChange> TakeAll(int64_t now) { return Take(now, true); }
    /// The moves alone.
    std::vector<SettledChange> TakeMoves();
    bool HasMoves() const { return !journal_.empty(); }

    /// True, once, after more happened than can be held: everything must be compared.
    bool TakeOverflow() { return journal_.TakeOverflow(); }

    bool empty() const { return folders_.empty() && journal_.empty(); }

  private:
    enum State { kWriting, kComplete, kGone };
    struct File {
        State state = kGone;
        bool is_complete = false;  // has been complete, or gone, since `first`
        int64_t first = 0;
        int64_t last = 0;
        uint64_t order = 0;
    };
    enum Unit {
        kNone,
        kBurstUnit,
        kNewTree,
        kCompareUnit
    };  // each includes those before it; the last two cover all below
    struct Folder {
        std::unordered_map<std::string, File> files;
        size_t next_count = kBurst;  // number of files at which the burst test is made
        size_t writing = 0;
        Unit unit = kNone;
        bool receives = false;     // folders that are stored
        bool may_release = false;  // overdue, and at this moment nothing in it was being written
        size_t unit_files = 0;
        int64_t first = 0;  // of the unit
        int64_t last = 0;
        size_t new_folders = 0;  // that came without a quiet time between them
        int64_t last_new_folder = 0;
    };
    using Folders = std::unordered_map<FolderId, Folder>;
    struct Due {
        uint64_t order;
        SettledChange change;
    };
    using Dues = std::vector<Due>;

    bool Covers(FolderId folder) const;
    FolderId CoverOf(FolderId folder) const;
    Folder& Bump(FolderId folder, int64_t now);
    void StartUnit(FolderId folder, Unit unit, int64_t now);
    File& Put(FolderId folder, const std::string& name, State state, int64_t now);
    void Drop(Folder& folder, const std::string& name);
    void SetState(Folder& folder, File& file, State state);
    void FoldBurst(FolderId id, int64_t now);
    void FoldNewFolders(FolderId parent, int64_t now);
    void ReleaseOverdue(FolderId unit, int64_t now);
    bool IsWriting(FolderId unit, int64_t now) const;
    Unit UnitOver(FolderId folder) const;

    std::vector<SettledChange> Take(int64_t now, bool all);
    bool IsFileDue(const File& file, int64_t now, bool all) const;
    bool IsUnitDue(FolderId id, const Folder& folder, int64_t now) const;
    void TakeFiles(FolderId id, Folder& folder, int64_t now, bool all, Dues* dues);
    void TakeUnits(int64_t now, bool all, Dues* dues);
    void DropIdleFolders(int64_t now, bool all);

    const FolderTree& tree_;
    Folders folders_;  // only those with something pending
    MoveJournal journal_;
    size_t files_ = 0;  // in all folders
    uint64_t order_ = 0;
};

}  // namespace koli::watch
