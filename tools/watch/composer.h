// From settled changes to lines of the daemon's queue, and to folders that must be compared.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/watch/settled_change.h"

namespace koli::watch {

class Composer {
  public:
    /// Adds what the change asks for.  Looks at the disk where the right request depends on it.
    void Add(const SettledChange& change);

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
    void AddLine(char code, const std::string& path);
    void AddFileMove(const SettledChange& move);
    void AddTreeMove(const SettledChange& move);
    void AddTreeRemoval(const std::string& path);
    std::string SetAside(const std::string& path, const std::string& extension = "");
    void AddBurst(const SettledChange& burst);

    std::string lines_;
    int64_t requests_ = 0;  // ever
    std::vector<std::string> compares_;
};

}  // namespace koli::watch
