#include "tools/ctl/membership.h"

#include <dirent.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <vector>

namespace koli::ctl {
namespace {

bool IsMember(gid_t group) {
    std::vector<gid_t> groups(static_cast<size_t>(std::max(getgroups(0, nullptr), 0)));
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<size_t>(std::max(count, 0)));
    return getegid() == group || std::find(groups.begin(), groups.end(), group) != groups.end();
}

/// What keeps this user out of `path`, a folder of databases perhaps: itself, or the first of them.  Those
/// that a repair has set aside are nobody's to read.
std::string RefusedAt(const std::string& path) {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path.c_str()), closedir);
    while (const dirent* entry = folder != nullptr ? readdir(folder.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        std::string file = std::string(path).append("/").append(name);
        const bool counts = !name.starts_with('.') && name.find("-damaged-") == std::string_view::npos;
        if (counts && access(file.c_str(), R_OK) != 0) return file;
    }
    return path;
}

bool MayGroup(const struct stat& status) {
    return (status.st_mode & (S_ISSOCK(status.st_mode) ? S_IWGRP : S_IRGRP)) != 0;
}

std::string OwnerName(uid_t user) {
    const struct passwd* entry = getpwuid(user);
    return entry != nullptr ? entry->pw_name : "user " + std::to_string(user);
}

}  // namespace

std::string JoinHint(const std::string& path) {
    struct stat status;
    if (geteuid() == 0) return "";
    if (stat(RefusedAt(path).c_str(), &status) != 0) return RootHint();
    if (status.st_gid == 0 || !MayGroup(status))
        return status.st_uid == geteuid() ? "" : "; only " + OwnerName(status.st_uid) + " may";
    const struct group* entry = getgrgid(status.st_gid);
    if (entry == nullptr || IsMember(status.st_gid)) return "";
    const std::string name = entry->gr_name;
    return "; members of the group \"" + name + "\" may (\"adduser USER " + name + "\", then log in again)";
}

std::string RootHint() {
    return geteuid() == 0 ? "" : "; only root may";
}

}  // namespace koli::ctl
