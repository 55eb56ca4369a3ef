// Who may read the databases and queue requests: root, and the group that the machine has given them to.
#pragma once

#include <string>

namespace koli::ctl {

/// What to add to the refusal of something below or at `path`: the group to join, as "; ...".  "" when that
/// would not help: it is root's alone, or this user is in the group already.
std::string JoinHint(const std::string& path);

}  // namespace koli::ctl
