// The albums that are stored, beside the folders that should have one.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "tools/ctl/store_reader.h"

namespace koli::ctl {

class Albums {
  public:
    /// None of them: no folder counts as one without its album.
    Albums() = default;

    /// Those of the share to which the photo share's link leads.
    explicit Albums(const StoreReader& store);

    /// True for a folder of the share's first two levels that a walk makes an album of, and that is none.
    bool IsMissing(const std::string& folder) const;

    /// The folders below `top` that the stored albums stand for, in order.
    std::vector<std::string> FoldersBelow(const std::string& top) const;

  private:
    std::string share_;  // "" or its path, with '/' behind it
    std::unordered_set<std::string> names_;
};

}  // namespace koli::ctl
