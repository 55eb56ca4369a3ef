#include "tools/ctl/request_line.h"

#include <unistd.h>
#include <climits>
#include <cstring>

#include "index/record/share_path.h"
#include "platform/paths.h"

namespace koli::ctl {
namespace {

constexpr size_t kFrame = sizeof "a:\n" - 1;  // bytes of a line around its argument

/// Appends the components of `path` to `absolute`, which holds none or "/a/b".
void AppendComponents(std::string_view path, std::string* absolute) {
    while (!path.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        path.remove_prefix(name.size() < path.size() ? name.size() + 1 : name.size());
        if (name == "..") {
            absolute->resize(absolute->empty() ? 0 : absolute->rfind('/'));
        } else if (!name.empty() && name != ".") {
            absolute->append("/").append(name);
        }
    }
}

bool HasLineBreak(std::string_view path) {
    return path.find('\n') != std::string_view::npos || path.find('\0') != std::string_view::npos;
}

}  // namespace

std::string AbsolutePath(std::string_view path, std::string_view folder) {
    if (path.empty()) return "";
    std::string absolute;
    if (path.front() != '/') AppendComponents(folder, &absolute);
    AppendComponents(path, &absolute);
    return absolute.empty() ? "/" : absolute;
}

std::string VolumePath(const std::string& path) {
    for (const std::string_view link : {paths::kMusicShare, paths::kVideoShare, paths::kPhotoShare}) {
        if (!path.starts_with(link)) continue;
        const std::string rest = path.substr(link.size());
        char target[kPathSize];
        if ((!rest.empty() && rest.front() != '/') || !ShareTargetGet(link.data(), target)) continue;
        return AbsolutePath(target + rest, link.substr(0, link.rfind('/')));
    }
    return path;
}

std::vector<std::string> ShareFolders(const std::string& library) {
    std::vector<std::string> folders;
    for (const std::string link : {paths::kMusicShare, paths::kVideoShare, paths::kPhotoShare}) {
        char target[kPathSize];
        const size_t name = link.rfind('/') + 1;
        if (library != "all" && library != link.substr(name)) continue;
        if (ShareTargetGet(link.c_str(), target))
            folders.push_back(AbsolutePath(target, link.substr(0, name)));
    }
    return folders;
}

bool IsAtOrBelow(std::string_view path, std::string_view folder) {
    if (folder.empty() || folder == "/") return !folder.empty();
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::string DaemonPath(std::string_view path) {
    char folder[PATH_MAX];
    if (getcwd(folder, sizeof folder) == nullptr) folder[0] = '\0';
    if (folder[0] != '/' && !path.starts_with('/')) return "";
    return VolumePath(AbsolutePath(path, folder));
}

const char* PathRefusal(std::string_view path) {
    if (path.empty()) return "an empty path, or one in a working folder that is gone";
    if (HasLineBreak(path)) return "a path with a line break cannot be queued; queue its folder";
    return path.size() + kFrame > kRequestLineMax ? "the path is too long to be queued" : nullptr;
}

std::string RequestLine(char code, std::string_view argument) {
    return std::string(1, code).append(":").append(argument).append("\n");
}

const char* RenameRefusal(std::string_view new_path, std::string_view old_path) {
    for (const std::string_view path : {new_path, old_path}) {
        if (const char* refusal = PathRefusal(path); refusal != nullptr) return refusal;
        if (path.find(':') != std::string_view::npos)
            return "a rename cannot carry a path with a ':'; remove the old path and add the new one";
    }
    const bool fits = new_path.size() + 1 + old_path.size() + kFrame <= kRequestLineMax;
    return fits ? nullptr : "the two paths together are too long for a rename";
}

std::string RenameLine(std::string_view new_path, std::string_view old_path) {
    return RequestLine('N', std::string(new_path).append(":").append(old_path));
}

}  // namespace koli::ctl
