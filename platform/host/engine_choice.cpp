#include "platform/host/engine_choice.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "base/log.h"
#include "base/media_info.h"
#include "base/passing_error.h"
#include "platform/host/engine_load.h"
#include "platform/host/sqlite/engine.h"
#include "platform/kolisdk.h"
#include "platform/paths.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";
constexpr const char kDefaultPlace[] = "sqlite:/var/lib/koli";
constexpr std::string_view kFiles = "sqlite:";
constexpr std::string_view kServer = "postgresql:";

std::string& ChosenPlace() {
    static auto* const chosen = new std::string;  // never destroyed: the process may end at any instant
    return *chosen;
}

/// What the settings say of `key`, or else `otherwise`; "" with the reason when they cannot be read now.
std::string Setting(const char* key, const std::string& otherwise, SqlFailure* failure) {
    char value[kPathSize];
    const int length = KLIBFileGetKeyValue(paths::kConfig, key, value, sizeof value, 0);
    const int error = errno;
    const bool is_set = length >= 0;
    if (length >= static_cast<int>(sizeof value)) {
        *failure = {.reason = std::string("the setting is too long: ") + key, .passes = true};
        return "";
    }
    if (!is_set && error != 0 && IsPassingError(error)) {
        *failure = {.reason = std::string("cannot read the settings: ") + strerror(error), .passes = true};
        return "";
    }
    return is_set && value[0] != '\0' ? value : otherwise;
}

std::string HostName() {
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    return name;
}

/// A URI has the same word in front.
std::string ConninfoOf(const std::string& place) {
    const bool is_named = place.starts_with(kServer) && !place.substr(kServer.size()).starts_with("//");
    return is_named ? place.substr(kServer.size()) : place;
}

std::unique_ptr<DatabaseEngine> EngineOnServer(const std::string& conninfo, const std::string& library,
                                               SqlFailure* failure) {
    ServerPlace place{conninfo, library};
    if (library.empty()) place.library = LibraryOfMachine(failure);
    if (failure->reason.empty()) place.reader = Setting("reader", "", failure);
    return failure->reason.empty() ? ServerEngine(place, failure) : nullptr;
}

}  // namespace

std::unique_ptr<DatabaseEngine> EngineAt(const std::string& place, const std::string& library,
                                         SqlFailure* failure) {
    if (place.starts_with(kServer)) return EngineOnServer(ConninfoOf(place), library, failure);
    if (!place.starts_with(kFiles) || place.substr(kFiles.size(), 1) != "/") {
        // What stands there may hold a password.
        KOLI_LOG("Unknown database [%s] in %s.", place.substr(0, place.find(':')).c_str(), paths::kConfig);
        *failure = {.reason = "the settings name an unknown database engine"};
        return nullptr;
    }
    if (library.empty()) return std::make_unique<SqliteEngine>(place.substr(kFiles.size()));
    *failure = {.reason = "databases in files hold one library, which has no name"};
    return nullptr;
}

std::unique_ptr<DatabaseEngine> EngineIn(const std::string& directory, SqlFailure* failure,
                                         const std::string& library) {
    std::string chosen = !directory.empty() ? directory : ChosenPlace();
    if (!chosen.empty() && !chosen.starts_with(kServer)) chosen = std::string(kFiles) + chosen;
    if (chosen.empty()) chosen = Setting("database", kDefaultPlace, failure);
    return chosen.empty() ? nullptr : EngineAt(chosen, library, failure);
}

std::string LibraryOfMachine(SqlFailure* failure) {
    return Setting("library", HostName(), failure);
}

ServerPlan ServerSetUpAt(const std::string& place, const std::string& library, bool is_to_make) {
    return ServerSetUp({ConninfoOf(place), library}, is_to_make);
}

void DatabaseDirectoryChoose(const char* directory) {
    ChosenPlace() = directory != nullptr ? directory : "";
}

}  // namespace koli::host
