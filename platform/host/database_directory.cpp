#include "platform/host/database_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "base/folder_sync.h"
#include "base/log.h"
#include "base/media_info.h"
#include "base/passing_error.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";
constexpr const char kDefaultDirectory[] = "/var/lib/koli";
constexpr mode_t kDirectoryMode = 0750;  // what people's files hold is not for everybody
constexpr mode_t kParentMode = 0755;
constexpr std::string_view kEngine = "sqlite:";

std::string& ChosenDirectory() {
    static auto* const chosen = new std::string;  // never destroyed: the process may end at any instant
    return *chosen;
}

}  // namespace

std::string DatabaseDirectory() {
    if (!ChosenDirectory().empty()) return ChosenDirectory();
    char value[kPathSize];
    const bool is_set = KLIBFileGetKeyValue(paths::kConfig, "database", value, sizeof value, 0) >= 0;
    if (!is_set && errno != 0 && IsPassingError(errno)) return "";
    if (!is_set || value[0] == '\0') return kDefaultDirectory;
    const std::string_view engine(value);
    if (engine.substr(0, kEngine.size()) == kEngine && engine.substr(kEngine.size(), 1) == "/")
        return std::string(engine.substr(kEngine.size()));
    KOLI_LOG("%s (%d) Unknown database [%s] in %s.", value, paths::kConfig);
    errno = EINVAL;
    return "";
}

void DatabaseDirectoryChoose(const char* directory) {
    ChosenDirectory() = directory != nullptr ? directory : "";
}

bool MakeDirectories(const std::string& directory) {
    for (size_t end = 0; end != std::string::npos;) {
        const size_t begin = end;
        end = directory.find('/', begin + 1);
        const mode_t mode = end == std::string::npos ? kDirectoryMode : kParentMode;
        if (mkdir(directory.substr(0, end).c_str(), mode) == 0) {
            if (!FolderSync(begin > 0 ? directory.substr(0, begin).c_str() : "/")) return false;
        } else if (errno != EEXIST && errno != EISDIR) {
            return false;
        }
    }
    struct stat status;
    errno = ENOTDIR;
    return stat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace koli::host
