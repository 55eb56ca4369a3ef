// From differences to the requests that remove them.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "tools/ctl/tree_compare.h"

namespace koli::ctl {

struct SyncItem {
    Change change;
    std::string path;
};

class SyncPlan {
  public:
    void Add(Change change, const std::string& path);

    const std::vector<SyncItem>& items() const { return items_; }  ///< the differences, as they were told
    const std::string& lines() const { return lines_; }            ///< the requests
    int64_t requests() const { return requests_; }
    int64_t Count(Change change) const;
    int64_t uncarried() const { return uncarried_; }  ///< gone, but with a name that no request can carry

  private:
    void AddLine(char code, const std::string& path);
    void AddNearestFolder(std::string path);

    std::vector<SyncItem> items_;
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
