// What was moved, and which folders were removed, until it is asked for.
//
// Captions, albums and rights are stored by path and follow requests alone.  Each thing that moved is held
// once, with the path at which the databases have it and the one where it is now: the names between, which
// something else may bear by the time the requests are executed, are in none of them.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/watch/settled_change.h"

namespace koli::watch {

class MoveJournal {
  public:
    /// `kind` is kMoveFile or kMoveTree: `old_path` with all below it is `new_path` now.  False when it had
    /// moved to `old_path` before: what is stored there is that of a file that it replaced.
    bool Moved(SettledChange::Kind kind, const std::string& new_path, const std::string& old_path,
               int64_t now);

    /// The file is gone; this matters when it had moved there.
    void FileRemoved(const std::string& path);

    /// The folder is gone.
    void Removed(const std::string& path, int64_t now);

    /// `folder` is out of reach, a mount point or a whole share: what lies in it stays stored.  What was
    /// moved into it from elsewhere is gone from there.
    void Lost(const std::string& folder);

    /// Hands over everything, in the order in which it left the paths at which it is stored.
    std::vector<SettledChange> Take();

    bool empty() const { return held_.empty(); }
    /// True when the oldest entry is `quiet` milliseconds old, or there are so many that they should leave.
    bool IsDue(int64_t now, int64_t quiet) const;

    /// True, once, after more was to be held than there is room for: everything must be compared.
    bool TakeOverflow();

  private:
    struct Held {
        bool is_tree;
        bool was_removed;  // where it had always been
        std::string stored;
        std::string now;  // "" when it is gone
        int inside;       // as of a SettledChange
        bool is_lost = false;
    };
    Held Found(bool is_tree, const std::string& path) const;
    void Hold(Held held, int64_t now);
    void Clear(const std::string& path, int64_t now);
    void Place(Held& held, const std::string& path);
    int TreeAround(const std::string& path) const;

    std::vector<Held> held_;
    std::vector<int> trees_;                     // the folders among them
    std::unordered_map<std::string, int> here_;  // by where they are now
    int64_t oldest_ = 0;                         // milliseconds
    bool has_overflown_ = false;
};

}  // namespace koli::watch
