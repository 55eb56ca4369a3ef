#include "tools/ctl/membership.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace koli::ctl {
namespace {

bool IsMember(gid_t group) {
    std::vector<gid_t> groups(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<size_t>(std::max(count, 0)));
    return getegid() == group || std::find(groups.begin(), groups.end(), group) != groups.end();
}

}  // namespace

std::string JoinHint(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || status.st_gid == 0 || IsMember(status.st_gid)) return "";
    const struct group* entry = getgrgid(status.st_gid);
    if (entry == nullptr) return "";
    const std::string name = entry->gr_name;
    return "; members of the group \"" + name + "\" may (\"adduser USER " + name + "\", then log in again)";
}

}  // namespace koli::ctl
