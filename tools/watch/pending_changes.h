// What has happened in the watched folders and is not settled yet.  No system calls, no clock of its own:
// told what happened and when, it hands out what is to be asked for.
//
//   a folder     in which files changed hands them out together, kQuiet after the last change in it, kLongest
//                after the first one; never one that is being written
//   a burst      more than kBurst files of one folder: one change for all
//   a new folder is due as one change kQuiet after the last change in it or below, or at a moment without an
//                open file after kLongest; kLongestHold at last
//   moves        and removed folders leave in the order in which they happened, kQuiet after the first one,
//                and before whatever else is handed out: all else is told by the paths behind them
//
// Times are milliseconds of a clock that does not jump.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/watch/moves.h"

namespace koli::watch {

inline constexpr int64_t kQuiet = 2000;
inline constexpr int64_t kLongest = 30'000;
inline constexpr int64_t kLongestHold = 600'000;
inline constexpr int64_t kStalled = 30'000;  // an open file that nobody writes to any more counts as complete
inline constexpr size_t kBurst = 64;         // files of one folder; more are one change
inline constexpr size_t kMaxPending = 32768;  // files held by name; then whole folders are compared

class PendingChanges {
  public:
    enum State {
        kWriting,   // created or written to, and its writer has not closed it
        kComplete,  // closed after writing, moved in, linked
        kGone,
    };
    void File(const std::string& path, State state, int64_t now);
    /// Its times or rights changed; of a file that is being written this says nothing.
    void FileTouched(const std::string& path, int64_t now);
    void FileMoved(const std::string& to, const std::string& from, int64_t now);

    void FolderNew(const std::string& path, int64_t now);
    void FolderMoved(const std::string& to, const std::string& from, int64_t now);
    void FolderGone(const std::string& path, int64_t now);
    /// The folder is out of reach, a mount point or a whole share: nothing in it counts as gone.
    void FolderLost(const std::string& path);

    /// The folders that are new at this moment, at most `most`, but not those in them.
    std::vector<std::string> NewFolders(size_t most) const;

    /// What is due, in the order in which it must be asked for.
    std::vector<Request> TakeDue(int64_t now) { return Take(now, false); }
    /// Everything but files that are being written.
    std::vector<Request> TakeAll(int64_t now) { return Take(now, true); }
    /// The moves alone.
    std::vector<Request> TakeMoves() { return moves_.Take(); }
    bool HasMoves() const { return !moves_.empty(); }

    bool empty() const { return folders_.empty() && moves_.empty(); }

  private:
    struct Pending {
        State state;
        int64_t last;
    };
    enum Unit { kNone, kNewTree, kCompareUnit };  // all but the first cover everything below
    struct Folder {
        std::map<std::string, Pending> files;
        Unit unit = kNone;
        size_t more = 0;           // files of a burst, complete and not held by name
        bool may_release = false;  // overdue, and at this moment nothing in it was being written
        int64_t first = 0;         // 0: nothing waits but files that are being written
        int64_t last = 0;
    };

    std::string CoverOf(std::string path) const;
    Unit UnitOver(const std::string& path) const;
    void Bump(const std::string& folder, int64_t now);
    void StartUnit(const std::string& path, Unit unit, int64_t now);
    void Drop(const std::string& path);
    void DropTree(const std::string& path);
    bool IsWriting(const std::string& unit, int64_t now) const;

    std::vector<Request> Take(int64_t now, bool all);
    void TakeFiles(const std::string& path, Folder* folder, int64_t now, bool all,
                   std::vector<Request>* changes);
    void TakeUnit(const std::string& path, Folder* folder, int64_t now, bool all,
                  std::vector<Request>* changes);

    std::map<std::string, Folder> folders_;  // only those with something pending
    Moves moves_;
    size_t files_ = 0;  // in all folders
};

}  // namespace koli::watch
