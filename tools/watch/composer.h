// From what has settled to lines of the daemon's queue, and to folders that must be compared.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "tools/watch/moves.h"

namespace koli::watch {

class Composer {
  public:
    /// Looks at the disk where the right request depends on it.
    void Add(const std::vector<Request>& requests);

    /// Adds the lines that a comparison has found.
    void AddFound(std::string lines);

    /// Folders of which a comparison has to find what differs; none lies in another one.
    void AddCompare(const std::string& folder);

    const std::string& lines() const { return lines_; }

    std::string TakeLines();
    std::vector<std::string> TakeCompares();

    /// True when there is something to do once the queue has been executed.
    bool IsWaiting() const {
        return are_all_asked_ || !asked_.empty() || !vacated_.empty() || !compares_.empty();
    }

    /// The queue has been executed, and no move that was made before is still to be told.  Adds the folders
    /// about which the daemon, which looks at the disk when it executes a request, may have been mistaken.
    /// False when there are more than were noted.
    bool Executed();

  private:
    /// A folder that has moved or gone.
    struct Vacated {
        std::string path;
        std::string moved_to;  // "" when it was removed
        bool was_asked;        // the daemon may have looked for what was in it when it had moved on
    };
    void AddLine(char code, const std::string& path);
    void AddBurst(const std::string& folder, size_t files);
    void NoteVacated(const Vacated& folder);
    bool WasAsked(const std::string& path) const;

    std::string lines_;
    std::vector<std::string> compares_;
    // What has been asked for and may not have been executed yet.
    std::set<std::string> asked_;  // files and folders to be added
    bool are_all_asked_ = false;   // more than is noted
    std::vector<Vacated> vacated_;
};

}  // namespace koli::watch
