#include "platform/host/engine_choice.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include "base/log.h"
#include "base/media_info.h"
#include "base/passing_error.h"
#include "platform/host/sqlite/engine.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";
constexpr const char kDefaultDirectory[] = "/var/lib/koli";
constexpr std::string_view kEngine = "sqlite:";

std::string& ChosenDirectory() {
    static auto* const chosen = new std::string;  // never destroyed: the process may end at any instant
    return *chosen;
}

/// The directory that the settings name; "" with the reason.
std::string DirectoryOfSettings(SqlFailure* failure) {
    char value[kPathSize];
    const bool is_set = KLIBFileGetKeyValue(paths::kConfig, "database", value, sizeof value, 0) >= 0;
    const int error = errno;
    if (!is_set && error != 0 && IsPassingError(error)) {
        *failure = {.reason = strerror(error), .passes = true};
        return "";
    }
    if (!is_set || value[0] == '\0') return kDefaultDirectory;
    const std::string_view engine(value);
    if (engine.substr(0, kEngine.size()) == kEngine && engine.substr(kEngine.size(), 1) == "/")
        return std::string(engine.substr(kEngine.size()));
    KOLI_LOG("Unknown database [%s] in %s.", value, paths::kConfig);
    *failure = {.reason = "unknown engine"};
    return "";
}

}  // namespace

std::unique_ptr<DatabaseEngine> EngineIn(const std::string& directory, SqlFailure* failure) {
    std::string chosen = !directory.empty() ? directory : ChosenDirectory();
    if (chosen.empty()) chosen = DirectoryOfSettings(failure);
    return chosen.empty() ? nullptr : std::make_unique<SqliteEngine>(chosen);
}

void DatabaseDirectoryChoose(const char* directory) {
    ChosenDirectory() = directory != nullptr ? directory : "";
}

}  // namespace koli::host
