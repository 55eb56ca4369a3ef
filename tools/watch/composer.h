// From what has settled to lines of the daemon's queue, and to folders that must be compared.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/watch/moves.h"

namespace koli::watch {

class Composer {
  public:
    /// Looks at the disk where the right request depends on it.
    void Add(const std::vector<Request>& requests);

    /// Adds lines that are complete already.
    void AddLines(const std::string& lines, int64_t requests);

    /// Folders of which a comparison has to find what differs; none lies in another one.
    void AddCompare(const std::string& folder);

    const std::string& lines() const { return lines_; }
    int64_t requests() const { return requests_; }

    std::string TakeLines();
    std::vector<std::string> TakeCompares();

    /// True when there is something to do once the queue has been executed.
    bool IsWaiting() const { return has_unexecuted_ || !compares_.empty(); }

    /// The queue has been executed, and no move that was made before is still to be told.  Adds the folders
    /// about which the daemon, which looks at the disk when it executes a request, may have been mistaken.
    /// False when there are more than were noted.
    bool Executed();

  private:
    /// A folder that has moved or gone.
    struct Vacated {
        std::string path;
        std::string moved_to;  // "" when it was removed
        bool had_unexecuted;   // the daemon may have looked for what was in it when it had moved on
    };
    void AddLine(char code, const std::string& path);
    void AddFiles(const std::vector<std::string>& paths);
    void NoteVacated(const Vacated& folder);

    std::string lines_;
    int64_t requests_ = 0;  // ever
    std::vector<std::string> compares_;
    std::vector<Vacated> vacated_;
    bool has_unexecuted_ = false;
};

}  // namespace koli::watch
