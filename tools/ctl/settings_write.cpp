#include "tools/ctl/settings_write.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/unique_fd.h"
#include "tools/ctl/small_file.h"

namespace koli::ctl {
namespace {

constexpr mode_t kMode = 0644;  // of a new file

/// The key that a line sets; "" when it is a comment or anything else.
std::string KeyOf(const std::string& line) {
    constexpr const char kBlanks[] = " \t";
    const size_t first = line.find_first_not_of(kBlanks);
    const size_t equals = line.find('=');
    if (first == std::string::npos || equals == std::string::npos || line[first] == '#') return "";
    const size_t last = line.find_last_not_of(kBlanks, equals == 0 ? 0 : equals - 1);
    return last == std::string::npos || last < first ? "" : line.substr(first, last - first + 1);
}

/// As it is read back: blanks and quotes around a value would be taken off.
std::string Written(const std::string& value) {
    constexpr std::string_view kTakenOff = " \t\r\"";
    const bool is_bare = value.empty() || (kTakenOff.find(value.front()) == std::string_view::npos &&
                                           kTakenOff.find(value.back()) == std::string_view::npos);
    return is_bare ? value : '"' + value + '"';
}

/// Where the file is that a link leads to, if it is one.
std::string Resolved(const std::string& file) {
    const std::unique_ptr<char, decltype(&free)> real(realpath(file.c_str(), nullptr), &free);
    return real != nullptr ? real.get() : file;
}

/// Beside the file that it is to replace.
bool WriteBeside(const std::string& path, const std::string& text, const struct stat& like) {
    const UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
    const ssize_t written = file.valid() ? write(file.get(), text.data(), text.size()) : -1;
    if (written >= 0 && static_cast<size_t>(written) != text.size()) errno = ENOSPC;
    return written >= 0 && static_cast<size_t>(written) == text.size() &&
           fchown(file.get(), like.st_uid, like.st_gid) == 0 &&
           fchmod(file.get(), like.st_mode & 07777) == 0 && fsync(file.get()) == 0;
}

}  // namespace

std::string WithSettings(const std::string& text, const Settings& settings) {
    std::string result;
    Settings left = settings;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, end - at);
        at = end + 1;
        const std::string key = KeyOf(line);
        const auto is_it = [&key](const auto& setting) { return setting.first == key; };
        if (std::ranges::any_of(settings, is_it)) {
            const auto first = std::ranges::find_if(left, is_it);
            if (first == left.end()) continue;  // a later line of the same key would win
            line = first->first + "=" + Written(first->second);
            left.erase(first);
        }
        result.append(line).append("\n");
    }
    for (const auto& [key, value] : left)
        result.append(key).append("=").append(Written(value)).append("\n");
    return result;
}

bool SettingsWrite(const std::string& file, const Settings& settings, std::string* error) {
    const std::string target = Resolved(file), beside = target + ".new";
    struct stat status {};
    status.st_mode = kMode;
    status.st_uid = geteuid();
    status.st_gid = getegid();
    std::string text;
    const bool is_there = stat(target.c_str(), &status) == 0;
    const bool is_written = (is_there ? SmallFileRead(target, &text) : errno == ENOENT) &&
                            WriteBeside(beside, WithSettings(text, settings), status) &&
                            rename(beside.c_str(), target.c_str()) == 0;
    if (is_written) return true;
    *error = "cannot write " + file + ": " + strerror(errno);
    unlink(beside.c_str());
    return false;
}

}  // namespace koli::ctl
