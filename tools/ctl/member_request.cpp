#include "tools/ctl/member_request.h"

#include <algorithm>
#include <cstring>

#include "index/record/share_path.h"

namespace koli::ctl {
namespace {

using Shares = std::vector<std::string>;

constexpr std::string_view kLibraryRequests[] = {"R:music", "R:video", "R:photo", "R:all", "U:photo"};

bool IsInShare(std::string_view path, const Shares& shares, bool with_top) {
    std::string collapsed(path);
    PathCollapse(collapsed.data());
    collapsed.resize(strlen(collapsed.c_str()));
    if (HasParentComponent(collapsed.c_str())) return false;
    return std::any_of(shares.begin(), shares.end(), [&](const std::string& share) {
        return collapsed.starts_with(share + '/') || (with_top && collapsed == share);
    });
}

bool IsRenameInShares(std::string_view paths, const Shares& shares) {
    const size_t colon = std::min(paths.find(':'), paths.size() - 1);
    const std::string_view new_path = paths.substr(0, colon), old_path = paths.substr(colon + 1);
    return old_path.find(':') == std::string_view::npos && IsInShare(new_path, shares, false) &&
           IsInShare(old_path, shares, false);
}

}  // namespace

const char* MemberRefusal(std::string_view line, const Shares& shares) {
    const std::string_view argument = line.substr(2);
    bool is_inside = false;
    if (line[0] == 'N')
        is_inside = IsRenameInShares(argument, shares);
    else if (strchr("AaDd", line[0]) != nullptr)
        is_inside = IsInShare(argument, shares, strchr("Aa", line[0]) != nullptr);
    else if (std::count(std::begin(kLibraryRequests), std::end(kLibraryRequests), line) == 0)
        return "is only root's to ask";
    else
        return nullptr;
    return is_inside ? nullptr : "names what is in no share, which is only root's to ask";
}

}  // namespace koli::ctl
