// Folders that were moved or removed, in the order in which it happened, until they are asked for.
//
// The daemon executes a request against what is on the disk by then: a folder moved twice must not be told as
// two moves, because the path between them exists no more.  So what is still held here is rewritten when a
// later move or removal reaches it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/watch/settled_change.h"

namespace koli::watch {

class TreeChanges {
  public:
    /// The folder `old_path` with all below it is `new_path` now.
    void Moved(const std::string& new_path, const std::string& old_path, int64_t now);

    /// The folder is gone.
    void Removed(const std::string& path, int64_t now);

    /// A folder appeared at a path: what was stored for an earlier folder of that name must not stay.  True
    /// when such a removal was held; the daemon would refuse it now, and it is dropped.
    bool Reappeared(const std::string& path);

    /// `folder` is out of reach, a mount point or a whole share: drops what lies in it.  What was moved into
    /// it from elsewhere is gone from there.
    void Lost(const std::string& folder);

    /// Hands over everything, oldest first.
    std::vector<SettledChange> Take();

    bool HasMoves() const;
    bool empty() const { return held_.empty(); }
    int64_t oldest() const { return held_.front().time; }

    /// True, once, after more was to be held than there is room for: everything must be compared.
    bool TakeOverflow();

  private:
    struct Held {
        bool is_move;
        std::string path;
        std::string old_path;  // of a move
        int64_t time;          // milliseconds
    };
    bool Chain(const std::string& new_path, const std::string& old_path);
    void Hold(Held change);

    std::vector<Held> held_;
    bool has_overflown_ = false;
};

}  // namespace koli::watch
