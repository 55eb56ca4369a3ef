// What the members of the queue's group may ask the daemon for; root may ask for anything.
//
// They are not to learn from the databases what they may not read otherwise, so that a path has to lie in a
// share, and not to take away what no file can tell again, so that no table is emptied for them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace koli::ctl {

/// Why the service refuses a request line (without its newline); null when it takes it.  `shares` are the
/// folders that the shares' links lead to: a path through a link is refused, and so is one with "..".
const char* MemberRefusal(std::string_view line, const std::vector<std::string>& shares);

}  // namespace koli::ctl
