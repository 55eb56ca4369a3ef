// From differences to the requests that remove them.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tools/ctl/tree_compare.h"

namespace koli::ctl {

class SyncPlan {
  public:
    /// What is kept of the differences beside their numbers: there may be as many as there are files.
    enum Keep { kRequests, kDifferences };
    explicit SyncPlan(Keep keep) : keep_(keep) {}

    void Add(Change change, const std::string& path);

    /// How much has been added, and back to that: for a top that turns out not to count.
    struct Mark {
        std::array<int64_t, kChanges> counts;
        size_t differences, lines;  // bytes
        int64_t requests, uncarried;
    };
    Mark Here() const;
    void BackTo(const Mark& mark);

    int64_t Count(Change change) const { return counts_[static_cast<size_t>(change)]; }
    bool empty() const;
    int64_t requests() const { return requests_; }    ///< how many lines there are, or would be
    int64_t uncarried() const { return uncarried_; }  ///< gone, but with a name that no request can carry

    /// The lines of the kept requests; none are kept after that.
    std::string TakeLines() { return std::exchange(lines_, {}); }
    /// The kept differences, as they were told.
    void EachDifference(const ChangeHandler& take) const;

  private:
    void AddLine(char code, const std::string& path);
    void AddNearestFolder(std::string path);

    const Keep keep_;
    std::array<int64_t, kChanges> counts_{};
    std::deque<char> differences_;  // of each its change and its path with a NUL; grows without a copy
    std::string lines_;
    int64_t requests_ = 0;
    int64_t uncarried_ = 0;
    std::unordered_set<std::string> whole_folders_;  // queued in place of something that cannot be
};

/// "new", "changed", "gone", ...: one word for people and programs.
const char* ChangeName(Change change);

/// The paths without those that lie at or below another one, in order.
std::vector<std::string> WithoutNested(std::vector<std::string> paths);

}  // namespace koli::ctl
