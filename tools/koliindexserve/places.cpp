#include "tools/koliindexserve/places.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace koli::serve {
namespace {

constexpr char kFolder[] = "/koliindex";

/// The value of an environment variable that holds an absolute path, "" for any other.
std::string PathFrom(const char* variable) {
    const char* const value = getenv(variable);
    return value != nullptr && *value == '/' ? value : "";
}

std::string Home() {
    const std::string home = PathFrom("HOME");
    const passwd* const user = home.empty() ? getpwuid(geteuid()) : nullptr;
    return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : home;
}

}  // namespace

std::string StateFolder() {
    if (std::string service = PathFrom("STATE_DIRECTORY"); !service.empty()) return service;
    if (std::string state = PathFrom("XDG_STATE_HOME"); !state.empty()) return state + kFolder;
    const std::string home = Home();
    return home.empty() ? "" : home + "/.local/state" + kFolder;
}

std::string CacheFolder() {
    constexpr char kPictures[] = "/pictures";
    if (std::string service = PathFrom("CACHE_DIRECTORY"); !service.empty()) return service + kPictures;
    if (std::string cache = PathFrom("XDG_CACHE_HOME"); !cache.empty()) return cache + kFolder + kPictures;
    const std::string home = Home();
    return home.empty() ? "" : home + "/.cache" + kFolder + kPictures;
}

}  // namespace koli::serve
