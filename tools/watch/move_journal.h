// What was moved, and which folders were removed, in the order in which it happened and by the paths that it
// had then, until it is asked for.
//
// Captions, albums and rights are stored by path and follow such requests alone: in this order they end where
// the files are, however often a name was used again meanwhile.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/watch/settled_change.h"

namespace koli::watch {

class MoveJournal {
  public:
    /// `kind` is kMoveFile or kMoveTree: `old_path` with all below it is `new_path` now.
    void Moved(SettledChange::Kind kind, const std::string& new_path, const std::string& old_path,
               int64_t now);

    /// The folder is gone.
    void Removed(const std::string& path, int64_t now);

    /// `folder` is out of reach, a mount point or a whole share: drops what lies in it.  What was moved into
    /// it from elsewhere is gone from there.
    void Lost(const std::string& folder);

    /// Hands over everything, oldest first.
    std::vector<SettledChange> Take();

    bool empty() const { return held_.empty(); }
    /// True when the oldest entry is `quiet` milliseconds old, or there are so many that they should leave.
    bool IsDue(int64_t now, int64_t quiet) const;

    /// True, once, after more was to be held than there is room for: everything must be compared.
    bool TakeOverflow();

  private:
    void Hold(SettledChange change, int64_t now);

    std::vector<SettledChange> held_;
    int64_t oldest_ = 0;  // milliseconds
    bool has_overflown_ = false;
};

}  // namespace koli::watch
