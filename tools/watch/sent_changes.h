// What has been asked for and may not have been executed yet.
//
// The daemon looks at the disk when it executes a request, not when it was written.  A folder that is moved
// on or removed while an earlier move of it still waits in the queue makes that request point nowhere; then
// the later request must also do the earlier one's work.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "tools/watch/settled_change.h"

namespace koli::watch {

class SentChanges {
  public:
    /// What to ask for so that `change` comes right whether or not the earlier requests have been executed;
    /// notes it as asked for.
    std::vector<SettledChange> Complete(const SettledChange& change);

    /// The queue has been executed.  True when a request may have gone wrong on the way: everything must be
    /// compared.  `exists` tells whether a path is on the disk.
    bool Executed(const std::function<bool(const std::string&)>& exists);

    bool empty() const { return moves_.empty() && added_.empty() && removed_.empty() && !is_doubtful_; }

  private:
    void CompleteMove(const SettledChange& move, std::vector<SettledChange>* changes);
    void CompleteRemoval(const SettledChange& removal, std::vector<SettledChange>* changes);
    void Note(const SettledChange& change);
    template <typename List>
    bool HasRoom(const List& list);

    struct Move {
        std::string path;
        std::string old_path;
    };
    struct Added {
        std::string path;
        bool was_missing = false;  // when the queue had been executed
    };
    std::vector<Move> moves_;           // of folders
    std::vector<Added> added_;          // files and folders
    std::vector<std::string> removed_;  // folders
    bool has_more_added_ = false;       // than there is room for
    bool is_doubtful_ = false;
};

}  // namespace koli::watch
