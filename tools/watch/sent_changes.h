// What has been asked for and may not have been executed yet.
//
// The daemon looks at the disk when it executes a request, not when it was written: it does not find what was
// to be added once that has moved on, and removes nothing from a path that is in use again.
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

    /// The queue has been executed.  Adds to `stale` the folders that must be compared, and returns false
    /// when there are more than were noted.  `exists` tells whether a path is on the disk.
    bool Executed(const std::function<bool(const std::string&)>& exists, std::vector<std::string>* stale);

    bool empty() const { return added_.empty() && vacated_.empty() && !has_more_vacated_; }

  private:
    void NoteAdded(const std::string& path);
    void NoteVacated(const SettledChange& change);

    struct Added {
        std::string path;
        bool was_missing = false;  // when the queue had been executed
    };
    struct Vacated {
        std::string path;
        std::string moved_to;  // "" when it was removed
    };
    std::vector<Added> added_;      // files and folders
    std::vector<Vacated> vacated_;  // folders
    bool has_more_added_ = false;   // than there is room for
    bool has_more_vacated_ = false;
};

}  // namespace koli::watch
