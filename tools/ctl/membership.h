// Who may read the databases and queue requests: root, and the group that the machine has given them to.
#pragma once

#include <string>

namespace koli::ctl {

/// What to add to the refusal of something directly below or at `path`, as "; ...": the group to join, or the
/// owner where no group helps.  "" for root, and when neither keeps this user out.
std::string JoinHint(const std::string& path);

/// The same of what is root's alone to do.
std::string RootHint();

}  // namespace koli::ctl
