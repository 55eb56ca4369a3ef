// From settled changes to lines of the daemon's queue, and to folders that must be compared.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/watch/sent_changes.h"
#include "tools/watch/settled_change.h"

namespace koli::watch {

class Composer {
  public:
    /// Adds what the changes ask for, and what `sent` completes them with.  Looks at the disk where the right
    /// request depends on it.
    void Add(const std::vector<SettledChange>& changes, SentChanges* sent);

    /// Adds lines that are complete already.
    void AddLines(const std::string& lines, int64_t requests);

    /// Folders of which a comparison has to find what differs; none lies in another one.
    void AddCompare(const std::string& folder);

    const std::string& lines() const { return lines_; }
    int64_t requests() const { return requests_; }

    std::string TakeLines();
    std::vector<std::string> TakeCompares();
    bool HasCompares() const { return !compares_.empty(); }

  private:
    /// A thing that moves or is gone, and where its rows are meanwhile.
    struct Move {
        SettledChange change;
        std::string place;
        bool is_aside = false;
    };
    void AddOne(const SettledChange& change);
    void AddLine(char code, const std::string& path);
    void AddBurst(const SettledChange& burst);
    void Lift(const SettledChange& change);
    void PlaceAll();
    void PlaceOne(const Move& move);
    std::string AsidePath(const std::string& place, bool is_tree) const;

    std::string stamp_;        // of the names of this moment
    std::vector<Move> moves_;  // that have been lifted and not placed yet
    std::string lines_;
    int64_t requests_ = 0;  // ever
    std::vector<std::string> compares_;
};

}  // namespace koli::watch
